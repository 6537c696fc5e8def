#include "app/forecast_render.hpp"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "app/message_catalog.hpp"
#include "app/terminal_text.hpp"
#include "core/record/testing_records.hpp"
#include "history/civil_date.hpp"

namespace ombrine::app {
namespace {

TEST(ForecastRenderTest, SunLineWhenTheProviderHasNoSunTimes) {
  const Date june = Date::fromUnix(1781949600.0);      // 2026-06-20T10:00:00Z
  const Date december = Date::fromUnix(1797760800.0);  // 2026-12-20T10:00:00Z
  struct Row {
    const char* why;
    double latitude;
    Date now;
    bool providerTimes;
    const char* expected;
  };
  const Row rows[] = {
      {"Svalbard in June: the provider repeats one instant", 78.22, june, false, "  Midnight sun\n"},
      {"Svalbard in December", 78.22, december, false, "  Polar night\n"},
      {"a provider's real times are shown as given", 78.22, june, true, "  Sunrise "},
      {"an ordinary place without provider times gets computed ones", 52.52, june, false, "  Sunrise "},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    OneCallWeather weather = testing_records::makeForecastRecord({.days = 2, .hours = 24, .minutes = 0});
    weather.lat = row.latitude;
    weather.lon = 15.65;
    weather.timeZone = *TimeZone::named("Arctic/Longyearbyen");
    weather.current.dt = row.now;
    if (row.providerTimes) {
      weather.current.sunrise = row.now - 3600.0;
      weather.current.sunset = row.now + 3600.0;
    } else {
      weather.current.sunrise = row.now;
      weather.current.sunset = row.now;
    }
    const OneCallWeather before = weather;
    const std::string screen = renderForecast(
        ForecastScreen{.placeName = "P", .weather = &weather, .now = row.now, .locale = icu::Locale("en_US")});
    EXPECT_NE(screen.find(row.expected), std::string::npos) << screen;
    EXPECT_EQ(weather, before) << "the record stays as the provider gave it";
  }
}

// Days before the place's own today are over there, whatever the time is in UTC.
TEST(ForecastRenderTest, DaysStartAtThePlacesToday) {
  const Date now = Date::fromUnix(1781949600.0);  // 2026-06-20T10:00:00Z
  struct Row {
    const char* zone;
    int utcOffsetHours;
    const char* shown;
    const char* hidden;
  };
  const Row rows[] = {
      {"Pacific/Apia", 13, "20 Sat", "19 Fri"},        // 23:00 on Saturday there: Friday is over
      {"Pacific/Pago_Pago", -11, "19 Fri", "18 Thu"},  // 23:00 on Friday there
      {"Europe/Berlin", 2, "20 Sat", "19 Fri"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.zone);
    OneCallWeather weather = testing_records::makeForecastRecord({.days = 4, .hours = 24, .minutes = 0});
    weather.timeZone = *TimeZone::named(row.zone);
    weather.current.dt = now;
    // Rows at the place's local midnights of June 18 to 21.
    for (std::size_t i = 0; i < weather.daily.size(); ++i) {
      weather.daily[i].dt =
          Date::fromUnix(1781740800.0 + 86400.0 * static_cast<double>(i) - row.utcOffsetHours * 3600.0);
    }
    const std::string screen = renderForecast(
        ForecastScreen{.placeName = "P", .weather = &weather, .now = now, .locale = icu::Locale("en_US")});
    const std::string days = screen.substr(screen.find("Days"));
    EXPECT_NE(days.find(row.shown), std::string::npos) << days;
    EXPECT_EQ(days.find(row.hidden), std::string::npos) << days;
  }
}

// The character at terminal column `column` (0-based) of `line`, wide characters taking two.
std::string atColumn(const std::string& line, std::size_t column) {
  std::size_t used = 0;
  for (std::size_t at = 0; at < line.size();) {
    std::size_t length = 1;
    while (at + length < line.size() && (static_cast<unsigned char>(line[at + length]) & 0xC0) == 0x80) ++length;
    const std::string character = line.substr(at, length);
    used += displayWidth(character);
    if (used > column) return character;
    at += length;
  }
  return "";
}

// Every row of the next hours and of the days keeps its columns apart at 80 columns, whatever
// the locale's time format and however long or wide the condition text is.
TEST(ForecastRenderTest, ColumnsStayApartAtEightyColumnsInEnglishGermanAndJapaneseWithTheirWords) {
  const Date now = Date::fromUnix(1781949600.0);  // 2026-06-20T10:00:00Z
  const char* conditions[] = {"Partly cloudy with thunderstorms and heavy rain showers",
                              "Gewitter mit Starkregen und Hagel, örtlich Sturmböen",
                              "雷を伴う激しいにわか雨、ところにより雹", "☀️🌧️⛈️ mixed 🌈"};
  for (const char* localeName : {"en_US", "de_DE", "ja_JP"}) {
    SCOPED_TRACE(localeName);
    OneCallWeather weather = testing_records::makeForecastRecord({.days = 4, .hours = 24, .minutes = 0});
    weather.timeZone = *TimeZone::named("America/New_York");
    weather.current.dt = now;
    for (std::size_t i = 0; i < weather.hourly.size(); ++i) {
      weather.hourly[i].dt = now + 3600.0 * static_cast<double>(i);
      weather.hourly[i].temp = Temperature::celsius(-10.0 + static_cast<double>(i));  // one and two digits, signs
      for (auto& glyph : weather.hourly[i].weather) glyph.description = conditions[i % 4];
    }
    for (std::size_t i = 0; i < weather.daily.size(); ++i) {
      weather.daily[i].dt = now + 86400.0 * static_cast<double>(i);
      for (auto& glyph : weather.daily[i].weather) glyph.description = conditions[i % 4];
    }
    const icu::Locale locale(localeName);
    const std::string screen = renderForecast(ForecastScreen{.placeName = "P",
                                                             .weather = &weather,
                                                             .now = now,
                                                             .locale = locale,
                                                             .hours = 24,
                                                             .messages = &screenMessages(locale)});
    const std::string days(screenMessages(locale)("Days"));
    EXPECT_NE(screen.find("\n" + days + "\n"), std::string::npos) << "the screen's words are translated";
    std::istringstream lines(screen);
    std::string line;
    std::string section;
    int rows = 0;
    while (std::getline(lines, line)) {
      EXPECT_LE(displayWidth(line), 80u) << line;
      if (line == std::string(screenMessages(locale)("Next hours")) || line == days) {
        section = line == days ? "Days" : "Next hours";
        continue;
      }
      if (line.empty()) continue;
      if (!line.starts_with("  ")) {
        section.clear();  // another heading ends the rows
        continue;
      }
      // Each column's last cell is a space and the next column starts right after it.
      const std::vector<std::size_t> starts =
          section == "Next hours" ? std::vector<std::size_t>{12, 19, 43} : std::vector<std::size_t>{11, 25, 51};
      if (section.empty()) continue;
      ++rows;
      for (const std::size_t start : starts) {
        EXPECT_EQ(atColumn(line, start - 1), " ") << line;
        EXPECT_NE(atColumn(line, start), " ") << line;
      }
    }
    EXPECT_GE(rows, 24 + 3);
  }
}

}  // namespace
}  // namespace ombrine::app
