#include "persistence/key_value_backup.hpp"

#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>
#include <string>

#include "persistence/property_list.hpp"
#include "platform/atomic_file.hpp"
#include "platform/testing/in_memory_key_value_store.hpp"

namespace ombrine {
namespace {

StoreValue integer(std::int64_t i) { return StoreValue{i}; }
StoreValue text(std::string s) { return StoreValue{std::move(s)}; }

std::string bytes(std::initializer_list<int> values) {
  std::string out;
  for (int v : values) out.push_back(static_cast<char>(v));
  return out;
}

// "bplist00", the objects, the offset table and a trailer with 1-byte offsets and references.
std::string plist(const std::string& objects, std::initializer_list<int> offsets, int top = 0) {
  std::string out = "bplist00" + objects;
  const int tableOffset = static_cast<int>(out.size());
  for (int offset : offsets) out.push_back(static_cast<char>(offset));
  out += bytes({0, 0, 0, 0, 0, 0, 0, 1, 1});
  out += bytes({0, 0, 0, 0, 0, 0, 0, static_cast<int>(offsets.size())});
  out += bytes({0, 0, 0, 0, 0, 0, 0, top});
  out += bytes({0, 0, 0, 0, 0, 0, 0, tableOffset});
  return out;
}

TEST(PropertyListTest, WritesTheBinaryFormat) {
  EXPECT_EQ(encodeBinaryPropertyList(StoreValue{true}), plist(bytes({0x09}), {8}));
  // A dictionary: marker, key reference, value reference; then "a" and the integer 300.
  EXPECT_EQ(encodeBinaryPropertyList(StoreValue{StoreDictionary{{"a", integer(300)}}}),
            plist(bytes({0xD1, 1, 2, 0x51, 'a', 0x11, 0x01, 0x2C}), {8, 11, 13}));
}

TEST(PropertyListTest, EveryValueRoundTrips) {
  StoreArray many;
  for (int i = 0; i < 300; ++i) many.push_back(integer(i * 1000));  // 2-byte references, long count
  struct Row {
    const char* why;
    StoreValue value;
  };
  const Row rows[] = {
      // clang-format off
      {"integer widths", StoreValue{StoreArray{integer(0), integer(255), integer(256), integer(65536),
                                               integer(4294967296), integer(std::numeric_limits<std::int64_t>::max())}}},
      {"negative integers", StoreValue{StoreArray{integer(-1), integer(std::numeric_limits<std::int64_t>::min())}}},
      {"doubles", StoreValue{StoreArray{StoreValue{0.1}, StoreValue{-0.0}, StoreValue{1e300}, StoreValue{5.0}}}},
      {"date", StoreValue{StoreDate{785.25}}},
      {"data longer than 14 bytes", StoreValue{StoreData{std::string(40, '\0') + "\xff"}}},
      {"ASCII and non-ASCII text", StoreValue{StoreArray{text("plain"), text("Zürich"), text("東京"), text("🌧 rain"), text("")}}},
      {"nested dictionaries", StoreValue{StoreDictionary{{"favorites", StoreValue{StoreData{"[]"}}},
                                                         {"inner", StoreValue{StoreDictionary{{"ø", StoreValue{false}}}}}}}},
      {"many objects", StoreValue{many}},
      // clang-format on
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.why);
    const std::string encoded = encodeBinaryPropertyList(row.value);
    EXPECT_EQ(decodeBinaryPropertyList(encoded), row.value);
  }
}

TEST(PropertyListTest, ReadsWhatOtherWritersProduce) {
  // Both values of the dictionary refer to one shared string object.
  const std::string shared = plist(bytes({0xD2, 1, 2, 3, 3, 0x51, 'a', 0x51, 'b', 0x52, 'h', 'i'}), {8, 13, 15, 17});
  EXPECT_EQ(decodeBinaryPropertyList(shared), (StoreValue{StoreDictionary{{"a", text("hi")}, {"b", text("hi")}}}));
  // A 4-byte float and a 16-byte integer above 2^63 - 1.
  const std::string wide = plist(bytes({0xA2, 1, 2, 0x22, 0x3F, 0xC0, 0,    0,    0x14, 0,    0,    0,   0,
                                        0,    0, 0, 0,    0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}),
                                 {8, 11, 16});
  EXPECT_EQ(decodeBinaryPropertyList(wide),
            (StoreValue{StoreArray{StoreValue{1.5}, StoreValue{18446744073709551615.0}}}));
}

TEST(PropertyListTest, ReadsAnotherEncodersFile) {
  // testdata/property_list_fuzz/nested.bplist was written by another binary property-list
  // encoder (shared objects, its own widths and order).
  const auto file = readFileIfExists(std::string(OMBRINE_TESTDATA_DIR) + "/property_list_fuzz/nested.bplist");
  ASSERT_TRUE(file);
  const StoreValue expected{StoreDictionary{
      {"a",
       StoreValue{StoreArray{integer(1), integer(-5), integer(std::int64_t{1} << 40), StoreValue{1.5}, text("Zürich"),
                             text("東京"), StoreValue{StoreDictionary{{"x", StoreValue{false}}}}}}},
      {"d", StoreValue{StoreDate{794836800.0}}},  // 2026-03-10T12:00:00Z
  }};
  EXPECT_EQ(decodeBinaryPropertyList(*file), expected);
}

TEST(PropertyListTest, RefusesMalformedDocuments) {
  const std::string good = encodeBinaryPropertyList(StoreValue{StoreArray{integer(1)}});
  struct Row {
    const char* why;
    std::string document;
  };
  const Row rows[] = {
      {"empty", ""},
      {"wrong magic", "bplist01" + good.substr(8)},
      {"truncated", good.substr(0, good.size() - 1)},
      {"reference out of range", plist(bytes({0xA1, 5}), {8})},
      {"array contains itself", plist(bytes({0xA1, 0}), {8})},
      {"count beyond the document", plist(bytes({0xAF, 0x10, 0x7F}), {8})},
      {"dictionary key is no string", plist(bytes({0xD1, 1, 1, 0x10, 1}), {8, 11})},
      {"top object out of range", plist(bytes({0x09}), {8}, 3)},
      {"offset into the header", plist(bytes({0x09}), {2})},
      {"unknown object kind", plist(bytes({0x00}), {8})},
      {"16-byte integer beyond 64 bits", plist(bytes({0x14, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}), {8})},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.why);
    EXPECT_THROW(decodeBinaryPropertyList(row.document), PropertyListError);
  }
}

class KeyValueBackupTest : public testing::Test {
 protected:
  // 2026-03-10T12:00:00Z.
  static Date day(int offsetDays, double hourUtc = 12.0) {
    return Date::fromUnix(1773144000.0 + offsetDays * 86400.0 + (hourUtc - 12.0) * 3600.0);
  }
  KeyValueBackupOutcome backup(Date now) {
    return backupKeyValueStoreIfNeeded(now, TimeZone::gmt(), cloud_, defaults_);
  }
  InMemoryCloudKeyValueStore cloud_;
  InMemoryKeyValueStore defaults_;
};

TEST_F(KeyValueBackupTest, OnePerDayAndTheThirdDropsTheFirst) {
  cloud_.setValue("favorites", StoreValue{StoreData{"[1]"}});
  EXPECT_EQ(backup(day(0)), KeyValueBackupOutcome::backedUp);
  cloud_.setValue("favorites", StoreValue{StoreData{"[2]"}});
  EXPECT_EQ(backup(day(0, 23.9)), KeyValueBackupOutcome::alreadyBackedUpToday);  // second launch, same day
  EXPECT_EQ(latestKeyValueSnapshot(defaults_)->values.at("favorites"), StoreValue{StoreData{"[1]"}});
  EXPECT_EQ(previousKeyValueSnapshot(defaults_), std::nullopt);

  EXPECT_EQ(backup(day(1, 0.1)), KeyValueBackupOutcome::backedUp);
  cloud_.setValue("favorites", StoreValue{StoreData{"[3]"}});
  cloud_.setValue("home", StoreValue{StoreData{"{}"}});
  EXPECT_EQ(backup(day(2)), KeyValueBackupOutcome::backedUp);

  const auto latest = latestKeyValueSnapshot(defaults_);
  const auto previous = previousKeyValueSnapshot(defaults_);
  ASSERT_TRUE(latest && previous);
  EXPECT_EQ(latest->values.at("favorites"), StoreValue{StoreData{"[3]"}});
  EXPECT_EQ(latest->date, day(2));
  EXPECT_EQ(previous->values.at("favorites"), StoreValue{StoreData{"[2]"}});  // the first is gone
  EXPECT_EQ(previous->date, day(1, 0.1));
  EXPECT_EQ(defaults_.integerValue(KeyValueBackupKeys::latestKeyCount), 2);
  EXPECT_EQ(defaults_.integerValue(KeyValueBackupKeys::latestByteCount), static_cast<std::int64_t>(latest->byteCount));
  EXPECT_EQ(defaults_.dateValue(KeyValueBackupKeys::lastSuccessfulBackupDate),
            StoreDate{day(2).timeIntervalSinceReferenceDate});
}

TEST_F(KeyValueBackupTest, EmptyStoreKeepsTheSnapshots) {
  cloud_.setValue("home", StoreValue{StoreData{"{}"}});
  ASSERT_EQ(backup(day(0)), KeyValueBackupOutcome::backedUp);
  const StoreDictionary before = defaults_.dictionaryRepresentation();
  cloud_.removeValue("home");
  EXPECT_EQ(backup(day(1)), KeyValueBackupOutcome::emptyStore);
  EXPECT_EQ(defaults_.dictionaryRepresentation(), before);  // last-backup date included
}

TEST_F(KeyValueBackupTest, CalendarDayIsTheUsersDay) {
  const auto tokyo = *TimeZone::named("Asia/Tokyo");           // UTC+9
  const auto honolulu = *TimeZone::named("Pacific/Honolulu");  // UTC-10
  struct Row {
    const TimeZone& zone;
    Date a;
    Date b;
    bool same;
  };
  const Row rows[] = {
      {TimeZone::gmt(), day(0, 0.0), day(0, 23.99), true},
      {tokyo, day(0, 14.0), day(0, 16.0), false},    // 23:00 and 01:00 in Tokyo
      {tokyo, day(0, 16.0), day(1, 14.5), true},     // 01:00 and 23:30 next UTC day
      {honolulu, day(0, 9.0), day(0, 11.0), false},  // 23:00 and 01:00 in Honolulu
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.zone.identifier());
    EXPECT_EQ(isSameCalendarDay(row.a, row.b, row.zone), row.same);
  }
}

// A backup taken on request holds the state of that moment, even after the day's snapshot; the
// list names it beside the daily pair, and restoring it brings back that moment's values.
TEST_F(KeyValueBackupTest, NamedBackupsHoldTheirMomentAndRestoreByName) {
  EXPECT_THROW(backupKeyValueStoreNamed("empty", day(0), cloud_, defaults_), std::runtime_error);
  cloud_.setValue("hideTides", StoreValue{false});
  ASSERT_EQ(backup(day(0, 8)), KeyValueBackupOutcome::backedUp);
  cloud_.setValue("hideTides", StoreValue{true});
  backupKeyValueStoreNamed("before-experiment", day(0, 15), cloud_, defaults_);
  backupKeyValueStoreNamed("a", day(0, 14), cloud_, defaults_);
  EXPECT_THROW(backupKeyValueStoreNamed("latest", day(0), cloud_, defaults_), std::invalid_argument);
  EXPECT_THROW(backupKeyValueStoreNamed("../x", day(0), cloud_, defaults_), std::invalid_argument);
  std::vector<std::string> names;
  for (const NamedKeyValueSnapshot& kept : keyValueSnapshots(defaults_)) names.push_back(kept.name);
  EXPECT_EQ(names, (std::vector<std::string>{"a", "before-experiment", "latest"}));  // oldest first

  cloud_.setValue("hideTides", StoreValue{false});
  EXPECT_EQ(restoreKeyValueStoreFromSnapshot("before-experiment", defaults_, cloud_).date, day(0, 15));
  EXPECT_EQ(cloud_.server()->values().at("hideTides"), StoreValue{true});
  EXPECT_THROW(restoreKeyValueStoreFromSnapshot("nosuch", defaults_, cloud_), std::runtime_error);
}

TEST_F(KeyValueBackupTest, RestoreWritesTheLatestSnapshotBack) {
  EXPECT_THROW(restoreKeyValueStoreFromSnapshot("latest", defaults_, cloud_), std::runtime_error);
  cloud_.setValue("favorites", StoreValue{StoreData{"[1]"}});
  cloud_.setValue("hideTides", StoreValue{true});
  ASSERT_EQ(backup(day(0)), KeyValueBackupOutcome::backedUp);
  // The cloud store is wiped, then something new is written.
  cloud_.removeValue("favorites");
  cloud_.removeValue("hideTides");
  cloud_.setValue("later", integer(1));
  const KeyValueSnapshot restored = restoreKeyValueStoreFromSnapshot("latest", defaults_, cloud_);
  EXPECT_EQ(restored.values.size(), 2u);
  EXPECT_EQ(cloud_.server()->values(),
            (StoreDictionary{
                {"favorites", StoreValue{StoreData{"[1]"}}}, {"hideTides", StoreValue{true}}, {"later", integer(1)}}));
}

}  // namespace
}  // namespace ombrine
