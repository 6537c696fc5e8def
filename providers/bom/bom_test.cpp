// The Bureau of Meteorology answers against a golden record, the geohash, and the merge with
// the system weather record as a table. Set OMBRINE_UPDATE_GOLDEN=1 to rewrite testdata/golden/.

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>

#include "core/record/one_call_weather_json.hpp"
#include "core/values/errors.hpp"
#include "platform/atomic_file.hpp"
#include "providers/bom/bom_conversion.hpp"
#include "providers/bom/bom_wire.hpp"

namespace ombrine {
namespace {

const std::filesystem::path kTestdata = OMBRINE_TESTDATA_DIR;

std::string readText(const std::string& name) { return readFileIfExists(kTestdata / name).value_or(""); }

const Date kDarwinNow = Date::fromUnix(1665101400);  // 2022-10-07T00:10:00Z, 09:40 in Darwin

OneCallWeather darwinRecord() {
  BureauAnswers answers;
  answers.observations = decodeBomObservations(readText("bremor_apidoc_observations.json")).data;
  answers.hourly = decodeBomHourly(readText("bremor_hourly_forecast_2022-10-07.json")).data;
  answers.daily = BOMPublishedDailyForecasts(decodeBomDaily(readText("bremor_apidoc_forecasts_daily.json"))).forecasts;
  answers.warnings = decodeBomWarnings(readText("bremor_apidoc_warnings.json"));
  auto zone = TimeZone::named(decodeBomLocationInfo(readText("bremor_apidoc_location_info.json")).data.timezone);
  return convertBureau(answers, {Location(-12.4633, 130.8451), *zone, kDarwinNow});
}

TEST(BureauGoldenTest, RealAnswersConvertToTheGoldenRecord) {
  OneCallWeather record = darwinRecord();
  std::string encoded = encodeOneCallWeather(record, kDarwinNow) + "\n";
  const auto golden = kTestdata / "golden" / "darwin.json";
  if (std::getenv("OMBRINE_UPDATE_GOLDEN")) {
    std::filesystem::create_directories(golden.parent_path());
    std::ofstream(golden, std::ios::binary) << encoded;
  }
  EXPECT_EQ(encoded, readText("golden/darwin.json"));
  EXPECT_EQ(decodeOneCallWeather(encoded), record);

  EXPECT_EQ(record.current.temp.inCelsius(), 30.5);
  EXPECT_NEAR(record.current.windGust->inKilometersPerHour(), 13.0, 1e-9);  // "gust", not the hourly gust
  EXPECT_EQ(record.current.windDeg.inDegrees(), 225.0);                     // "SW"
  EXPECT_EQ(record.current.weather.front().symbolName, "cloud.sun");        // first hour "mostly_sunny"
  EXPECT_EQ(record.current.sunrise, Date::fromUnix(1665089860));            // today's 20:57:40Z sunrise
  EXPECT_FALSE(record.current.pressure.has_value());
  EXPECT_EQ(record.daily.size(), 7u);
  EXPECT_EQ(record.daily[0].uvi, 12.0);
  EXPECT_FALSE(record.daily[6].uvi.has_value());
  EXPECT_EQ(record.daily[0].rain->inMillimeters(), 2.5);  // 1 to 4 mm
  EXPECT_EQ(record.hourly.front().pop, 0.1);

  BureauAnswers empty;
  try {
    convertBureau(empty, {Location(-12.46, 130.84), *TimeZone::named("Australia/Darwin"), kDarwinNow});
    ADD_FAILURE();
  } catch (const DomainError& error) {
    EXPECT_EQ(error.domain(), "Empty data");
    EXPECT_EQ(error.code(), 6000);
  }
}

TEST(BureauWireTest, GeohashAndSearch) {
  EXPECT_EQ(geohash(-12.463302612304688, 130.84510803222656, 7), "qvv117n");
  EXPECT_EQ(geohash(-33.8688, 151.2093, 6), "r3gx2f");
  EXPECT_EQ(geohash(57.64911, 10.40744, 11), "u4pruydqqvj");
  auto search = decodeBomLocationSearch(readText("bremor_apidoc_location_search.json"));
  ASSERT_EQ(search.size(), 1u);
  EXPECT_EQ(search.front().geohash, "qvv117j");
}

TEST(BureauWireTest, NullMeasurementsReadAsZeroAndMissingOnesFail) {
  const auto observed = decodeBomObservations(R"({"data":{"temp":null,"temp_feels_like":null,"humidity":50}})").data;
  EXPECT_EQ(observed.temp.inCelsius(), 0.0);
  EXPECT_EQ(observed.tempFeelsLike.inCelsius(), 0.0);
  const auto hours = decodeBomHourly(R"({"data":[{"time":"2022-10-07T00:00:00Z","temp":null,"dew_point":null}]})").data;
  EXPECT_EQ(hours.at(0).temp.inCelsius(), 0.0);
  EXPECT_EQ(hours.at(0).dewPoint, Temperature::celsius(0.0));
  EXPECT_THROW(decodeBomObservations(R"({"data":{"humidity":50}})"), DecodingError);
  // A padding day with neither maximum nor icon is not published; a day with either is.
  const BOM::Daily daily = decodeBomDaily(
      R"({"data":[{"date":"2022-10-06T14:30:00Z","temp_max":null},{"date":"2022-10-07T14:30:00Z","icon_descriptor":"sunny"}]})");
  ASSERT_EQ(daily.data.size(), 2u);
  const BOMPublishedDailyForecasts published(daily);
  ASSERT_EQ(published.forecasts.size(), 1u);
  EXPECT_EQ(published.forecasts[0].iconDescriptor, "sunny");
}

OneCallWeather::Hourly hourWith(std::optional<int> pressure, std::optional<int> visibility, int clouds) {
  OneCallWeather::Hourly row;
  row.pressure = pressure;
  row.visibility = visibility;
  row.clouds = clouds;
  return row;
}

TEST(BureauMergeTest, FieldsComeFromTheirSide) {
  OneCallWeather a;
  a.lat = -33.87;
  a.current.temp = Temperature::celsius(20);
  a.current.windGust = std::nullopt;
  a.current.dewPoint = Temperature::celsius(1);
  a.hourly.assign(30, hourWith(std::nullopt, 9000, 10));
  a.daily.resize(2);
  a.daily[0].temp.max = Temperature::celsius(25);
  a.alerts = std::vector<OneCallWeather::Alert>{{.senderName = "Bureau"}};

  OneCallWeather b;
  b.lat = 1.0;
  b.current.temp = Temperature::celsius(99);
  b.current.pressure = 1012;
  b.current.visibility = std::nullopt;
  b.current.dewPoint = Temperature::celsius(7);
  b.current.windGust = Speed::metersPerSecond(5);
  b.minutely = std::vector<OneCallWeather::Minutely>(60);
  b.alerts = std::vector<OneCallWeather::Alert>{};
  b.hourly.assign(24, hourWith(1000, std::nullopt, 80));
  b.daily.resize(1);
  b.daily[0].temp.max = Temperature::celsius(40);
  b.daily[0].humidity = 55;
  b.daily[0].feelsLike.day = Temperature::celsius(31);
  b.tideData = TideData{};

  a.current.visibility = 8000;
  OneCallWeather merged = mergeBureauWithSystemWeather(a, b);
  struct Case {
    std::string field;
    std::function<bool(const OneCallWeather&)> holds;
  };
  const Case cases[] = {
      {"lat from A", [](const auto& m) { return m.lat == -33.87; }},
      {"temp from A", [](const auto& m) { return m.current.temp.inCelsius() == 20; }},
      {"pressure from B", [](const auto& m) { return m.current.pressure == 1012; }},
      {"visibility B, else A", [](const auto& m) { return m.current.visibility == 8000; }},
      {"dew point from B", [](const auto& m) { return m.current.dewPoint.inCelsius() == 7; }},
      {"gust A, else B", [](const auto& m) { return m.current.windGust->inMetersPerSecond() == 5; }},
      {"minutely from B", [](const auto& m) { return m.minutely && m.minutely->size() == 60; }},
      {"alerts from B", [](const auto& m) { return m.alerts && m.alerts->empty(); }},
      {"hour 0 pressure from B", [](const auto& m) { return m.hourly[0].pressure == 1000; }},
      {"hour 0 visibility B, else A", [](const auto& m) { return m.hourly[0].visibility == 9000; }},
      {"hour 0 clouds from B", [](const auto& m) { return m.hourly[0].clouds == 80; }},
      {"hour 29 beyond B keeps its own",
       [](const auto& m) { return !m.hourly[29].pressure && m.hourly[29].clouds == 10 && m.hourly.size() == 30; }},
      {"day 0 max from A", [](const auto& m) { return m.daily[0].temp.max.inCelsius() == 25; }},
      {"day 0 humidity, feels-like from B",
       [](const auto& m) { return m.daily[0].humidity == 55 && m.daily[0].feelsLike.day.inCelsius() == 31; }},
      {"day 1 beyond B untouched", [](const auto& m) { return !m.daily[1].humidity; }},
      {"no tides", [](const auto& m) { return !m.tideData && !m.isPlaceholder; }},
      {"joined attribution",
       [](const auto& m) {
         const auto& name = std::get<WeatherServiceAttribution::NameAttribution>(m.attribution->source);
         return name.serviceName == "Bureau\u00A0of\u00A0Meteorology\u00A0&\u00A0\uF8FFWeather";
       }},
  };
  for (const Case& c : cases) EXPECT_TRUE(c.holds(merged)) << c.field;

  // With a gust of its own, A keeps it.
  a.current.windGust = Speed::metersPerSecond(2);
  EXPECT_EQ(mergeBureauWithSystemWeather(a, b).current.windGust->inMetersPerSecond(), 2);
}

}  // namespace
}  // namespace ombrine
