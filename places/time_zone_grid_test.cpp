#include "places/time_zone_grid.hpp"

#include <gtest/gtest.h>

#include <cmath>

#include <cstring>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "core/values/time_zone.hpp"
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

TEST(TimeZoneGridTest, ZonesOnLandAtSeaAtBordersAcrossTheDateLineAndAtThePoles) {
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
      {"a band edge at sea belongs to the band east of it", 0, 7.5, "Etc/GMT-1", ""},
      {"Kiribati west of the date line, UTC+12", 1.35, 172.93, "Pacific/Tarawa", "KI"},
      {"Kiribati's Line Islands east of it, UTC+14", 1.87, -157.4, "Pacific/Kiritimati", "KI"},
      {"open sea west of the date line", 0, 179.99, "Etc/GMT-12", ""},
      {"open sea east of the date line: a day apart", 0, -179.99, "Etc/GMT+12", ""},
      {"the date line itself at sea", 0, 180, "Etc/GMT+12", ""},
      {"Fiji lies across the date line", -16.5, -179.99, "Pacific/Fiji", "FJ"},
      {"Chukotka lies across it too", 65, -179.99, "Asia/Anadyr", "RU"},
      {"Pago Pago, not independent Samoa a day ahead", -14.2781, -170.7025, "Pacific/Pago_Pago", "AS"},
      {"Little Diomede, 4 km from Russia's Big Diomede", 65.7586, -168.9514, "America/Nome", "US"},
      {"Ushuaia, beside Chile across the Beagle Channel", -54.8019, -68.303, "America/Argentina/Ushuaia", "AR"},
      {"a border town: Tijuana", 32.53, -117.02, "America/Tijuana", "MX"},
      {"across the border: San Diego", 32.70, -117.16, "America/Los_Angeles", "US"},
      {"half-hour offsets", 27.98, 86.92, "Asia/Kathmandu", "NP"},
      {"Svalbard", 78.22, 15.65, "Arctic/Longyearbyen", "SJ"},
      {"the North Pole, whatever the longitude", 90, 123, "Etc/GMT", ""},
      {"the South Pole, whatever the longitude", -90, -45, "Antarctica/McMurdo", "AQ"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    const GridZone zone = shippedGrid().zoneAt(row.latitude, row.longitude);
    EXPECT_EQ(zone.identifier, row.zone);
    EXPECT_EQ(zone.countryCode, row.country);
  }
}

// The fixture holds points within 20 km of zone borders and coasts (islands included) with the
// zone the full-precision polygons give; the shipped file is simplified to about 20 m, so a
// point that close to a border may differ, and nothing more may.
TEST(TimeZoneGridTest, AgreesWithTheFullPolygonsNearBordersAndCoasts) {
  std::ifstream in(std::filesystem::path(OMBRINE_TESTDATA_DIR) / "time_zone_borders.tsv");
  std::string line;
  int points = 0;
  std::vector<std::string> disagreements;
  while (std::getline(in, line)) {
    if (line.empty() || line[0] == '#') continue;
    std::istringstream fields(line);
    double latitude = 0;
    double longitude = 0;
    std::string expected;
    fields >> latitude >> longitude >> expected;
    ++points;
    const std::string_view found = shippedGrid().zoneAt(latitude, longitude).identifier;
    if (found != expected) disagreements.push_back(line + " -> " + std::string(found));
  }
  ASSERT_GE(points, 2000);
  EXPECT_LE(disagreements.size(), static_cast<std::size_t>(points / 200)) << ::testing::PrintToString(disagreements);
}

TEST(TimeZoneGridTest, EveryZoneOfTheShippedGridIsKnownToTheShippedTimeZoneData) {
  for (std::uint16_t index = 0; index < shippedGrid().zoneCount(); ++index) {
    const std::string_view identifier = shippedGrid().zone(index).identifier;
    EXPECT_TRUE(TimeZone::named(identifier)) << identifier;
  }
  EXPECT_NE(shippedGrid().source().find("timezone-boundary-builder"), std::string_view::npos);
}

TEST(TimeZoneGridTest, OutOfRangeInputStaysInsideTheGrid) {
  EXPECT_EQ(shippedGrid().zoneAt(1e9, -1e9), shippedGrid().zoneAt(90, -180));
  EXPECT_EQ(shippedGrid().zoneAt(-1e9, 1e9), shippedGrid().zoneAt(-90, 180));
  EXPECT_EQ(shippedGrid().zoneAt(std::nan(""), std::nan("")), shippedGrid().zoneAt(0, 0));
}

TEST(TimeZoneGridTest, CorruptFilesRaiseFileErrorsThatSayWhatIsWrong) {
  const std::vector<std::byte> good = testing::readBytes(testing::sampleTimeZonesFile());
  ASSERT_GT(good.size(), 112u);
  ASSERT_NO_THROW(TimeZoneGrid::fromBytes(good, "sample"));
  ASSERT_GT(getU32(good, 28), 0u) << "the sample keeps the polygons around Samoa";
  const std::size_t nodes = getU32(good, 48);
  const std::size_t sea = getU32(good, 56);
  const std::size_t zones = getU32(good, 64);
  const std::size_t buckets = getU32(good, 72);
  const std::size_t polygons = getU32(good, 80);
  const std::size_t rings = getU32(good, 88);

  const testing::Damage damages[] = {
      {"empty", [](auto& b) { b.clear(); }, "shorter than its header"},
      {"truncated", [](auto& b) { b.resize(b.size() - 8); }, "truncated"},
      {"not a grid", [](auto& b) { b[0] = std::byte{'X'}; }, "wrong magic"},
      {"an older format", [](auto& b) { putU32(b, 8, 1); }, "format version 1"},
      {"no nodes", [](auto& b) { putU32(b, 20, 0); }, "node or bucket count"},
      {"no coordinate units", [](auto& b) { putU32(b, 44, 0); }, "coordinate units"},
      {"more zones than records", [&](auto& b) { putU32(b, 24, getU32(b, 24) + 1); }, "zone section"},
      {"a section past the end", [](auto& b) { putU32(b, 52, 1u << 30); }, "past the end"},
      {"an entry naming a missing zone", [&](auto& b) { putU32(b, nodes, 0x7fffffff); }, "zone that does not exist"},
      {"an entry naming a missing bucket", [&](auto& b) { putU32(b, nodes, 0xbfffffff); },
       "bucket that does not exist"},
      {"the root pointing at itself", [&](auto& b) { putU32(b, nodes, 0); }, "invalid node"},
      {"a missing sea zone", [&](auto& b) { putU16(b, sea, 0xffff); }, "sea zone"},
      {"a polygon naming a missing zone", [&](auto& b) { putU16(b, polygons, 0xffff); }, "polygon names a zone"},
      {"buckets out of order", [&](auto& b) { putU32(b, buckets, 1u << 30); }, "bucket starts"},
      {"a polygon's rings past the last", [&](auto& b) { putU32(b, polygons + 4, 1u << 30); }, "polygon starts"},
      {"a ring past the coordinates", [&](auto& b) { putU32(b, rings, 1u << 30); }, "ring starts"},
      {"a zone name outside the pool", [&](auto& b) { putU32(b, zones, 1u << 30); }, "outside the pool"},
      {"an unterminated string pool", [](auto& b) { b[getU32(b, 104) + getU32(b, 108) - 1] = std::byte{'x'}; },
       "not terminated"},
  };
  const auto load = [](std::span<const std::byte> bytes) { TimeZoneGrid::fromBytes(bytes, "sample"); };
  testing::expectEachDamageRejected(good, damages, load, "sample: corrupt time-zone grid");
}

TEST(TimeZoneGridTest, TheSampleAnswersFromItsPolygonsAroundSamoa) {
  const std::vector<std::byte> bytes = testing::readBytes(testing::sampleTimeZonesFile());
  const TimeZoneGrid sample = TimeZoneGrid::fromBytes(bytes, "sample");
  EXPECT_EQ(sample.zoneAt(-14.2781, -170.7025).identifier, "Pacific/Pago_Pago");
  EXPECT_EQ(sample.zoneAt(-13.8333, -171.7667).identifier, "Pacific/Apia");
  EXPECT_EQ(sample.zoneAt(-14.6, -171.0).identifier, "Etc/GMT+11");
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
