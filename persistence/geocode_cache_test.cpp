#include "persistence/geocode_cache.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>

#include "persistence/persistence_test_support.hpp"

namespace ombrine {
namespace {

using namespace testing_support;

class GeocodeCacheTest : public ScratchFolderTest {
 protected:
  fs::path folder() const { return dir_ / "geocode"; }
  GeoDetails helsinki() const { return GeoDetails{"Helsinki", Region{"FI"}, *TimeZone::named("Europe/Helsinki")}; }
};

TEST_F(GeocodeCacheTest, FileNamesAreTheShortestTextOfBothNumbers) {
  EXPECT_EQ(GeocodeCache::fileName(60.1699, 24.9384), "60.1699_24.9384.data");
  EXPECT_EQ(GeocodeCache::fileName(-33.87, 151.21), "-33.87_151.21.data");
  EXPECT_EQ(GeocodeCache::fileName(0.1 + 0.2, -0.0), "0.30000000000000004_-0.data");
}

TEST_F(GeocodeCacheTest, FindsARecordUnder200MetresAndNotAt200) {
  const double latitude = 60.1699;
  const double longitude = 24.9384;
  GeocodeCache::store(folder(), helsinki(), latitude, longitude);
  ASSERT_TRUE(fs::exists(folder() / "60.1699_24.9384.data"));
  EXPECT_EQ(GeocodeCache::decode(*readFileIfExists(folder() / "60.1699_24.9384.data")), helsinki());

  const Location origin(latitude, longitude);
  // The first latitude at least `metres` north of the record.
  auto northBy = [&](double metres) {
    double north = latitude + metres / 6371009.0 * 180.0 / 3.14159265358979323846;
    while (Location(north, longitude).distance(origin) < metres) north = std::nextafter(north, 90.0);
    return north;
  };
  EXPECT_EQ(GeocodeCache::cachedGeoDetails(folder(), northBy(199.0), longitude), helsinki());
  EXPECT_EQ(GeocodeCache::cachedGeoDetails(folder(), northBy(200.0), longitude), std::nullopt);
  // Just below the radius still matches.
  EXPECT_EQ(GeocodeCache::cachedGeoDetails(folder(), std::nextafter(northBy(200.0), 0.0), longitude), helsinki());
}

TEST_F(GeocodeCacheTest, UnusableFilesAndFoldersReadAsNothing) {
  EXPECT_EQ(GeocodeCache::cachedGeoDetails(folder(), 1.0, 2.0), std::nullopt) << "no folder";
  fs::create_directories(folder());
  std::ofstream(folder() / "1_2.data") << R"({"name":"x","region":)";
  std::ofstream(folder() / "stray") << "not a cache file";
  EXPECT_EQ(GeocodeCache::cachedGeoDetails(folder(), 1.0, 2.0), std::nullopt) << "truncated record";
  std::ofstream(folder() / "1_2.data", std::ios::trunc) << R"({"name":"x","region":"XX","timeZone":"Mars/Olympus"})";
  EXPECT_EQ(GeocodeCache::cachedGeoDetails(folder(), 1.0, 2.0), std::nullopt) << "unknown zone";
  // A store replaces whatever was there.
  GeocodeCache::store(folder(), helsinki(), 1.0, 2.0);
  EXPECT_EQ(GeocodeCache::cachedGeoDetails(folder(), 1.0, 2.0), helsinki());
}

}  // namespace
}  // namespace ombrine
