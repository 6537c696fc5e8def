#include "notifications/weather_alert_notification_store.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "platform/atomic_file.hpp"
#include "platform/key_value_store.hpp"
#include "platform/paths.hpp"

namespace ombrine {

namespace fs = std::filesystem;

namespace {

// Holds the open lock file; unlocks and closes on every way out.
class LockFile {
 public:
  explicit LockFile(const fs::path& path) {
    fd_ = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (fd_ < 0) throw std::system_error(errno, std::generic_category(), path.string());
    while (::flock(fd_, LOCK_EX) != 0) {
      if (errno == EINTR) continue;
      const int saved = errno;
      ::close(fd_);
      throw std::system_error(saved, std::generic_category(), path.string());
    }
  }
  ~LockFile() {
    ::flock(fd_, LOCK_UN);
    ::close(fd_);
  }
  LockFile(const LockFile&) = delete;
  LockFile& operator=(const LockFile&) = delete;

 private:
  int fd_ = -1;
};

}  // namespace

fs::path WeatherAlertNotificationStore::defaultFolder() {
  return applicationSupportDirectory() / "Weather Alert Notifications";
}

WeatherAlertNotificationStore::LegacyRecordValues WeatherAlertNotificationStore::legacyRecordValuesFrom(
    const KeyValueStore& sharedDefaults) {
  return [&sharedDefaults] {
    std::set<std::string> values;
    const auto stored = sharedDefaults.value("sentWarningIds");
    if (!stored) return values;
    const auto* array = std::get_if<StoreArray>(&stored->value);
    if (!array) return values;
    for (const auto& element : *array) {
      if (const auto* text = std::get_if<std::string>(&element.value)) values.insert(*text);
    }
    return values;
  };
}

WeatherAlertNotificationStore::WeatherAlertNotificationStore(fs::path folder, LegacyRecordValues legacyRecordValues)
    : stateFile_(folder / "state.json"), lockFile_(folder / "state.lock"), legacy_(std::move(legacyRecordValues)) {}

std::optional<WeatherAlertNotificationPersistedState> WeatherAlertNotificationStore::read() const {
  const auto text = readFileIfExists(stateFile_);
  if (!text) return std::nullopt;
  return decodeWeatherAlertNotificationState(*text);
}

void WeatherAlertNotificationStore::run(const std::function<void(WeatherAlertNotificationPersistedState&)>& mutate) {
  std::error_code error;
  fs::create_directories(stateFile_.parent_path(), error);
  if (error) throw std::system_error(error, stateFile_.parent_path().string());
  LockFile lock(lockFile_);
  const auto text = readFileIfExists(stateFile_);
  WeatherAlertNotificationPersistedState state;
  if (text) {
    state = decodeWeatherAlertNotificationState(*text);
  } else {
    state.recordValues = legacyRecordValues();
  }
  const WeatherAlertNotificationPersistedState before = state;
  mutate(state);
  if (!text || !(state == before)) writeFileAtomically(stateFile_, encodeWeatherAlertNotificationState(state), 0600);
}

}  // namespace ombrine
