#include "places/place_index.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "core/values/location.hpp"
#include "places/places_test_data.hpp"
#include "places/search_key.hpp"
#include "platform/errors.hpp"

namespace ombrine {
namespace {

using testing::getU32;
using testing::putU32;

const PlaceIndex& shippedIndex() {
  static const PlaceIndex index(testing::shippedPlacesDirectory() / "places.bin");
  return index;
}

class CollectKeys final : public KeyVisitor {
 public:
  bool visit(const KeyEntry& entry) override {
    keys.emplace_back(entry.key);
    places.push_back(entry.place);
    kinds.push_back(entry.kind);
    return true;
  }
  std::vector<std::string> keys;
  std::vector<std::uint32_t> places;
  std::vector<KeyKind> kinds;
};

TEST(PlaceIndexTest, ShippedIndexHoldsTheGazetteer) {
  const PlaceIndex& index = shippedIndex();
  EXPECT_GT(index.placeCount(), 150000u);
  EXPECT_GT(index.regionCount(), 3000u);
  EXPECT_GT(index.countryCount(), 240u);
  EXPECT_NE(index.source().find("GeoNames"), std::string_view::npos);
  const auto us = index.findCountry("US");
  ASSERT_TRUE(us);
  EXPECT_EQ(index.country(*us).name, "United States");
  EXPECT_EQ(index.country(*index.findCountry("GB")).name, "United Kingdom");
  EXPECT_FALSE(index.findCountry("ZZ"));
  EXPECT_FALSE(index.findCountry(""));
}

TEST(PlaceIndexTest, PrefixScanVisitsMatchingKeysInByteOrder) {
  CollectKeys collected;
  shippedIndex().scanPrefix("zurich", collected);
  ASSERT_FALSE(collected.keys.empty());
  EXPECT_EQ(collected.keys.front(), "zurich");
  for (std::size_t i = 0; i < collected.keys.size(); ++i) {
    EXPECT_EQ(collected.keys[i].rfind("zurich", 0), 0u) << collected.keys[i];
    if (i > 0) EXPECT_LE(collected.keys[i - 1], collected.keys[i]);
  }
  bool zurichItself = false;
  for (std::size_t i = 0; i < collected.keys.size(); ++i) {
    if (collected.keys[i] == "zurich" && collected.kinds[i] == KeyKind::name) {
      zurichItself |= shippedIndex().place(collected.places[i]).name == "Zürich";
    }
  }
  EXPECT_TRUE(zurichItself);

  CollectKeys none;
  shippedIndex().scanPrefix("zzzzzzzzzz", none);
  EXPECT_TRUE(none.keys.empty());
  CollectKeys everything;
  const std::vector<std::byte> sample = testing::readBytes(testing::samplePlacesFile());
  const PlaceIndex sampleIndex = PlaceIndex::fromBytes(sample, "sample");
  sampleIndex.scanPrefix("", everything);
  EXPECT_EQ(everything.keys.size(), sampleIndex.keyCount());
}

// The generator (fold.js) and searchKey must fold alike, or names become unfindable: every
// place's own name, folded here, must be one of its keys.
TEST(PlaceIndexTest, EveryPlaceIsFoundUnderItsNameFoldedByThisProgram) {
  const PlaceIndex& index = shippedIndex();
  class FindPlace final : public KeyVisitor {
   public:
    FindPlace(std::string_view key, std::uint32_t place) : key_(key), place_(place) {}
    bool visit(const KeyEntry& entry) override {
      if (entry.key.size() != key_.size()) return false;
      found |= entry.place == place_ && entry.kind == KeyKind::name;
      return !found;
    }
    bool found = false;

   private:
    std::string_view key_;
    std::uint32_t place_;
  };
  int missing = 0;
  for (std::uint32_t i = 0; i < index.placeCount(); ++i) {
    const std::string key = searchKey(index.place(i).name);
    FindPlace finder(key, i);
    index.scanPrefix(key, finder);
    if (!finder.found && ++missing <= 5) ADD_FAILURE() << index.place(i).name << " not found as \"" << key << "\"";
  }
  EXPECT_EQ(missing, 0);
}

// The row-and-window searches must agree with a scan of every place, including across the
// date line, near the poles and with radii that span several rows or the whole earth.
TEST(PlaceIndexTest, NearestAndLargestAgreeWithAFullScan) {
  const PlaceIndex& index = shippedIndex();
  std::vector<Location> where;
  for (std::uint32_t i = 0; i < index.placeCount(); ++i) {
    where.emplace_back(index.place(i).latitude, index.place(i).longitude);
  }

  struct Query {
    double latitude;
    double longitude;
    double radius;
  };
  std::vector<Query> queries = {
      {48.137, 11.575, 30000},  {0, 0, 30000},          {0, 0, 1000000},        {-16.8, 179.99, 300000},
      {-16.8, -179.99, 300000}, {65.7, 179.99, 500000}, {89.9, 0, 2000000},     {-89.9, 30, 3000000},
      {90, 0, 20000000},        {-90, 0, 20000000},     {78.2, 15.6, 30000},    {-54.8, -68.3, 150000},
      {51.5, -0.12, 0},         {40.7, -74.0, 30000},   {-33.9, 151.2, 150000}, {23.5, 25.0, 150000},
  };
  std::mt19937 random(20240611);
  std::uniform_real_distribution<double> latitude(-90, 90);
  std::uniform_real_distribution<double> longitude(-180, 180);
  for (int i = 0; i < 40; ++i) queries.push_back({latitude(random), longitude(random), i % 2 ? 150000.0 : 600000.0});

  for (const Query& q : queries) {
    SCOPED_TRACE(::testing::Message() << q.latitude << "," << q.longitude << " r=" << q.radius);
    const Location at(q.latitude, q.longitude);
    double bestDistance = q.radius;
    std::optional<std::uint32_t> expected;
    std::optional<std::uint32_t> populous;
    for (std::uint32_t i = 0; i < where.size(); ++i) {
      const double distance = at.distance(where[i]);
      if (distance < bestDistance || (distance == bestDistance && !expected)) {
        bestDistance = distance;
        expected = i;
      }
      if (distance <= q.radius && (!populous || index.place(i).population > index.place(*populous).population)) {
        populous = i;
      }
    }
    const NearestQuery query{.latitude = q.latitude, .longitude = q.longitude, .radiusMeters = q.radius};
    const auto found = index.nearest(query);
    ASSERT_EQ(found.has_value(), expected.has_value());
    if (found) EXPECT_NEAR(found->distanceMeters, bestDistance, 0.01);
    const auto largest = index.largest(query);
    ASSERT_EQ(largest.has_value(), populous.has_value());
    if (largest) EXPECT_EQ(index.place(largest->place).population, index.place(*populous).population);
  }
}

TEST(PlaceIndexTest, NearestHonoursExcludedFlagsAndCountry) {
  const PlaceIndex& index = shippedIndex();
  const auto germany = index.findCountry("DE");
  const auto austria = index.findCountry("AT");
  ASSERT_TRUE(germany && austria);
  // Salzburg, a few kilometres from the German border.
  const auto any = index.nearest({.latitude = 47.80, .longitude = 13.04, .radiusMeters = 30000});
  ASSERT_TRUE(any);
  EXPECT_EQ(index.region(index.place(any->place).region).country, *austria);
  const auto german = index.nearest({.latitude = 47.80, .longitude = 13.04, .radiusMeters = 30000, .country = germany});
  ASSERT_TRUE(german);
  EXPECT_EQ(index.region(index.place(german->place).region).country, *germany);
  EXPECT_GT(german->distanceMeters, any->distanceMeters);
  for (int i = 0; i < 20; ++i) {
    const auto town = index.nearest(
        {.latitude = 40.75 + i * 0.01, .longitude = -73.98, .radiusMeters = 30000, .excludeFlags = kPlaceSection});
    ASSERT_TRUE(town);
    EXPECT_FALSE(index.place(town->place).flags & kPlaceSection);
  }
}

TEST(PlaceIndexTest, CorruptHeadersAndSectionsAreRejectedOnOpen) {
  const std::vector<std::byte> good = testing::readBytes(testing::samplePlacesFile());
  ASSERT_NO_THROW(PlaceIndex::fromBytes(good, "sample"));
  const std::size_t regions = getU32(good, 64);
  const std::size_t countries = getU32(good, 72);

  const testing::Damage damages[] = {
      {"empty", [](auto& b) { b.clear(); }, "shorter than its header"},
      {"cut in the middle", [](auto& b) { b.resize(b.size() / 2); }, "truncated"},
      {"wrong kind of file", [](auto& b) { std::memcpy(b.data(), "OMBTZGRD", 8); }, "wrong magic"},
      {"a newer format", [](auto& b) { putU32(b, 8, 7); }, "format version 7"},
      {"a header of another size", [](auto& b) { putU32(b, 12, 96); }, "header size"},
      {"one place more than stored", [](auto& b) { putU32(b, 20, getU32(b, 20) + 1); }, "place section"},
      {"no rows", [](auto& b) { putU32(b, 40, 0); }, "row count"},
      {"no keys per block", [](auto& b) { putU32(b, 36, 0); }, "keys per block"},
      {"a misaligned section", [](auto& b) { putU32(b, 88, getU32(b, 88) + 1); }, "misaligned"},
      {"a section past the end", [](auto& b) { putU32(b, 60, 0x7fffffff); }, "past the end"},
      {"rows that skip places", [](auto& b) { putU32(b, getU32(b, 48), 1); }, "rows do not cover"},
      {"a region of a missing country", [&](auto& b) { putU32(b, regions + 12, 0xffff); }, "missing country"},
      {"a string outside the pool", [&](auto& b) { putU32(b, countries + 4, 0x7fffffff); }, "outside the pool"},
      {"countries out of order", [&](auto& b) { std::memcpy(b.data() + countries, "ZZ", 2); }, "out of order"},
  };
  const auto load = [](std::span<const std::byte> bytes) { PlaceIndex::fromBytes(bytes, "sample"); };
  testing::expectEachDamageRejected(good, damages, load, "sample: corrupt place index");
}

TEST(PlaceIndexTest, CorruptRecordsAndKeysRaiseWhenRead) {
  const std::vector<std::byte> good = testing::readBytes(testing::samplePlacesFile());
  const std::size_t places = getU32(good, 56);
  const std::size_t blocks = getU32(good, 80);
  const std::size_t keys = getU32(good, 88);

  std::vector<std::byte> badName = good;
  putU32(badName, places + 12, 0x7fffffff);
  EXPECT_THROW(PlaceIndex::fromBytes(badName, "s").place(0), FileError);

  std::vector<std::byte> badCoordinate = good;
  putU32(badCoordinate, places, 0x01ffffff);
  EXPECT_THROW(PlaceIndex::fromBytes(badCoordinate, "s").place(0), FileError);

  std::vector<std::byte> badBlock = good;
  putU32(badBlock, blocks, 0x7fffffff);
  CollectKeys visitor;
  EXPECT_THROW(PlaceIndex::fromBytes(badBlock, "s").scanPrefix("", visitor), FileError);

  std::vector<std::byte> badShared = good;
  badShared[keys] = std::byte{9};  // the first key of a block cannot share bytes
  EXPECT_THROW(PlaceIndex::fromBytes(badShared, "s").scanPrefix("", visitor), FileError);

  std::vector<std::byte> badReference = good;
  const auto firstLength = static_cast<std::size_t>(good[keys + 1]);
  badReference[keys + 2 + firstLength + 2] = std::byte{0x3f};  // place index far beyond the count
  EXPECT_THROW(PlaceIndex::fromBytes(badReference, "s").scanPrefix("", visitor), FileError);
}

}  // namespace
}  // namespace ombrine
