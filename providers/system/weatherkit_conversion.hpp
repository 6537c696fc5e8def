#pragma once
// Mapping of the system weather service's record into the unified forecast record.
//
// Calendar arithmetic uses the Gregorian calendar in the place's zone. Pure functions of their
// arguments; safe from any thread; nothing raises except std::bad_alloc.

#include <string_view>

#include "core/record/one_call_weather.hpp"
#include "core/values/date.hpp"
#include "core/values/location.hpp"
#include "core/values/time_zone.hpp"
#include "providers/system/weatherkit_wire.hpp"

namespace ombrine {

// The glyph of a condition code ("MostlyCloudy"): the symbol by the condition table in its day
// or night form, `main` and `description` the condition's words ("Mostly Cloudy"), `id` the
// matching One Call condition code. An unknown code draws "cloud" with its own words.
OneCallWeather::Glyph systemWeatherGlyph(std::string_view conditionCode, bool isDaylight);

// The precipitation kind of a type word ("rain", "snow", "sleet", "hail", "mixed"); `none` for
// "clear" and anything else.
PrecipitationKind systemWeatherPrecipitationKind(std::string_view type);

struct SystemWeatherConversionContext {
  Location location;
  TimeZone timeZone;
  Date now;
};

// The whole record. Without current conditions the first hour stands in for them.
//   - sun times of `current` from the daily entry of today (by start of day), else none;
//   - `pressure` and `visibility` truncated, humidity and clouds × 100 truncated, a missing
//     dew point 0 °C;
//   - hourly rain or snow by the precipitation type, sun rows added after `now`;
//   - `minutely` absent when the service sent no minute forecast; a minute's kind is the
//     condition of the summary stretch it lies in;
//   - daily rows by start of day; the four feels-like values from that day's hours at 06:00
//     (morning), 12:00 (day), 18:00 (evening) and 23:00 (night), a missing hour taking the
//     mean of the day's low and high; wind, humidity and clouds from the daytime part;
//   - alerts: `event` the summary's description, `senderName` its source, `start` its
//     effective time, `end` its expiry, `url` its details link, `severity` by name, `tags` its
//     responses, `description` its area.
OneCallWeather convertSystemWeather(const AppleWeather& weather, const SystemWeatherConversionContext& context);

}  // namespace ombrine
