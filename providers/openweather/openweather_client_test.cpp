// The OpenWeather client against the simulator, through the real CurlHttpClient on loopback.

#include "providers/openweather/openweather_client.hpp"

#include <gtest/gtest.h>

#include "core/values/errors.hpp"
#include "platform/errors.hpp"
#include "platform/linux/curl_http_client.hpp"
#include "platform/runtime.hpp"
#include "sim/pinned_clock.hpp"
#include "sim/sim_server.hpp"

namespace ombrine {
namespace {

constexpr const char* kKey = "OWKEYsecret0123456789";
const Date kNow = Date::fromUnix(1782853200);  // 2026-06-30T21:00:00Z

class OpenWeatherClientTest : public testing::Test {
 protected:
  OneCallWeather fetch() {
    return runtime_.runBlocking(client_.fetch(Location(48.137, 11.575), *TimeZone::named("Europe/Berlin")));
  }

  sim::PinnedClock clock_{kNow.toSystem()};
  Runtime runtime_{2};
  CurlHttpClient http_;
  sim::SimServer server_{sim::SimServer::Options{.seed = 0, .clock = &clock_}};
  OpenWeatherClient client_{
      http_, ServiceEndpoints::simulator(server_.baseUrl()), Secret(kKey), Secret("foreca"), clock_, "de"};
};

TEST_F(OpenWeatherClientTest, RequestsAndTheRecord) {
  EXPECT_EQ(std::string(client_.requestUrl(OpenWeatherRequest::daily, Location(48.5, 11.25)).encoded_target()),
            std::string("/openweather/data/2.5/forecast/daily?lat=48.500000&lon=11.250000&appid=") + kKey +
                "&units=metric&lang=de");
  OneCallWeather record = fetch();
  EXPECT_GE(record.hourly.size(), 115u);
  EXPECT_EQ(record.daily.size(), 7u);
  EXPECT_TRUE(record.current.airQuality.has_value());  // from the Foreca request
  // Celsius asked for and sent: a summer night in Munich is not 280 degrees.
  EXPECT_LT(record.current.temp.inCelsius(), 50.0);
  EXPECT_FALSE(record.minutely.has_value());
}

TEST_F(OpenWeatherClientTest, FailuresAndTheirErrors) {
  enum class Expect { success, apiLimit, request5001, decoding };
  const std::tuple<const char*, const char*, Expect> rows[] = {
      {"openweather.forecast", "status=429", Expect::apiLimit},
      {"openweather.current", "status=401", Expect::request5001},
      {"openweather.daily", "status=503", Expect::request5001},
      {"openweather.current", "error200", Expect::decoding},  // {"cod":..,"message":..} with HTTP 200
      {"openweather.forecast", "malformed", Expect::decoding},
      {"foreca.airquality", "status=429", Expect::success},  // air quality never fails the fetch
  };
  for (const auto& [route, fault, expect] : rows) {
    SCOPED_TRACE(std::string(route) + " " + fault);
    server_.clearFaults();
    server_.setFault(route, sim::parseFault(fault));
    testing::internal::CaptureStderr();
    try {
      OneCallWeather record = fetch();
      EXPECT_EQ(expect, Expect::success);
      EXPECT_FALSE(record.current.airQuality.has_value());
    } catch (const NetworkError& error) {
      EXPECT_EQ(expect, Expect::apiLimit);
      EXPECT_EQ(error.which(), NetworkError::exceededApiLimit);
    } catch (const DomainError& error) {
      EXPECT_EQ(expect, Expect::request5001) << error.what();
      EXPECT_EQ(error.code(), 5001);
    } catch (const DecodingError& error) {
      EXPECT_EQ(expect, Expect::decoding) << error.what();
    }
    std::string log = testing::internal::GetCapturedStderr();
    EXPECT_EQ(log.find(kKey), std::string::npos) << log;
  }
}

TEST_F(OpenWeatherClientTest, MissingKeyIsOneClearLine) {
  Credentials none;
  try {
    runtime_.runBlocking(fetchOpenWeatherForecast(http_, ServiceEndpoints::simulator(server_.baseUrl()), none, clock_,
                                                  "en", Location(1, 1), TimeZone::gmt()));
    ADD_FAILURE();
  } catch (const DomainError& error) {
    EXPECT_NE(std::string(error.what()).find("OMBRINE_OPENWEATHER_KEY"), std::string::npos);
  }
}

}  // namespace
}  // namespace ombrine
