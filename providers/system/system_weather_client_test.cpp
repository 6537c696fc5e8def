// The system weather client against the simulator, which verifies developer tokens as the
// real service does.

#include "providers/system/system_weather_client.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "core/record/weather_derived.hpp"
#include "core/values/errors.hpp"
#include "platform/errors.hpp"
#include "platform/linux/curl_http_client.hpp"
#include "platform/runtime.hpp"
#include "sim/pinned_clock.hpp"
#include "sim/sim_server.hpp"

namespace ombrine {
namespace {

const Date kNow = Date::fromUnix(1768478400);  // 2026-01-15T12:00:00Z
const DeveloperTokenClaims kClaims{"KEY1", "TEAM1", "org.example.weather"};

class SystemWeatherClientTest : public testing::Test {
 protected:
  SystemWeatherClientTest() { server_.trustWeatherKitKey(key_.publicPem()); }

  OneCallWeather fetch(const DeveloperKey& key, std::optional<OneCallWeather> cached = std::nullopt) {
    SystemWeatherClient client(http_, endpoints_, key, kClaims, clock_, "en");
    return runtime_.runBlocking(
        client.fetch(Location(39.907, 116.397), Region{"CN"}, *TimeZone::named("Asia/Shanghai"), std::move(cached)));
  }

  DeveloperKey key_ = DeveloperKey::generate();
  sim::PinnedClock clock_{kNow.toSystem()};
  Runtime runtime_{2};
  CurlHttpClient http_;
  sim::SimServer server_{sim::SimServer::Options{.seed = 0, .clock = &clock_}};
  ServiceEndpoints endpoints_ = ServiceEndpoints::simulator(server_.baseUrl());
};

TEST_F(SystemWeatherClientTest, FetchesAndMapsWithItsAttribution) {
  OneCallWeather record = fetch(key_);
  EXPECT_EQ(weatherDataSource(record), WeatherDataSource::apple);
  EXPECT_GE(record.hourly.size(), 9u * 24u);
  EXPECT_EQ(record.daily.size(), 10u);
  EXPECT_TRUE(record.minutely.has_value());
  EXPECT_TRUE(record.alerts.has_value());
  // A fresh cached record of this service nearby is returned as it is, without a request.
  record.current.temp = Temperature::celsius(-99);
  server_.setFault("weatherkit.*", sim::parseFault("status=500"));
  EXPECT_EQ(fetch(key_, record).current.temp.inCelsius(), -99);
}

TEST_F(SystemWeatherClientTest, FailuresAndTheirErrors) {
  enum class Expect { apiLimit, request5001, decoding };
  const std::tuple<const char*, Expect> rows[] = {
      {"status=429", Expect::apiLimit},
      {"status=503", Expect::request5001},
      {"error200", Expect::decoding},  // the service's error object with HTTP 200: no data sets
      {"malformed", Expect::decoding},
  };
  for (const auto& [fault, expect] : rows) {
    SCOPED_TRACE(fault);
    server_.clearFaults();
    server_.setFault("weatherkit.weather", sim::parseFault(fault));
    testing::internal::CaptureStderr();
    try {
      fetch(key_);
      ADD_FAILURE() << "fetched";
    } catch (const NetworkError& error) {
      EXPECT_TRUE(expect == Expect::apiLimit
                      ? error.which() == NetworkError::exceededApiLimit
                      : (expect == Expect::decoding && error.which() == NetworkError::invalidResponse));
    } catch (const DomainError& error) {
      EXPECT_EQ(expect, Expect::request5001) << error.what();
    } catch (const DecodingError& error) {
      EXPECT_EQ(expect, Expect::decoding) << error.what();
    }
    testing::internal::GetCapturedStderr();
  }
  // A token signed by a key the service does not know is refused (401).
  server_.clearFaults();
  testing::internal::CaptureStderr();
  try {
    fetch(DeveloperKey::generate());
    ADD_FAILURE();
  } catch (const DomainError& error) {
    EXPECT_NE(std::string(error.what()).find("HTTP 401"), std::string::npos) << error.what();
  }
  testing::internal::GetCapturedStderr();
}

TEST_F(SystemWeatherClientTest, MissingOrUnsafeCredentialsAreOneClearLine) {
  const auto directory = std::filesystem::temp_directory_path() / ("ombrine-sw-" + std::to_string(::getpid()));
  std::filesystem::create_directories(directory);
  const auto file = directory / "AuthKey.p8";
  std::ofstream(file) << key_.privatePem();
  std::filesystem::permissions(file, std::filesystem::perms::owner_read | std::filesystem::perms::others_read);

  Credentials ids;
  ids.weatherKitKeyId = "K";
  ids.weatherKitTeamId = "T";
  ids.weatherKitServiceId = "S";
  Credentials unsafe = ids;
  unsafe.weatherKitKeyFile = file;
  Credentials noIds;
  noIds.weatherKitKeyFile = file;
  const std::tuple<const char*, Credentials, const char*> rows[] = {
      {"nothing", Credentials{}, "no developer key"},
      {"no ids", noIds, "key id, team id and service id"},
      {"world-readable key", unsafe, "chmod 600"},
  };
  testing::internal::CaptureStderr();
  for (const auto& [name, credentials, message] : rows) {
    try {
      systemWeatherClient(http_, endpoints_, credentials, clock_, "en");
      ADD_FAILURE() << name;
    } catch (const DomainError& error) {
      EXPECT_EQ(error.code(), 5001) << name;
      EXPECT_NE(std::string(error.what()).find(message), std::string::npos) << name << ": " << error.what();
    }
  }
  testing::internal::GetCapturedStderr();
  std::filesystem::permissions(file, std::filesystem::perms::owner_read);
  EXPECT_NO_THROW(systemWeatherClient(http_, endpoints_, unsafe, clock_, "en"));
  std::filesystem::remove_all(directory);
}

}  // namespace
}  // namespace ombrine
