#include <gtest/gtest.h>

#include <filesystem>

#include "core/values/errors.hpp"
#include "platform/errors.hpp"
#include "platform/linux/curl_http_client.hpp"
#include "platform/runtime.hpp"
#include "platform/testing/async_testing.hpp"
#include "platform/testing/fake_clock.hpp"
#include "platform/testing/scratch_folder.hpp"
#include "sim/sim_server.hpp"
#include "tides/tide_service.hpp"

namespace ombrine {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Kind = TideExtreme::Kind;

// -- The rules -------------------------------------------------------------------------------

TideStation station(std::string id, double latitude, double longitude) {
  return TideStation{.id = std::move(id), .name = "S", .latitude = latitude, .longitude = longitude};
}

// A point `meters` north of (lat, 0) on the service's sphere.
double northOf(double latitude, double meters) { return latitude + meters / 6'371'000.0 * 180.0 / M_PI; }

TEST(TideStationChoiceTest, NearestNOAAStationAndDistanceLimit) {
  EXPECT_NEAR(haversineDistance(38.7828, -75.1192, 40.7006, -74.0142), 233'000, 1'000);
  EXPECT_EQ(haversineDistance(10, 20, 10, 20), 0.0);
  EXPECT_FALSE(isTideRegion("FR"));
  EXPECT_FALSE(isTideRegion("us"));
  for (const char* region : {"US", "CA", "BS", "PR", "VI", "GU", "MP", "AS"})
    EXPECT_TRUE(isTideRegion(region)) << region;

  // Equal distances: the earliest in the list wins, whatever its type.
  const std::vector<TideStation> tied = {station("a", 1, 0), station("b", -1, 0), station("c", 0, 1)};
  EXPECT_EQ(nearestNOAAStation(tied, 0, 0)->station.id, "a");
  EXPECT_EQ(nearestNOAAStation({}, 0, 0), std::nullopt);
  // The NOAA choice has no limit of its own: the caller applies 80 km.
  const auto far = nearestNOAAStation({station("far", northOf(0, 80'001), 0)}, 0, 0);
  EXPECT_NEAR(far->distance, 80'001, 1e-6);

  auto chs = [](std::string id, double meters, std::optional<bool> operating,
                std::optional<std::vector<std::string>> codes) {
    CHSStation s{.id = id,
                 .code = id,
                 .officialName = "Station " + id,
                 .latitude = northOf(0, meters),
                 .longitude = 0,
                 .operating = operating,
                 .provinceCode = "BC",
                 .type = "PERMANENT"};
    if (codes) {
      s.timeSeries.emplace();
      for (auto& code : *codes) s.timeSeries->push_back({code});
    }
    return s;
  };
  struct Row {
    const char* why;
    std::vector<CHSStation> stations;
    std::optional<std::string> chosen;
  };
  const Row rows[] = {
      {"series without predictions is skipped for the next best",
       {chs("near", 79'900, true, std::vector<std::string>{"wlo", "wlf"}),
        chs("next", 79'950, true, std::vector<std::string>{"wlp"})},
       "next"},
      {"a hilo series alone is enough", {chs("hilo", 100, std::nullopt, std::vector<std::string>{"wlp-hilo"})}, "hilo"},
      {"not operating is skipped", {chs("off", 100, false, std::vector<std::string>{"wlp"})}, std::nullopt},
      {"no series at all is skipped", {chs("none", 100, true, std::nullopt)}, std::nullopt},
      {"exactly 80 km is in range", {chs("edge", 80'000, true, std::vector<std::string>{"wlp"})}, "edge"},
      {"beyond 80 km is not", {chs("out", 80'001, true, std::vector<std::string>{"wlp"})}, std::nullopt},
      {"a tie keeps the earliest",
       {chs("first", 500, true, std::vector<std::string>{"wlp"}),
        chs("second", 500, true, std::vector<std::string>{"wlp"})},
       "first"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    const auto nearest = nearestCHSStation(row.stations, 0, 0);
    EXPECT_EQ(nearest ? std::optional<std::string>(nearest->station.id) : std::nullopt, row.chosen);
  }
  const auto converted = chs("x", 0, true, std::vector<std::string>{"wlp"}).tideStation();
  EXPECT_EQ(converted.name, "Station x");
  EXPECT_EQ(converted.state, "BC");
  EXPECT_EQ(converted.type, "PERMANENT");
  EXPECT_EQ(converted.referenceStationID, std::nullopt);
}

std::vector<CHSDataPoint> series(std::initializer_list<std::pair<double, double>> rows) {
  std::vector<CHSDataPoint> points;
  for (const auto& [at, value] : rows) points.push_back({Date{at}, value});
  return points;
}

std::string kinds(const std::vector<TideExtreme>& extremes) {
  std::string text;
  for (const auto& e : extremes) text += toString(e.kind);
  return text;
}

TEST(CHSSeriesTest, DownsamplingClassifyingAndDeriving) {
  // Buckets of 900 s from the reference date; the point nearest the centre (450 s in) wins,
  // and on a tie the earlier one.
  const auto sampled =
      downsampledChartPoints(series({{1000, 9}, {400, 1}, {500, 2}, {0, 3}, {1350, 4}, {1360, 5}}), 15);
  ASSERT_EQ(sampled.size(), 2u);
  EXPECT_EQ(sampled[0].date, Date{400});   // 50 s from the centre, before 500 (also 50 s)
  EXPECT_EQ(sampled[1].date, Date{1350});  // exactly at the centre
  EXPECT_EQ(downsampledChartPoints(series({{5, 1}, {1, 2}}), 0).front().date, Date{1});  // under a minute: sorted only
  EXPECT_EQ(downsampledChartPoints(series({{-100, 1}}), 15).size(),
            1u);  // before the reference date: floor, not truncation
  EXPECT_TRUE(downsampledChartPoints({}, 15).empty());

  struct Row {
    const char* why;
    std::vector<CHSDataPoint> points;
    const char* classified;
    const char* derived;
  };
  const Row rows[] = {
      {"alternating highs and lows", series({{0, 3}, {1, 1}, {2, 4}, {3, 0.5}}), "HLHL", "LH"},
      {"one point is low", series({{0, 3}}), "L", ""},
      {"two equal points", series({{0, 1}, {1, 1}}), "LL", ""},
      // Inner points 1 and 2 are neither peak nor trough: odd index low, even index high.
      {"an inner point on a slope takes its index parity", series({{0, 1}, {1, 2}, {2, 3}, {3, 4}}), "LLHH", ""},
      {"a plateau gives no derived extreme", series({{0, 1}, {1, 2}, {2, 2}, {3, 1}}), "LLHL", ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    EXPECT_EQ(kinds(classifiedExtremes(row.points)), row.classified);
    EXPECT_EQ(kinds(derivedExtremes(row.points)), row.derived);
  }
}

TEST(NOAAFeedTest, TimesValuesAndRows) {
  EXPECT_EQ(parseNOAAPredictionTime("2021-05-11 03:12"), Date::fromUnix(1620702720));
  for (const char* bad :
       {"2021-05-11T03:12", "2021-02-30 00:00", "2021-05-11 24:00", "2021-05-11 3:12", "", "2021-05-11 03:12:00"}) {
    EXPECT_EQ(parseNOAAPredictionTime(bad), std::nullopt) << bad;
  }
  EXPECT_EQ(formatNOAARequestTime(Date::fromUnix(1620702720.9)), "20210511 03:12");
  EXPECT_EQ(parseDecimal("-0.126"), -0.126);
  for (const char* bad : {"", "1.5 ", "abc", "nan", "1e3"}) EXPECT_EQ(parseDecimal(bad), std::nullopt) << bad;

  const auto rows =
      decodeNOAAPredictions(R"({"predictions":[{"t":"2021-05-11 03:12","v":"0.661","type":"H"},{"t":"x","v":"1"}]})");
  ASSERT_EQ(rows.size(), 2u);
  EXPECT_EQ(rows[0].type, "H");
  EXPECT_THROW(decodeNOAAPredictions(R"({"error":{"message":"No data was found."}})"), DecodingError);
  EXPECT_THROW(decodeNOAAStations(R"({"stations":[{"id":"1","name":"a","lat":1}]})"), DecodingError);
  const auto points = decodeCHSDataPoints(
      R"([{"eventDate":"2026-11-23T00:15:00Z","value":1.5},{"eventDate":"2026-11-23T00:30:00.500Z","value":-0.25}])");
  ASSERT_EQ(points.size(), 2u);
  EXPECT_EQ(points[1].eventDate - points[0].eventDate, 900.5);
  EXPECT_THROW(decodeCHSDataPoints(R"([{"eventDate":"2026-11-23 00:15","value":1}])"), DecodingError);
}

// -- The service against the simulator -------------------------------------------------------

// 2026-11-23T12:00:00Z
const Clock::WallTime kStart = Clock::WallTime(std::chrono::seconds(1795435200));

class TideServiceTest : public testing::Test {
 protected:
  TideServiceTest()
      : directory_(scratch_.path()),
        clock_(kStart),
        sim_(sim::SimServer::Options{.port = 0, .seed = 7, .clock = &clock_, .logRequests = false}),
        endpoints_(ServiceEndpoints::simulator(sim_.baseUrl())) {
    makeService();
  }
  ~TideServiceTest() override {
    flushDisk();
    service_.reset();
    disk_.reset();
  }

  // Waits for the queued cache writes: a load runs after every earlier save.
  void flushDisk() {
    if (disk_) runtime_.runBlocking(disk_->loadTideData("flush", 0));
  }

  // A fresh process: empty memory, the same disk.
  void makeService() {
    flushDisk();
    service_.reset();
    disk_ = std::make_unique<TideDiskCache>(runtime_.makeStrand(), clock_, directory_);
    service_ =
        std::make_unique<TideService>(runtime_.makeStrand(), http_, clock_, endpoints_, *disk_, TideRegionGate{});
  }

  std::optional<TideData> tides(double latitude, double longitude, std::string region) {
    return runtime_.runBlocking(service_->tideData(latitude, longitude, std::move(region)));
  }

  std::exception_ptr failureOf(double latitude, double longitude, std::string region) {
    auto task = [](TideService& service, double lat, double lon, std::string r) -> Task<void> {
      co_await service.tideData(lat, lon, std::move(r));
    };
    return errorOf(runtime_, task(*service_, latitude, longitude, std::move(region)));
  }

  std::vector<std::string> intervalsAsked() {
    std::vector<std::string> intervals;
    for (const auto& record : sim_.requestLog()) {
      for (const auto& [key, value] : record.query) {
        if (key == "interval") intervals.push_back(value);
      }
    }
    return intervals;
  }

  const ScratchFolder scratch_{"tides-service"};
  fs::path directory_;
  Runtime runtime_{2};
  FakeClock clock_;
  CurlHttpClient http_;
  sim::SimServer sim_;
  ServiceEndpoints endpoints_;
  std::unique_ptr<TideDiskCache> disk_;
  std::unique_ptr<TideService> service_;
};

void expectWellFormed(const TideData& data, Date now) {
  ASSERT_FALSE(data.extremes.empty());
  ASSERT_FALSE(data.chartPoints.empty());
  EXPECT_TRUE(std::is_sorted(data.extremes.begin(), data.extremes.end(), tideExtremeLess));
  EXPECT_TRUE(std::is_sorted(data.chartPoints.begin(), data.chartPoints.end(), tideChartPointLess));
  EXPECT_TRUE(data.coversChartWindow(now));
  for (size_t i = 1; i < data.extremes.size(); ++i) EXPECT_NE(data.extremes[i].kind, data.extremes[i - 1].kind);
}

TEST_F(TideServiceTest, ReferenceStationFetchesChartAndExtremesThenServesFromMemory) {
  const auto data = tides(38.80, -75.13, "US");
  ASSERT_TRUE(data);
  EXPECT_EQ(data->station.id, "8557380");
  EXPECT_EQ(data->station.displayName(), "Lewes, DE");
  EXPECT_NEAR(data->distance, haversineDistance(38.80, -75.13, 38.7828, -75.1192), 1e-6);
  expectWellFormed(*data, Date::fromSystem(kStart));
  EXPECT_EQ(data->fetchedAt, Date::fromSystem(kStart));
  // 15-minute rows from 8 hours back to 56 hours ahead.
  EXPECT_EQ(data->chartPoints.front().date, Date::fromSystem(kStart) - 28'800);
  EXPECT_EQ(data->chartPoints.size(), 64u * 4 + 1);
  auto intervals = intervalsAsked();
  std::sort(intervals.begin(), intervals.end());
  EXPECT_EQ(intervals, (std::vector<std::string>{"15", "hilo"}));
  EXPECT_EQ(sim_.requestCount("noaa.stations"), 1u);

  // 29 minutes later the memory answers; another coordinate gets its own distance.
  clock_.advance(29min);
  const auto again = tides(38.79, -75.12, "US");
  ASSERT_TRUE(again);
  EXPECT_EQ(sim_.requestCount("*"), 3u);
  EXPECT_EQ(again->chartPoints, data->chartPoints);
  EXPECT_NE(again->distance, data->distance);
}

TEST_F(TideServiceTest, PlacesWithoutTidesAskNothingOrOnlyTheCatalogue) {
  EXPECT_EQ(tides(48.85, 2.35, "FR"), std::nullopt);
  EXPECT_EQ(tides(38.80, -75.13, ""), std::nullopt);
  EXPECT_EQ(sim_.requestCount("*"), 0u);
  // Denver: in the region, but no station within 80 km.
  EXPECT_EQ(tides(39.74, -104.99, "US"), std::nullopt);
  EXPECT_EQ(sim_.requestCount("noaa.datagetter"), 0u);
  EXPECT_EQ(sim_.requestCount("noaa.stations"), 1u);
}

TEST_F(TideServiceTest, SubordinateStationIsInterpolatedFromHighsAndLows) {
  const auto data = tides(38.99, -75.11, "US");  // Brandywine Shoal Light, subordinate to Lewes
  ASSERT_TRUE(data);
  EXPECT_EQ(data->station.id, "8555889");
  EXPECT_TRUE(data->station.isSubordinate());
  expectWellFormed(*data, Date::fromSystem(kStart));
  EXPECT_EQ(intervalsAsked(), (std::vector<std::string>{"hilo"}));  // never "15"
  const Date now = Date::fromSystem(kStart);
  EXPECT_EQ(data->chartPoints.front().date, now - 28'800);
  EXPECT_EQ(data->chartPoints.back().date, now + 201'600);
  for (const auto& extreme : data->extremes)
    EXPECT_TRUE((DateInterval{now - 28'800, now + 201'600}.contains(extreme.date)));
  EXPECT_TRUE(runtime_.runBlocking(disk_->loadTideData("noaa-adjusted-hilo-v1:8555889", 0)));
}

TEST_F(TideServiceTest, CanadaUsesCHSAndFallsBackToNOAA) {
  const auto vancouver = tides(49.29, -123.11, "CA");
  ASSERT_TRUE(vancouver);
  EXPECT_EQ(vancouver->station.name, "Vancouver");
  EXPECT_EQ(vancouver->station.state, "BC");
  expectWellFormed(*vancouver, Date::fromSystem(kStart));
  EXPECT_EQ(sim_.requestCount("chs.data"), 2u);
  EXPECT_EQ(sim_.requestCount("noaa.stations"), 0u);

  // CHS down and no NOAA station within 80 km: the CHS error is the answer.
  makeService();
  fs::remove(disk_->fileURL("chsStations"));
  sim_.setFault("chs.stations", sim::parseFault("status=503"));
  const auto error = failureOf(49.0, -124.9, "CA");
  ASSERT_TRUE(error);
  EXPECT_THROW(std::rethrow_exception(error), TideServiceError);

  // CHS down, a NOAA station in range (Friday Harbor from Victoria): NOAA data, no error.
  const auto victoria = tides(48.42, -123.37, "CA");
  ASSERT_TRUE(victoria);
  EXPECT_EQ(victoria->station.id, "9449880");
}

TEST_F(TideServiceTest, StaleDataBeatsErrorsAndDoesNotHoldBackTheNextAttempt) {
  ASSERT_TRUE(tides(38.80, -75.13, "US"));
  const size_t first = sim_.requestCount("noaa.datagetter");

  // A new process 31 minutes on: memory is empty, the disk entry (4 hours) answers.
  clock_.advance(31min);
  makeService();
  ASSERT_TRUE(tides(38.80, -75.13, "US"));
  EXPECT_EQ(sim_.requestCount("noaa.datagetter"), first);

  // 5 hours on the chart no longer reaches 52 hours ahead: fetch, fail, serve the stale entry.
  clock_.advance(5h);
  sim_.setFault("noaa.datagetter", sim::parseFault("status=500"));
  const auto stale = tides(38.80, -75.13, "US");
  ASSERT_TRUE(stale);
  EXPECT_EQ(stale->fetchedAt, Date::fromSystem(kStart));
  const size_t afterFailure = sim_.requestCount("noaa.datagetter");
  EXPECT_GT(afterFailure, first);
  // The stale entry went into memory with its old date: the next call tries the network again.
  sim_.clearFaults();
  const auto fresh = tides(38.80, -75.13, "US");
  ASSERT_TRUE(fresh);
  EXPECT_GT(sim_.requestCount("noaa.datagetter"), afterFailure);
  EXPECT_EQ(fresh->fetchedAt, Date::fromSystem(clock_.now()));
}

TEST_F(TideServiceTest, ExpiredCatalogueIsUsedWhenTheNetworkIsDown) {
  ASSERT_TRUE(tides(38.80, -75.13, "US"));
  clock_.advance(8 * 24h);
  makeService();
  for (const char* spec : {"status=503", "truncate", "malformed", "error200"}) {
    SCOPED_TRACE(spec);
    sim_.setFault("noaa.stations", sim::parseFault(spec));
    const auto data = tides(38.80, -75.13, "US");
    ASSERT_TRUE(data);
    EXPECT_EQ(data->station.id, "8557380");
  }
  // With no catalogue anywhere the failure is the caller's.
  fs::remove(disk_->fileURL("noaaStations"));
  makeService();
  EXPECT_TRUE(failureOf(38.80, -75.13, "US"));
}

TEST_F(TideServiceTest, PredictionFailuresWithoutStaleDataAreErrors) {
  for (const char* spec : {"status=500", "error200", "malformed", "truncate"}) {
    SCOPED_TRACE(spec);
    makeService();
    sim_.setFault("noaa.datagetter", sim::parseFault(spec));
    EXPECT_TRUE(failureOf(38.80, -75.13, "US"));
  }
  // A CHS station whose predictions cannot be had falls back to NOAA or nothing.
  sim_.clearFaults();
  sim_.setFault("chs.data", sim::parseFault("status=500"));
  EXPECT_TRUE(failureOf(49.29, -123.11, "CA"));  // CHS fails and no NOAA station in range
}

TEST_F(TideServiceTest, CancellationStaysACancellation) {
  sim_.setFault("chs.data", sim::parseFault("latency=5000"));
  auto task = [](TideService& service) -> Task<void> { co_await service.tideData(49.29, -123.11, "CA"); };
  auto started = startTask(runtime_.executor(), task(*service_));
  ASSERT_TRUE(eventually([&] { return sim_.requestCount("chs.data") == 2; }));
  started.task.cancel();
  ASSERT_EQ(started.outcome.wait_for(3s), std::future_status::ready);
  EXPECT_TRUE(isCancellationError(started.outcome.get()));
}

}  // namespace
}  // namespace ombrine
