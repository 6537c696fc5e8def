#pragma once
// Counts the user's changes of forecast provider per calendar day, across devices.
//
// Each device keeps its own count and the date it last changed in the cloud key-value store
// (keys "DataSourceChangeTracker.dataSourceChangesCount." and
// "DataSourceChangeTracker.lastDataSourceChangeDate." followed by the device's id), so the count
// follows the user between machines without two devices overwriting each other. The device id is
// a UUID made on first use and kept in the local defaults ("DataSourceChangeTracker.deviceID").
// An older pair without device ("dataSourceChangesCount", "lastDataSourceChangeDate") still
// counts. A count whose date is not today (in the user's time zone) counts 0 and is left in
// place; negative counts and values of the wrong kind count as missing.
//
// The per-device keys are up to 85 bytes long; CloudKeyValueStore's key limit is sized for them.
//
// Up to `kDailyLimit` - 1 changes a day still force a refetch; a settings screen refusing a
// change shows `kLimitReachedMessage`.
//
// Context: any thread (the stores serialise); blocks on the stores' file input and output.
// `recordChange` raises FileError when the local defaults cannot be written on first use.

#include <string>
#include <string_view>

#include "core/values/date.hpp"
#include "core/values/time_zone.hpp"
#include "platform/cloud_key_value_store.hpp"
#include "platform/key_value_store.hpp"

namespace ombrine {

class DataSourceChangeTracker {
 public:
  static constexpr int kDailyLimit = 15;
  static constexpr std::string_view kLimitReachedMessage = "Data Source Change Limit Reached";
  static constexpr std::string_view kDeviceIDKey = "DataSourceChangeTracker.deviceID";
  static constexpr std::string_view kCountKeyPrefix = "DataSourceChangeTracker.dataSourceChangesCount.";
  static constexpr std::string_view kDateKeyPrefix = "DataSourceChangeTracker.lastDataSourceChangeDate.";
  static constexpr std::string_view kLegacyCountKey = "dataSourceChangesCount";
  static constexpr std::string_view kLegacyDateKey = "lastDataSourceChangeDate";

  // `defaults` holds this device's id; `timeZone` decides where a day begins (the user's zone).
  DataSourceChangeTracker(KeyValueStore& defaults, TimeZone timeZone);

  // Changes made today across all devices. Synchronises the store first.
  int changesToday(Date now, CloudKeyValueStore& store);
  // Adds one to this device's count for today (starting at 1 on a new day), then synchronises.
  void recordChange(Date now, CloudKeyValueStore& store);
  // Whether a change now may still force a refetch.
  bool allowsForcedRefetch(Date now, CloudKeyValueStore& store) { return changesToday(now, store) < kDailyLimit; }

  // This device's id, made and stored on first use.
  std::string deviceID();

 private:
  bool isToday(const std::optional<StoreDate>& date, Date now) const;
  int countOf(const CloudKeyValueStore& store, std::string_view countKey, std::string_view dateKey, Date now) const;

  KeyValueStore& defaults_;
  TimeZone timeZone_;
};

}  // namespace ombrine
