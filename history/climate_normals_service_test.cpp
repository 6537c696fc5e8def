// Climate normals fetched over loopback from the simulator, with injected faults, and kept in a
// real cache folder.

#include "history/climate_normals_service.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <functional>

#include "core/values/errors.hpp"
#include "history/climate_decoding.hpp"
#include "history/climate_merge.hpp"
#include "persistence/historical_weather_cache.hpp"
#include "platform/http_client.hpp"
#include "platform/linux/curl_http_client.hpp"
#include "platform/runtime.hpp"
#include "platform/testing/async_testing.hpp"
#include "platform/testing/scratch_folder.hpp"
#include "sim/sim_server.hpp"

namespace ombrine {
namespace {

namespace fs = std::filesystem;

const Location kMunich(48.137, 11.575);
const Location kSvalbard(78.22, 15.65);  // beyond the simulated Meteostat stations

class ClimateNormalsServiceTest : public testing::Test {
 protected:
  ClimateNormalsServiceTest()
      : directory_(scratch_.path()),
        sim_(sim::SimServer::Options{.port = 0, .seed = 7, .logRequests = false}),
        service_(http_, ServiceEndpoints::simulator(sim_.baseUrl()), Secret("test-key"), directory_) {}

  HistoryData history(Location location) { return runtime_.runBlocking(service_.historyData(location)); }

  std::exception_ptr failureOf(Location location) {
    auto task = [](ClimateNormalsService& service, Location at) -> Task<void> { co_await service.historyData(at); };
    return errorOf(runtime_, task(service_, location));
  }

  std::optional<std::string> stored(Location location) {
    return HistoricalWeatherCache::cachedHistoryData(directory_, location.latitude(), location.longitude(), true);
  }

  const ScratchFolder scratch_{"climate-normals"};
  fs::path directory_;
  Runtime runtime_{2};
  CurlHttpClient http_;
  sim::SimServer sim_;
  ClimateNormalsService service_;
};

TEST_F(ClimateNormalsServiceTest, BlendsStoresAndServesFromTheCache) {
  const HistoryData munich = history(kMunich);
  ASSERT_TRUE(isComplete(munich.data));
  EXPECT_GE(std::count_if(munich.data.begin(), munich.data.end(), [](const auto& m) { return m.tsun.has_value(); }),
            11);
  ASSERT_TRUE(stored(kMunich));
  EXPECT_EQ(decodeHistoryData(*stored(kMunich)), munich);

  // Within 15 km the stored record answers, without a request.
  sim_.clearRequestLog();
  EXPECT_EQ(history(Location(48.2, 11.6)), munich);
  EXPECT_EQ(sim_.requestCount("*"), 0u);

  // Where Meteostat has nothing, every older period is asked and NASA POWER fills the year.
  const HistoryData svalbard = history(kSvalbard);
  ASSERT_EQ(svalbard.data.size(), 12u);
  EXPECT_EQ(sim_.requestCount("meteostat.point_normals"), 3u);
  EXPECT_EQ(sim_.requestCount("nasapower.climatology"), 1u);
  for (const auto& month : svalbard.data) {
    EXPECT_FALSE(month.tsun);
    EXPECT_TRUE(month.tmin);
  }
}

TEST_F(ClimateNormalsServiceTest, IncompleteOrBadCacheEntriesAreRefetched) {
  HistoryData eleven = history(kMunich);
  eleven.data.pop_back();
  HistoryData infinite = history(kMunich);
  infinite.data[0].prcp = Precipitation::millimeters(std::numeric_limits<double>::infinity());
  struct Row {
    const char* why;
    std::string stored;
  };
  const Row rows[] = {
      {"eleven months", encodeHistoryData(eleven)},
      {"not a record", "{\"data\": 5}"},
      {"an infinite precipitation (as a decoder of another writer could leave it)",
       R"({"data":[{"month":1,"tmin":1,"tmax":2,"prcp":1e999}]})"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    HistoricalWeatherCache::store(directory_, row.stored, kMunich.latitude(), kMunich.longitude());
    sim_.clearRequestLog();
    EXPECT_TRUE(isComplete(history(kMunich).data));
    EXPECT_GE(sim_.requestCount("meteostat.point_normals"), 1u);
    EXPECT_TRUE(isComplete(decodeHistoryData(*stored(kMunich)).data));
  }
}

TEST_F(ClimateNormalsServiceTest, MeteostatFailures) {
  struct Row {
    const char* why;
    const char* fault;
    enum { nasaOnly, apiLimit, transport, decoding } outcome;
  };
  const Row rows[] = {
      {"a refusal falls back to NASA POWER alone", "status=503", Row::nasaOnly},
      {"so does an unauthorised key", "status=403", Row::nasaOnly},
      {"the API limit reaches the caller", "status=429", Row::apiLimit},
      {"a cut-off answer reaches the caller", "truncate", Row::transport},
      {"an answer that is not JSON reaches the caller", "malformed", Row::decoding},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    std::error_code ignored;
    fs::remove_all(directory_, ignored);
    sim_.setFault("meteostat.point_normals", sim::parseFault(row.fault));
    if (row.outcome == Row::nasaOnly) {
      const HistoryData result = history(kMunich);
      EXPECT_FALSE(result.data.empty());
      for (const auto& month : result.data) EXPECT_FALSE(month.tsun);
      // A stand-in answer is not kept: the next call asks Meteostat again.
      EXPECT_FALSE(stored(kMunich));
      continue;
    }
    const auto error = failureOf(kMunich);
    ASSERT_TRUE(error);
    try {
      std::rethrow_exception(error);
    } catch (const NetworkError& e) {
      EXPECT_EQ(row.outcome, Row::apiLimit);
      EXPECT_EQ(e.which(), NetworkError::exceededApiLimit);
    } catch (const HttpError&) {
      EXPECT_EQ(row.outcome, Row::transport);
    } catch (const DecodingError&) {
      EXPECT_EQ(row.outcome, Row::decoding);
    }
    EXPECT_FALSE(stored(kMunich));
  }
  sim_.clearFaults();

  // A later source's failure keeps what was obtained.
  sim_.setFault("nasapower.climatology", sim::parseFault("status=500"));
  const HistoryData svalbard = history(kSvalbard);
  EXPECT_TRUE(svalbard.data.empty());
}

TEST_F(ClimateNormalsServiceTest, CancellationIsNeverSwallowed) {
  struct Row {
    const char* why;
    const char* slowRoute;
    Location place;
    size_t requestsBeforeCancel;
  };
  const Row rows[] = {
      {"while the first source answers", "meteostat.point_normals", kMunich, 1},
      {"while a later source answers, whose failures are otherwise only logged", "nasapower.climatology", kSvalbard, 4},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    sim_.clearFaults();
    sim_.clearRequestLog();
    sim_.setFault(row.slowRoute, sim::parseFault("latency=1500"));
    auto body = [](ClimateNormalsService& service, Location at) -> Task<void> { co_await service.historyData(at); };
    StartedTask started = startTask(runtime_.executor(), body(service_, row.place));
    ASSERT_TRUE(eventually([&] { return sim_.requestCount("*") == row.requestsBeforeCancel; }));
    started.task.cancel();
    EXPECT_TRUE(isCancellationError(started.outcome.get()));
    EXPECT_FALSE(stored(row.place));
  }
}

TEST_F(ClimateNormalsServiceTest, RequestsAsTheServicesExpect) {
  EXPECT_TRUE(runtime_.runBlocking(service_.nasaNormals(kMunich, 1961, 1990)).empty());
  EXPECT_EQ(sim_.requestCount("nasapower.climatology"), 0u) << "nothing is asked before 1981";

  const auto stations = runtime_.runBlocking(service_.stationsNearby(kMunich));
  ASSERT_FALSE(stations.empty());
  EXPECT_EQ(stations.front().id, "10865");
  const auto normals = runtime_.runBlocking(service_.stationNormals(stations.front().id, 1961, 1990));
  EXPECT_TRUE(isComplete(normals));

  runtime_.runBlocking(service_.nasaNormals(kMunich, 1991, 2020));
  const auto log = sim_.requestLog();
  const auto nasa =
      std::find_if(log.begin(), log.end(), [](const auto& r) { return r.route == "nasapower.climatology"; });
  ASSERT_NE(nasa, log.end());
  const std::vector<std::pair<std::string, std::string>> expected = {
      {"parameters", "T2M,T2M_MAX_AVG,T2M_MIN_AVG,PRECTOTCORR_SUM"},
      {"community", "AG"},
      {"longitude", "11.575"},
      {"latitude", "48.137"},
      {"format", "JSON"},
      {"start", "1991"},
      {"end", "2020"}};
  EXPECT_EQ(nasa->query, expected);
}

// Answers every request with an empty Meteostat list and keeps the requests it was sent.
class RecordingHttp : public HttpClient {
 public:
  Task<HttpResponse> send(const HttpRequest& request) override {
    requests.push_back(request);
    co_return HttpResponse{.status = 200, .body = R"({"meta":{},"data":[]})"};
  }
  std::vector<HttpRequest> requests;
};

TEST(ClimateNormalsRequestTest, MeteostatGatewayRequests) {
  Runtime runtime(1);
  struct Row {
    const char* why;
    std::optional<Secret> key;
    std::function<Task<void>(ClimateNormalsService&)> call;
    const char* path;
    const char* query;
  };
  const Row rows[] = {
      {"point normals", Secret("k1"),
       [](ClimateNormalsService& s) -> Task<void> { co_await s.pointNormals(Location(48.137, -11.5), 1991, 2020); },
       "/point/normals", "lat=48.137&lon=-11.5&start=1991&end=2020"},
      {"stations nearby", Secret("k1"),
       [](ClimateNormalsService& s) -> Task<void> { co_await s.stationsNearby(Location(51.5, -0.1)); },
       "/stations/nearby", "lat=51.5&lon=-0.1"},
      {"station normals, without a key", std::nullopt,
       [](ClimateNormalsService& s) -> Task<void> { co_await s.stationNormals("10637", 1961, 1990); },
       "/stations/normals", "station=10637&start=1961&end=1990"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    RecordingHttp http;
    ClimateNormalsService service(http, ServiceEndpoints::production(), row.key, "/nonexistent");
    runtime.runBlocking(row.call(service));
    ASSERT_EQ(http.requests.size(), 1u);
    const HttpRequest& request = http.requests[0];
    EXPECT_EQ(request.url.host(), "meteostat.p.rapidapi.com");
    EXPECT_EQ(request.url.path(), row.path);
    EXPECT_EQ(request.url.query(), row.query);
    EXPECT_EQ(request.timeout, std::chrono::seconds(60));
    HttpResponse asHeaders{.headers = request.headers};
    EXPECT_EQ(asHeaders.header("X-RapidAPI-Host"), "meteostat.p.rapidapi.com");
    EXPECT_EQ(asHeaders.header("X-RapidAPI-Key"),
              row.key ? std::optional<std::string>(row.key->reveal()) : std::nullopt);
  }
}

}  // namespace
}  // namespace ombrine
