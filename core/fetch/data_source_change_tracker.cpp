#include "core/fetch/data_source_change_tracker.hpp"

#include <cmath>
#include <set>

#include "core/values/uuid.hpp"
#include "platform/log.hpp"

namespace ombrine {

namespace {

void synchronizeLogged(CloudKeyValueStore& store) {
  if (!store.synchronize())
    logLine("DataSourceChangeTracker.synchronize: the key-value store could not be synchronized");
}

}  // namespace

DataSourceChangeTracker::DataSourceChangeTracker(KeyValueStore& defaults, TimeZone timeZone)
    : defaults_(defaults), timeZone_(std::move(timeZone)) {}

std::string DataSourceChangeTracker::deviceID() {
  if (auto stored = defaults_.stringValue(kDeviceIDKey); stored && Uuid::parse(*stored)) return *stored;
  const std::string made = Uuid::random().text();
  defaults_.setValue(kDeviceIDKey, StoreValue{made});
  return made;
}

bool DataSourceChangeTracker::isToday(const std::optional<StoreDate>& date, Date now) const {
  if (!date) return false;
  const Date then = Date::fromReference(date->secondsSince2001);
  // The local calendar day of an instant: whole days since the epoch of its local wall time.
  auto localDay = [this](Date at) { return std::floor((at.unixSeconds() + timeZone_.secondsFromGMT(at)) / 86400.0); };
  return localDay(then) == localDay(now);
}

int DataSourceChangeTracker::countOf(const CloudKeyValueStore& store, std::string_view countKey,
                                     std::string_view dateKey, Date now) const {
  if (!isToday(store.dateValue(dateKey), now)) return 0;
  const auto count = store.integerValue(countKey).value_or(0);
  return count < 0 ? 0 : static_cast<int>(std::min<std::int64_t>(count, kDailyLimit * 1000));
}

int DataSourceChangeTracker::changesToday(Date now, CloudKeyValueStore& store) {
  synchronizeLogged(store);
  std::set<std::string, std::less<>> devices;
  for (const auto& [key, value] : store.dictionaryRepresentation()) {
    for (const auto prefix : {kCountKeyPrefix, kDateKeyPrefix}) {
      if (key.size() > prefix.size() && key.starts_with(prefix)) devices.insert(key.substr(prefix.size()));
    }
  }
  devices.insert(deviceID());
  int total = 0;
  for (const auto& device : devices) {
    total += countOf(store, std::string(kCountKeyPrefix) + device, std::string(kDateKeyPrefix) + device, now);
  }
  total += countOf(store, kLegacyCountKey, kLegacyDateKey, now);
  return total;
}

void DataSourceChangeTracker::recordChange(Date now, CloudKeyValueStore& store) {
  const std::string device = deviceID();
  const std::string countKey = std::string(kCountKeyPrefix) + device;
  const std::string dateKey = std::string(kDateKeyPrefix) + device;
  const int count = isToday(store.dateValue(dateKey), now) ? countOf(store, countKey, dateKey, now) + 1 : 1;
  store.setValue(countKey, StoreValue{static_cast<std::int64_t>(count)});
  store.setValue(dateKey, StoreValue{StoreDate{now.timeIntervalSinceReferenceDate}});
  synchronizeLogged(store);
}

}  // namespace ombrine
