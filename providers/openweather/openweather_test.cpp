// The OpenWeather decoders and conversion: the real answers against a golden record, and the
// rules of the icon table, the hourly samples and their interpolation as tables.
// Set OMBRINE_UPDATE_GOLDEN=1 to rewrite testdata/golden/ after a deliberate change.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "core/record/one_call_weather_json.hpp"
#include "core/values/errors.hpp"
#include "platform/atomic_file.hpp"
#include "providers/openweather/openweather_conversion.hpp"
#include "providers/openweather/openweather_wire.hpp"

namespace ombrine {
namespace {

const std::filesystem::path kTestdata = OMBRINE_TESTDATA_DIR;

std::string readText(const std::filesystem::path& path) { return readFileIfExists(path).value_or(""); }

// The samples are in the service's default kelvin; the client asks for Celsius.
constexpr auto kKelvin = OpenWeatherUnits::standard;
const Date kMunichNow = Date::fromUnix(1782853200 - 1800);  // 2026-06-30T20:30Z, 22:30 in Munich

OneCallWeather munichRecord() {
  auto current =
      decodeOpenWeatherCurrent(readText(kTestdata / "pyopenweathermap_weather_docs_example_zocca.json"), kKelvin);
  auto forecast = decodeOpenWeatherForecast(readText(kTestdata / "openhab_forecast_5day_munich.json"), kKelvin);
  auto daily = decodeOpenWeatherDaily(readText(kTestdata / "daily_munich_documented_shape.json"));
  std::vector<AirQuality> airQuality{{Date::fromUnix(1782853200), 42}, {Date::fromUnix(1782856800), 55}};
  OpenWeatherConversionContext context{Location(48.1374, 11.5755), *TimeZone::named("Europe/Berlin"), kMunichNow};
  return convertOpenWeather(current, forecast, daily, airQuality, context);
}

TEST(OpenWeatherGoldenTest, RealAnswersConvertToTheGoldenRecord) {
  OneCallWeather record = munichRecord();
  std::string encoded = encodeOneCallWeather(record, kMunichNow) + "\n";
  const auto golden = kTestdata / "golden" / "munich.json";
  if (std::getenv("OMBRINE_UPDATE_GOLDEN")) {
    std::filesystem::create_directories(golden.parent_path());
    std::ofstream(golden, std::ios::binary) << encoded;
  }
  EXPECT_EQ(encoded, readText(golden));

  // Spot checks of the rules behind the golden text.
  EXPECT_NEAR(record.current.temp.inCelsius(), 25.33, 1e-9);         // 298.48 K
  EXPECT_EQ(record.current.rain->rainVolume.inMillimeters(), 3.16);  // "1h"
  EXPECT_EQ(record.current.weather.front().symbolName, "cloud.sun.rain");
  EXPECT_FALSE(record.minutely.has_value());
  EXPECT_TRUE(record.alerts.has_value() && record.alerts->empty());
  // 40 three-hour items over 117 hours become 118 hourly rows plus sun rows.
  size_t regular =
      std::count_if(record.hourly.begin(), record.hourly.end(), [](const auto& row) { return !row.sunStateChange; });
  EXPECT_EQ(regular, 118u);
  EXPECT_EQ(record.hourly.front().airQuality->aqi, 42);
  // The first item: 0.44 mm in 3 h (its span is 3 by rule), probability 0.66.
  EXPECT_NEAR(record.hourly.front().rain->rainVolume.inMillimeters(), 0.44 / 3.0, 1e-12);
  EXPECT_EQ(record.hourly.front().pop, 0.66);
  EXPECT_EQ(record.daily.size(), 7u);
  EXPECT_EQ(record.daily[0].windSpeed->inMetersPerSecond(), 3.1);
  EXPECT_EQ(decodeOneCallWeather(encoded), record);
}

TEST(OpenWeatherConversionTest, IconsMapByTheTable) {
  struct Case {
    std::string icon;
    std::string symbol;
    bool daylight;
  };
  const Case cases[] = {
      {"01d", "sun.max", true},          {"02n", "moon.stars", false}, {"03n", "cloud.moon", false},
      {"04n", "cloud", false},           {"09d", "cloud.rain", true},  {"10n", "cloud.moon.rain", false},
      {"11n", "cloud.moon.bolt", false}, {"13n", "cloud.snow", false}, {"13d", "cloud.snow", true},
      {"50n", "cloud.fog", false},       {"99x", "cloud", true},
  };
  for (const Case& c : cases) {
    auto glyph = openWeatherGlyph({800, "Main", "description", c.icon});
    EXPECT_EQ(glyph.symbolName, c.symbol) << c.icon;
    EXPECT_EQ(glyph.isDaylight, c.daylight) << c.icon;
    EXPECT_EQ(glyph.id, 800);
  }
}

TEST(OpenWeatherConversionTest, DewPointAndWindDirection) {
  EXPECT_NEAR(magnusDewPoint(Temperature::celsius(20.0), 50.0)->inCelsius(), 9.254, 0.001);
  EXPECT_FALSE(magnusDewPoint(Temperature::celsius(20.0), 0.0));
  EXPECT_FALSE(magnusDewPoint(Temperature::celsius(-237.7), 50.0));

  struct Case {
    std::optional<double> a, b;
    double f;
    std::optional<double> expected;
  };
  const Case cases[] = {
      {350.0, 10.0, 0.5, 0.0},    // across north, not through south
      {10.0, 350.0, 0.25, 5.0},   // backwards across north
      {90.0, 270.0, 0.5, 180.0},  // half a turn either way: atan2 picks +180
      {std::nullopt, 40.0, 0.5, 40.0}, {40.0, std::nullopt, 0.5, 40.0},
  };
  for (const Case& c : cases) {
    auto result = interpolateDirection(c.a, c.b, c.f);
    ASSERT_TRUE(result.has_value());
    EXPECT_NEAR(std::fmod(*result + 360.0, 360.0), *c.expected, 1e-9);
  }
}

TEST(OpenWeatherConversionTest, SamplesSpanAndInterpolate) {
  auto item = [](double unix, std::optional<double> rain, std::optional<double> pop, bool withWind) {
    OpenWeatherForecastItem i;
    i.dt = Date::fromUnix(unix);
    i.main = {Temperature::celsius(unix / 3600.0), Temperature::celsius(0), 1000, 50};
    if (rain) i.rain = OpenWeatherVolume{std::nullopt, rain};
    i.pop = pop;
    if (withWind) i.wind = OpenWeatherWind{4.0, 350.0, std::nullopt};
    return i;
  };
  // Out of order on purpose; the second gap is 6 hours (a missing item).
  std::vector<OpenWeatherForecastItem> list{item(3 * 3600, 3.0, 1.7, true), item(0, 6.0, std::nullopt, false),
                                            item(9 * 3600, -1.0, -0.5, true)};
  auto samples = openWeatherSamples(list);
  ASSERT_EQ(samples.size(), 3u);
  struct Expect {
    double rain;
    double pop;
    double wind;
  };
  const Expect expected[] = {{2.0, 0.0, 0.0}, {1.0, 1.0, 4.0}, {0.0, 0.0, 4.0}};
  for (size_t i = 0; i < 3; ++i) {
    EXPECT_NEAR(*samples[i].rain, expected[i].rain, 1e-12) << i;
    EXPECT_EQ(samples[i].precipitationProbability, expected[i].pop) << i;
    EXPECT_EQ(samples[i].windSpeed, expected[i].wind) << i;
  }
  auto hours = interpolateHourly(samples);
  ASSERT_EQ(hours.size(), 10u);
  for (size_t i = 0; i < hours.size(); ++i) {
    EXPECT_EQ(hours[i].dt, Date::fromUnix(3600.0 * i)) << i;
    EXPECT_NEAR(hours[i].temperature.inCelsius(), static_cast<double>(i), 1e-9) << i;
  }
  EXPECT_NEAR(*hours[1].windDirection, 360.0 - 10.0 / 3.0, 1e-9);  // 0 (no wind) to 350 the short way
  // A wind block without a direction takes its neighbour's, not north.
  OpenWeatherForecastItem undirected = item(3 * 3600, std::nullopt, std::nullopt, true);
  undirected.wind->deg = std::nullopt;
  const std::vector<OpenWeatherForecastItem> turning{item(0, std::nullopt, std::nullopt, true), undirected};
  const auto turned = openWeatherSamples(turning);
  EXPECT_FALSE(turned[1].windDirection.has_value());
  EXPECT_EQ(interpolateHourly(turned)[1].windDirection, 350.0);
  // Two days without items is a hole in the data: no hours are invented across it.
  const std::vector<OpenWeatherForecastItem> holed{item(0, 0.0, std::nullopt, false),
                                                   item(48 * 3600, 0.0, std::nullopt, false)};
  EXPECT_EQ(interpolateHourly(openWeatherSamples(holed)).size(), 2u);
}

TEST(OpenWeatherWireTest, MalformedAnswersNameTheirPath) {
  struct Case {
    std::string body;
    std::string message;
  };
  const Case cases[] = {
      {R"({"cod":401,"message":"Invalid API key"})", "main: missing key"},
      {R"({"list":[{"dt":1,"main":{"temp":"warm"}}]})", "list[0].main.temp: expected a number"},
      {R"({"list":[{"dt":1.5,"main":{}}]})", "list[0].dt: expected an integer"},
      {R"([1,2])", "expected an object"},
      {R"({"list": )", "invalid JSON"},
  };
  for (const Case& c : cases) {
    try {
      if (c.body.find("list") != std::string::npos) {
        decodeOpenWeatherForecast(c.body);
      } else {
        decodeOpenWeatherCurrent(c.body);
      }
      ADD_FAILURE() << c.body;
    } catch (const DecodingError& error) {
      EXPECT_NE(std::string(error.what()).find(c.message), std::string::npos) << error.what();
    }
  }
  // A list item without weather and without wind still decodes, as a row without glyph.
  auto forecast = decodeOpenWeatherForecast(
      R"({"list":[{"dt":0,"main":{"temp":1,"feels_like":1,"pressure":1,"humidity":0},"weather":[]}]})");
  auto samples = openWeatherSamples(forecast.list);
  EXPECT_TRUE(samples.front().weather.empty());
  EXPECT_EQ(samples.front().windDirection, 0.0);
}

}  // namespace
}  // namespace ombrine
