#include "places/time_zone_grid.hpp"

#include <gtest/gtest.h>

#include <cmath>

#include <cstring>
#include <functional>
#include <string>

#include "core/time_zone.hpp"
#include "places/places_test_data.hpp"
#include "platform/errors.hpp"

namespace ombrine {
namespace {

using testing::getU32;
using testing::putU16;
using testing::putU32;

const TimeZoneGrid& shippedGrid() {
  static const TimeZoneGrid grid(testing::shippedPlacesDirectory() / "timezones.bin");
  return grid;
}

TEST(TimeZoneGridTest, ZonesOnLandAtSeaAcrossTheDateLineAndAtThePoles) {
  struct Row {
    const char* why;
    double latitude;
    double longitude;
    const char* zone;
    const char* country;
  };
  const Row rows[] = {
      {"a city", 48.14, 11.58, "Europe/Berlin", "DE"},
      {"(0,0) is open sea: the nautical zone of Greenwich", 0, 0, "Etc/GMT", ""},
      {"mid-Atlantic: three hours west", 30, -40, "Etc/GMT+3", ""},
      {"south Pacific: ten hours west", -45, -150, "Etc/GMT+10", ""},
      {"west of the date line on the equator: Kiribati, UTC+12", 0, 179.99, "Pacific/Tarawa", "KI"},
      {"east of the date line on the equator: UTC-12, a day apart", 0, -179.99, "Etc/GMT+12", ""},
      {"Fiji lies across the date line", -16.5, -179.99, "Pacific/Fiji", "FJ"},
      {"Chukotka lies across it too", 65, -179.99, "Asia/Anadyr", "RU"},
      {"longitude 180 belongs to the last column", 0, 180, "Pacific/Tarawa", "KI"},
      {"the North Pole, whatever the longitude", 90, 123, "Etc/GMT", ""},
      {"the South Pole, whatever the longitude", -90, -45, "Antarctica/McMurdo", "AQ"},
      {"a border town: Tijuana", 32.53, -117.02, "America/Tijuana", "MX"},
      {"across the border: San Diego", 32.70, -117.16, "America/Los_Angeles", "US"},
      {"half-hour offsets", 27.98, 86.92, "Asia/Kathmandu", "NP"},
      {"Svalbard", 78.22, 15.65, "Arctic/Longyearbyen", "SJ"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    const GridZone zone = shippedGrid().zoneAt(row.latitude, row.longitude);
    EXPECT_EQ(zone.identifier, row.zone);
    EXPECT_EQ(zone.countryCode, row.country);
  }
}

TEST(TimeZoneGridTest, EveryZoneOfTheShippedGridIsKnownToTheShippedTimeZoneData) {
  for (std::uint16_t index = 0; index < shippedGrid().zoneCount(); ++index) {
    const std::string_view identifier = shippedGrid().zone(index).identifier;
    EXPECT_TRUE(TimeZone::named(identifier)) << identifier;
  }
  EXPECT_NE(shippedGrid().source().find("tz-lookup"), std::string_view::npos);
}

TEST(TimeZoneGridTest, OutOfRangeInputStaysInsideTheGrid) {
  EXPECT_EQ(shippedGrid().zoneAt(1e9, -1e9), shippedGrid().zoneAt(90, -180));
  EXPECT_EQ(shippedGrid().zoneAt(std::nan(""), std::nan("")), shippedGrid().zoneAt(0, 0));
}

TEST(TimeZoneGridTest, CorruptFilesRaiseFileErrorsThatSayWhatIsWrong) {
  const std::vector<std::byte> good = testing::readBytes(testing::sampleTimeZonesFile());
  ASSERT_GT(good.size(), 72u);
  ASSERT_NO_THROW(TimeZoneGrid::fromBytes(good, "sample"));
  const std::size_t top = getU32(good, 40);
  const std::size_t zones = getU32(good, 56);

  const testing::Damage damages[] = {
      {"empty", [](auto& b) { b.clear(); }, "shorter than its header"},
      {"truncated", [](auto& b) { b.resize(b.size() - 8); }, "truncated"},
      {"not a grid", [](auto& b) { b[0] = std::byte{'X'}; }, "wrong magic"},
      {"a newer format", [](auto& b) { putU32(b, 8, 2); }, "format version 2"},
      {"zero columns", [](auto& b) { putU32(b, 20, 0); }, "dimensions"},
      {"more zones than records", [&](auto& b) { putU32(b, 32, getU32(b, 32) + 1); }, "zone section"},
      {"a section past the end", [](auto& b) { putU32(b, 44, 1u << 30); }, "past the end"},
      {"a tile naming a missing zone", [&](auto& b) { putU16(b, top, 0xffff); }, "zone that does not exist"},
      {"a tile pointing at a missing node", [&](auto& b) { putU16(b, top, 0x0001); }, "invalid node"},
      {"a zone name outside the pool", [&](auto& b) { putU32(b, zones, 1u << 30); }, "outside the pool"},
      {"an unterminated string pool", [](auto& b) { b[getU32(b, 64) + getU32(b, 68) - 1] = std::byte{'x'}; },
       "not terminated"},
  };
  const auto load = [](std::span<const std::byte> bytes) { TimeZoneGrid::fromBytes(bytes, "sample"); };
  testing::expectEachDamageRejected(good, damages, load, "sample: corrupt time-zone grid");
}

TEST(TimeZoneGridTest, NodesThatPointBackwardsAreRejectedSoLookupsCannotLoop) {
  std::vector<std::byte> bytes = testing::readBytes(testing::shippedPlacesDirectory() / "timezones.bin");
  const std::size_t nodes = getU32(bytes, 48);
  ASSERT_GT(getU32(bytes, 28), 1u);
  putU16(bytes, nodes + 8, 0x0001);  // node 1's first quadrant points at node 1 itself
  EXPECT_THROW(TimeZoneGrid::fromBytes(bytes, "grid"), FileError);
}

TEST(TimeZoneGridTest, AMissingFileNamesItsPath) {
  try {
    TimeZoneGrid grid("/nonexistent/timezones.bin");
    ADD_FAILURE() << "no error";
  } catch (const FileError& e) {
    EXPECT_NE(std::string(e.what()).find("/nonexistent/timezones.bin"), std::string::npos);
  }
}

}  // namespace
}  // namespace ombrine
