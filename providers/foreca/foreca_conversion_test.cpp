#include "providers/foreca/foreca_conversion.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "providers/foreca/foreca_calendar.hpp"
#include "providers/foreca/foreca_test_support.hpp"

namespace ombrine {
namespace {

using testing_foreca::currentRow;
using testing_foreca::dailyRow;
using testing_foreca::hourlyRow;

TimeZone zone(std::string_view identifier) {
  auto named = TimeZone::named(identifier);
  EXPECT_TRUE(named.has_value()) << identifier;
  return named.value_or(TimeZone::gmt());
}

Date wall(const TimeZone& placeZone, int year, int month, int day, int hour, int minute = 0) {
  PlaceCalendar calendar(placeZone);
  return calendar.date({year, month, day}, hour, minute);
}

// The smallest weather a fetch accepts: current and three hourly rows from `start`.
ForecaWeather threeHours(Date start) {
  ForecaWeather weather;
  weather.current = currentRow(start);
  weather.hourly = {hourlyRow(start), hourlyRow(start + 3600), hourlyRow(start + 7200)};
  return weather;
}

OneCallWeather::Glyph glyphNamed(std::string symbolName) {
  return OneCallWeather::Glyph{.symbolName = std::move(symbolName)};
}

TEST(ForecaSymbolTest, FollowsTheTableInRuleOrder) {
  struct Row {
    const char* symbol;
    const char* expected;
  };
  const Row rows[] = {
      {"d000", "sun.max"},
      {"n000", "moon.stars"},
      {"d007", "sun.max"},  // c is free when a and b are 0
      {"d100", "cloud.sun"},
      {"n200", "cloud.moon"},
      {"d300", "cloud"},
      {"n400", "cloud"},
      {"d500", "cloud.sun"},  // a = 5 shows sun although 3 and 4 do not
      {"n500", "cloud.moon"},
      {"d600", "cloud.fog"},
      {"d642", "cloud.fog"},  // fog comes before every precipitation rule
      {"d220", "cloud.sun.rain"},
      {"n220", "cloud.moon.rain"},
      {"d320", "cloud.rain"},  // only a = 2 keeps the sun with rain of class 2
      {"d120", "cloud.rain"},
      {"d420", "cloud.rain"},
      {"d210", "cloud.drizzle"},
      {"n410", "cloud.drizzle"},
      {"d011", "cloud.sleet"},
      {"d221", "cloud.sleet"},
      {"d331", "cloud.sleet"},
      {"d412", "cloud.snow"},
      {"d222", "cloud.snow"},
      {"d430", "cloud.heavyrain"},
      {"d440", "cloud.bolt.rain"},
      {"n441", "cloud.bolt"},
      {"d442", "cloud.bolt"},
      {"d443", "cloud"},  // no rule for thunder of type 3
      {"d150", "cloud"},
      {"d013", "cloud"},
      {"d", "cloud"},
      {"", "cloud"},
      {"d00", "cloud"},
      {"dabc", "cloud"},
      {"x000", "moon.stars"},  // only "d" picks the day form
      {"d1000", "cloud.sun"},  // characters after the fourth are not read
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.symbol);
    EXPECT_EQ(forecaSymbolName(row.symbol), row.expected);
  }
}

TEST(ForecaSymbolTest, GlyphTakesDaylightFromTheFirstLetterAndCapitalisesThePhrase) {
  struct Row {
    const char* symbol;
    const char* phrase;
    const char* locale;
    const char* symbolName;
    bool isDaylight;
    const char* text;
  };
  const Row rows[] = {
      {"d", "overcast", "en", "cloud", true, "Overcast"},  // too short, still daylight
      {"", "", "en", "cloud", false, ""},
      {"n300", "cloudy", "en", "cloud", false, "Cloudy"},
      {"d100", "ilık", "tr", "cloud.sun", true, "İlık"},    // Turkish dotted capital I
      {"d100", "ijzel", "nl", "cloud.sun", true, "IJzel"},  // Dutch digraph
      {"d100", "éclaircies", "fr", "cloud.sun", true, "Éclaircies"},
      {"d100", "partly CLOUDY", "en", "cloud.sun", true, "Partly CLOUDY"},  // rest unchanged
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.symbol + std::string(" ") + row.phrase);
    OneCallWeather::Glyph glyph = forecaGlyph(row.symbol, row.phrase, row.locale);
    EXPECT_EQ(glyph.id, 0);
    EXPECT_EQ(glyph.symbolName, row.symbolName);
    EXPECT_EQ(glyph.isDaylight, row.isDaylight);
    EXPECT_EQ(glyph.main, row.text);
    EXPECT_EQ(glyph.description, row.text);
  }
}

TEST(ForecaRepresentativeGlyphTest, WeighsWetAgainstDryGlyphs) {
  struct Row {
    std::vector<std::string> names;
    double weight;
    const char* expected;
    const char* why;
  };
  const Row rows[] = {
      {{"cloud.rain", "sun.max"}, kDaytimeWetWeight, "cloud.rain", "1.1 × 1 ≥ 1"},
      {{"cloud.rain", "sun.max", "sun.max"}, kDaytimeWetWeight, "sun.max", "1.1 × 1 < 2"},
      {{"cloud.rain", "moon.stars", "moon.stars", "moon.stars"}, kNightWetWeight, "cloud.rain", "3 × 1 ≥ 3"},
      {{"cloud.rain", "moon.stars", "moon.stars", "moon.stars", "cloud"}, kNightWetWeight, "moon.stars", "3 < 4"},
      {{"cloud.snow", "cloud.snow", "cloud.rain", "sun.max"}, kDaytimeWetWeight, "cloud.snow", "most frequent wet"},
      {{"cloud", "sun.max", "sun.max", "cloud.drizzle"}, kDaytimeWetWeight, "sun.max", "most frequent dry"},
      {{"cloud.hail", "sun.max"}, kDaytimeWetWeight, "cloud.hail", "hail counts as wet"},
      {{"thermometer.snowflake", "cloud"}, kDaytimeWetWeight, "thermometer.snowflake", "wet"},
      {{"wind.snow", "cloud"}, kDaytimeWetWeight, "wind.snow", "wet"},
      {{"cloud.fog", "cloud.fog"}, kNightWetWeight, "cloud.fog", "fog is not wet"},
      {{}, kDaytimeWetWeight, "cloud.sun", "no hours: the day's symbol"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.why);
    std::vector<OneCallWeather::Glyph> glyphs;
    for (const auto& name : row.names) glyphs.push_back(glyphNamed(name));
    EXPECT_EQ(representativeSymbolName(glyphs, "cloud.sun", row.weight), row.expected);
  }
}

TEST(ForecaRepresentativeGlyphTest, TenWetAgainstElevenDryKeepsTheWetByDay) {
  // 1.1 × 10 is 11.000000000000002 in doubles: the comparison must hold at the boundary.
  std::vector<OneCallWeather::Glyph> glyphs;
  for (int i = 0; i < 10; ++i) glyphs.push_back(glyphNamed("cloud.rain"));
  for (int i = 0; i < 11; ++i) glyphs.push_back(glyphNamed("cloud"));
  EXPECT_EQ(representativeSymbolName(glyphs, "sun.max", kDaytimeWetWeight), "cloud.rain");
  glyphs.push_back(glyphNamed("cloud"));
  EXPECT_EQ(representativeSymbolName(glyphs, "sun.max", kDaytimeWetWeight), "cloud");
}

// Two days in Helsinki (summer time, UTC+3), hourly rows for both days and the early morning
// of a third.
struct TwoDays {
  TimeZone placeZone = zone("Europe/Helsinki");
  ForecaWeather weather;
  ForecaConversionContext context;

  explicit TwoDays(std::optional<Date> firstSunset, std::optional<Date> secondSunrise) {
    Date day1 = wall(placeZone, 2024, 6, 10, 0);
    Date day2 = wall(placeZone, 2024, 6, 11, 0);
    for (int hour = 0; hour < 24; ++hour) {
      // Before 17:00: 9 sunny and 8 cloudy hours; 17:00 to 19:00 cloudy. So the daytime glyph
      // is "sun.max" with the evening edge at 17:00 and "cloud" with it at 19:00.
      std::string symbol = hour < 17 ? (hour % 2 == 0 ? "d000" : "d300") : "n300";
      // Evening: 6 cloudy hours and a clear one at 23:00.
      if (hour == 23) symbol = "n000";
      weather.hourly.push_back(hourlyRow(day1 + hour * 3600.0, symbol));
    }
    for (int hour = 0; hour < 24; ++hour) {
      // Night after day 1: clear until 07:00. With the morning edge at 07:00 the night is 8
      // clear against 6 cloudy hours; with it at 04:00, 5 clear against 6 cloudy.
      std::string symbol = hour < 7 ? "n000" : "d000";
      weather.hourly.push_back(hourlyRow(day2 + hour * 3600.0, symbol));
    }
    // Day 3 (not in the daily list) begins wet: it must not reach day 2's night.
    for (int hour = 0; hour < 6; ++hour) {
      weather.hourly.push_back(hourlyRow(wall(placeZone, 2024, 6, 12, hour), "n220"));
    }
    weather.daily.push_back(dailyRow(day1, wall(placeZone, 2024, 6, 10, 3, 55), firstSunset, "d100"));
    weather.daily.push_back(dailyRow(day2, secondSunrise, wall(placeZone, 2024, 6, 11, 22, 48), "d100"));
    weather.current = currentRow(day1);
    context = ForecaConversionContext{
        .location = Location(60.17, 24.94), .timeZone = placeZone, .now = day1, .languageCode = "en"};
  }
};

TEST(ForecaDailyTest, EveningEdgeIsSunsetOrFiveInTheAfternoon) {
  struct Row {
    std::optional<std::pair<int, int>> sunset;
    const char* dayGlyph;
  };
  const Row rows[] = {
      {std::nullopt, "sun.max"},    // 17:00: 9 sunny against 8 cloudy hours
      {std::pair{19, 0}, "cloud"},  // 19:00: two more cloudy hours tip it
      {std::pair{17, 0}, "sun.max"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.sunset ? row.sunset->first : -1);
    TimeZone helsinki = zone("Europe/Helsinki");
    std::optional<Date> sunset;
    if (row.sunset) sunset = wall(helsinki, 2024, 6, 10, row.sunset->first, row.sunset->second);
    TwoDays days(sunset, wall(helsinki, 2024, 6, 11, 3, 54));
    OneCallWeather record = convertForecaWeather(days.weather, days.context);
    ASSERT_EQ(record.daily.size(), 2u);
    ASSERT_EQ(record.daily[0].weather.size(), 2u);
    EXPECT_EQ(record.daily[0].weather[0].symbolName, row.dayGlyph);
    EXPECT_TRUE(record.daily[0].weather[0].isDaylight);
    EXPECT_FALSE(record.daily[0].weather[1].isDaylight);
  }
}

TEST(ForecaDailyTest, MorningEdgeIsNextSunriseOrSevenAndTheLastNightEndsAtMidnight) {
  TimeZone helsinki = zone("Europe/Helsinki");
  {
    TwoDays days(std::nullopt, std::nullopt);  // next morning edge 07:00
    OneCallWeather record = convertForecaWeather(days.weather, days.context);
    EXPECT_EQ(record.daily[0].weather[1].symbolName, "moon.stars");
  }
  {
    TwoDays days(std::nullopt, wall(helsinki, 2024, 6, 11, 4, 0));
    OneCallWeather record = convertForecaWeather(days.weather, days.context);
    EXPECT_EQ(record.daily[0].weather[1].symbolName, "cloud");
    // The last day's night is 22:48 to midnight (clear); day 3's rain must not count.
    EXPECT_EQ(record.daily[1].weather[1].symbolName, "sun.max");
  }
}

// With no hours to choose from, both periods keep the day's own symbol, unchanged.
TEST(ForecaDailyTest, DayWithoutHoursShowsTheDaySymbolUnchanged) {
  TimeZone helsinki = zone("Europe/Helsinki");
  Date day = wall(helsinki, 2024, 6, 20, 0);
  ForecaWeather weather = threeHours(day);
  weather.daily = {dailyRow(day, std::nullopt, std::nullopt, "d100"),
                   dailyRow(wall(helsinki, 2024, 6, 21, 0), std::nullopt, std::nullopt, "d220")};
  ForecaConversionContext context{.location = Location(60, 25), .timeZone = helsinki, .now = day};
  OneCallWeather record = convertForecaWeather(weather, context);
  EXPECT_EQ(record.daily[1].weather[0].symbolName, "cloud.sun.rain");
  EXPECT_EQ(record.daily[1].weather[1].symbolName, "cloud.sun.rain");
}

TEST(ForecaDailyTest, CopiesAndAveragesTheDailyValues) {
  TwoDays days(std::nullopt, std::nullopt);
  OneCallWeather record = convertForecaWeather(days.weather, days.context);
  const OneCallWeather::Daily& day = record.daily[0];
  EXPECT_EQ(day.dt, days.weather.daily[0].date);
  EXPECT_EQ(day.temp.min, Temperature::celsius(7));
  EXPECT_EQ(day.temp.max, Temperature::celsius(18));
  EXPECT_EQ(day.feelsLike.day, Temperature::celsius(17));
  EXPECT_EQ(day.feelsLike.eve, Temperature::celsius(17));
  EXPECT_EQ(day.feelsLike.night, Temperature::celsius(5));
  EXPECT_EQ(day.feelsLike.morn, Temperature::celsius(5));
  EXPECT_DOUBLE_EQ(day.pop, 0.2);
  EXPECT_EQ(day.humidity, 67.5);
  EXPECT_EQ(day.dewPoint, Temperature::celsius(6.5));
  EXPECT_EQ(day.clouds, 30.0);
  EXPECT_EQ(day.uvi, 4.0);
  EXPECT_EQ(day.windSpeed, Speed::kilometersPerHour(25));
  EXPECT_EQ(day.windGust, Speed::kilometersPerHour(40));
  EXPECT_EQ(day.windDeg, Angle::degrees(180));
  EXPECT_EQ(day.sunrise, days.weather.daily[0].sunrise);
  EXPECT_EQ(day.weather[0].main, "Mostly clear");
}

std::vector<const OneCallWeather::Hourly*> sunRows(const OneCallWeather& record) {
  std::vector<const OneCallWeather::Hourly*> rows;
  for (const auto& row : record.hourly) {
    if (row.sunStateChange) rows.push_back(&row);
  }
  return rows;
}

TEST(ForecaSunRowsTest, AddsOneRowPerFutureEventAndSortsStably) {
  TimeZone helsinki = zone("Europe/Helsinki");
  // Day 2's sunrise falls exactly on 04:00 to test the tie with the regular row.
  TwoDays days(wall(helsinki, 2024, 6, 10, 22, 47), wall(helsinki, 2024, 6, 11, 4, 0));
  days.context.now = wall(helsinki, 2024, 6, 10, 5, 30);
  OneCallWeather record = convertForecaWeather(days.weather, days.context);

  auto rows = sunRows(record);
  // Day 1's sunrise (03:55) is past; its sunset, day 2's sunrise and sunset are ahead.
  ASSERT_EQ(rows.size(), 3u);
  EXPECT_EQ(rows[0]->dt, wall(helsinki, 2024, 6, 10, 22, 47));
  EXPECT_FALSE(rows[0]->sunStateChange->isRise());
  ASSERT_EQ(rows[0]->weather.size(), 1u);
  EXPECT_EQ(rows[0]->weather[0].symbolName, "sunset");
  EXPECT_EQ(rows[0]->weather[0].main, "Sunset");
  EXPECT_EQ(rows[0]->weather[0].description, "Sunset");
  EXPECT_EQ(rows[1]->dt, wall(helsinki, 2024, 6, 11, 4, 0));
  EXPECT_TRUE(rows[1]->sunStateChange->isRise());
  EXPECT_EQ(rows[1]->weather[0].symbolName, "sunrise");
  EXPECT_EQ(rows[1]->weather[0].main, "Sunrise");

  // The synthetic row copies the values of its clock hour's row.
  auto regular2200 = std::find_if(record.hourly.begin(), record.hourly.end(),
                                  [&](const auto& row) { return row.dt == wall(helsinki, 2024, 6, 10, 22, 0); });
  ASSERT_NE(regular2200, record.hourly.end());
  EXPECT_EQ(rows[0]->temp, regular2200->temp);
  EXPECT_EQ(rows[0]->pop, regular2200->pop);

  // Sorted by dt; on the tie at 04:00 the regular row stays first.
  EXPECT_TRUE(std::is_sorted(record.hourly.begin(), record.hourly.end(),
                             [](const auto& a, const auto& b) { return a.dt < b.dt; }));
  auto at0400 = std::find_if(record.hourly.begin(), record.hourly.end(),
                             [&](const auto& row) { return row.dt == wall(helsinki, 2024, 6, 11, 4, 0); });
  ASSERT_NE(at0400, record.hourly.end());
  EXPECT_FALSE(at0400->sunStateChange.has_value());
  EXPECT_TRUE((at0400 + 1)->sunStateChange.has_value());

  // Rows before the current hour (05:00) are gone; the 05:00 row stays.
  EXPECT_EQ(record.hourly.front().dt, wall(helsinki, 2024, 6, 10, 5, 0));
}

TEST(ForecaSunRowsTest, EventOutsideTheHourlyRowsAddsNothing) {
  TimeZone helsinki = zone("Europe/Helsinki");
  Date day = wall(helsinki, 2024, 6, 20, 0);
  ForecaWeather weather = threeHours(day);
  weather.daily = {dailyRow(day, wall(helsinki, 2024, 6, 20, 3, 50), wall(helsinki, 2024, 6, 20, 22, 50))};
  ForecaConversionContext context{.location = Location(60, 25), .timeZone = helsinki, .now = day};
  OneCallWeather record = convertForecaWeather(weather, context);
  EXPECT_TRUE(sunRows(record).empty());
  EXPECT_EQ(record.hourly.size(), 3u);
}

TEST(ForecaCurrentTest, TakesSunTimesFromTheFirstDayElseNow) {
  TimeZone helsinki = zone("Europe/Helsinki");
  Date now = wall(helsinki, 2024, 6, 10, 5, 20);
  ForecaWeather weather;
  weather.current = currentRow(now);
  weather.hourly = {hourlyRow(now - 1200), hourlyRow(now + 2400), hourlyRow(now + 6000)};
  weather.daily = {dailyRow(wall(helsinki, 2024, 6, 10, 0), wall(helsinki, 2024, 6, 10, 3, 55), std::nullopt)};
  weather.airQuality = {{.time = now - 1200 - 3600, .aqi = 10}, {.time = now - 1200, .aqi = 42}};
  ForecaConversionContext context{.location = Location(60.17, 24.94), .timeZone = helsinki, .now = now};
  OneCallWeather record = convertForecaWeather(weather, context);

  EXPECT_EQ(record.current.dt, now);
  EXPECT_EQ(record.current.sunrise, wall(helsinki, 2024, 6, 10, 3, 55));
  EXPECT_EQ(record.current.sunset, now);
  EXPECT_EQ(record.current.pressure, 1014);
  EXPECT_EQ(record.current.visibility, 10000);
  EXPECT_EQ(record.current.windSpeed, Speed::kilometersPerHour(10));
  EXPECT_EQ(record.current.windGust, Speed::kilometersPerHour(20));
  EXPECT_FALSE(record.current.rain.has_value());
  EXPECT_FALSE(record.current.snow.has_value());
  ASSERT_TRUE(record.current.airQuality.has_value());
  EXPECT_EQ(record.current.airQuality->aqi, 42);
  EXPECT_EQ(record.lat, 60.17);
  EXPECT_EQ(record.lon, 24.94);
  EXPECT_EQ(record.timeZone, helsinki);
  ASSERT_TRUE(record.attribution.has_value());
  const auto& name = std::get<WeatherServiceAttribution::NameAttribution>(record.attribution->source);
  EXPECT_EQ(name.serviceName, "Foreca");
  ASSERT_TRUE(name.url.has_value());
  EXPECT_EQ(name.url->buffer(), "https://www.foreca.com");
}

TEST(ForecaHourlyTest, MatchesAirQualityByTheClockHourOfThePlace) {
  // India is UTC+05:30: its clock hours begin at half past the UTC hour.
  TimeZone kolkata = zone("Asia/Kolkata");
  Date tenLocal = wall(kolkata, 2024, 1, 15, 10);
  ForecaWeather weather;
  weather.current = currentRow(tenLocal);
  weather.hourly = {hourlyRow(tenLocal, "d000", 35), hourlyRow(tenLocal + 3600), hourlyRow(tenLocal + 7200)};
  weather.hourly[0].snowAccum = Precipitation::millimeters(0.4);
  weather.daily = {dailyRow(wall(kolkata, 2024, 1, 15, 0), std::nullopt, std::nullopt)};
  weather.airQuality = {
      {.time = tenLocal - 1800, .aqi = 90},  // 09:30 local: the hour before
      {.time = tenLocal + 1800, .aqi = 55},  // 10:30 local: same clock hour as 10:00
  };
  ForecaConversionContext context{.location = Location(22.57, 88.36), .timeZone = kolkata, .now = tenLocal};
  OneCallWeather record = convertForecaWeather(weather, context);
  ASSERT_EQ(record.hourly.size(), 3u);
  ASSERT_TRUE(record.hourly[0].airQuality.has_value());
  EXPECT_EQ(record.hourly[0].airQuality->aqi, 55);
  EXPECT_FALSE(record.hourly[2].airQuality.has_value());
  EXPECT_DOUBLE_EQ(record.hourly[0].pop, 0.35);
  ASSERT_TRUE(record.hourly[0].rain.has_value());
  ASSERT_TRUE(record.hourly[0].snow.has_value());
  EXPECT_EQ(record.hourly[0].snow->snowVolume, Precipitation::millimeters(0.4));
  EXPECT_EQ(record.hourly[1].rain->rainVolume, Precipitation::millimeters(0));
}

TEST(ForecaMinutelyTest, RaisesNegativeRatesToZeroAndLeavesTheTypeOut) {
  TimeZone helsinki = zone("Europe/Helsinki");
  Date now = wall(helsinki, 2024, 6, 10, 12);
  ForecaWeather weather = threeHours(now);
  weather.daily = {dailyRow(wall(helsinki, 2024, 6, 10, 0), std::nullopt, std::nullopt)};
  for (double rate : {1.2, -0.3, 0.0}) {
    weather.minutely.push_back({.time = now, .precipRate = Speed::metersPerSecond(rate / 3.6e6)});
  }
  ForecaConversionContext context{.location = Location(60, 25), .timeZone = helsinki, .now = now};
  OneCallWeather record = convertForecaWeather(weather, context);
  ASSERT_TRUE(record.minutely.has_value());
  ASSERT_EQ(record.minutely->size(), 3u);
  EXPECT_EQ((*record.minutely)[0].precipitation, Precipitation::millimeters(1.2));
  EXPECT_EQ((*record.minutely)[1].precipitation, Precipitation::millimeters(0));
  EXPECT_FALSE((*record.minutely)[0].type.has_value());

  weather.minutely.clear();
  record = convertForecaWeather(weather, context);
  ASSERT_TRUE(record.minutely.has_value());  // an empty list, never absent
  EXPECT_TRUE(record.minutely->empty());
}

TEST(ForecaCalendarTest, CountsDaysAndHoursAcrossTheDateLineAndDaylightSaving) {
  struct Row {
    const char* zone;
    CivilDay day;
    double expectedStartUnix;
    double expectedLengthHours;
  };
  const Row rows[] = {
      {"Pacific/Kiritimati", {2024, 6, 10}, 1717927200, 24},  // UTC+14: the day starts the UTC day before
      {"Pacific/Pago_Pago", {2024, 6, 10}, 1718017200, 24},   // UTC-11, the other side of the line
      {"Europe/Helsinki", {2024, 3, 31}, 1711836000, 23},     // spring forward
      {"Europe/Helsinki", {2024, 10, 27}, 1729976400, 25},    // fall back
      {"America/Santiago", {2024, 9, 8}, 1725768000, 23},     // midnight skipped: day starts 01:00
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.zone);
    PlaceCalendar calendar(zone(row.zone));
    Date start = calendar.date(row.day);
    EXPECT_EQ(start.unixSeconds(), row.expectedStartUnix);
    EXPECT_EQ(calendar.startOfDay(start + 3600 * 5), start);
    EXPECT_EQ((calendar.endOfDay(start) - start) / 3600, row.expectedLengthHours);
    EXPECT_EQ(calendar.day(start + 3600 * 12), row.day);
  }
}

TEST(ForecaCalendarTest, ClockHoursFollowTheOffset) {
  PlaceCalendar kathmandu(zone("Asia/Kathmandu"));  // UTC+05:45
  Date instant = Date::fromUnix(1718000000);        // 06:13:20Z = 11:58:20 local
  EXPECT_EQ(kathmandu.startOfHour(instant).unixSeconds(), 1718000000 - 58 * 60 - 20);
  PlaceCalendar helsinki(zone("Europe/Helsinki"));
  // 03:30 local in the hour repeated after falling back, second time round (UTC+2): 01:30Z.
  // Its hour began at 01:00Z, not at the first 03:00 (00:00Z).
  Date repeated = Date::fromUnix(1729992600);
  EXPECT_EQ(helsinki.startOfHour(repeated).unixSeconds(), 1729992600 - 1800);
}

// --- Warnings --------------------------------------------------------------------------------

ForecaWarning warning(std::string name, ForecaWarning::Significance significance, Date validFrom, Date validUntil) {
  ForecaWarning w;
  w.name = std::move(name);
  w.type = "wind";
  w.significance = significance;
  w.attribution = "Finnish Meteorological Institute";
  w.validFrom = validFrom;
  w.validUntil = validUntil;
  w.sent = validFrom;
  w.significanceDescription = "Be aware";
  return w;
}

TEST(ForecaWarningsTest, KeepsCurrentWarningsInSignificanceThenLatestStartOrder) {
  const Date now = Date::fromUnix(1718000000);
  using S = ForecaWarning::Significance;
  std::vector<ForecaWarning> warnings = {
      warning("ended a minute ago", S::purple, now - 7200, now - 60),
      warning("ends now", S::red, now - 7200, now),
      warning("yellow early", S::yellow, now - 3600, now + 3600),
      warning("red", S::red, now - 600, now + 600),
      warning("yellow late", S::yellow, now + 600, now + 7200),
      warning("green", S::green, now, now + 60),
      warning("purple", S::purple, now - 100, now + 100),
  };
  auto alerts = convertForecaWarnings(warnings, now, "en");
  std::vector<std::string> events;
  for (const auto& alert : alerts) events.push_back(alert.event);
  EXPECT_EQ(events, (std::vector<std::string>{"Purple", "Red", "Yellow late", "Yellow early", "Green"}));
  std::vector<std::optional<WeatherSeverity>> severities;
  for (const auto& alert : alerts) severities.push_back(alert.severity);
  EXPECT_EQ(severities, (std::vector<std::optional<WeatherSeverity>>{WeatherSeverity::extreme, WeatherSeverity::severe,
                                                                     WeatherSeverity::minor, WeatherSeverity::minor,
                                                                     WeatherSeverity::unknown}));
}

TEST(ForecaWarningsTest, SeverityFollowsSignificance) {
  using S = ForecaWarning::Significance;
  const std::pair<S, WeatherSeverity> rows[] = {
      {S::green, WeatherSeverity::unknown},   {S::yellow, WeatherSeverity::minor},
      {S::orange, WeatherSeverity::moderate}, {S::red, WeatherSeverity::severe},
      {S::purple, WeatherSeverity::extreme},
  };
  const Date now = Date::fromUnix(0);
  for (const auto& [significance, severity] : rows) {
    std::vector<ForecaWarning> one = {warning("w", significance, now, now + 1)};
    EXPECT_EQ(convertForecaWarnings(one, now, "en").at(0).severity, severity);
  }
}

TEST(ForecaWarningsTest, ChoosesTheDescriptionByLanguage) {
  struct Row {
    std::vector<const char*> languages;
    const char* device;
    const char* expected;  // nullptr: none
  };
  const Row rows[] = {
      {{"en", "fi"}, "fi", "fi"}, {{"sv", "en", "fi"}, "de", "en"},  // no German: English
      {{"sv", "fi"}, "de", "sv"},                                    // neither: the first of all
      {{"fi", "en"}, "en", "en"}, {{"fi", "en"}, "", "en"},          // no device language reads as English
      {{"fi", "fi"}, "fi", "fi"}, {{}, "fi", nullptr},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.device);
    ForecaWarning w = warning("w", ForecaWarning::Significance::yellow, Date{}, Date{});
    for (const char* lang : row.languages) w.description.push_back({.lang = lang, .title = lang, .text = lang});
    const ForecaWarning::Description* chosen = chooseForecaDescription(w, row.device);
    if (!row.expected) {
      EXPECT_EQ(chosen, nullptr);
    } else {
      ASSERT_NE(chosen, nullptr);
      EXPECT_EQ(chosen->lang, row.expected);
      EXPECT_EQ(chosen, &*std::find_if(w.description.begin(), w.description.end(),
                                       [&](const auto& d) { return d.lang == row.expected; }));
    }
  }
}

TEST(ForecaWarningsTest, ConvertsFieldsAndFallsBackForTheEvent) {
  const Date now = Date::fromUnix(1718000000);
  ForecaWarning full = warning("strong wind", ForecaWarning::Significance::orange, now - 60, now + 3600);
  full.title = "wind warning";
  full.attributionUrl = boost::urls::url("https://www.ilmatieteenlaitos.fi/varoitukset");
  full.description = {{.lang = "en", .title = "gale at sea", .text = "Winds up to 25 m/s."}};
  full.type = "wind";

  ForecaWarning noDescription = full;
  noDescription.description.clear();

  ForecaWarning nameOnly = noDescription;
  nameOnly.title.reset();

  ForecaWarning untitledDescription = full;
  untitledDescription.description = {{.lang = "en", .title = std::nullopt, .text = "Text only."}};

  auto alerts = convertForecaWarnings(std::vector{full, noDescription, nameOnly, untitledDescription}, now, "en");
  ASSERT_EQ(alerts.size(), 4u);
  EXPECT_EQ(alerts[0].senderName, "Finnish Meteorological Institute");
  EXPECT_EQ(alerts[0].event, "Gale at sea");
  EXPECT_EQ(alerts[0].start, now - 60);
  EXPECT_EQ(alerts[0].end, now + 3600);
  EXPECT_EQ(alerts[0].description, "Winds up to 25 m/s.");
  ASSERT_TRUE(alerts[0].url.has_value());
  EXPECT_EQ(alerts[0].url->buffer(), "https://www.ilmatieteenlaitos.fi/varoitukset");
  EXPECT_EQ(alerts[0].severity, WeatherSeverity::moderate);
  EXPECT_EQ(alerts[0].tags, std::vector<std::string>{"Wind"});

  EXPECT_EQ(alerts[1].event, "Wind warning");  // no description: the warning's title
  EXPECT_FALSE(alerts[1].description.has_value());
  EXPECT_EQ(alerts[2].event, "Strong wind");  // no title either: the name
  EXPECT_EQ(alerts[3].event, "Wind warning");
  EXPECT_EQ(alerts[3].description, "Text only.");
}

TEST(ForecaWarningsTest, RecordAlwaysHasAnAlertList) {
  TwoDays days(std::nullopt, std::nullopt);
  OneCallWeather record = convertForecaWeather(days.weather, days.context);
  ASSERT_TRUE(record.alerts.has_value());
  EXPECT_TRUE(record.alerts->empty());
}

}  // namespace
}  // namespace ombrine
