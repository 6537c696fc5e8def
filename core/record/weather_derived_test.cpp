#include "core/record/weather_derived.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

#include "core/record/testing_records.hpp"
#include "platform/icu_setup.hpp"

namespace ombrine {
namespace {

using Glyph = OneCallWeather::Glyph;
using Minutely = OneCallWeather::Minutely;

class WeatherDerivedTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { useShippedTimeZoneData(); }
};

Glyph glyph(int id, std::string symbol, bool day = true) {
  return Glyph{id, "Main", "description", std::move(symbol), day};
}

std::vector<Minutely> minutes(std::initializer_list<double> rates,
                              std::optional<PrecipitationKind> kind = std::nullopt) {
  std::vector<Minutely> out;
  for (double rate : rates) out.push_back(Minutely{Date{60.0 * out.size()}, Precipitation::millimeters(rate), kind});
  return out;
}

TEST_F(WeatherDerivedTest, SourceFollowsTheAttribution) {
  using A = WeatherServiceAttribution;
  const std::pair<std::optional<A>, WeatherDataSource> rows[] = {
      {std::nullopt, WeatherDataSource::dynamic},
      {A{A::Apple{}}, WeatherDataSource::apple},
      {A{A::ImageAttribution{}}, WeatherDataSource::apple},
      {A{A::NameAttribution{"OpenWeather", {}}}, WeatherDataSource::ow},
      {A{A::NameAttribution{"Foreca", {}}}, WeatherDataSource::foreca},
      {A{A::NameAttribution{"Foreca + OpenWeather", {}}}, WeatherDataSource::dynamic},  // a merged record
      {A{A::NameAttribution{"openweather", {}}}, WeatherDataSource::dynamic},
  };
  for (const auto& [attribution, expected] : rows) {
    OneCallWeather weather;
    weather.attribution = attribution;
    EXPECT_EQ(weatherDataSource(weather), expected);
  }
  EXPECT_EQ(static_cast<int>(WeatherDataSource::ow), 3);
}

TEST_F(WeatherDerivedTest, ConditionWordAndCloudiness) {
  OneCallWeather::Current current;
  EXPECT_EQ(conditionWord(current, "en"), "");
  current.weather = {Glyph{803, "Clouds", "broken clouds", "cloud.sun", true}, glyph(701, "cloud.fog")};
  EXPECT_EQ(conditionWord(current, "en"), "Clouds");
  EXPECT_EQ(conditionWord(current, "fr"), "broken clouds");
  EXPECT_EQ(conditionWord(current, "en-GB"), "broken clouds");

  struct Row {
    std::string symbol;
    int clouds;
    bool cloudy;
  };
  const Row rows[] = {
      {"cloud.sun", 84, false},  // exactly 84 is not cloudy
      {"cloud.sun", 85, true},
      {"cloud", 0, true},  // the plain cloud symbol is cloudy whatever the cover
      {"cloud.rain", 100, true},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.clouds);
    current.weather = {glyph(803, row.symbol)};
    current.clouds = row.clouds;
    EXPECT_EQ(isCloudy(current), row.cloudy);
  }
  current.weather.clear();
  current.clouds = 85;
  EXPECT_TRUE(isCloudy(current));
}

TEST_F(WeatherDerivedTest, MinuteRainCountsOnlyTheFirstHour) {
  OneCallWeather weather;
  EXPECT_FALSE(expectsRainWithinHour(weather));
  weather.minutely = std::vector<Minutely>{};
  EXPECT_FALSE(expectsRainWithinHour(weather));

  std::vector<Minutely> hour(61, Minutely{Date{}, Precipitation::millimeters(0.0), std::nullopt});
  hour[60].precipitation = Precipitation::millimeters(3.0);  // minute 61
  weather.minutely = hour;
  EXPECT_FALSE(expectsRainWithinHour(weather));
  hour[59].precipitation = Precipitation::millimeters(0.01);  // minute 60
  weather.minutely = hour;
  EXPECT_TRUE(expectsRainWithinHour(weather));
  weather.minutely = minutes({0.0, -1.0});
  EXPECT_FALSE(expectsRainWithinHour(weather));
}

TEST_F(WeatherDerivedTest, PrecipitationKindPrefersMinuteKindsThenVolumes) {
  using K = PrecipitationKind;
  struct Row {
    const char* why;
    std::optional<std::vector<Minutely>> minutely;
    std::optional<double> rain;
    std::optional<double> snow;
    K expected;
  };
  std::vector<Minutely> kinds = minutes({0, 0, 0, 0});
  kinds[0].type = K::none;
  kinds[2].type = K::sleet;
  kinds[3].type = K::hail;
  const Row rows[] = {
      {"first kind other than none", kinds, 5.0, 9.0, K::sleet},
      {"only none kinds fall back to volumes", minutes({0, 0}, K::none), 1.0, 2.0, K::snow},
      {"no minutes: rain below snow", std::nullopt, 1.0, 2.0, K::snow},
      {"equal volumes are rain", std::nullopt, 2.0, 2.0, K::rain},
      {"no volumes at all", std::nullopt, std::nullopt, std::nullopt, K::rain},
      {"snow without rain volume", std::nullopt, std::nullopt, 0.5, K::snow},
      {"no snow volume, negative rain", std::nullopt, -0.1, std::nullopt, K::snow},
      {"no snow volume, rain", std::nullopt, 3.0, std::nullopt, K::rain},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    OneCallWeather weather;
    weather.minutely = row.minutely;
    if (row.rain) weather.current.rain = OneCallWeather::Rain{Precipitation::millimeters(*row.rain)};
    if (row.snow) weather.current.snow = OneCallWeather::Snow{Precipitation::millimeters(*row.snow)};
    EXPECT_EQ(minutePrecipitationKind(weather), row.expected);
  }
}

TEST_F(WeatherDerivedTest, MinuteIntensityScalesAndFloors) {
  using K = PrecipitationKind;
  struct Row {
    double rate;
    std::optional<K> kind;
    DeviceIdiom idiom;
    double expected;
  };
  const Row rows[] = {
      {0.0, K::rain, DeviceIdiom::phone, 0.0},    {-2.0, K::rain, DeviceIdiom::phone, 0.0},
      {3.75, K::rain, DeviceIdiom::phone, 0.5},   {3.75, std::nullopt, DeviceIdiom::phone, 0.5},
      {3.75, K::none, DeviceIdiom::phone, 0.5},   {1.5, K::snow, DeviceIdiom::phone, 0.5},
      {1.5, K::sleet, DeviceIdiom::pad, 0.5},     {1.5, K::hail, DeviceIdiom::phone, 0.2},
      {20.0, K::rain, DeviceIdiom::phone, 1.0},                                              // capped at the scale
      {20.0, K::snow, DeviceIdiom::phone, 1.0},   {0.1, K::rain, DeviceIdiom::phone, 0.05},  // floor
      {0.1, K::rain, DeviceIdiom::desktop, 0.05}, {0.1, K::rain, DeviceIdiom::pad, 0.03},
      {0.3, K::rain, DeviceIdiom::pad, 0.04},  // above the pad floor
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::Message() << row.rate << " idiom " << static_cast<int>(row.idiom));
    EXPECT_DOUBLE_EQ(minuteIntensity(Minutely{Date{}, Precipitation::millimeters(row.rate), row.kind}, row.idiom),
                     row.expected);
  }
}

TEST_F(WeatherDerivedTest, MinuteChartSymbol) {
  using K = PrecipitationKind;
  struct Row {
    std::optional<K> kind;
    std::optional<std::vector<Minutely>> minutely;
    std::optional<std::string_view> expected;
  };
  const Row rows[] = {
      {K::hail, std::nullopt, "cloud.hail"},
      {K::mixed, std::nullopt, "cloud.sleet"},
      {K::sleet, std::nullopt, "cloud.sleet"},
      {K::snow, minutes({9.0}), "cloud.snow"},
      {K::none, minutes({9.0}), std::nullopt},
      {K::rain, std::nullopt, "cloud.drizzle"},
      {K::rain, std::vector<Minutely>{}, "cloud.drizzle"},
      {std::nullopt, minutes({7.0}), "cloud.heavyrain"},       // no kind reads as rain
      {K::rain, minutes({0.5, 5.7, 1.0}), "cloud.heavyrain"},  // 0.76
      {K::rain, minutes({5.625}), "cloud.rain"},               // exactly 0.75 is not heavy
      {K::rain, minutes({3.75}), "cloud.rain"},                // exactly 0.5
      {K::rain, minutes({3.7, 0.0}), "cloud.drizzle"},
      {K::rain, minutes({1.5}, K::snow), "cloud.rain"},  // a snow minute's intensity uses the snow scale
  };
  for (size_t i = 0; i < std::size(rows); ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(precipitationSymbol(rows[i].kind, rows[i].minutely, DeviceIdiom::phone), rows[i].expected);
  }

  OneCallWeather weather;
  weather.minutely = minutes({0.0, 8.0}, K::rain);
  EXPECT_EQ(precipitationSymbol(weather, DeviceIdiom::pad), "cloud.heavyrain");
  weather.minutely = minutes({0.0, 8.0}, K::snow);
  EXPECT_EQ(precipitationSymbol(weather, DeviceIdiom::pad), "cloud.snow");
}

TEST_F(WeatherDerivedTest, AirQualityWarningWindowIncludesBothEnds) {
  OneCallWeather weather;
  weather.current.dt = Date{1000};
  for (int i = 0; i < 6; ++i) {
    OneCallWeather::Hourly hour;
    hour.dt = Date{1000.0 + 3600.0 * i};
    if (i != 4) hour.airQuality = AirQuality{hour.dt, 50 + 20 * i};  // 50 70 90 110 - 150
    weather.hourly.push_back(hour);
  }
  struct Row {
    int threshold;
    double start;
    double interval;
    bool expected;
    const char* why;
  };
  const Row rows[] = {
      {100, 1000, 3 * 3600, true, "entry at the window's end counts (110 at +3h)"},
      {100, 1000, 3 * 3600 - 1, false, "one second short"},
      {110, 1000, 24 * 3600, true, "150 at +5h"},
      {150, 1000, 24 * 3600, false, "equal to the threshold is no warning"},
      {60, 1000 + 3600, 0, false, "an empty interval never warns"},
      {60, 1000, -3600, false, "a negative interval never warns"},
      {60, 1000 + 3600, 1, true, "the window's start counts (70 at +1h)"},
      {60, 1000 + 3601, 3600, true, "90 at +2h"},
      {60, -50000, 1, false, "a start before now begins at now (50 at +0h)"},
      {40, -50000, 1, true, "entry at current.dt"},
      {100, 1000 + 4 * 3600, 1, false, "entry without air quality is skipped"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    EXPECT_EQ(airQualityWarning(weather, row.threshold, Date{row.start}, row.interval), row.expected);
  }
}

TEST_F(WeatherDerivedTest, DayAndNightSymbols) {
  const std::tuple<const char*, SymbolVariant, const char*> rows[] = {
      {"sun.max", SymbolVariant::forceNight, "moon.stars"},
      {"cloud.sun", SymbolVariant::forceNight, "cloud.moon"},
      {"cloud.sun.rain", SymbolVariant::forceNight, "cloud.moon.rain"},
      {"cloud.sun.bolt", SymbolVariant::forceNight, "cloud.moon.bolt"},
      {"sun.haze", SymbolVariant::forceNight, "moon.haze"},
      {"moon.stars", SymbolVariant::forceDay, "sun.max"},
      {"cloud.moon", SymbolVariant::forceDay, "cloud.sun"},
      {"cloud.moon.rain", SymbolVariant::forceDay, "cloud.sun.rain"},
      {"cloud.moon.bolt", SymbolVariant::forceDay, "cloud.sun.bolt"},
      {"moon.haze", SymbolVariant::forceDay, "sun.haze"},
      {"moon.stars", SymbolVariant::forceNight, "moon.stars"},
      {"sun.max", SymbolVariant::forceDay, "sun.max"},
      {"cloud.sun", SymbolVariant::asStored, "cloud.sun"},
      {"moon.stars", SymbolVariant::asStored, "moon.stars"},
      {"cloud.rain", SymbolVariant::forceNight, "cloud.rain"},
  };
  for (const auto& [symbol, variant, expected] : rows) {
    EXPECT_EQ(symbolName(glyph(800, symbol), variant), expected) << symbol;
  }
}

TEST_F(WeatherDerivedTest, WeatherStateCoversEveryBranch) {
  const Date now{100000};
  const Date before = now - 3600.0;
  const Date after = now + 3600.0;
  using S = WeatherState;
  struct Row {
    const char* why;
    std::optional<Date> sunrise;
    std::optional<Date> sunset;
    std::vector<Glyph> weather;
    double feelsLike;
    int clouds;
    bool minuteRain;
    S expected;
  };
  const Row rows[] = {
      // clang-format off
      // Sun times known, day.
      {"rain symbol by day", before, after, {glyph(500, "cloud.rain")}, 20, 0, false, S::rainyDay},
      {"thunder rain symbol", before, after, {glyph(201, "cloud.bolt.rain")}, 20, 0, false, S::rainyDay},
      {"mist counts as rainy", before, after, {glyph(701, "cloud.fog")}, 20, 0, false, S::rainyDay},
      {"minute rain by day", before, after, {glyph(800, "sun.max")}, 20, 0, true, S::rainyDay},
      {"cloudy by cover", before, after, {glyph(804, "cloud.sun")}, 35, 85, false, S::overcast},
      {"cloudy by symbol", before, after, {glyph(804, "cloud")}, 35, 0, false, S::overcast},
      {"hot above 30", before, after, {glyph(800, "sun.max")}, 30.5, 84, false, S::hotDay},
      {"exactly 30 is not hot", before, after, {glyph(800, "sun.max")}, 30, 0, false, S::sunnyDay},
      {"sunny above 4", before, after, {glyph(800, "sun.max")}, 4.1, 0, false, S::sunnyDay},
      {"exactly 4 is chilly", before, after, {glyph(800, "sun.max")}, 4, 0, false, S::chillyDay},
      {"no glyph by day: temperature only", before, after, {}, 12, 100, true, S::sunnyDay},
      {"no glyph by day, hot", before, after, {}, 31, 100, false, S::hotDay},
      // Sun times known, night (either side, and the exact instants).
      {"before sunrise", after, after + 3600.0, {glyph(800, "sun.max")}, 20, 0, false, S::night},
      {"after sunset", before - 3600.0, before, {glyph(500, "cloud.rain")}, 20, 0, false, S::rainyNight},
      {"at sunrise is not yet day", now, after, {glyph(800, "sun.max")}, 20, 0, false, S::night},
      {"at sunset is no longer day", before, now, {glyph(800, "sun.max")}, 20, 0, false, S::night},
      {"no glyph by night", after, after, {}, 20, 0, false, S::night},
      {"no glyph by night, minute rain", after, after, {}, 20, 0, true, S::rainyNight},
      // Sun times missing: the glyph's daylight flag decides, with the 10 degree line.
      {"daylight glyph, 10 is sunny", std::nullopt, after, {glyph(800, "sun.max", true)}, 10, 0, false, S::sunnyDay},
      {"daylight glyph, 9.9 is chilly", before, std::nullopt, {glyph(800, "sun.max", true)}, 9.9, 0, false, S::chillyDay},
      {"daylight glyph, hot", std::nullopt, std::nullopt, {glyph(800, "sun.max", true)}, 31, 0, false, S::hotDay},
      {"daylight glyph, rainy", std::nullopt, std::nullopt, {glyph(500, "cloud.drizzle", true)}, 20, 0, false, S::rainyDay},
      {"daylight glyph, overcast", std::nullopt, std::nullopt, {glyph(500, "cloud", true)}, 20, 0, false, S::overcast},
      {"night glyph", std::nullopt, std::nullopt, {glyph(800, "moon.stars", false)}, 20, 0, false, S::night},
      {"night glyph, rainy", std::nullopt, std::nullopt, {glyph(500, "cloud.heavyrain", false)}, 20, 0, false, S::rainyNight},
      {"no glyph, no sun times", std::nullopt, std::nullopt, {}, 20, 0, false, S::night},
      {"no glyph, no sun times, minute rain", std::nullopt, std::nullopt, {}, 20, 0, true, S::rainyNight},
      // clang-format on
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    OneCallWeather weather;
    weather.current.sunrise = row.sunrise;
    weather.current.sunset = row.sunset;
    weather.current.weather = row.weather;
    weather.current.feelsLike = Temperature::celsius(row.feelsLike);
    weather.current.clouds = row.clouds;
    weather.minutely = minutes({0.0, row.minuteRain ? 0.2 : 0.0});
    EXPECT_EQ(weatherState(weather, now), row.expected);
  }
  OneCallWeather placeholder = placeholderWeather(TimeZone::gmt(), now);
  EXPECT_EQ(weatherState(placeholder, now), S::placeholder);
}

TEST_F(WeatherDerivedTest, PlaceholderHoursAndDaysFollowTheLocalDayAcrossDaylightSaving) {
  // 2024-03-10 09:30 in New York (13:30 UTC), the day clocks went forward at 02:00.
  const Date now = Date::fromUnix(1710077400.0);
  const TimeZone zone = *TimeZone::named("America/New_York");
  const OneCallWeather weather = placeholderWeather(zone, now);
  EXPECT_TRUE(weather.isPlaceholder);
  EXPECT_EQ(weather.timeZone, zone);
  EXPECT_EQ(weather.current.dt, now);

  // The local day began at 00:00 EST (05:00 UTC): 48 hours from there, those before 09:30 EDT
  // dropped (00:00 ... 09:00 local is nine entries, 02:00 did not exist), and each on the hour.
  ASSERT_EQ(weather.hourly.size(), 39u);
  EXPECT_EQ(weather.hourly.front().dt, Date::fromUnix(1710046800.0 + 9 * 3600.0));
  EXPECT_GE(weather.hourly.front().dt, now);
  for (const auto& hour : weather.hourly) EXPECT_EQ(std::fmod(hour.dt.unixSeconds(), 3600.0), 0.0);
  EXPECT_EQ(weather.hourly.back().dt, Date::fromUnix(1710046800.0 + 47 * 3600.0));

  // Ten days, each at local midnight (EDT from the second day on).
  ASSERT_EQ(weather.daily.size(), 10u);
  EXPECT_EQ(weather.daily[0].dt, Date::fromUnix(1710046800.0));
  EXPECT_EQ(weather.daily[1].dt, Date::fromUnix(1710129600.0));
  EXPECT_EQ(weather.daily[9].dt, Date::fromUnix(1710129600.0 + 8 * 86400.0));

  // A moment exactly on the hour keeps that hour.
  EXPECT_EQ(placeholderWeather(TimeZone::gmt(), Date::fromUnix(1710075600.0)).hourly.front().dt,
            Date::fromUnix(1710075600.0));
}

}  // namespace
}  // namespace ombrine
