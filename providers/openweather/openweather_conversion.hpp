#pragma once
// Conversion of the OpenWeather answers into the unified forecast record.
//
// Pure functions of their arguments (the present instant is passed in); safe from any thread;
// nothing raises except std::bad_alloc.

#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "core/record/one_call_weather.hpp"
#include "core/values/air_quality.hpp"
#include "core/values/date.hpp"
#include "core/values/location.hpp"
#include "core/values/time_zone.hpp"
#include "providers/openweather/openweather_wire.hpp"

namespace ombrine {

inline constexpr std::string_view kOpenWeatherServiceName = "OpenWeather";
inline constexpr std::string_view kOpenWeatherSiteUrl = "https://openweathermap.org";

// The glyph of a condition: `symbolName` and `isDaylight` by the icon table ("10n" gives
// "cloud.moon.rain" by night); `id`, `main`, `description` copied. An unknown icon draws
// "cloud", daylight by the icon's last letter.
OneCallWeather::Glyph openWeatherGlyph(const OpenWeatherCondition& condition);

// One forecast item as an hourly working record, before interpolation.
struct OpenWeatherHourlySample {
  Date dt;
  Temperature temperature;
  Temperature feelsLike;
  double pressure = 0.0;
  double humidity = 0.0;
  std::optional<Temperature> dewPoint;
  double clouds = 0.0;
  std::optional<double> visibility;
  double windSpeed = 0.0;
  std::optional<double> windDirection;
  std::optional<double> windGust;
  double precipitationProbability = 0.0;
  std::optional<double> rain;  // millimetres per hour
  std::optional<double> snow;
  std::vector<OneCallWeather::Glyph> weather;
};

// The dew point by the Magnus form (17.27, 237.7) for a relative humidity in percent; nothing
// for a humidity not above 0 or a result that is not finite.
std::optional<Temperature> magnusDewPoint(Temperature temperature, double humidity);

// The wind direction a fraction `f` (0..1) of the way from `a` to `b` along the shorter arc,
// in 0..360 degrees; when one is missing the other stands.
std::optional<double> interpolateDirection(std::optional<double> a, std::optional<double> b, double f);

// The samples of a forecast list sorted by `dt`: the first item spans 3 hours, every other one
// the hours since the previous item; rain and snow become amounts per hour (never below 0),
// `pop` is held to 0..1 (0 when missing). A missing wind is 0 m/s from 0 degrees.
std::vector<OpenWeatherHourlySample> openWeatherSamples(std::span<const OpenWeatherForecastItem> list);

// One sample per hour from the first sample's hour to the last sample's: measured quantities
// linear between the two neighbouring samples, wind direction along the shorter arc; the
// probability, amounts per hour and glyphs of the sample that ends the step (the three-hour
// amounts describe the hours before their time).
std::vector<OpenWeatherHourlySample> interpolateHourly(std::span<const OpenWeatherHourlySample> samples);

struct OpenWeatherConversionContext {
  Location location;
  TimeZone timeZone;
  Date now;
};

// The whole record: `minutely` absent, `alerts` empty, attribution "OpenWeather". `airQuality`
// (hourly entries, possibly empty) is attached to the current conditions and to the hourly rows
// by wall-clock hour. Hourly rows before the current hour are dropped.
OneCallWeather convertOpenWeather(const OpenWeatherCurrentResponse& current,
                                  const OpenWeatherForecastResponse& forecast, const OpenWeatherDailyResponse& daily,
                                  std::span<const AirQuality> airQuality, const OpenWeatherConversionContext& context);

}  // namespace ombrine
