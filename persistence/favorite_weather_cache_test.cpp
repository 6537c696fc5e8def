#include "persistence/favorite_weather_cache.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <fstream>
#include <thread>

#include "core/record/testing_records.hpp"
#include "core/values/errors.hpp"
#include "persistence/persistence_test_support.hpp"
#include "platform/atomic_file.hpp"
#include "platform/runtime.hpp"
#include "platform/testing/async_testing.hpp"
#include "platform/testing/fake_clock.hpp"

namespace ombrine {
namespace {

using namespace testing_support;
using namespace std::chrono_literals;

const Uuid kHome = *Uuid::parse("E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
const Uuid kCabin = *Uuid::parse("0b0a1c2d-3e4f-4a5b-8c6d-7e8f9a0b1c2d");

CachedWeather placeNamed(const std::string& name, double latitude) {
  testing_records::RecordShape shape;
  shape.days = 1;
  shape.hours = 2;
  shape.minutes = 0;
  shape.tides = false;
  return CachedWeather{name, Location(latitude, 10.0), Region{"NO"}, testing_records::makeForecastRecord(shape)};
}

TEST(FavoriteWeatherJsonTest, AlternatingIdsAndRecordsRoundTrip) {
  const FavoriteWeather weather{{kHome, placeNamed("Home", 60.0)}, {kCabin, placeNamed("Cabin", 61.0)}};
  const std::string text = encodeFavoriteWeather(weather, weather.at(kHome).weather.current.dt);
  EXPECT_EQ(text.rfind("[\"0B0A1C2D-3E4F-4A5B-8C6D-7E8F9A0B1C2D\",{\"name\":\"Cabin\"", 0), 0u) << text.substr(0, 80);
  EXPECT_NE(text.find(",\"E621E1F8-C36C-495A-93FC-0C247A3E6E5F\",{\"name\":\"Home\""), std::string::npos);
  EXPECT_EQ(decodeFavoriteWeather(text), weather);
  EXPECT_EQ(encodeFavoriteWeather({}, Date::fromReference(0)), "[]");
  EXPECT_EQ(decodeFavoriteWeather("[]"), FavoriteWeather{});
}

TEST(FavoriteWeatherJsonTest, MalformedFilesAreDecodingErrors) {
  const std::string record = encodeCachedWeather(placeNamed("Home", 60.0), Date::fromReference(0));
  const std::string id = "\"" + kHome.text() + "\"";
  const std::string cases[] = {
      "{}",                              // an object, not the array
      "[" + id + "]",                    // an id without its record
      "[42," + record + "]",             // a key that is no text
      "[\"not-an-id\"," + record + "]",  // text that is no id
      "[" + id + ",{\"name\":\"x\"}]",   // a record that is not one
      "[" + id + "," + record,           // truncated
      "",
  };
  for (const auto& text : cases) EXPECT_THROW(decodeFavoriteWeather(text), DecodingError) << text;
}

class FavoriteWeatherCacheTest : public ScratchFolderTest {
 protected:
  fs::path caches() const { return dir_ / "Library" / "Caches"; }
  fs::path file() const { return caches() / "favoriteWeatherCache"; }
  std::unique_ptr<FavoriteWeatherCache> makeCache() {
    return std::make_unique<FavoriteWeatherCache>(caches(), clock_, runtime_.executor());
  }
  // Lets the save scheduled by the last set reach its sleep (the superseded one is cancelled
  // first, on the same serial context).
  void settle() {
    std::this_thread::sleep_for(5ms);
    ASSERT_TRUE(eventually([&] { return clock_.pendingSleepers() == 1; }));
  }
  std::optional<FavoriteWeather> onDisk() const {
    auto bytes = readFileIfExists(file());
    if (!bytes) return std::nullopt;
    return decodeFavoriteWeather(*bytes);
  }
  ino_t inodeOfFile() const {
    struct stat info {};
    return ::stat(file().c_str(), &info) == 0 ? info.st_ino : 0;
  }

  Runtime runtime_{2};
  FakeClock clock_;
};

// Ten sets 50 ms apart: nothing is written until 750 ms after the last, then exactly the last
// snapshot, once.
TEST_F(FavoriteWeatherCacheTest, BurstOfSetsCostsOneWriteOfTheLastSnapshot) {
  auto cache = makeCache();
  std::atomic<int> changes{0};
  cache->onChange([&changes] { ++changes; });
  FavoriteWeather last;
  for (int i = 0; i < 10; ++i) {
    last = FavoriteWeather{{kHome, placeNamed("Home " + std::to_string(i), 60.0)}};
    cache->setWeather(last);
    settle();
    clock_.advance(50ms);
  }
  EXPECT_EQ(changes, 10);
  EXPECT_EQ(cache->weather(), last);
  clock_.advance(699ms);  // 749 ms after the last set
  std::this_thread::sleep_for(20ms);
  EXPECT_FALSE(fs::exists(file())) << "written before the quiet period ended";
  clock_.advance(1ms);
  ASSERT_TRUE(eventually([&] { return fs::exists(file()); }));
  EXPECT_EQ(onDisk(), last);
  const ino_t written = inodeOfFile();
  clock_.advance(10s);
  std::this_thread::sleep_for(20ms);
  EXPECT_EQ(inodeOfFile(), written) << "a superseded save wrote as well";
}

TEST_F(FavoriteWeatherCacheTest, SetsThatChangeNothingScheduleNothing) {
  auto cache = makeCache();
  std::atomic<int> changes{0};
  cache->onChange([&changes] { ++changes; });
  cache->setWeather({});
  EXPECT_EQ(clock_.pendingSleepers(), 0u);
  const FavoriteWeather one{{kHome, placeNamed("Home", 60.0)}};
  cache->setWeather(one);
  settle();
  clock_.advance(750ms);
  ASSERT_TRUE(eventually([&] { return fs::exists(file()); }));
  cache->setWeather(one);
  std::this_thread::sleep_for(10ms);
  EXPECT_EQ(clock_.pendingSleepers(), 0u);
  EXPECT_EQ(changes, 1);
}

TEST_F(FavoriteWeatherCacheTest, EmptyDictionaryRemovesTheFileAfterTheDelay) {
  auto cache = makeCache();
  cache->setWeather(FavoriteWeather{{kHome, placeNamed("Home", 60.0)}});
  settle();
  clock_.advance(750ms);
  ASSERT_TRUE(eventually([&] { return fs::exists(file()); }));
  cache->setWeather({});
  settle();
  clock_.advance(749ms);
  std::this_thread::sleep_for(20ms);
  EXPECT_TRUE(fs::exists(file()));
  clock_.advance(1ms);
  EXPECT_TRUE(eventually([&] { return !fs::exists(file()); }));
}

// What a new process finds: the other process's snapshot, or nothing for a file it cannot use
// (which stays until the next change replaces it).
TEST_F(FavoriteWeatherCacheTest, StartLoadsTheFileAndAnUnusableOneReadsAsEmpty) {
  const FavoriteWeather stored{{kCabin, placeNamed("Cabin", 61.0)}};
  struct Case {
    const char* what;
    std::optional<std::string> content;
    FavoriteWeather expected;
  };
  const Case cases[] = {
      {"no file", std::nullopt, {}},
      {"a snapshot", encodeFavoriteWeather(stored, Date::fromReference(0)), stored},
      {"garbage", std::string("[\"E621E1F8"), {}},
      {"an empty file", std::string(), {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    fs::remove_all(caches());
    if (c.content) writeFileAtomically(file(), *c.content);
    auto cache = makeCache();
    EXPECT_EQ(cache->weather(), c.expected);
    cache.reset();
    EXPECT_EQ(readFileIfExists(file()).has_value(), c.content.has_value()) << "an unusable file is left alone";
  }
}

TEST_F(FavoriteWeatherCacheTest, PendingSnapshotIsWrittenWhenTheCacheEnds) {
  const FavoriteWeather one{{kHome, placeNamed("Home", 60.0)}};
  {
    auto cache = makeCache();
    cache->setWeather(one);
  }
  EXPECT_EQ(onDisk(), one);
  // And flush writes it at once.
  auto cache = makeCache();
  const FavoriteWeather two{{kCabin, placeNamed("Cabin", 61.0)}};
  cache->setWeather(two);
  cache->flush();
  EXPECT_EQ(onDisk(), two);
}

}  // namespace
}  // namespace ombrine
