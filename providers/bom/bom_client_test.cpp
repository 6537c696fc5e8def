// The Bureau client and the Australian merge against the simulator on loopback.

#include "providers/bom/bom_client.hpp"

#include <gtest/gtest.h>

#include "core/values/errors.hpp"
#include "platform/errors.hpp"
#include "platform/linux/curl_http_client.hpp"
#include "platform/runtime.hpp"
#include "providers/bom/bom_conversion.hpp"
#include "sim/pinned_clock.hpp"
#include "sim/sim_server.hpp"

namespace ombrine {
namespace {

const Date kNow = Date::fromUnix(1768478400);  // 2026-01-15T12:00:00Z, 23:00 in Sydney
const Location kSydney(-33.8688, 151.2093);

// A stand-in second source: a record with the fields the Bureau lacks, or a failure.
Task<OneCallWeather> systemRecord(bool fails) {
  if (fails) throw DomainError("Request", 5001, "system weather down");
  OneCallWeather record;
  record.current.pressure = 1011;
  record.hourly.resize(24);
  for (auto& row : record.hourly) row.clouds = 77;
  record.minutely = std::vector<OneCallWeather::Minutely>(60);
  record.alerts = std::vector<OneCallWeather::Alert>{};
  record.attribution = WeatherServiceAttribution{WeatherServiceAttribution::Apple{}};
  co_return record;
}

class BureauClientTest : public testing::Test {
 protected:
  OneCallWeather merged(bool systemFails) {
    return runtime_.runBlocking(
        fetchBureauMerged(client_.fetch(kSydney, *TimeZone::named("Australia/Sydney")), systemRecord(systemFails)));
  }

  sim::PinnedClock clock_{kNow.toSystem()};
  Runtime runtime_{2};
  CurlHttpClient http_;
  sim::SimServer server_{sim::SimServer::Options{.seed = 0, .clock = &clock_}};
  BureauClient client_{http_, ServiceEndpoints::simulator(server_.baseUrl()), clock_};
};

TEST_F(BureauClientTest, RequestsCarryTheGeohashAndTheHeadersInOrder) {
  EXPECT_EQ(std::string(client_.requestUrl(BureauRequest::hourly, kSydney).encoded_path()),
            "/bom/v1/locations/r3gx2f/forecasts/hourly");
  std::vector<std::string> names;
  for (const auto& header : client_.requestHeaders()) names.push_back(header.name);
  EXPECT_EQ(names, (std::vector<std::string>{"Accept", "Origin", "Accept-Encoding", "Host", "User-Agent",
                                             "Accept-Language", "Referer"}));
}

TEST_F(BureauClientTest, MergeOfTheTwoSourcesAndTheirFailures) {
  enum class Expect { merged, bureauOnly, systemOnly, request5001, apiLimitIsSilent };
  const std::tuple<const char*, bool, Expect> rows[] = {
      {nullptr, false, Expect::merged},
      {nullptr, true, Expect::bureauOnly},
      {"bom.daily=status=503", false, Expect::systemOnly},
      {"bom.*=status=429", false, Expect::systemOnly},        // a 429 of one source is silent too
      {"bom.warnings=status=500", true, Expect::bureauOnly},  // warnings never fail the Bureau
      {"bom.observations=malformed", true, Expect::request5001},
  };
  for (const auto& [fault, systemFails, expect] : rows) {
    SCOPED_TRACE(fault ? fault : "no fault");
    server_.clearFaults();
    if (fault) server_.setFault(fault);
    testing::internal::CaptureStderr();
    try {
      OneCallWeather record = merged(systemFails);
      const auto* name = std::get_if<WeatherServiceAttribution::NameAttribution>(&record.attribution->source);
      switch (expect) {
        case Expect::merged:
          ASSERT_NE(name, nullptr);
          EXPECT_EQ(name->serviceName, kBureauMergedServiceName);
          EXPECT_EQ(record.current.pressure, 1011);
          EXPECT_EQ(record.hourly[0].clouds, 77);
          EXPECT_EQ(record.hourly[30].clouds, 0);  // beyond the 24 rows of the second source
          EXPECT_TRUE(record.minutely.has_value());
          break;
        case Expect::bureauOnly:
          ASSERT_NE(name, nullptr);
          EXPECT_EQ(name->serviceName, kBureauServiceName);
          EXPECT_FALSE(record.current.pressure.has_value());
          break;
        case Expect::systemOnly:
          EXPECT_EQ(name, nullptr);  // its own attribution
          EXPECT_EQ(record.current.pressure, 1011);
          break;
        default: ADD_FAILURE() << "fetched";
      }
    } catch (const DomainError& error) {
      EXPECT_EQ(expect, Expect::request5001) << error.what();
      EXPECT_EQ(error.code(), 5001);
    }
    testing::internal::GetCapturedStderr();
  }
}

}  // namespace
}  // namespace ombrine
