#include "persistence/settings_store.hpp"

#include <array>
#include <condition_variable>
#include <exception>
#include <utility>

#include "platform/errors.hpp"
#include "platform/log.hpp"

namespace ombrine {

namespace {

constexpr std::array<std::pair<AdditionalHourlyDataPreference, std::string_view>, 5> kAdditionalNames = {{
    {AdditionalHourlyDataPreference::uvi, "uvi"},
    {AdditionalHourlyDataPreference::wind, "wind"},
    {AdditionalHourlyDataPreference::windAndGust, "windAndGust"},
    {AdditionalHourlyDataPreference::airQuality, "airQuality"},
    {AdditionalHourlyDataPreference::none, "none"},
}};

template <class T>
const T* storedAs(const std::optional<StoreValue>& stored) {
  return stored ? std::get_if<T>(&stored->value) : nullptr;
}

// A boolean field that reads as false when absent or of another kind.
template <bool Settings::*Field>
SettingsField falseByDefault(std::string_view key) {
  return SettingsField{key,
                       [](const std::optional<StoreValue>& stored, Settings& into) {
                         const bool* value = storedAs<bool>(stored);
                         into.*Field = value != nullptr && *value;
                       },
                       [](const Settings& from) { return StoreValue{from.*Field}; }};
}

std::optional<double> storedNumber(const std::optional<StoreValue>& stored) {
  if (const auto* d = storedAs<double>(stored)) return *d;
  if (const auto* i = storedAs<std::int64_t>(stored)) return static_cast<double>(*i);
  return std::nullopt;
}

std::optional<ImmediateWeatherProviderFetchRequest> readPendingRequest(const KeyValueStore& defaults) {
  const std::optional<StoreValue> stored =
      defaults.value(SettingsStore::pendingImmediateWeatherProviderFetchRequestKey);
  std::string_view json;
  if (const auto* data = storedAs<StoreData>(stored)) {
    json = data->bytes;
  } else if (const auto* text = storedAs<std::string>(stored)) {
    json = *text;
  } else {
    return std::nullopt;
  }
  try {
    return decodeImmediateWeatherProviderFetchRequest(json);
  } catch (const std::exception& error) {
    logf("Pending immediate provider request could not be decoded: {}", error.what());
    return std::nullopt;
  }
}

}  // namespace

std::string_view additionalHourlyDataPreferenceName(AdditionalHourlyDataPreference preference) noexcept {
  for (const auto& [value, name] : kAdditionalNames) {
    if (value == preference) return name;
  }
  return "none";
}

std::optional<AdditionalHourlyDataPreference> additionalHourlyDataPreferenceNamed(std::string_view name) noexcept {
  for (const auto& [value, text] : kAdditionalNames) {
    if (text == name) return value;
  }
  return std::nullopt;
}

WeatherDataSource weatherDataSourceFromStoredNumber(std::optional<double> number) noexcept {
  if (number == 1.0) return WeatherDataSource::apple;
  if (number == 2.0) return WeatherDataSource::foreca;
  if (number == 3.0) return WeatherDataSource::ow;
  return WeatherDataSource::dynamic;
}

const std::vector<SettingsField>& settingsFields() {
  static const std::vector<SettingsField> fields = {
      falseByDefault<&Settings::hideWeatherAlerts>("hideWeatherAlerts"),
      falseByDefault<&Settings::hideTides>("hideTides"),
      falseByDefault<&Settings::preferFeelsLike>("preferFeelsLike"),
      falseByDefault<&Settings::isBriskoModeEnabled>("isBriskoModeEnabled"),
      SettingsField{
          "preferredWeatherProvider",
          [](const std::optional<StoreValue>& stored, Settings& into) {
            into.preferredWeatherProvider = weatherDataSourceFromStoredNumber(storedNumber(stored));
          },
          [](const Settings& from) { return StoreValue{static_cast<std::int64_t>(from.preferredWeatherProvider)}; }},
      // Read as an object, so that absence (true) is told from a stored false.
      SettingsField{"showHourlyPrecipitation",
                    [](const std::optional<StoreValue>& stored, Settings& into) {
                      const bool* value = storedAs<bool>(stored);
                      into.showHourlyPrecipitation = value == nullptr || *value;
                    },
                    [](const Settings& from) { return StoreValue{from.showHourlyPrecipitation}; }},
      SettingsField{
          "preferredAdditionalHourlyData",
          [](const std::optional<StoreValue>& stored, Settings& into) {
            const auto* text = storedAs<std::string>(stored);
            into.preferredAdditionalHourlyData =
                text ? additionalHourlyDataPreferenceNamed(*text).value_or(AdditionalHourlyDataPreference::none)
                     : AdditionalHourlyDataPreference::none;
          },
          [](const Settings& from) {
            return StoreValue{std::string(additionalHourlyDataPreferenceName(from.preferredAdditionalHourlyData))};
          }},
  };
  return fields;
}

Settings readSettings(const KeyValueStore& cloud) {
  Settings settings;
  for (const SettingsField& field : settingsFields()) field.read(cloud.value(field.key), settings);
  return settings;
}

// The pending synchronize work item: at most one scheduled, run on the serial context, or at
// the latest by the store's destruction. Each scheduling supersedes the one before: a work item
// whose cancellation arrived too late to stop its sleep still finds itself superseded and does
// nothing, so a burst of changes costs one synchronize.
struct SettingsStore::SyncState {
  Mutex mutex;
  std::condition_variable idle;
  bool scheduled GUARDED_BY(mutex) = false;  // writes wait for a synchronize
  bool running GUARDED_BY(mutex) = false;
  std::uint64_t generation GUARDED_BY(mutex) = 0;
  SpawnedTask workItem GUARDED_BY(mutex);

  // Runs the scheduled synchronize, if still scheduled (and, with a generation, only for the
  // current work item); true when none failed.
  bool runIfScheduled(CloudKeyValueStore& cloud, std::optional<std::uint64_t> itemGeneration = std::nullopt) {
    MutexLock lock(mutex);
    lock.wait(idle, [&]() REQUIRES(mutex) { return !running; });
    if (!scheduled || (itemGeneration && *itemGeneration != generation)) return true;
    scheduled = false;
    running = true;
    lock.unlock();
    const bool ok = cloud.synchronize();
    lock.lock();
    running = false;
    idle.notify_all();
    return ok;
  }
};

SettingsStore::SettingsStore(CloudKeyValueStore& cloud, KeyValueStore& sharedDefaults, Clock& clock, Executor executor,
                             Clock::Duration synchronizeDelay)
    : cloud_(cloud),
      sharedDefaults_(sharedDefaults),
      clock_(clock),
      synchronizeDelay_(synchronizeDelay),
      keyValueStoreSynchronizeQueue_(serialExecutor(executor)),
      settings_(readSettings(cloud)),
      sync_(std::make_shared<SyncState>()) {
  cloudObservation_ =
      cloud_.observeExternalChanges([this](const CloudStoreChange& change) { applyExternalChange(change); });
}

SettingsStore::~SettingsStore() {
  cloudObservation_.cancel();
  SpawnedTask pending;
  {
    MutexLock guard(sync_->mutex);
    pending = std::exchange(sync_->workItem, SpawnedTask());
  }
  pending.cancel();
  sync_->runIfScheduled(cloud_);
}

Settings SettingsStore::settings() const {
  MutexLock guard(mutex_);
  return settings_;
}

bool SettingsStore::isApplyingExternalKeyValueStoreUpdate() const {
  MutexLock guard(mutex_);
  return applyingThread_ == std::this_thread::get_id();
}

void SettingsStore::setSettings(const Settings& next) {
  update([&](Settings& settings) { settings = next; });
}

void SettingsStore::update(const std::function<void(Settings&)>& change) {
  const bool applying = isApplyingExternalKeyValueStoreUpdate();
  std::unique_lock writing(writeMutex_, std::defer_lock);
  if (!applying) writing.lock();
  Settings before;
  Settings after;
  {
    MutexLock guard(mutex_);
    before = settings_;
    after = settings_;
    change(after);
    if (after == before) return;
    settings_ = after;
  }
  if (!applying) {
    for (const SettingsField& field : settingsFields()) {
      StoreValue value = field.stored(after);
      if (value != field.stored(before)) cloud_.setValue(field.key, std::move(value));
    }
    writing.unlock();
    scheduleSynchronize();
  }
  observers_.notify(after);
  if (after.preferredWeatherProvider != before.preferredWeatherProvider) {
    providerObservers_.notify(ProviderSettingsChange::dataSource);
  }
}

void SettingsStore::write(const SettingsField& field, const StoreValue& value) {
  std::unique_lock writing(writeMutex_);
  const CloudKeyValueStore::ValueChange keyed = [&](const std::optional<StoreValue>&) {
    return std::optional<StoreValue>(value);
  };
  cloud_.changeValue(field.key, keyed);
  Settings before;
  Settings after;
  {
    MutexLock guard(mutex_);
    before = settings_;
    after = settings_;
    field.read(value, after);
    if (after == before) return;
    settings_ = after;
  }
  writing.unlock();
  observers_.notify(after);
  if (after.preferredWeatherProvider != before.preferredWeatherProvider) {
    providerObservers_.notify(ProviderSettingsChange::dataSource);
  }
}

Subscription SettingsStore::observe(Observer observer) { return observers_.add(std::move(observer)); }

void SettingsStore::applyExternalChange(const CloudStoreChange& change) {
  if (change.reason == CloudStoreChangeReason::quotaViolation) return;
  Settings next = settings();
  bool named = false;
  for (const std::string& key : change.changedKeys) {
    for (const SettingsField& field : settingsFields()) {
      if (field.key != key) continue;
      named = true;
      field.read(cloud_.value(field.key), next);
    }
  }
  if (!named) return;
  // Fields the list did not name keep their values in memory, so only differing keys change.
  {
    MutexLock guard(mutex_);
    if (next == settings_) return;
    applyingThread_ = std::this_thread::get_id();
  }
  update([&](Settings& settings) {
    for (const std::string& key : change.changedKeys) {
      for (const SettingsField& field : settingsFields()) {
        if (field.key == key) field.read(cloud_.value(field.key), settings);
      }
    }
  });
  MutexLock guard(mutex_);
  applyingThread_ = std::thread::id();
}

void SettingsStore::scheduleSynchronize() {
  auto workItem = SpawnedTask::prepare(keyValueStoreSynchronizeQueue_);
  SpawnedTask previous;
  std::uint64_t generation = 0;
  {
    MutexLock guard(sync_->mutex);
    sync_->scheduled = true;
    generation = ++sync_->generation;
    previous = std::exchange(sync_->workItem, workItem);
  }
  previous.cancel();
  std::weak_ptr<SyncState> weak = sync_;
  auto run = [](std::weak_ptr<SyncState> weak, Clock& clock, Clock::Duration delay, CloudKeyValueStore& cloud,
                std::uint64_t generation) -> Task<void> {
    co_await clock.sleep(delay);
    // The store's destructor takes the item away and runs the synchronize itself.
    auto state = weak.lock();
    if (!state) co_return;
    state->runIfScheduled(cloud, generation);
  };
  auto onEnd = [](std::exception_ptr error) {
    if (error && !isCancellation(error)) {
      try {
        std::rethrow_exception(error);
      } catch (const std::exception& e) {
        logf("Cloud key-value store synchronize failed: {}", e.what());
      }
    }
  };
  workItem.start(run(weak, clock_, synchronizeDelay_, cloud_, generation), onEnd);
}

bool SettingsStore::flush() { return sync_->runIfScheduled(cloud_); }

WeatherDataSource SettingsStore::dataSource() const { return settings().preferredWeatherProvider; }

std::optional<ImmediateWeatherProviderFetchRequest> SettingsStore::pendingImmediateWeatherProviderFetchRequest() const {
  return readPendingRequest(sharedDefaults_);
}

ImmediateWeatherProviderFetchRequest SettingsStore::requestImmediateFetch(WeatherDataSource provider) {
  const ImmediateWeatherProviderFetchRequest request{Uuid::random(), provider};
  sharedDefaults_.setValue(pendingImmediateWeatherProviderFetchRequestKey,
                           StoreValue{StoreData{encodeImmediateWeatherProviderFetchRequest(request)}});
  providerObservers_.notify(ProviderSettingsChange::immediateRequest);
  return request;
}

void SettingsStore::completeImmediateFetch(const Uuid& id) {
  const auto pending = readPendingRequest(sharedDefaults_);
  if (!pending || pending->id != id) return;
  try {
    sharedDefaults_.removeValue(pendingImmediateWeatherProviderFetchRequestKey);
  } catch (const std::exception& error) {
    logf("Pending immediate provider request could not be cleared: {}", error.what());
    return;
  }
  providerObservers_.notify(ProviderSettingsChange::immediateRequest);
}

Subscription SettingsStore::observeProviderChanges(ProviderSettings::Observer observer) {
  return providerObservers_.add(std::move(observer));
}

}  // namespace ombrine
