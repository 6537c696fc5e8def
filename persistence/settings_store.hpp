#pragma once
// The user's settings, kept in the cloud key-value store, and the pending immediate provider
// request, kept in the shared local defaults.
//
// Cloud keys and read rules (`readSettings`):
//   "hideWeatherAlerts", "hideTides", "preferFeelsLike", "isBriskoModeEnabled"  booleans; absent
//       or not a boolean reads as false
//   "preferredWeatherProvider"  a number: 1 apple, 2 foreca, 3 ow; anything else (absent, 0,
//       another number, another kind) reads as dynamic
//   "showHourlyPrecipitation"   a boolean; absent or not a boolean reads as true
//   "preferredAdditionalHourlyData"  "uvi", "wind", "windAndGust", "airQuality", "none"; absent
//       or any other text reads as none
// Written as: booleans as booleans, the provider as an integer 0..3, the additional data as
// its text.
//
// Write-through: a change of the settings sets the keys whose values changed in the cloud store,
// then schedules one `synchronize` on the store's serial context (labelled
// `keyValueStoreSynchronizeQueueLabel`) after `synchronizeDelay`, cancelling the one still
// pending, so changes in quick succession cost one synchronize. Destroying the store (or
// `flush`) runs a pending synchronize at once, so no change is lost when a process ends.
//
// External change: keys of the list that belong to the settings are read by the rules above
// and each field is assigned only when it differs, without writing back
// (`isApplyingExternalKeyValueStoreUpdate` is true meanwhile on the applying thread); equal
// values send no notification.
//
// The pending request lives in the shared defaults under
// "SettingsStore.pendingImmediateWeatherProviderFetchRequest" as the JSON of
// core/fetch/provider_settings.hpp (as data); unreadable content reads as no request.
//
// Thread-safe. Observers run after a change, with no lock held, on the thread that made or
// noticed it. The cloud store, the defaults and the clock must outlive the store.

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "core/fetch/provider_settings.hpp"
#include "core/values/weather_data_source.hpp"
#include "platform/async/coroutines.hpp"
#include "platform/async/observer_list.hpp"
#include "platform/clock.hpp"
#include "platform/cloud_key_value_store.hpp"
#include "platform/key_value_store.hpp"
#include "platform/thread_annotations.hpp"

namespace ombrine {

enum class AdditionalHourlyDataPreference { uvi, wind, windAndGust, airQuality, none };

// "uvi", "wind", "windAndGust", "airQuality", "none".
std::string_view additionalHourlyDataPreferenceName(AdditionalHourlyDataPreference preference) noexcept;
std::optional<AdditionalHourlyDataPreference> additionalHourlyDataPreferenceNamed(std::string_view name) noexcept;

struct Settings {
  bool hideWeatherAlerts = false;
  bool hideTides = false;
  bool preferFeelsLike = false;
  bool isBriskoModeEnabled = false;
  WeatherDataSource preferredWeatherProvider = WeatherDataSource::dynamic;
  bool showHourlyPrecipitation = true;
  AdditionalHourlyDataPreference preferredAdditionalHourlyData = AdditionalHourlyDataPreference::none;

  bool operator==(const Settings&) const = default;
};

// One field of Settings: its cloud key, how its stored value reads, and its stored form.
struct SettingsField {
  std::string_view key;
  void (*read)(const std::optional<StoreValue>& stored, Settings& into);
  StoreValue (*stored)(const Settings& from);
};

// Every field, in the order of the table above.
const std::vector<SettingsField>& settingsFields();

// The settings the cloud store holds, by the read rules.
Settings readSettings(const KeyValueStore& cloud);

// The provider a stored "preferredWeatherProvider" number stands for.
WeatherDataSource weatherDataSourceFromStoredNumber(std::optional<double> number) noexcept;

class SettingsStore final : public ProviderSettings {
 public:
  static constexpr std::string_view keyValueStoreSynchronizeQueueLabel =
      "com.quillfernhollowarts.Weather.ubiquitousKeyValueStoreSync";
  static constexpr std::string_view pendingImmediateWeatherProviderFetchRequestKey =
      "SettingsStore.pendingImmediateWeatherProviderFetchRequest";

  using Observer = std::function<void(const Settings&)>;

  // Reads the settings now. The synchronize work item runs on `executor` when it is a strand,
  // else on a new strand of it.
  SettingsStore(CloudKeyValueStore& cloud, KeyValueStore& sharedDefaults, Clock& clock, Executor executor,
                Clock::Duration synchronizeDelay = Clock::Duration::zero());
  SettingsStore(const SettingsStore&) = delete;
  SettingsStore& operator=(const SettingsStore&) = delete;
  ~SettingsStore() override;

  Settings settings() const;
  void setSettings(const Settings& next);
  // Changes the settings in place, atomically with respect to other setters of this process.
  void update(const std::function<void(Settings&)>& change);
  bool isApplyingExternalKeyValueStoreUpdate() const;
  [[nodiscard]] Subscription observe(Observer observer);

  // Runs a scheduled synchronize now (and waits for one in progress). Returns false when the
  // synchronize failed.
  bool flush();

  // Sets one setting as `field.read` reads `value` and writes its key through at once, as one
  // keyed read-merge-write of the cloud store (CloudKeyValueStore::changeValue), whether or not
  // memory held that value already: the setting is on disk when this returns. Raises FileError
  // (or CloudStoreQuotaError) when it cannot be written; memory is then as it was.
  void write(const SettingsField& field, const StoreValue& value);

  // ProviderSettings.
  WeatherDataSource dataSource() const override;
  std::optional<ImmediateWeatherProviderFetchRequest> pendingImmediateWeatherProviderFetchRequest() const override;
  void completeImmediateFetch(const Uuid& id) override;
  [[nodiscard]] Subscription observeProviderChanges(ProviderSettings::Observer observer) override;

  // Replaces any pending request with a new one for `provider` and returns it. The stored
  // preference is left as it is. Raises FileError when the shared defaults cannot be written.
  ImmediateWeatherProviderFetchRequest requestImmediateFetch(WeatherDataSource provider);

 private:
  struct SyncState;

  void assign(const Settings& next, bool writeThrough);
  void applyExternalChange(const CloudStoreChange& change);
  void scheduleSynchronize();

  CloudKeyValueStore& cloud_;
  KeyValueStore& sharedDefaults_;
  Clock& clock_;
  const Clock::Duration synchronizeDelay_;
  const Executor keyValueStoreSynchronizeQueue_;

  mutable Mutex mutex_;
  Settings settings_ GUARDED_BY(mutex_);
  std::thread::id applyingThread_ GUARDED_BY(mutex_);
  // Keeps the order of cloud writes that of memory changes; never held while observers run.
  std::mutex writeMutex_;

  std::shared_ptr<SyncState> sync_;
  ObserverList<Observer> observers_;
  ObserverList<ProviderSettings::Observer> providerObservers_;
  // Cancelled first by the destructor, waiting for an external change being applied.
  Subscription cloudObservation_;
};

}  // namespace ombrine
