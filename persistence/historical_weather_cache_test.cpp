#include "persistence/historical_weather_cache.hpp"

#include <gtest/gtest.h>

#include <boost/json.hpp>

#include <cmath>
#include <fstream>

#include "core/values/location.hpp"
#include "persistence/coordinate_file_cache.hpp"
#include "persistence/geocode_cache.hpp"
#include "persistence/persistence_test_support.hpp"

namespace ombrine {
namespace {

using namespace testing_support;

class HistoricalWeatherCacheTest : public ScratchFolderTest {
 protected:
  fs::path folder() const { return dir_ / "history"; }
};

TEST_F(HistoricalWeatherCacheTest, LookupByRadiusOrExactName) {
  const double latitude = 48.8566;
  const double longitude = 2.3522;
  const std::string record = R"({"monthly_normals":[1,2,3]})";
  HistoricalWeatherCache::store(folder(), record, latitude, longitude);
  ASSERT_EQ(readFileIfExists(folder() / "48.8566_2.3522.data"), record) << "stored verbatim under the exact name";

  struct Case {
    const char* what;
    double queryLatitude;
    bool exactOnly;
    bool found;
  };
  const Case cases[] = {
      {"same coordinate", latitude, false, true},
      {"same coordinate, exact only", latitude, true, true},
      {"one metre away, exact only", latitudeNorthBy(latitude, longitude, 1.0), true, false},
      {"14,999 m away", latitudeNorthBy(latitude, longitude, 14999.0), false, true},
      {"just inside 15,000 m", std::nextafter(latitudeNorthBy(latitude, longitude, 15000.0), 0.0), false, true},
      {"15,001 m away", latitudeNorthBy(latitude, longitude, 15001.0), false, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    const auto data = HistoricalWeatherCache::cachedHistoryData(folder(), c.queryLatitude, longitude, c.exactOnly);
    EXPECT_EQ(data.has_value(), c.found);
    if (data) EXPECT_EQ(*data, record);
  }
}

// Names that do not spell two numbers are not this cache's files and are skipped, where the
// geocode cache reads an unparsable piece as 0.
TEST_F(HistoricalWeatherCacheTest, NamesThatAreNotTwoNumbersAreSkipped) {
  fs::create_directories(folder());
  for (const char* name : {"abc_0.data", "0_x.data", "0.data", "0_-.data", "0__.data"}) {
    std::ofstream(folder() / name) << "{}";
  }
  EXPECT_EQ(HistoricalWeatherCache::cachedHistoryData(folder(), 0.0, 0.0, false), std::nullopt);
  const GeoDetails someplace{"Someplace", Region{"XX"}, *TimeZone::named("UTC")};
  fs::create_directories(dir_ / "geocode");
  std::ofstream(dir_ / "geocode" / "abc_0.data") << GeocodeCache::encode(someplace);
  EXPECT_EQ(GeocodeCache::cachedGeoDetails(dir_ / "geocode", 0.0, 0.0), someplace);
  // A proper name among them is still found.
  HistoricalWeatherCache::store(folder(), "{\"ok\":1}", 0.0, 0.0);
  EXPECT_EQ(HistoricalWeatherCache::cachedHistoryData(folder(), 0.0, 0.0, false), "{\"ok\":1}");
}

TEST_F(HistoricalWeatherCacheTest, UndecodableOrUnreadableRecordsReadAsNothing) {
  const std::function<int(std::string_view)> decode = [](std::string_view bytes) {
    return static_cast<int>(boost::json::parse(bytes).as_object().at("ok").as_int64());
  };
  EXPECT_EQ(HistoricalWeatherCache::cachedHistory<int>(folder(), 1.0, 2.0, false, decode), std::nullopt) << "no folder";
  HistoricalWeatherCache::store(folder(), "{\"ok\":", 1.0, 2.0);
  EXPECT_EQ(HistoricalWeatherCache::cachedHistory<int>(folder(), 1.0, 2.0, false, decode), std::nullopt);
  HistoricalWeatherCache::store(folder(), "{\"ok\":7}", 1.0, 2.0);
  EXPECT_EQ(HistoricalWeatherCache::cachedHistory<int>(folder(), 1.0, 2.0, true, decode), 7);
  fs::create_directories(folder() / "3_4.data");  // a folder where a record should be
  EXPECT_EQ(HistoricalWeatherCache::cachedHistoryData(folder(), 3.0, 4.0, true), std::nullopt);
}

TEST_F(HistoricalWeatherCacheTest, FailedWriteIsRaised) {
  std::ofstream(dir_ / "plain") << "a file, not a folder";
  EXPECT_THROW(HistoricalWeatherCache::store(dir_ / "plain", "{}", 1.0, 2.0), FileError);
}

TEST(CoordinateFileCache, SnakeCaseKeysBecomeFieldNames) {
  struct Case {
    const char* key;
    const char* converted;
  };
  const Case cases[] = {
      {"time_zone", "timeZone"},
      {"timeZone", "timeZone"},
      {"TIME_ZONE", "timeZone"},
      {"name", "name"},
      {"_private_key_", "_privateKey_"},
      {"a__b", "aB"},
      {"___", "___"},
      {"", ""},
      {"monthly_mean_temp", "monthlyMeanTemp"},
  };
  for (const Case& c : cases) EXPECT_EQ(camelCaseOfSnakeCase(c.key), c.converted) << c.key;
  const auto converted = withKeysFromSnakeCase(boost::json::parse(R"({"a_b":[{"c_d":1}],"e":{"f_g":null}})"));
  EXPECT_EQ(boost::json::serialize(converted), R"({"aB":[{"cD":1}],"e":{"fG":null}})");
}

TEST(CoordinateFileCache, NamePiecesAndNumbers) {
  EXPECT_EQ(fileNamePieces("_1__2_"), (std::vector<std::string_view>{"1", "2"}));
  EXPECT_EQ(numberOfPiece("-33.87"), -33.87);
  EXPECT_EQ(numberOfPiece("1e3"), 1000.0);
  EXPECT_EQ(numberOfPiece("12abc"), std::nullopt);
  EXPECT_EQ(numberOfPiece(""), std::nullopt);
}

}  // namespace
}  // namespace ombrine
