#include "sim/climate_routes.hpp"

#include <gtest/gtest.h>

#include <boost/json/parse.hpp>
#include <boost/json/value.hpp>

namespace ombrine::sim {
namespace {

namespace json = boost::json;

struct Answer {
  int status = 0;
  json::value json;
};

Answer get(const std::string& target) {
  static const auto routes = climateRoutes(7);
  SimRequest request = requestFor(target, Instant{});
  const SimRoute* route = matchRoute(routes, request.path, request.captures);
  if (!route) return Answer{.status = 404};
  const SimResponse response = route->answer(request);
  return Answer{response.status, json::parse(response.body)};
}

TEST(ClimateRoutesTest, AnswersAndRefusals) {
  struct Row {
    const char* why;
    std::string target;
    int status;
    int entries;  // "data" entries for Meteostat, -1: not checked
  };
  const Row rows[] = {
      {"Svalbard has no station", "/meteostat/point/normals?lat=78.22&lon=15.65&start=1991&end=2020", 200, 0},
      {"older periods are complete", "/meteostat/point/normals?lat=48.137&lon=11.575&start=1981&end=2010", 200, 12},
      {"a station's normals", "/meteostat/stations/normals?station=10637&start=1961&end=1990", 200, 12},
      {"an unknown station has none", "/meteostat/stations/normals?station=nope&start=1961&end=1990", 200, 0},
      {"the nearest stations", "/meteostat/stations/nearby?lat=51.5&lon=-0.1&limit=3", 200, 3},
      {"a missing coordinate", "/meteostat/point/normals?lat=48&start=1991&end=2020", 400, -1},
      {"a latitude off the globe", "/meteostat/point/normals?lat=91&lon=0&start=1991&end=2020", 400, -1},
      {"an end before the start", "/meteostat/point/normals?lat=1&lon=0&start=2020&end=1991", 400, -1},
      {"NASA POWER begins in 1981",
       "/nasapower/api/temporal/climatology/"
       "point?parameters=T2M&community=AG&longitude=0&latitude=0&format=JSON&start=1961&end=1990",
       422, -1},
      {"an unknown NASA parameter",
       "/nasapower/api/temporal/climatology/point?parameters=XYZ&longitude=0&latitude=0&start=1991&end=2020", 422, -1},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    const Answer answer = get(row.target);
    EXPECT_EQ(answer.status, row.status);
    if (row.entries >= 0) EXPECT_EQ(answer.json.at("data").as_array().size(), static_cast<size_t>(row.entries));
  }
  EXPECT_EQ(get("/meteostat/stations/nearby?lat=51.5&lon=-0.1").json.at("data").at(0).at("id").as_string(), "03779");
  const auto older = get("/meteostat/point/normals?lat=48.137&lon=11.575&start=1981&end=2010").json.at("data").at(6);
  EXPECT_TRUE(older.at("tsun").is_null()) << "older periods have no sunshine";
  EXPECT_GT(older.at("tmax").to_number<double>(), 15.0) << "July in Munich";
}

TEST(ClimateRoutesTest, NasaPowerShapeAndFillValues) {
  const auto polar = get(
      "/nasapower/api/temporal/climatology/point?parameters=T2M,T2M_MAX_AVG,T2M_MIN_AVG,PRECTOTCORR_SUM&community=AG"
      "&longitude=10&latitude=87&format=JSON&start=1991&end=2020");
  ASSERT_EQ(polar.status, 200);
  EXPECT_EQ(polar.json.at("header").at("fill_value").to_number<double>(), -999.0);
  const auto& parameter = polar.json.at("properties").at("parameter").as_object();
  EXPECT_EQ(parameter.size(), 4u);
  EXPECT_EQ(parameter.at("PRECTOTCORR_SUM").at("JAN").to_number<double>(), -999.0) << "no precipitation near the pole";
  EXPECT_EQ(parameter.at("T2M_MIN_AVG").as_object().size(), 13u) << "twelve months and the year";
  // Southern seasons are mirrored: January is warmer than July in Sydney.
  const auto sydney =
      get("/nasapower/api/temporal/climatology/"
          "point?parameters=T2M_MAX_AVG&longitude=151.2&latitude=-33.9&start=1991&end=2020");
  const auto& tmax = sydney.json.at("properties").at("parameter").at("T2M_MAX_AVG");
  EXPECT_GT(tmax.at("JAN").to_number<double>(), tmax.at("JUL").to_number<double>());
}

}  // namespace
}  // namespace ombrine::sim
