// The client against the simulator, through the real CurlHttpClient on loopback.

#include "providers/foreca/foreca_client.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <thread>

#include "core/values/errors.hpp"
#include "platform/async/coroutines.hpp"
#include "platform/errors.hpp"
#include "platform/icu_setup.hpp"
#include "platform/linux/curl_http_client.hpp"
#include "platform/log.hpp"
#include "platform/runtime.hpp"
#include "providers/foreca/foreca_conversion.hpp"
#include "providers/foreca/foreca_test_support.hpp"
#include "sim/pinned_clock.hpp"
#include "sim/sim_server.hpp"

namespace ombrine {
namespace {

using namespace std::chrono_literals;
using testing_foreca::kRecordedAt;

constexpr const char* kToken = "SECRETtoken0123456789abcdef01234";

const Location kHelsinkiPoint(60.1699, 24.9384);

TEST(ForecaRequestTest, MinutelyIsWantedAbove19Percent) {
  struct Row {
    int current;
    int second;
    int third;
    int first;  // the first hourly row (the hour already begun) is not read
    bool wanted;
  };
  const Row rows[] = {
      {19, 19, 19, 100, false},  // all at 19: no request, empty list
      {20, 0, 0, 0, true},      {0, 20, 0, 0, true}, {0, 0, 20, 0, true}, {0, 0, 0, 0, false},
  };
  for (const Row& row : rows) {
    ForecaCurrent current = testing_foreca::currentRow(kRecordedAt, row.current);
    std::vector<ForecaHourly> hourly = {testing_foreca::hourlyRow(kRecordedAt, "d000", row.first),
                                        testing_foreca::hourlyRow(kRecordedAt, "d000", row.second),
                                        testing_foreca::hourlyRow(kRecordedAt, "d000", row.third)};
    EXPECT_EQ(forecaNeedsMinutely(forecaMinutelyProbability(current, hourly)), row.wanted)
        << row.current << " " << row.second << " " << row.third;
  }
}

TEST(ForecaRequestTest, PointTextIsShortestDecimalLongitudeFirst) {
  const std::tuple<double, double, const char*> rows[] = {
      {60.1699, 24.9384, "24.9384,60.1699"},     {25.0, -0.0, "-0,25"},
      {-33.8688, 151.2093, "151.2093,-33.8688"}, {0.00001, -179.99999, "-179.99999,0.00001"},  // never an exponent
      {0.1 + 0.2, 10, "10,0.30000000000000004"},  // every digit the double needs
  };
  for (const auto& [latitude, longitude, expected] : rows) {
    EXPECT_EQ(forecaPointText(Location(latitude, longitude)), expected);
  }
}

TEST(ForecaRequestTest, UrlsHaveTheTablePathsAndQueryOrder) {
  class NoHttp final : public HttpClient {
    Task<HttpResponse> send(const HttpRequest&) override { throw std::logic_error("no requests here"); }
  } http;
  sim::PinnedClock clock(kRecordedAt.toSystem());
  ServiceEndpoints endpoints = ServiceEndpoints::simulator("http://127.0.0.1:9");
  ForecaClient client(http, endpoints, Secret("tok"), clock, "fi");
  const Location point(60.5, 25.0);
  const std::pair<ForecaRequest, const char*> rows[] = {
      {ForecaRequest::current, "/foreca/api/v1/current/25,60.5?token=tok&windunit=KMH&rounding=0&lang=fi"},
      {ForecaRequest::hourly,
       "/foreca/api/v1/forecast/hourly/"
       "25,60.5?token=tok&windunit=KMH&rounding=0&dataset=full&periods=192&history=1&lang=fi"},
      {ForecaRequest::daily,
       "/foreca/api/v1/forecast/daily/25,60.5?token=tok&windunit=KMH&rounding=0&dataset=full&periods=11&lang=fi"},
      {ForecaRequest::minutely, "/foreca/api/v1/forecast/minutely/25,60.5?token=tok"},
      {ForecaRequest::airQuality, "/foreca/api/v1/air-quality/forecast/hourly/25,60.5?token=tok&periods=36&lang=fi"},
      {ForecaRequest::warnings, "/foreca/api/v1/warning/25,60.5?token=tok&dataset=full"},
  };
  for (const auto& [request, expected] : rows) {
    EXPECT_EQ(client.requestUrl(request, point, false).encoded_target(), expected);
  }
  EXPECT_EQ(client.requestUrl(ForecaRequest::current, point, true).encoded_path(),
            "/foreca-alt/api/v1/current/25,60.5");
  EXPECT_EQ(redactedForecaUrl(client.requestUrl(ForecaRequest::minutely, point, false)),
            "http://127.0.0.1:9/foreca/api/v1/forecast/minutely/25,60.5?token=%3Credacted%3E");
}

class ForecaClientTest : public testing::Test {
 protected:
  ForecaClientTest()
      : kHelsinki{.name = "Helsinki", .region = Region{"FI"}, .timeZone = *TimeZone::named("Europe/Helsinki")} {}
  ~ForecaClientTest() override { server_.stop(); }

  OneCallWeather fetch() { return fetch(kHelsinkiPoint, kHelsinki); }
  OneCallWeather fetch(const Location& point, const GeoDetails& details, bool secondary = false,
                       std::optional<OneCallWeather> cached = std::nullopt) {
    return runtime_.runBlocking(client_.fetch(point, details, secondary, std::move(cached)));
  }

  // The largest precipitation probability that decides the minutely request at `point`, read
  // from the simulator's answers without a connection.
  int probabilityAt(const Location& point) {
    auto currentUrl = client_.requestUrl(ForecaRequest::current, point, false);
    auto hourlyUrl = client_.requestUrl(ForecaRequest::hourly, point, false);
    auto current = decodeForecaCurrent(server_.answer(currentUrl.encoded_target()).body).current;
    auto hourly = decodeForecaHourly(server_.answer(hourlyUrl.encoded_target()).body).forecast;
    return forecaMinutelyProbability(current, hourly);
  }

  // The first point of a coarse grid whose probability satisfies `wanted`.
  Location findPoint(bool wantsMinutely) {
    for (int latitude = -60; latitude <= 70; latitude += 10) {
      for (int longitude = -170; longitude < 180; longitude += 20) {
        Location point(latitude, longitude);
        if (forecaNeedsMinutely(probabilityAt(point)) == wantsMinutely) return point;
      }
    }
    ADD_FAILURE() << "no point found";
    return kHelsinkiPoint;
  }

  const GeoDetails kHelsinki;
  sim::PinnedClock clock_{kRecordedAt.toSystem()};
  Runtime runtime_{2};
  CurlHttpClient http_;
  sim::SimServer server_{sim::SimServer::Options{.seed = 0, .clock = &clock_}};
  ForecaClient client_{http_, ServiceEndpoints::simulator(server_.baseUrl()), Secret(kToken), clock_, "en"};
};

TEST_F(ForecaClientTest, FetchesTheFiveRequestsAndConvertsWhatTheServiceSent) {
  OneCallWeather record = fetch();
  EXPECT_EQ(server_.requestCount("foreca.current"), 1u);
  EXPECT_EQ(server_.requestCount("foreca.hourly"), 1u);
  EXPECT_EQ(server_.requestCount("foreca.daily"), 1u);
  EXPECT_EQ(server_.requestCount("foreca.airquality"), 1u);
  EXPECT_EQ(server_.requestCount("foreca.warnings"), 1u);
  EXPECT_EQ(server_.requestCount("foreca.minutely"), 0u);  // dry in Helsinki at that hour

  // The same answers converted directly give the same record.
  ForecaWeather weather;
  auto body = [&](ForecaRequest request) {
    return server_.answer(client_.requestUrl(request, kHelsinkiPoint, false).encoded_target()).body;
  };
  weather.current = decodeForecaCurrent(body(ForecaRequest::current)).current;
  weather.hourly = decodeForecaHourly(body(ForecaRequest::hourly)).forecast;
  weather.daily = decodeForecaDaily(body(ForecaRequest::daily), kHelsinki.timeZone).forecast;
  weather.airQuality = decodeForecaAirQuality(body(ForecaRequest::airQuality)).forecast;
  weather.warnings = decodeForecaWarnings(body(ForecaRequest::warnings)).warnings;
  ForecaConversionContext context{
      .location = kHelsinkiPoint, .timeZone = kHelsinki.timeZone, .now = kRecordedAt, .languageCode = "en"};
  EXPECT_EQ(record, convertForecaWeather(weather, context));
  ASSERT_TRUE(record.minutely.has_value());
  EXPECT_TRUE(record.minutely->empty());

  for (const auto& entry : server_.requestLog()) {
    ASSERT_FALSE(entry.query.empty());
    EXPECT_EQ(entry.query.front().first, "token");
  }
}

TEST_F(ForecaClientTest, SendsMinutelyOnlyAbove19Percent) {
  Location dry = findPoint(false);
  OneCallWeather dryRecord = fetch(dry, GeoDetails{.timeZone = TimeZone::gmt()});
  EXPECT_EQ(server_.requestCount("foreca.minutely"), 0u);
  ASSERT_TRUE(dryRecord.minutely.has_value());
  EXPECT_TRUE(dryRecord.minutely->empty());

  Location wet = findPoint(true);
  OneCallWeather wetRecord = fetch(wet, GeoDetails{.timeZone = TimeZone::gmt()});
  EXPECT_EQ(server_.requestCount("foreca.minutely"), 1u);
  ASSERT_TRUE(wetRecord.minutely.has_value());
  EXPECT_FALSE(wetRecord.minutely->empty());
}

TEST_F(ForecaClientTest, UsesTheSecondaryBaseWhenAsked) {
  fetch(kHelsinkiPoint, kHelsinki, true);
  for (const auto& entry : server_.requestLog())
    EXPECT_TRUE(entry.path.starts_with("/foreca-alt/api/v1/")) << entry.path;
}

TEST_F(ForecaClientTest, FailuresOfTheRequestsAndTheirErrors) {
  // The per-request lines are the -v details the program asks for.
  setDetailLogging(true);
  enum class Expect { success, apiLimit, request5001, decoding };
  struct Row {
    const char* route;
    const char* fault;
    Expect expect;
    std::optional<RetryDelay> wait = std::nullopt;  // the "Retry-After" the error keeps
  };
  const Row rows[] = {
      {"foreca.hourly", "status=429,retry-after=120", Expect::apiLimit, 120s},
      {"foreca.warnings", "status=429", Expect::success},  // warnings never fail the fetch
      // Its siblings are still running when it fails: the wait survives their cancellation.
      {"foreca.current", "status=503,retry-after=7", Expect::request5001, 7s},
      {"foreca.daily", "status=404", Expect::request5001},
      {"foreca.daily", "malformed", Expect::decoding},
      {"foreca.current", "error200", Expect::decoding},
      {"foreca.hourly", "truncate", Expect::request5001},
      {"foreca.airquality", "status=503", Expect::request5001, 1s},
      {"foreca.airquality", "malformed", Expect::decoding},
      {"foreca.warnings", "status=500", Expect::success},
      {"foreca.warnings", "malformed", Expect::success},
      {"foreca.warnings", "truncate", Expect::success},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(std::string(row.route) + " " + row.fault);
    server_.clearFaults();
    server_.setFault(row.route, sim::parseFault(row.fault));
    testing::internal::CaptureStderr();
    try {
      OneCallWeather record = fetch();
      EXPECT_EQ(row.expect, Expect::success);
      ASSERT_TRUE(record.alerts.has_value());
      EXPECT_TRUE(record.alerts->empty());
    } catch (const NetworkError& error) {
      EXPECT_EQ(row.expect, Expect::apiLimit);
      EXPECT_EQ(error.which(), NetworkError::exceededApiLimit);
      EXPECT_EQ(error.retryAfter(), row.wait);
    } catch (const DomainError& error) {
      EXPECT_EQ(serverRetryAfter(std::current_exception()), row.wait);
      EXPECT_EQ(row.expect, Expect::request5001) << error.what();
      EXPECT_EQ(error.domain(), "Request");
      EXPECT_EQ(error.code(), 5001);
      EXPECT_EQ(std::string(error.what()).find(kToken), std::string::npos);
    } catch (const DecodingError& error) {
      EXPECT_EQ(row.expect, Expect::decoding) << error.what();
    }
    std::string log = testing::internal::GetCapturedStderr();
    EXPECT_EQ(log.find(kToken), std::string::npos) << log;
    EXPECT_NE(log.find("Foreca"), std::string::npos) << "the failure is logged";
  }
}

TEST_F(ForecaClientTest, FailingMinutelyFailsTheFetch) {
  Location wet = findPoint(true);
  server_.setFault("foreca.minutely", sim::parseFault("status=503"));
  EXPECT_THROW(fetch(wet, GeoDetails{.timeZone = TimeZone::gmt()}), DomainError);
}

TEST_F(ForecaClientTest, TooFewRowsIsAnInvalidResponse) {
  class ShortHourly final : public HttpClient {
   public:
    explicit ShortHourly(HttpClient& real) : real_(real) {}
    Task<HttpResponse> send(const HttpRequest& request) override {
      HttpResponse response = co_await real_.send(request);
      if (request.url.encoded_path().contains("/forecast/hourly/")) {
        response.body = R"({"forecast":[]})";
      }
      co_return response;
    }

   private:
    HttpClient& real_;
  } http(http_);
  ForecaClient client(http, ServiceEndpoints::simulator(server_.baseUrl()), Secret(kToken), clock_, "en");
  try {
    runtime_.runBlocking(client.fetch(kHelsinkiPoint, kHelsinki, false));
    ADD_FAILURE() << "fetched";
  } catch (const NetworkError& error) {
    EXPECT_EQ(error.which(), NetworkError::invalidResponse);
  }
}

TEST_F(ForecaClientTest, FreshCachedForecaRecordNearbyIsReturnedWithoutRequests) {
  OneCallWeather cached = fetch();
  server_.clearRequestLog();

  struct Row {
    Location point;
    bool fromForeca;
    bool withDaily;
    bool reused;
  };
  const Row rows[] = {
      {Location(60.1699, 24.9384), true, true, true},
      {Location(60.1800, 24.9384), true, true, true},    // about 1.1 km away
      {Location(60.1899, 24.9384), true, true, false},   // about 2.2 km away
      {Location(60.1699, 24.9384), false, true, false},  // another provider's record
      {Location(60.1699, 24.9384), true, false, false},  // no daily rows
  };
  for (const Row& row : rows) {
    OneCallWeather candidate = cached;
    if (!row.fromForeca) candidate.attribution.reset();
    if (!row.withDaily) candidate.daily.clear();
    size_t before = server_.requestCount("*");
    OneCallWeather result = fetch(row.point, kHelsinki, false, candidate);
    EXPECT_EQ(server_.requestCount("*") == before, row.reused) << row.point.latitude();
    if (row.reused) {
      EXPECT_EQ(result, candidate);
    }
  }
}

TEST_F(ForecaClientTest, CancellationEndsEveryRequestBeforeTheFetchReturns) {
  // Every answer is held back for a long time: the fetch can only end early by cancelling.
  server_.setFault("*", sim::parseFault("latency=10000"));
  auto body = [this]() -> Task<void> { co_await client_.fetch(kHelsinkiPoint, kHelsinki, false); };
  std::promise<std::exception_ptr> finished;
  auto completion = [&finished](std::exception_ptr error) { finished.set_value(error); };
  SpawnedTask task = spawnCancellable(runtime_.executor(), body(), completion);

  for (int i = 0; i < 500 && server_.requestCount("*") < 5; ++i) std::this_thread::sleep_for(10ms);
  ASSERT_EQ(server_.requestCount("*"), 5u);
  task.cancel();
  std::exception_ptr error = finished.get_future().get();
  EXPECT_TRUE(isCancellation(error));
  try {
    std::rethrow_exception(error);
  } catch (const CancellationError&) {
  } catch (...) {
    ADD_FAILURE() << "not a CancellationError";
  }

  // The fetch returned while every request was still unanswered, and nothing new is sent.
  for (const auto& entry : server_.requestLog()) EXPECT_EQ(entry.status, 0) << entry.route;
  std::this_thread::sleep_for(200ms);
  EXPECT_EQ(server_.requestCount("*"), 5u);
  EXPECT_EQ(server_.requestCount("foreca.minutely"), 0u);
}

}  // namespace
}  // namespace ombrine
