// The OpenWeather, system weather and Bureau of Meteorology routes: their refusals and the
// shape of their answers, computed without a connection.

#include <gtest/gtest.h>

#include <boost/json/parse.hpp>

#include "sim/pinned_clock.hpp"
#include "sim/sim_server.hpp"

namespace ombrine::sim {
namespace {

TEST(ProviderRoutesTest, RefusalsAndShapes) {
  PinnedClock clock(std::chrono::sys_seconds(std::chrono::seconds(1768478400)));
  SimServer server(SimServer::Options{.seed = 0, .clock = &clock});
  struct Row {
    std::string target;
    int status;
    std::string bodyHas;
  };
  const Row rows[] = {
      {"/openweather/data/2.5/weather?lat=48.1&lon=11.6", 401, R"("cod":401)"},
      {"/openweather/data/2.5/weather?lat=98&lon=11.6&appid=k", 400, "wrong latitude"},
      {"/openweather/data/2.5/weather?lat=48.1&lon=11.6&appid=k&units=metric", 200, R"("feels_like")"},
      {"/openweather/data/2.5/forecast?lat=48.1&lon=11.6&appid=k", 200, R"("cnt":40)"},
      {"/openweather/data/2.5/forecast/daily?lat=48.1&lon=11.6&appid=k&cnt=3", 200, R"("cnt":3)"},
      // No token at all: refused as the real service refuses.
      {"/weatherkit/api/v1/weather/en/39.9/116.4?dataSets=currentWeather&timezone=Asia/Shanghai", 401,
       R"("status":401)"},
      {"/bom/v1/locations/r3gx2f/forecasts/daily", 200, R"("temp_max")"},
      {"/bom/v1/locations/r3gx2f/forecasts/hourly", 200, R"("icon_descriptor")"},
      {"/bom/v1/locations/r3gx2f", 200, R"("timezone":"Australia/Sydney")"},
      {"/bom/v1/locations/r3gx2f/observations", 200, R"("temp_feels_like")"},
      {"/bom/v1/locations/r3gx2a!/observations", 400, R"("errors")"},
      {"/bom/v1/locations?search=-33.87,151.21", 200, R"("geohash":"r3gx2f)"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.target);
    const SimResponse response = server.answer(row.target);
    EXPECT_EQ(response.status, row.status);
    EXPECT_NE(response.body.find(row.bodyHas), std::string::npos) << response.body.substr(0, 300);
    EXPECT_NO_THROW(boost::json::parse(response.body));
  }
  // A dry day sends a null maximum amount, as the real service does.
  EXPECT_NE(server.answer("/bom/v1/locations/r3gx2f/forecasts/hourly").body.find(R"("max":null)"), std::string::npos);
}

}  // namespace
}  // namespace ombrine::sim
