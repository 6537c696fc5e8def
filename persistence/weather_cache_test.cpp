#include "persistence/weather_cache.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <fstream>
#include <thread>

#include "core/record/testing_records.hpp"
#include "core/values/value_json.hpp"
#include "persistence/coordinated_file.hpp"
#include "persistence/persistence_test_support.hpp"
#include "platform/atomic_file.hpp"
#include "platform/runtime.hpp"
#include "platform/testing/async_testing.hpp"
#include "platform/testing/fake_clock.hpp"

namespace ombrine {
namespace {

using namespace testing_support;
using namespace std::chrono_literals;

CachedWeather berlin(double dtOffset = 0.0, const char* service = "Foreca") {
  testing_records::RecordShape shape;
  shape.days = 2;
  shape.hours = 4;
  shape.minutes = 0;
  shape.tides = false;
  CachedWeather cached{"Berlin", Location(52.52, 13.405), Region{"DE"}, testing_records::makeForecastRecord(shape)};
  cached.weather.current.dt = cached.weather.current.dt + dtOffset;
  cached.weather.attribution = WeatherServiceAttribution{WeatherServiceAttribution::NameAttribution{service, {}}};
  return cached;
}

TEST(CachedWeatherJsonTest, RoundTripsWithKeysInOrderAndRegionOnlyWhenPresent) {
  CachedWeather cached = berlin();
  const std::string text = encodeCachedWeather(cached, cached.weather.current.dt);
  EXPECT_EQ(
      text.rfind(R"({"name":"Berlin","location":{"latitude":52.52,"longitude":13.405},"region":"DE","weather":{)", 0),
      0u)
      << text.substr(0, 120);
  EXPECT_EQ(decodeCachedWeather(text), cached);
  cached.region.reset();
  const std::string bare = encodeCachedWeather(cached, cached.weather.current.dt);
  EXPECT_EQ(bare.find("\"region\""), std::string::npos);
  EXPECT_EQ(decodeCachedWeather(bare), cached);
  EXPECT_THROW(decodeCachedWeather(R"({"name":"x","weather":{}})"), DecodingError);

  // The text is written straight from the record, and it must be the same bytes that writing
  // its document form gives (the form files on disk were written in). A full record: minutes,
  // tides, alerts.
  CachedWeather full{"Paris", Location(48.8566, 2.3522), Region{"FR"},
                     testing_records::makeForecastRecord(testing_records::RecordShape{})};
  const std::string fullText = encodeCachedWeather(full, full.weather.current.dt);
  EXPECT_EQ(serializeJson(parseJson(fullText)), fullText);
  EXPECT_EQ(decodeCachedWeather(fullText), full);
}

TEST(PreferredLatestWeatherTest, MergeRules) {
  const CachedWeather persisted = berlin(0.0);
  auto at = [](CachedWeather value, const Location& where) {
    value.location = where;
    return value;
  };
  struct Row {
    const char* why;
    CachedWeather candidate;
    bool persistedWins;
  };
  const Row rows[] = {
      {"older candidate 1,999 m away, same provider: no roll-back",
       at(berlin(-60.0), northOf(persisted.location, 1999.0)), true},
      {"older candidate at 2,000 m: a move always replaces", at(berlin(-60.0), northOf(persisted.location, 2000.0)),
       false},
      {"older candidate from another provider replaces", berlin(-3600.0, "OpenWeather"), false},
      {"unknown provider differs from a known one", berlin(-60.0, "Somebody"), false},
      {"newer candidate wins", berlin(60.0), false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.why);
    const CachedWeather outcome = preferredLatestWeather(persisted, row.candidate, kLatestWeatherMergeRadius);
    EXPECT_EQ(outcome, row.persistedWins ? persisted : row.candidate);
  }
  EXPECT_EQ(preferredLatestWeather(std::nullopt, persisted, kLatestWeatherMergeRadius), persisted);
}

TEST(PreferredLatestWeatherTest, TieTakesTheCandidateWithPersistedTidesAndRegionAsFallbacks) {
  CachedWeather persisted = berlin();
  persisted.weather.tideData = TideData{.distance = 1.5};
  CachedWeather candidate = berlin();
  candidate.name = "Mitte";
  candidate.region.reset();
  candidate.weather.current.temp = Temperature::celsius(30.0);
  const CachedWeather merged = preferredLatestWeather(persisted, candidate, kLatestWeatherMergeRadius);
  EXPECT_EQ(merged.name, "Mitte");
  EXPECT_EQ(merged.weather.current.temp, Temperature::celsius(30.0));
  EXPECT_EQ(merged.weather.tideData, persisted.weather.tideData);
  EXPECT_EQ(merged.region, persisted.region);

  candidate.weather.tideData = TideData{.distance = 0.5};
  EXPECT_EQ(preferredLatestWeather(persisted, candidate, kLatestWeatherMergeRadius).weather.tideData,
            candidate.weather.tideData);
}

TEST(FreshnessTest, FreshAndBackdropWindows) {
  // 2024-09-17 10:02:00 UTC.
  const Date tenPastTwo = Date::fromUnix(1726567320.0);
  struct Row {
    const char* why;
    const char* zone;
    double dt;   // record time
    double now;  // seconds after dt
    bool fresh;
  };
  const Row rows[] = {
      {"299 s old, same hour", "Europe/Berlin", 1726567320.0 + 120.0, 299.0, true},
      {"300 s old is stale", "Europe/Berlin", 1726567320.0 + 120.0, 300.0, false},
      {"10 s old across the hour", "Europe/Berlin", 1726567195.0, 10.0, false},
      // 09:58:15 and 10:00:15 UTC are both within 15:28-15:30 India time: one hour there.
      {"same local hour in a half-hour zone", "Asia/Kolkata", 1726567095.0, 120.0, true},
      {"crossing the half hour in a half-hour zone", "Asia/Kolkata", 1726568980.0, 60.0, false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.why);
    OneCallWeather weather = berlin().weather;
    weather.timeZone = *TimeZone::named(row.zone);
    weather.current.dt = Date::fromUnix(row.dt);
    EXPECT_EQ(isFreshCachedRecord(weather, weather.current.dt + row.now), row.fresh);
  }

  CachedWeather cached = berlin();
  cached.weather.current.dt = tenPastTwo;
  EXPECT_TRUE(isUsableBackdrop(cached, northOf(cached.location, 1999.0), tenPastTwo + 3599.0));
  EXPECT_FALSE(isUsableBackdrop(cached, northOf(cached.location, 1999.0), tenPastTwo + 3600.0));
  EXPECT_FALSE(isUsableBackdrop(cached, northOf(cached.location, 2000.0), tenPastTwo + 10.0));
}

class WeatherCacheTest : public ScratchFolderTest {
 protected:
  std::unique_ptr<WeatherCache> makeCache() {
    return std::make_unique<WeatherCache>(dir_ / "Library" / "Caches", clock_, runtime_.executor());
  }
  void store(WeatherCache& cache, CachedWeather value) { runtime_.runBlocking(cache.storeLatest(std::move(value))); }

  Runtime runtime_{2};
  FakeClock clock_;
};

TEST_F(WeatherCacheTest, StoresMergesAndSeesTheOtherProcesssWrites) {
  auto app = makeCache();
  auto widget = makeCache();
  EXPECT_EQ(app->latestCachedWeather(), std::nullopt);
  EXPECT_EQ(app->latestWeatherFile(), dir_ / "Library" / "Caches" / "latestWeatherCache");

  std::atomic<int> changes{0};
  app->onWillChange([&changes] { ++changes; });
  store(*app, berlin());
  EXPECT_EQ(app->latestCachedWeather(), berlin());
  EXPECT_TRUE(fs::exists(dir_ / "Library" / "Caches" / "latestWeatherCache.coordination"));
  EXPECT_TRUE(eventually([&] { return changes == 1; }));

  // An older record from 1,999 m away changes nothing: the file keeps its date.
  const auto written = fileModificationDate(app->latestWeatherFile());
  std::this_thread::sleep_for(10ms);
  CachedWeather older = berlin(-60.0);
  older.location = northOf(older.location, 1999.0);
  store(*widget, older);
  EXPECT_EQ(fileModificationDate(app->latestWeatherFile()), written);
  EXPECT_EQ(widget->latestCachedWeather(), berlin());

  // The widget writes a newer record; the application's next read reloads it.
  std::this_thread::sleep_for(10ms);
  store(*widget, berlin(60.0));
  EXPECT_EQ(app->latestCachedWeather(), berlin(60.0));
}

TEST_F(WeatherCacheTest, CorruptFileReadsAsMemoryAndIsOverwrittenByTheNextStore) {
  auto cache = makeCache();
  store(*cache, berlin());
  std::this_thread::sleep_for(10ms);
  std::ofstream(cache->latestWeatherFile(), std::ios::trunc) << R"({"name":"Ber)";
  EXPECT_EQ(cache->latestCachedWeather(), berlin());
  EXPECT_EQ(makeCache()->latestCachedWeather(), std::nullopt);

  store(*cache, berlin(-600.0));  // nothing persisted counts: even an older record is written
  EXPECT_EQ(decodeCachedWeather(*readFileIfExists(cache->latestWeatherFile())), berlin(-600.0));
  EXPECT_EQ(cache->latestCachedWeather(), berlin(-600.0));
}

TEST_F(WeatherCacheTest, FailedDiskStillUpdatesMemoryAndIsReported) {
  auto cache = makeCache();
  // A folder where the cache file should be: every write fails.
  fs::create_directories(cache->latestWeatherFile() / "blocker");
  std::atomic<int> changes{0};
  cache->onWillChange([&changes] { ++changes; });
  EXPECT_THROW(store(*cache, berlin()), FileError);
  EXPECT_EQ(cache->latestCachedWeather(), berlin());
  EXPECT_TRUE(eventually([&] { return changes == 1; }));
}

}  // namespace
}  // namespace ombrine
