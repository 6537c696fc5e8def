#include "persistence/key_value_backup.hpp"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <string>

#include <fmt/format.h>

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

constexpr std::string_view kNamedPrefix = "UbiquitousKeyValueStoreBackup.named.";
constexpr std::string_view kSnapshotSuffix = ".snapshot";
constexpr std::string_view kDateSuffix = ".date";

std::string namedKey(std::string_view name, std::string_view suffix) {
  return std::string(kNamedPrefix) + std::string(name) + std::string(suffix);
}

double localDay(Date date, const TimeZone& zone) {
  return std::floor((date.unixSeconds() + zone.secondsFromGMT(date)) / 86400.0);
}

}  // namespace

bool isSameCalendarDay(Date a, Date b, const TimeZone& zone) { return localDay(a, zone) == localDay(b, zone); }

KeyValueBackupOutcome backupKeyValueStoreIfNeeded(Date now, const TimeZone& calendarZone, const KeyValueStore& cloud,
                                                  KeyValueStore& standardDefaults) {
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
  standardDefaults.setValue(KeyValueBackupKeys::latestKeyCount,
                            StoreValue{static_cast<std::int64_t>(dictionary.size())});
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

bool isValidBackupName(std::string_view name) {
  if (name.empty() || name.size() > 64 || name == "latest" || name == "previous") return false;
  return std::all_of(name.begin(), name.end(), [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_' ||
           c == '.';
  });
}

KeyValueSnapshot backupKeyValueStoreNamed(std::string_view name, Date now, const KeyValueStore& cloud,
                                          KeyValueStore& standardDefaults) {
  if (!isValidBackupName(name)) {
    throw std::invalid_argument(fmt::format(
        "\"{}\" cannot name a backup: use 1 to 64 letters, digits, '-', '_' or '.' (not latest or previous)", name));
  }
  StoreDictionary dictionary = cloud.dictionaryRepresentation();
  if (dictionary.empty()) throw std::runtime_error("the synced store is empty; there is nothing to back up");
  std::string bytes = encodeBinaryPropertyList(StoreValue{dictionary});
  const std::size_t byteCount = bytes.size();
  standardDefaults.setValue(namedKey(name, kSnapshotSuffix), StoreValue{StoreData{std::move(bytes)}});
  standardDefaults.setValue(namedKey(name, kDateSuffix), stored(now));
  return KeyValueSnapshot{std::move(dictionary), now, byteCount};
}

std::vector<NamedKeyValueSnapshot> keyValueSnapshots(const KeyValueStore& standardDefaults) {
  std::vector<NamedKeyValueSnapshot> out;
  for (const auto& [key, value] : standardDefaults.dictionaryRepresentation()) {
    if (!key.starts_with(kNamedPrefix) || !key.ends_with(kSnapshotSuffix)) continue;
    std::string name = key.substr(kNamedPrefix.size(), key.size() - kNamedPrefix.size() - kSnapshotSuffix.size());
    if (auto snapshot = snapshotAt(standardDefaults, key, namedKey(name, kDateSuffix))) {
      out.push_back(NamedKeyValueSnapshot{std::move(name), std::move(*snapshot)});
    }
  }
  std::stable_sort(out.begin(), out.end(), [](const NamedKeyValueSnapshot& a, const NamedKeyValueSnapshot& b) {
    return a.snapshot.date < b.snapshot.date;
  });
  if (auto previous = previousKeyValueSnapshot(standardDefaults)) out.push_back({"previous", std::move(*previous)});
  if (auto latest = latestKeyValueSnapshot(standardDefaults)) out.push_back({"latest", std::move(*latest)});
  return out;
}

KeyValueSnapshot restoreKeyValueStoreFromSnapshot(std::string_view name, const KeyValueStore& standardDefaults,
                                                  CloudKeyValueStore& cloud) {
  std::optional<KeyValueSnapshot> snapshot;
  if (name == "latest") {
    snapshot = latestKeyValueSnapshot(standardDefaults);
  } else if (name == "previous") {
    snapshot = previousKeyValueSnapshot(standardDefaults);
  } else if (isValidBackupName(name)) {
    snapshot = snapshotAt(standardDefaults, namedKey(name, kSnapshotSuffix), namedKey(name, kDateSuffix));
  }
  if (!snapshot) throw std::runtime_error(fmt::format("no backup is named \"{}\"", name));
  for (const auto& [key, value] : snapshot->values) cloud.setValue(key, value);
  if (!cloud.synchronize()) throw std::runtime_error("the cloud key-value store could not be synchronized");
  return std::move(*snapshot);
}

}  // namespace ombrine
