#include "app/forecast_render.hpp"

#include <gtest/gtest.h>

#include "core/testing_records.hpp"
#include "history/civil_date.hpp"

namespace ombrine::app {
namespace {

TEST(ForecastRenderTest, SunLineWhenTheProviderHasNoSunTimes) {
  const Date june = Date::fromUnix(1781949600.0);     // 2026-06-20T10:00:00Z
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
    const std::string screen = renderForecast(ForecastScreen{.placeName = "P", .weather = &weather, .now = row.now,
                                                             .locale = icu::Locale("en_US")});
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
      {"Pacific/Apia", 13, "20 Sat", "19 Fri"},      // 23:00 on Saturday there: Friday is over
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
      weather.daily[i].dt = Date::fromUnix(1781740800.0 + 86400.0 * static_cast<double>(i) - row.utcOffsetHours * 3600.0);
    }
    const std::string screen =
        renderForecast(ForecastScreen{.placeName = "P", .weather = &weather, .now = now, .locale = icu::Locale("en_US")});
    const std::string days = screen.substr(screen.find("Days"));
    EXPECT_NE(days.find(row.shown), std::string::npos) << days;
    EXPECT_EQ(days.find(row.hidden), std::string::npos) << days;
  }
}

}  // namespace
}  // namespace ombrine::app
