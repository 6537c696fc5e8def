#include "persistence/geocode_cache.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <functional>
#include <stdexcept>

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

  auto northBy = [&](double metres) { return latitudeNorthBy(latitude, longitude, metres); };
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

TEST_F(GeocodeCacheTest, RecordKeysAreReadFromSnakeCaseToo) {
  EXPECT_EQ(GeocodeCache::decode(R"({"name":"Helsinki","region":"FI","time_zone":"Europe/Helsinki"})"), helsinki());
  EXPECT_EQ(GeocodeCache::decode(GeocodeCache::encode(helsinki())), helsinki());
  EXPECT_NE(GeocodeCache::encode(helsinki()).find("\"timeZone\""), std::string::npos) << "written as the fields";
}

// The geocoder is asked only when nothing cached lies under 200 m; its answer is kept, its
// failure is not, and a cache that cannot be written does not stop the answer.
TEST_F(GeocodeCacheTest, GeocoderIsAskedOnlyOnAMissAndItsAnswerIsKept) {
  int asked = 0;
  const std::function<GeoDetails(const Location&)> geocoder = [&](const Location&) {
    ++asked;
    return helsinki();
  };
  const Location here(60.1699, 24.9384);
  EXPECT_EQ(GeocodeCache::cachedOrGeocoded(folder(), here, geocoder), helsinki());
  EXPECT_EQ(asked, 1);
  EXPECT_TRUE(fs::exists(folder() / "60.1699_24.9384.data"));
  EXPECT_EQ(GeocodeCache::cachedOrGeocoded(folder(), Location(60.1705, 24.9384), geocoder), helsinki());
  EXPECT_EQ(asked, 1) << "67 m away is served from the cache";
  EXPECT_EQ(GeocodeCache::cachedOrGeocoded(folder(), Location(60.18, 24.9384), geocoder), helsinki());
  EXPECT_EQ(asked, 2) << "over a kilometre away asks again";

  const std::function<GeoDetails(const Location&)> failing = [](const Location&) -> GeoDetails {
    throw std::runtime_error("no result");
  };
  EXPECT_THROW(GeocodeCache::cachedOrGeocoded(folder(), Location(10.0, 10.0), failing), std::runtime_error);
  EXPECT_FALSE(fs::exists(folder() / "10_10.data"));

  std::ofstream(dir_ / "plain") << "a file where the folder should be";
  EXPECT_EQ(GeocodeCache::cachedOrGeocoded(dir_ / "plain", here, geocoder), helsinki());
}

}  // namespace
}  // namespace ombrine
