// The system weather answers against golden records, and the mapping rules as tables.
// Set OMBRINE_UPDATE_GOLDEN=1 to rewrite testdata/golden/ after a deliberate change.

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "core/record/one_call_weather_json.hpp"
#include "core/record/weather_derived.hpp"
#include "core/values/errors.hpp"
#include "platform/atomic_file.hpp"
#include "providers/system/aw_alert_details.hpp"
#include "providers/system/weatherkit_conversion.hpp"
#include "providers/system/weatherkit_wire.hpp"

namespace ombrine {
namespace {

const std::filesystem::path kTestdata = OMBRINE_TESTDATA_DIR;

std::string readText(const std::filesystem::path& path) { return readFileIfExists(path).value_or(""); }

struct Recorded {
  std::string file;
  std::string golden;
  Location location;
  std::string zone;
};

OneCallWeather convertRecorded(const Recorded& recorded) {
  AppleWeather weather = decodeWeatherKitAnswer(readText(kTestdata / recorded.file));
  SystemWeatherConversionContext context{recorded.location, *TimeZone::named(recorded.zone),
                                         weather.currentWeather->asOf};
  return convertSystemWeather(weather, context);
}

const Recorded kNewYork{"go-weatherkit_full_weather.json", "new_york", Location(40.713, -74.006), "America/New_York"};
const Recorded kCopenhagen{"rugaard_forecast_all_datasets_london.json", "copenhagen", Location(55.674, 12.568),
                           "Europe/Copenhagen"};

TEST(SystemWeatherGoldenTest, RealAnswersMapToTheGoldenRecords) {
  for (const Recorded& recorded : {kNewYork, kCopenhagen}) {
    SCOPED_TRACE(recorded.golden);
    OneCallWeather record = convertRecorded(recorded);
    std::string encoded = encodeOneCallWeather(record, record.current.dt) + "\n";
    const auto golden = kTestdata / "golden" / (recorded.golden + ".json");
    if (std::getenv("OMBRINE_UPDATE_GOLDEN")) {
      std::filesystem::create_directories(golden.parent_path());
      std::ofstream(golden, std::ios::binary) << encoded;
    }
    EXPECT_EQ(encoded, readText(golden));
    EXPECT_EQ(decodeOneCallWeather(encoded), record);
    EXPECT_EQ(weatherDataSource(record), WeatherDataSource::apple);
  }

  OneCallWeather newYork = convertRecorded(kNewYork);
  // 21.09 km/h, 1015.57 hPa truncated, 0.51 humidity, 0.87 cloud cover.
  EXPECT_NEAR(newYork.current.windSpeed.inKilometersPerHour(), 21.09, 1e-9);
  EXPECT_EQ(newYork.current.pressure, 1015);
  EXPECT_EQ(newYork.current.humidity, 51);
  EXPECT_EQ(newYork.current.clouds, 87);
  EXPECT_EQ(newYork.current.weather.front().symbolName, "cloud");
  // Sun times of today's (5 July, New York) daily entry.
  ASSERT_TRUE(newYork.current.sunrise.has_value());
  EXPECT_EQ(*newYork.current.sunrise, newYork.daily.front().sunrise);
  EXPECT_EQ(newYork.daily.size(), 10u);
  ASSERT_TRUE(newYork.minutely.has_value());
  EXPECT_EQ(newYork.minutely->size(), 78u);
  EXPECT_TRUE(newYork.alerts.has_value() && newYork.alerts->empty());

  OneCallWeather copenhagen = convertRecorded(kCopenhagen);
  ASSERT_EQ(copenhagen.alerts->size(), 1u);
  const auto& alert = copenhagen.alerts->front();
  EXPECT_EQ(alert.event, "Moderate Thunderstorm Warning");
  EXPECT_EQ(alert.senderName, "UK Met Office");
  EXPECT_EQ(alert.severity, WeatherSeverity::moderate);
  EXPECT_EQ(alert.tags, std::vector<std::string>{"prepare"});
  // The first hourly entry is typed snow: its amount goes to snow, not rain.
  EXPECT_TRUE(copenhagen.hourly.front().snow.has_value());
  EXPECT_FALSE(copenhagen.hourly.front().rain.has_value());
}

TEST(SystemWeatherConversionTest, ConditionsAndPrecipitationKinds) {
  struct Case {
    std::string code;
    bool daylight;
    std::string symbol;
    std::string words;
  };
  const Case cases[] = {
      {"Clear", true, "sun.max", "Clear"},
      {"Clear", false, "moon.stars", "Clear"},
      {"PartlyCloudy", false, "cloud.moon", "Partly Cloudy"},
      {"ScatteredThunderstorms", true, "cloud.sun.bolt", "Scattered Thunderstorms"},
      {"HeavyRain", false, "cloud.heavyrain", "Heavy Rain"},
      {"Something New", true, "cloud", "Something New"},
  };
  for (const Case& c : cases) {
    auto glyph = systemWeatherGlyph(c.code, c.daylight);
    EXPECT_EQ(glyph.symbolName, c.symbol) << c.code;
    EXPECT_EQ(glyph.main, c.words) << c.code;
    EXPECT_EQ(glyph.isDaylight, c.daylight) << c.code;
  }
  EXPECT_EQ(systemWeatherPrecipitationKind("snow"), PrecipitationKind::snow);
  EXPECT_EQ(systemWeatherPrecipitationKind("precipitation"), PrecipitationKind::rain);
  EXPECT_EQ(systemWeatherPrecipitationKind("clear"), PrecipitationKind::none);
}

TEST(SystemWeatherWireTest, AlertDetailsKeepTheirKeys) {
  AppleWeather weather = decodeWeatherKitAnswer(readText(kTestdata / kCopenhagen.file));
  ASSERT_EQ(weather.weatherAlerts->size(), 1u);
  const AWAlertDetails details = alertDetails(weather.weatherAlerts->front(), "UK Met Office");
  EXPECT_EQ(details.summary, "Moderate Thunderstorm Warning");
  EXPECT_FALSE(details.endDate.has_value());
  const std::string encoded = encodeAWAlertDetails(details);
  for (const char* key : {"\"detailsURL\":", "\"issuedDate\":", "\"onsetTime\":", "\"expirationDate\":"}) {
    EXPECT_NE(encoded.find(key), std::string::npos) << key;
  }
  EXPECT_EQ(encoded.find("endDate"), std::string::npos);
  EXPECT_EQ(decodeAWAlertDetails(encoded), details);
  EXPECT_EQ(decodeAWAlertDetails(R"({"latitude":null,"date":0})"), (AWAlertDetails{.date = Date::fromReference(0)}));
}

TEST(SystemWeatherWireTest, ErrorAnswersAndMissingSets) {
  // The service's error body for a bad path decodes to no data at all; the client then calls
  // the answer too short.
  AppleWeather error = decodeWeatherKitAnswer(readText(kTestdata / "go-weatherkit_weather_error_404.json"));
  EXPECT_TRUE(error.hourlyForecast.empty() && !error.currentWeather && !error.minuteForecast);
  AppleWeather nextHour = decodeWeatherKitAnswer(readText(kTestdata / "go-weatherkit_next_hour_forecast.json"));
  ASSERT_TRUE(nextHour.minuteForecast.has_value());
  EXPECT_FALSE(nextHour.minuteForecast->minutes.empty());

  const std::pair<std::string, std::string> bad[] = {
      {R"({"forecastHourly":{"hours":[{"forecastStart":"yesterday"}]}})", "forecastHourly.hours[0].forecastStart"},
      {R"({"currentWeather":{"asOf":"2022-07-05T17:28:53Z","conditionCode":7}})", "currentWeather.conditionCode"},
      {R"({"forecastDaily":{"days":{}}})", "forecastDaily.days: expected an array"},
  };
  for (const auto& [body, message] : bad) {
    try {
      decodeWeatherKitAnswer(body);
      ADD_FAILURE() << body;
    } catch (const DecodingError& e) {
      EXPECT_NE(std::string(e.what()).find(message), std::string::npos) << e.what() << " | " << body;
    }
  }
}

}  // namespace
}  // namespace ombrine
