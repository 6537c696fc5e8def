#pragma once
// The weather alert notification state on disk, shared by every process of the user.
//
// "state.json" and "state.lock" lie in "Library/Application Support/Weather Alert Notifications"
// of the container. `transaction` is the only way to the state: under an exclusive `flock` on
// "state.lock" it reads the state, lets `mutate` change it, and replaces the file atomically when
// it changed (or did not exist). A missing file starts from `legacyRecordValues()`; a file that
// does not decode fails the transaction and is never overwritten, so a corrupt state blocks every
// pass until someone removes it.
//
// Context: synchronous; blocks the calling thread while another process holds the lock. Never
// call it while holding a lock of your own or from a strand that must stay responsive. Raises
// std::system_error (with errno) when the folder or the lock cannot be had, FileError when the
// file cannot be read or written, DecodingError for a corrupt state, and whatever `mutate` raises.

#include <filesystem>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <type_traits>

#include "notifications/weather_alert_notification_records.hpp"

namespace ombrine {

class KeyValueStore;

class WeatherAlertNotificationStore {
 public:
  using LegacyRecordValues = std::function<std::set<std::string>()>;

  // "<container>/Library/Application Support/Weather Alert Notifications".
  static std::filesystem::path defaultFolder();
  // The strings under "sentWarningIds" in `sharedDefaults`, or the empty set.
  static LegacyRecordValues legacyRecordValuesFrom(const KeyValueStore& sharedDefaults);

  WeatherAlertNotificationStore(std::filesystem::path folder, LegacyRecordValues legacyRecordValues);

  const std::filesystem::path& stateFileURL() const { return stateFile_; }
  const std::filesystem::path& lockFileURL() const { return lockFile_; }
  std::set<std::string> legacyRecordValues() const { return legacy_ ? legacy_() : std::set<std::string>{}; }

  template <class Mutate>
  std::invoke_result_t<Mutate&, WeatherAlertNotificationPersistedState&> transaction(Mutate&& mutate) {
    using Result = std::invoke_result_t<Mutate&, WeatherAlertNotificationPersistedState&>;
    if constexpr (std::is_void_v<Result>) {
      run([&](WeatherAlertNotificationPersistedState& state) { mutate(state); });
    } else {
      std::optional<Result> result;
      run([&](WeatherAlertNotificationPersistedState& state) { result.emplace(mutate(state)); });
      return std::move(*result);
    }
  }

  // The state as it is on disk now, without taking the lock (readers see one whole file);
  // nothing when there is none. Raises as `transaction` does for a corrupt file.
  std::optional<WeatherAlertNotificationPersistedState> read() const;

 private:
  void run(const std::function<void(WeatherAlertNotificationPersistedState&)>& mutate);

  std::filesystem::path stateFile_;
  std::filesystem::path lockFile_;
  LegacyRecordValues legacy_;
};

}  // namespace ombrine
