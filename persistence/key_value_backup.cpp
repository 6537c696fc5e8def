#include "persistence/key_value_backup.hpp"

#include <cmath>
#include <stdexcept>
#include <string>

#include "persistence/property_list.hpp"

namespace ombrine {

namespace {

std::optional<Date> dateAt(const KeyValueStore& store, std::string_view key) {
  const auto date = store.dateValue(key);
  return date ? std::optional<Date>(Date::fromReference(date->secondsSince2001)) : std::nullopt;
}

StoreValue stored(Date date) { return StoreValue{StoreDate{date.timeIntervalSinceReferenceDate}}; }

std::optional<KeyValueSnapshot> snapshotAt(const KeyValueStore& store, std::string_view dataKey,
                                           std::string_view dateKey) {
  const auto data = store.dataValue(dataKey);
  if (!data) return std::nullopt;
  StoreValue decoded = decodeBinaryPropertyList(data->bytes);
  auto* dictionary = std::get_if<StoreDictionary>(&decoded.value);
  if (dictionary == nullptr) throw PropertyListError("the snapshot is not a dictionary");
  return KeyValueSnapshot{std::move(*dictionary), dateAt(store, dateKey), data->bytes.size()};
}

double localDay(Date date, const TimeZone& zone) {
  return std::floor((date.unixSeconds() + zone.secondsFromGMT(date)) / 86400.0);
}

}  // namespace

bool isSameCalendarDay(Date a, Date b, const TimeZone& zone) { return localDay(a, zone) == localDay(b, zone); }

KeyValueBackupOutcome backupKeyValueStoreIfNeeded(Date now, const TimeZone& calendarZone,
                                                  const KeyValueStore& cloud, KeyValueStore& standardDefaults) {
  if (auto last = dateAt(standardDefaults, KeyValueBackupKeys::lastSuccessfulBackupDate);
      last && isSameCalendarDay(*last, now, calendarZone)) {
    return KeyValueBackupOutcome::alreadyBackedUpToday;
  }
  const StoreDictionary dictionary = cloud.dictionaryRepresentation();
  if (dictionary.empty()) return KeyValueBackupOutcome::emptyStore;
  std::string bytes;
  try {
    bytes = encodeBinaryPropertyList(StoreValue{dictionary});
  } catch (const PropertyListError&) {
    return KeyValueBackupOutcome::serializationFailed;
  }
  if (auto latest = standardDefaults.dataValue(KeyValueBackupKeys::latestSnapshot)) {
    standardDefaults.setValue(KeyValueBackupKeys::previousSnapshot, StoreValue{std::move(*latest)});
    standardDefaults.setValue(KeyValueBackupKeys::previousDate, standardDefaults.value(KeyValueBackupKeys::latestDate));
  }
  const auto byteCount = static_cast<std::int64_t>(bytes.size());
  standardDefaults.setValue(KeyValueBackupKeys::latestSnapshot, StoreValue{StoreData{std::move(bytes)}});
  standardDefaults.setValue(KeyValueBackupKeys::latestDate, stored(now));
  standardDefaults.setValue(KeyValueBackupKeys::latestKeyCount, StoreValue{static_cast<std::int64_t>(dictionary.size())});
  standardDefaults.setValue(KeyValueBackupKeys::latestByteCount, StoreValue{byteCount});
  standardDefaults.setValue(KeyValueBackupKeys::lastSuccessfulBackupDate, stored(now));
  return KeyValueBackupOutcome::backedUp;
}

std::optional<KeyValueSnapshot> latestKeyValueSnapshot(const KeyValueStore& standardDefaults) {
  return snapshotAt(standardDefaults, KeyValueBackupKeys::latestSnapshot, KeyValueBackupKeys::latestDate);
}

std::optional<KeyValueSnapshot> previousKeyValueSnapshot(const KeyValueStore& standardDefaults) {
  return snapshotAt(standardDefaults, KeyValueBackupKeys::previousSnapshot, KeyValueBackupKeys::previousDate);
}

KeyValueSnapshot restoreKeyValueStoreFromLatestSnapshot(const KeyValueStore& standardDefaults,
                                                        CloudKeyValueStore& cloud) {
  auto snapshot = latestKeyValueSnapshot(standardDefaults);
  if (!snapshot) throw std::runtime_error("no backup of the cloud key-value store has been made yet");
  for (const auto& [key, value] : snapshot->values) cloud.setValue(key, value);
  if (!cloud.synchronize()) throw std::runtime_error("the cloud key-value store could not be synchronized");
  return std::move(*snapshot);
}

}  // namespace ombrine
