#include "core/fetch/data_source_change_tracker.hpp"

#include <gtest/gtest.h>

#include <mutex>

#include "platform/testing/in_memory_key_value_store.hpp"

namespace ombrine {
namespace {

// One shared dictionary standing for the cloud, and a store per device that synchronises with
// it key by key, so several devices can share one cloud.
struct Cloud {
  std::mutex mutex;
  StoreDictionary values;
};

class DeviceCloudStore final : public CloudKeyValueStore {
 public:
  explicit DeviceCloudStore(std::shared_ptr<Cloud> cloud = std::make_shared<Cloud>()) : cloud_(std::move(cloud)) {}
  std::optional<StoreValue> value(std::string_view key) const override {
    std::lock_guard lock(mutex_);
    auto found = local_.find(key);
    if (found == local_.end()) return std::nullopt;
    return found->second;
  }
  void setValue(std::string_view key, std::optional<StoreValue> value) override {
    std::lock_guard lock(mutex_);
    if (value) {
      local_.insert_or_assign(std::string(key), *value);
    } else {
      local_.erase(std::string(key));
    }
    pending_.insert_or_assign(std::string(key), value);
  }
  StoreDictionary dictionaryRepresentation() const override {
    std::lock_guard lock(mutex_);
    return local_;
  }
  bool synchronize() override {
    std::scoped_lock lock(mutex_, cloud_->mutex);
    for (auto& [key, value] : pending_) {
      if (value) {
        cloud_->values.insert_or_assign(key, *value);
      } else {
        cloud_->values.erase(key);
      }
    }
    pending_.clear();
    local_ = cloud_->values;
    return true;
  }
  Subscription observeExternalChanges(Observer) override { return {}; }
  std::optional<StoreValue> changeValue(std::string_view key, const ValueChange& change) override {
    std::optional<StoreValue> next = change(value(key));
    setValue(key, next);
    synchronize();
    return next;
  }
  const std::shared_ptr<Cloud>& cloud() const { return cloud_; }

 private:
  mutable std::mutex mutex_;
  std::shared_ptr<Cloud> cloud_;
  StoreDictionary local_;
  std::map<std::string, std::optional<StoreValue>> pending_;
};

// 2024-01-01T00:00:00Z as Unix seconds.
constexpr double kNewYearUTC = 1704067200.0;
Date utc(double hoursFromNewYear) { return Date::fromUnix(kNewYearUTC + hoursFromNewYear * 3600.0); }

TEST(DataSourceChangeTrackerTest, CountsResetAtMidnightInTheUsersZone) {
  struct Row {
    const char* why;
    const char* zone;
    Date changedAt;
    Date askedAt;
    int expected;
  };
  const Row rows[] = {
      // Los Angeles is UTC-8 in January: 07:59Z is 23:59 on 31 December there.
      {"one minute past local midnight is a new day", "America/Los_Angeles", utc(7 + 59 / 60.0), utc(8 + 1 / 60.0), 0},
      {"same local day across UTC midnight", "America/Los_Angeles", utc(-24 + 8 + 1 / 60.0), utc(7 + 59 / 60.0), 3},
      {"same UTC day, different local day", "Pacific/Auckland", utc(10.9), utc(11.1), 0},  // UTC+13
      {"in GMT the UTC day decides", "GMT", utc(-0.1), utc(0.1), 0},
      {"later the same day", "Europe/Berlin", utc(1), utc(22.9), 3},
      {"a day later counts 0", "Europe/Berlin", utc(1), utc(25), 0},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    InMemoryKeyValueStore defaults;
    DeviceCloudStore cloud;
    DataSourceChangeTracker tracker(defaults, *TimeZone::named(row.zone));
    for (int i = 0; i < 3; ++i) tracker.recordChange(row.changedAt, cloud);
    EXPECT_EQ(tracker.changesToday(row.askedAt, cloud), row.expected);
  }
}

TEST(DataSourceChangeTrackerTest, DevicesAddUpAndOldCountsStayInPlace) {
  auto shared = std::make_shared<Cloud>();
  InMemoryKeyValueStore laptopDefaults, phoneDefaults;
  DeviceCloudStore laptopCloud(shared), phoneCloud(shared);
  const auto zone = *TimeZone::named("Europe/Berlin");
  DataSourceChangeTracker laptop(laptopDefaults, zone), phone(phoneDefaults, zone);
  const Date morning = utc(8);
  for (int i = 0; i < 8; ++i) {
    laptop.recordChange(morning, laptopCloud);
    phone.recordChange(morning, phoneCloud);
  }
  EXPECT_NE(laptop.deviceID(), phone.deviceID());
  EXPECT_EQ(laptop.changesToday(morning, laptopCloud), 16);
  EXPECT_FALSE(laptop.allowsForcedRefetch(morning, laptopCloud)) << "8 + 8 blocks a forced refetch";
  EXPECT_EQ(laptop.deviceID(), *laptopDefaults.stringValue(DataSourceChangeTracker::kDeviceIDKey))
      << "the id is kept, not made anew";

  const Date tomorrow = utc(8 + 24);
  EXPECT_EQ(phone.changesToday(tomorrow, phoneCloud), 0);
  EXPECT_EQ(laptopCloud.integerValue(std::string(DataSourceChangeTracker::kCountKeyPrefix) + phone.deviceID()), 8)
      << "yesterday's count is not deleted";
  phone.recordChange(tomorrow, phoneCloud);
  EXPECT_EQ(laptop.changesToday(tomorrow, laptopCloud), 1) << "a new day starts at 1";
}

// The real store's key limit must admit the per-device keys, or every count would be refused.
TEST(DataSourceChangeTrackerTest, PerDeviceKeysFitTheCloudStore) {
  InMemoryKeyValueStore defaults;
  InMemoryCloudKeyValueStore cloud;
  DataSourceChangeTracker tracker(defaults, *TimeZone::named("Europe/Berlin"));
  tracker.recordChange(utc(8), cloud);
  tracker.recordChange(utc(9), cloud);
  EXPECT_EQ(tracker.changesToday(utc(10), cloud), 2);
  EXPECT_EQ(cloud.integerValue(std::string(DataSourceChangeTracker::kCountKeyPrefix) + tracker.deviceID()), 2);
}

TEST(DataSourceChangeTrackerTest, LegacyKeysCountAndBadValuesCountAsMissing) {
  const auto today = StoreValue{StoreDate{utc(9).timeIntervalSinceReferenceDate}};
  struct Row {
    const char* why;
    StoreDictionary values;
    int expected;
  };
  const std::string other = "E621E1F8-C36C-495A-93FC-0C247A3E6E5F";
  const std::string count = std::string(DataSourceChangeTracker::kCountKeyPrefix) + other;
  const std::string date = std::string(DataSourceChangeTracker::kDateKeyPrefix) + other;
  const Row rows[] = {
      {"the older keys without device count",
       {{"dataSourceChangesCount", {std::int64_t{4}}}, {"lastDataSourceChangeDate", today}},
       4},
      {"another device's count", {{count, {std::int64_t{5}}}, {date, today}}, 5},
      {"a negative count is 0", {{count, {std::int64_t{-3}}}, {date, today}}, 0},
      {"a count stored as text is missing", {{count, {std::string("5")}}, {date, today}}, 0},
      {"a date stored as a number is missing", {{count, {std::int64_t{5}}}, {date, {1.0}}}, 0},
      {"a count without date is not today's", {{count, {std::int64_t{5}}}}, 0},
      {"a date alone still names a device", {{date, today}}, 0},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    InMemoryKeyValueStore defaults;
    DeviceCloudStore cloud;
    cloud.cloud()->values = row.values;
    DataSourceChangeTracker tracker(defaults, TimeZone::gmt());
    EXPECT_EQ(tracker.changesToday(utc(10), cloud), row.expected);
  }
}

}  // namespace
}  // namespace ombrine
