#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "core/values/value_json.hpp"
#include "platform/atomic_file.hpp"
#include "platform/runtime.hpp"
#include "platform/testing/fake_clock.hpp"
#include "platform/testing/scratch_folder.hpp"
#include "tides/tide_disk_cache.hpp"

namespace ombrine {
namespace {

namespace fs = std::filesystem;
using Kind = TideExtreme::Kind;

// 2026-11-23T12:00:00Z
const Clock::WallTime kNow = Clock::WallTime(std::chrono::seconds(1795435200));

class TideDiskCacheTest : public testing::Test {
 protected:
  TideDiskCacheTest()
      : directory_(scratch_.path()),
        clock_(kNow),
        cache_(runtime_.makeStrand(), clock_, directory_ / "Library/Caches/Tides") {}
  ~TideDiskCacheTest() override {
    runtime_.runBlocking(cache_.loadTideData("flush", 0));  // the queued writes end first
  }

  template <class T>
  T run(Task<T> task) {
    return runtime_.runBlocking(std::move(task));
  }

  static TideData sample() {
    const Date now = Date::fromSystem(kNow);
    return TideData{
        .station = TideStation{.id = "8557380",
                               .name = "Lewes",
                               .latitude = 38.7828,
                               .longitude = -75.1192,
                               .state = "DE",
                               .type = "R",
                               .referenceStationID = std::nullopt},
        .distance = 5000.0,
        .extremes = {{now - 3600, Length::meters(1.42), Kind::high}, {now + 18000, Length::meters(-0.05), Kind::low}},
        .chartPoints = {{now - 3600, Length::meters(1.42)}, {now - 2700, Length::meters(1.4)}},
        .fetchedAt = now - 60,
    };
  }

  const ScratchFolder scratch_{"tides-disk"};
  fs::path directory_;
  Runtime runtime_{2};
  FakeClock clock_;
  TideDiskCache cache_;
};

TEST_F(TideDiskCacheTest, FileNamesKeepLettersDigitsDashAndUnderscore) {
  const std::pair<const char*, const char*> rows[] = {
      {"noaa:8557380", "noaa_8557380"},
      {"noaa-adjusted-hilo-v1:8555889", "noaa-adjusted-hilo-v1_8555889"},
      {"chs:5cebf1de3d0f4a073c4bb94c", "chs_5cebf1de3d0f4a073c4bb94c"},
      {"a/b.c d", "a_b_c_d"},    // no path separators or dots survive
      {"québec:é", "québec_é"},  // letters beyond ASCII are letters too
      {"x\xff", "x_"},           // a byte that is not UTF-8 is one replaced character
  };
  for (const auto& [key, name] : rows) {
    SCOPED_TRACE(key);
    EXPECT_EQ(TideDiskCache::fileName(key), name);
  }
  EXPECT_EQ(cache_.fileURL("noaa:1").filename(), "noaa_1.json");
}

TEST_F(TideDiskCacheTest, SavedPredictionsLoadWithTheCallersDistanceAndWholeSeconds) {
  TideData data = sample();
  cache_.saveTideData(data, "noaa:8557380", 14'400);
  const auto loaded = run(cache_.loadTideData("noaa:8557380", 123.0));
  ASSERT_TRUE(loaded);
  EXPECT_EQ(loaded->expiresAt, Date::fromSystem(kNow) + 14'400);
  data.distance = 123.0;
  EXPECT_EQ(loaded->data, data);

  // The file holds ISO 8601 dates and plain metres.
  const std::string text = *readFileIfExists(cache_.fileURL("noaa:8557380"));
  EXPECT_NE(text.find(R"("expiresAt":"2026-11-23T16:00:00Z")"), std::string::npos) << text;
  EXPECT_NE(text.find(R"({"date":"2026-11-23T11:00:00Z","heightMeters":1.42,"kind":"H"})"), std::string::npos) << text;
  EXPECT_NE(text.find(R"("distance":5000)"), std::string::npos) << text;

  // Fractions of a second do not survive ISO 8601 text without a fraction.
  data.fetchedAt = data.fetchedAt + 0.75;
  cache_.saveTideData(data, "noaa:8557380", 10);
  EXPECT_EQ(run(cache_.loadTideData("noaa:8557380", 0))->data.fetchedAt, Date::fromSystem(kNow) - 60);
}

TEST_F(TideDiskCacheTest, BadFilesReadAsNothingAndStayInPlace) {
  const Date now = Date::fromSystem(kNow);
  const std::string good = encodeTideDataPayload(sample(), now + 10);
  struct Row {
    const char* why;
    std::string text;
    bool loads;
  };
  const Row rows[] = {
      {"a good file", good, true},
      {"truncated", good.substr(0, good.size() / 2), false},
      {"not JSON at all", "\x00\x01garbage", false},
      {"the station without a name",
       std::string(good).replace(good.find(R"("name":"Lewes",)"), std::string_view(R"("name":"Lewes",)").size(), ""),
       false},
      {"an unknown kind", std::string(good).replace(good.find(R"("kind":"H")"), 10, R"("kind":"X")"), false},
      {"a numeric date", std::string(good).replace(good.find(R"("fetchedAt":")"), 13, R"("fetchedAt":1,"x":")"), false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    writeFileAtomically(cache_.fileURL("chs:1"), row.text);
    EXPECT_EQ(run(cache_.loadTideData("chs:1", 1.0)).has_value(), row.loads);
    EXPECT_TRUE(fs::exists(cache_.fileURL("chs:1")));
  }
  EXPECT_EQ(run(cache_.loadTideData("chs:missing", 1.0)), std::nullopt);

  // An expired entry still loads: deciding what is fresh is the service's business.
  writeFileAtomically(cache_.fileURL("chs:1"), encodeTideDataPayload(sample(), now - 3600));
  EXPECT_EQ(run(cache_.loadTideData("chs:1", 1.0))->expiresAt, now - 3600);
}

TEST_F(TideDiskCacheTest, LoadSortsAndCataloguesRoundTrip) {
  TideData data = sample();
  std::swap(data.extremes[0], data.extremes[1]);
  std::swap(data.chartPoints[0], data.chartPoints[1]);
  cache_.saveTideData(data, "chs:2", 100);
  const auto loaded = run(cache_.loadTideData("chs:2", 0));
  ASSERT_TRUE(loaded);
  EXPECT_EQ(loaded->data.extremes, sample().extremes);
  EXPECT_EQ(loaded->data.chartPoints, sample().chartPoints);

  const Date expires = Date::fromSystem(kNow) + 604'800;
  const std::vector<TideStation> noaa = {sample().station, TideStation{.id = "8555889",
                                                                       .name = "Brandywine Shoal Light",
                                                                       .latitude = 38.9867,
                                                                       .longitude = -75.1133,
                                                                       .state = "NJ",
                                                                       .type = "S",
                                                                       .referenceStationID = "8557380"}};
  cache_.saveNOAAStations(noaa, expires);
  EXPECT_EQ(run(cache_.loadNOAAStations()), (TideDiskCache::LoadedNOAAStations{noaa, expires}));
  const std::vector<CHSStation> chs = {
      CHSStation{.id = "5cebf1de3d0f4a073c4bb94c",
                 .code = "07795",
                 .officialName = "Point Atkinson",
                 .latitude = 49.337,
                 .longitude = -123.253,
                 .operating = true,
                 .timeSeries = std::vector<CHSStation::TimeSeries>{{"wlp"}, {"wlp-hilo"}}},
      CHSStation{.id = "x", .code = "1", .officialName = "Bare"}};
  cache_.saveCHSStations(chs, expires);
  EXPECT_EQ(run(cache_.loadCHSStations()), (TideDiskCache::LoadedCHSStations{chs, expires}));
  // One bad station spoils the whole list.
  writeFileAtomically(
      cache_.fileURL("noaaStations"),
      R"({"stations":[{"id":"1","name":"a","lat":1,"lng":2},{"id":"2","name":"b","lat":1}],"expiresAt":"2026-11-30T12:00:00Z"})");
  EXPECT_EQ(run(cache_.loadNOAAStations()), std::nullopt);
}

TEST_F(TideDiskCacheTest, UnwritableFolderDropsSavesSilently) {
  const fs::path blocked = directory_ / "blocked";
  fs::create_directories(directory_);
  std::ofstream(blocked) << "a file where the folder should be";
  TideDiskCache cache(runtime_.makeStrand(), clock_, blocked / "Tides");
  cache.saveTideData(sample(), "noaa:1", 10);
  EXPECT_EQ(run(cache.loadTideData("noaa:1", 0)), std::nullopt);
}

}  // namespace
}  // namespace ombrine

namespace ombrine {
namespace {

// A command ends as soon as its answer is there, and ending stops the runtime, which drops the
// work still queued on it: the predictions saved last were lost in about one cold run in twelve.
// Saves still queued when the cache goes are written then, in order.
TEST(TideDiskCacheShutdownTest, SavesQueuedWhenTheRuntimeStopsAreWrittenWhenTheCacheGoes) {
  const ScratchFolder scratch("tides-shutdown");
  const fs::path directory = scratch.path() / "Tides";
  FakeClock clock(kNow);
  TideData data;
  data.station.id = "8443970";
  data.fetchedAt = Date::fromSystem(kNow);
  {
    Runtime runtime(1);
    TideDiskCache cache(runtime.makeStrand(), clock, directory);
    runtime.stop();  // nothing queued from here on runs on the pool
    cache.saveNOAAStations({data.station}, Date::fromSystem(kNow) + 60);
    cache.saveTideData(data, "noaa:8443970", 10);
    data.distance = 7.0;
    cache.saveTideData(data, "noaa:8443970", 20);
  }
  EXPECT_TRUE(fs::exists(directory / "noaaStations.json"));
  const auto text = readFileIfExists(directory / "noaa_8443970.json");
  ASSERT_TRUE(text);
  EXPECT_EQ(decodeTideDataPayload(*text, 0).expiresAt, Date::fromSystem(kNow) + 20);  // the later save
}

}  // namespace
}  // namespace ombrine
