#include "history/climate_decoding.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "platform/atomic_file.hpp"

namespace ombrine {
namespace {

std::string fixture(const std::string& name) {
  return readFileIfExists(std::string(OMBRINE_TESTDATA_DIR) + "/" + name).value();
}

TEST(ClimateDecodingTest, RealMeteostatAnswers) {
  const auto frankfurt =
      historyMonths(decodeMeteostatNormals(fixture("meteostat-dev-docs_stations_normals_10637_1961-1990.json")));
  ASSERT_EQ(frankfurt.size(), 12u);
  EXPECT_EQ(frankfurt[0], (HistoryData::History{.month = 1,
                                                .tmin = Temperature::celsius(-2.2),
                                                .tmax = Temperature::celsius(3.2),
                                                .tsun = 2454,
                                                .prcp = Precipitation::millimeters(43.8)}));
  EXPECT_EQ(frankfurt[11].tsun, 2310);

  // The point sample is one month object as the documentation shows it; inside "data" it reads
  // like any month, its null wind speed ignored.
  const auto point = historyMonths(
      decodeMeteostatNormals("{\"data\":[" + fixture("meteostat-dev-docs_point_normals_month_object.json") + "]}"));
  ASSERT_EQ(point.size(), 1u);
  EXPECT_EQ(point[0].tmin, Temperature::celsius(-6.3));
  EXPECT_EQ(point[0].tsun, 2400);

  const auto stations = decodeMeteostatStations(fixture("meteostat-dev-docs_stations_nearby.json"));
  ASSERT_EQ(stations.data.size(), 5u);
  EXPECT_EQ(stations.data[0].id, "03779");
  EXPECT_EQ(stations.data[1].id, "EGLC0");
}

TEST(ClimateDecodingTest, MeteostatShapes) {
  struct Row {
    const char* why;
    const char* body;
    size_t months;
    bool fails;
  };
  const Row rows[] = {
      {"no data for the place", R"({"meta":{},"data":null})", 0, false},
      {"an empty list", R"({"meta":{},"data":[]})", 0, false},
      {"null values are absent, not zero", R"({"data":[{"month":2,"tmin":null,"tmax":null,"prcp":null,"tsun":null}]})",
       1, false},
      {"a month that is not a number", R"({"data":[{"month":"Jan"}]})", 0, true},
      {"a missing month", R"({"data":[{"tmin":1}]})", 0, true},
      {"a temperature as text", R"({"data":[{"month":1,"tmin":"-3"}]})", 0, true},
      {"not JSON", R"({"data":[)", 0, true},
      {"an HTTP-200 error object", R"({"message":"You are not subscribed to this API."})", 0, false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    if (row.fails) {
      EXPECT_THROW(decodeMeteostatNormals(row.body), DecodingError);
      continue;
    }
    const auto months = historyMonths(decodeMeteostatNormals(row.body));
    ASSERT_EQ(months.size(), row.months);
    if (!months.empty()) EXPECT_EQ(months[0], (HistoryData::History{.month = 2}));
  }
  // Sunshine rounds to the nearest minute.
  const auto rounded = historyMonths(RawHistoryData{{{.month = 1, .tsun = 2400.5},
                                                     {.month = 2, .tsun = 10.49},
                                                     {.month = 3, .tsun = std::numeric_limits<double>::infinity()}}});
  EXPECT_EQ(rounded[0].tsun, 2401);
  EXPECT_EQ(rounded[1].tsun, 10);
  EXPECT_EQ(rounded[2].tsun, std::nullopt);
}

TEST(ClimateDecodingTest, NasaPowerMonthsAndFillValues) {
  const auto munich = historyMonths(decodeNASAPowerClimatology(fixture("nasa_power_temperature_precipitation.json")));
  ASSERT_EQ(munich.size(), 12u);
  EXPECT_EQ(munich[0].month, 1);
  EXPECT_EQ(munich[0].tmax, Temperature::celsius(2.1));
  EXPECT_EQ(munich[0].prcp, Precipitation::millimeters(55.37));
  EXPECT_EQ(munich[2].prcp, std::nullopt) << "March carries the fill value";
  EXPECT_TRUE(munich[2].tmin.has_value());
  for (const auto& month : munich) EXPECT_EQ(month.tsun, std::nullopt);

  // The real answer for other parameters decodes; it has none of the three, so no months.
  const auto other = decodeNASAPowerClimatology(fixture("solar-proxy-tester_climatology_point_RE_allsky.json"));
  EXPECT_EQ(other.header.fillValue, -999.0);
  EXPECT_TRUE(historyMonths(other).empty());

  NASAPowerHistoryData built;
  built.header.fillValue = -99.0;
  built.properties.parameter.tmin = {{"JAN", 1.0},
                                     {"FEB", -99.0},
                                     {"MAR", std::numeric_limits<double>::infinity()},
                                     {"APR", std::nan("")},
                                     {"DEC", 5.0}};
  built.properties.parameter.prcp = {{"FEB", 3.0}};
  const auto months = historyMonths(built);
  struct Row {
    const char* why;
    size_t index;
    int month;
    bool tmin;
    bool prcp;
  };
  const Row rows[] = {
      {"a plain value", 0, 1, true, false},
      {"the fill value is absent, the other field stays", 1, 2, false, true},
      {"December keeps its place in calendar order", 2, 12, true, false},
  };
  ASSERT_EQ(months.size(), 3u) << "March (infinity) and April (NaN) have no value at all";
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    EXPECT_EQ(months[row.index].month, row.month);
    EXPECT_EQ(months[row.index].tmin.has_value(), row.tmin);
    EXPECT_EQ(months[row.index].prcp.has_value(), row.prcp);
  }
  EXPECT_THROW(decodeNASAPowerClimatology(R"({"properties":{"parameter":{}}})"), DecodingError);
  EXPECT_THROW(decodeNASAPowerClimatology(
                   R"({"header":{"fill_value":-999},"properties":{"parameter":{"T2M_MIN_AVG":{"JAN":"x"}}}})"),
               DecodingError);
}

TEST(ClimateDecodingTest, CacheFormRoundTrips) {
  const HistoryData history{{{.month = 1,
                              .tmin = Temperature::celsius(-2.25),
                              .tmax = Temperature::celsius(3.5),
                              .tsun = 2454,
                              .prcp = Precipitation::millimeters(43.8)},
                             {.month = 3, .tmax = Temperature::celsius(10.0)}}};
  const std::string text = encodeHistoryData(history);
  EXPECT_EQ(text, R"({"data":[{"month":1,"tmin":-2.25,"tmax":3.5,"tsun":2454,"prcp":43.8},{"month":3,"tmax":10}]})");
  EXPECT_EQ(decodeHistoryData(text), history);
  EXPECT_THROW(decodeHistoryData("{}"), DecodingError);
}

}  // namespace
}  // namespace ombrine
