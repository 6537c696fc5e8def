#pragma once
// The records of the OpenWeather current, three-hour forecast and daily forecast answers, and
// their decoders.
//
// Keys are the service's snake_case names ("feels_like", "1h", "3h"). Dates are seconds since
// 1970. Temperatures are read in the unit system the request asked for: "metric" (degrees
// Celsius, the client's choice) or "standard" (kelvin, the service's default); speeds are metres
// per second in both. A missing required key, a value of the wrong type or text that is not
// JSON raise DecodingError naming the path of the offending value. Pure; safe from any thread.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/values/date.hpp"
#include "core/values/measurements.hpp"

namespace ombrine {

enum class OpenWeatherUnits { metric, standard };

struct OpenWeatherCondition {
  int id = 0;
  std::string main;
  std::string description;
  std::string icon;
  bool operator==(const OpenWeatherCondition&) const = default;
};

struct OpenWeatherMain {
  Temperature temp;
  Temperature feelsLike;
  double pressure = 0.0;
  double humidity = 0.0;
  bool operator==(const OpenWeatherMain&) const = default;
};

struct OpenWeatherWind {
  std::optional<double> speed;
  std::optional<double> deg;
  std::optional<double> gust;
  bool operator==(const OpenWeatherWind&) const = default;
};

// Amounts in millimetres: of the last hour, of the last three hours.
struct OpenWeatherVolume {
  std::optional<double> oneHour;
  std::optional<double> threeHour;
  bool operator==(const OpenWeatherVolume&) const = default;
};

struct OpenWeatherClouds {
  std::optional<int> all;  // percent
  bool operator==(const OpenWeatherClouds&) const = default;
};

struct OpenWeatherCurrentResponse {
  using Weather = OpenWeatherCondition;
  struct Sys {
    std::optional<Date> sunrise;
    std::optional<Date> sunset;
    bool operator==(const Sys&) const = default;
  };
  std::vector<Weather> weather;
  OpenWeatherMain main;
  std::optional<int> visibility;
  std::optional<OpenWeatherWind> wind;
  std::optional<OpenWeatherClouds> clouds;
  std::optional<OpenWeatherVolume> rain;
  std::optional<OpenWeatherVolume> snow;
  Date dt;
  Sys sys;
  bool operator==(const OpenWeatherCurrentResponse&) const = default;
};

struct OpenWeatherForecastItem {
  Date dt;
  OpenWeatherMain main;
  std::vector<OpenWeatherCondition> weather;
  std::optional<int> clouds;
  std::optional<OpenWeatherWind> wind;
  std::optional<int> visibility;
  std::optional<double> pop;
  std::optional<OpenWeatherVolume> rain;
  std::optional<OpenWeatherVolume> snow;
  bool operator==(const OpenWeatherForecastItem&) const = default;
};

struct OpenWeatherForecastResponse {
  using Item = OpenWeatherForecastItem;
  std::vector<OpenWeatherForecastItem> list;  // as sent; the conversion sorts by `dt`
  bool operator==(const OpenWeatherForecastResponse&) const = default;
};

struct OpenWeatherDailyItem {
  struct Temp {
    Temperature day, min, max, night, eve, morn;
    bool operator==(const Temp&) const = default;
  };
  struct FeelsLike {
    Temperature day, night, eve, morn;
    bool operator==(const FeelsLike&) const = default;
  };
  Date dt;
  std::optional<Date> sunrise;
  std::optional<Date> sunset;
  Temp temp;
  FeelsLike feelsLike;
  std::optional<double> pressure;
  std::optional<double> humidity;
  // The service sends these as "speed", "deg", "gust"; "wind_speed", "wind_deg", "wind_gust"
  // are read as well.
  std::optional<double> windSpeed;
  std::optional<double> windDeg;
  std::optional<double> windGust;
  std::optional<int> clouds;
  std::vector<OpenWeatherCondition> weather;
  std::optional<double> pop;
  std::optional<double> rain;  // millimetres in the day
  std::optional<double> snow;
  std::optional<Temperature> dewPoint;
  bool operator==(const OpenWeatherDailyItem&) const = default;
};

struct OpenWeatherDailyResponse {
  using Item = OpenWeatherDailyItem;
  std::vector<OpenWeatherDailyItem> list;
  bool operator==(const OpenWeatherDailyResponse&) const = default;
};

OpenWeatherCurrentResponse decodeOpenWeatherCurrent(std::string_view json,
                                                    OpenWeatherUnits units = OpenWeatherUnits::metric);
OpenWeatherForecastResponse decodeOpenWeatherForecast(std::string_view json,
                                                      OpenWeatherUnits units = OpenWeatherUnits::metric);
OpenWeatherDailyResponse decodeOpenWeatherDaily(std::string_view json,
                                                OpenWeatherUnits units = OpenWeatherUnits::metric);

}  // namespace ombrine
