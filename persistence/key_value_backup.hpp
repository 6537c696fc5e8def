#pragma once
// The daily local backup of the cloud key-value store, and the restore from it.
//
// Kept in the standard (unshared) defaults under the keys of `KeyValueBackupKeys`: the whole
// cloud dictionary as a binary property list (persistence/property_list.hpp), the one before
// it, their dates, and the latest one's key and byte counts. Dates are StoreDate values.
//
// Besides the daily pair, the user takes named backups on request (`backupKeyValueStoreNamed`),
// kept until replaced by one of the same name under "UbiquitousKeyValueStoreBackup.named.<name>.
// snapshot" and "...date". No restore happens by itself: the restore functions are for an
// explicit request of the user.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/values/date.hpp"
#include "core/values/time_zone.hpp"
#include "platform/cloud_key_value_store.hpp"
#include "platform/key_value_store.hpp"

namespace ombrine {

struct KeyValueBackupKeys {
  static constexpr std::string_view lastSuccessfulBackupDate = "UbiquitousKeyValueStoreBackup.lastSuccessfulBackupDate";
  static constexpr std::string_view latestSnapshot = "UbiquitousKeyValueStoreBackup.latest.snapshot";
  static constexpr std::string_view previousSnapshot = "UbiquitousKeyValueStoreBackup.previous.snapshot";
  static constexpr std::string_view latestDate = "UbiquitousKeyValueStoreBackup.latest.date";
  static constexpr std::string_view previousDate = "UbiquitousKeyValueStoreBackup.previous.date";
  static constexpr std::string_view latestKeyCount = "UbiquitousKeyValueStoreBackup.latest.keyCount";
  static constexpr std::string_view latestByteCount = "UbiquitousKeyValueStoreBackup.latest.byteCount";
};

enum class KeyValueBackupOutcome {
  alreadyBackedUpToday,  // the last backup is of the same calendar day
  emptyStore,            // nothing to back up; the snapshots stay as they are
  serializationFailed,   // the dictionary has no property-list form; nothing changed
  backedUp,
};

// Runs at every launch: at most one backup per calendar day of `calendarZone`.
//  1. A last-backup date on the same calendar day as `now`: stop.
//  2. An empty cloud dictionary: stop (an empty store never overwrites a good snapshot).
//  3. Serialise the dictionary; on failure stop, and the last-backup date stays.
//  4. An existing latest snapshot and its date move to the "previous" keys.
//  5. The latest keys get the data, `now`, the key count and the data's size.
//  6. `now` becomes the last-backup date.
// Raises FileError when the defaults cannot be written (callers log it and go on).
KeyValueBackupOutcome backupKeyValueStoreIfNeeded(Date now, const TimeZone& calendarZone, const KeyValueStore& cloud,
                                                  KeyValueStore& standardDefaults);

// True when both instants fall on the same calendar day in `zone`.
bool isSameCalendarDay(Date a, Date b, const TimeZone& zone);

struct KeyValueSnapshot {
  StoreDictionary values;
  std::optional<Date> date;
  std::size_t byteCount = 0;
  bool operator==(const KeyValueSnapshot&) const = default;
};

// The latest or previous snapshot, or nothing when none is kept. Raises PropertyListError when
// the kept bytes do not decode to a dictionary.
std::optional<KeyValueSnapshot> latestKeyValueSnapshot(const KeyValueStore& standardDefaults);
std::optional<KeyValueSnapshot> previousKeyValueSnapshot(const KeyValueStore& standardDefaults);

// A backup the user can restore: "latest" and "previous" name the daily snapshots.
struct NamedKeyValueSnapshot {
  std::string name;
  KeyValueSnapshot snapshot;
  bool operator==(const NamedKeyValueSnapshot&) const = default;
};

// True for a name a backup may take: 1 to 64 ASCII letters, digits, '-', '_' and '.', not
// "latest" or "previous".
bool isValidBackupName(std::string_view name);

// Takes a backup of the whole cloud dictionary now, under `name` (replacing one of that name),
// whatever the daily backup did today; returns it. Raises std::invalid_argument for a name
// isValidBackupName refuses, std::runtime_error when the store is empty (an empty backup could
// only wipe a restore) or has no property-list form, FileError when the defaults cannot be
// written.
KeyValueSnapshot backupKeyValueStoreNamed(std::string_view name, Date now, const KeyValueStore& cloud,
                                          KeyValueStore& standardDefaults);

// Every backup kept: the named ones, oldest first, then "previous" and "latest" when kept.
// Raises PropertyListError when one does not decode.
std::vector<NamedKeyValueSnapshot> keyValueSnapshots(const KeyValueStore& standardDefaults);

// Sets every key of the backup `name` ("latest", "previous" or a named one) in the cloud store
// (keys it does not hold are left as they are) and synchronises. Returns the snapshot restored.
// Raises std::runtime_error when there is no such backup or the cloud store could not be
// synchronised, PropertyListError when the snapshot does not decode.
KeyValueSnapshot restoreKeyValueStoreFromSnapshot(std::string_view name, const KeyValueStore& standardDefaults,
                                                  CloudKeyValueStore& cloud);

}  // namespace ombrine
