#include "widget/widget_view.hpp"

#include <gtest/gtest.h>

namespace ombrine {
namespace {

TEST(WidgetView, FormsAgeAndUnits) {
  const Date now = Date::fromUnix(1'800'000'000);
  OneCallWeather weather;
  weather.current.dt = now - 600;
  weather.current.temp = Temperature::celsius(-0.6);
  weather.current.weather = {OneCallWeather::Glyph{0, "Snow", "Light snow", "cloud.snow", true}};
  OneCallWeather::Hourly dry, wet;
  dry.dt = now + 3600;
  dry.pop = 0.2;
  wet.dt = now + 2 * 3600;
  wet.pop = 0.7;
  weather.hourly = {dry, wet};
  OneCallWeather old = weather;
  old.current.dt = now - 3 * 3600;

  struct Case {
    const OneCallWeather* weather;
    TemperatureUnit unit;
    WidgetFormat format;
    std::string expected;
  };
  const Case cases[] = {
      {&weather, TemperatureUnit::celsius, WidgetFormat::text, "Oslo -1° Light snow · rain 70% in 2 h"},
      {&weather, TemperatureUnit::fahrenheit, WidgetFormat::i3blocks,
       "Oslo 31° Light snow · rain 70% in 2 h\n31° Oslo\n#FFFFFF"},
      {&old, TemperatureUnit::celsius, WidgetFormat::waybar,
       R"({"text":"-1° Oslo","alt":"cloud.snow","tooltip":"Oslo -1° Light snow\nUpdated 3 h ago","class":"stale"})"},
      {&weather, TemperatureUnit::celsius, WidgetFormat::json,
       R"({"place":"Oslo","state":"live","text":"Oslo -1° Light snow · rain 70% in 2 h","temperature":-0.6,"unit":"C","icon":"cloud.snow","ageSeconds":600})"},
      {nullptr, TemperatureUnit::celsius, WidgetFormat::text, "no forecast cached yet"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(widgetOutput(WidgetInput{"Oslo", c.weather, now, c.unit, std::nullopt}, c.format), c.expected);
  }
  EXPECT_EQ(widgetFormatNamed("waybar"), WidgetFormat::waybar);
  EXPECT_EQ(widgetFormatNamed("polybar"), std::nullopt);
}

}  // namespace
}  // namespace ombrine
