#pragma once
// The records of the system weather service's REST answers ("/api/v1/weather/..."), and their
// decoder.
//
// One answer holds any of the data sets "currentWeather", "forecastHourly", "forecastDaily",
// "forecastNextHour" and "weatherAlerts"; a set that was not asked for or has no data is
// absent. Units as the service sends them with the metric unit system: temperatures °C, wind
// km/h (stored as `Speed`), pressure hPa, visibility m, amounts mm, intensities mm/h, and
// fractions 0..1 for humidity, cloud cover and chances. Dates are ISO 8601 with "Z".
// A missing required key, a value of the wrong type or a malformed date raise DecodingError
// naming the path. Pure; safe from any thread.

#include <boost/json/value.hpp>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/values/date.hpp"
#include "core/values/measurements.hpp"

namespace ombrine {

// The name the service is shown by: the platform mark (U+F8FF) and "Weather".
inline constexpr std::string_view kSystemWeatherServiceName = "\uF8FFWeather";

struct WeatherKitCurrent {
  Date asOf;
  double cloudCover = 0.0;
  std::string conditionCode;
  bool daylight = true;
  double humidity = 0.0;
  double precipitationIntensity = 0.0;
  double pressure = 0.0;
  Temperature temperature;
  Temperature temperatureApparent;
  std::optional<Temperature> temperatureDewPoint;
  double uvIndex = 0.0;
  double visibility = 0.0;
  Speed windSpeed;
  std::optional<Speed> windGust;
  double windDirection = 0.0;
  bool operator==(const WeatherKitCurrent&) const = default;
};

struct WeatherKitHour {
  Date forecastStart;
  double cloudCover = 0.0;
  std::string conditionCode;
  bool daylight = true;
  double humidity = 0.0;
  double precipitationAmount = 0.0;
  double precipitationChance = 0.0;
  std::string precipitationType;  // "clear", "rain", "snow", "sleet", "hail", "mixed"
  double pressure = 0.0;
  Temperature temperature;
  Temperature temperatureApparent;
  std::optional<Temperature> temperatureDewPoint;
  double uvIndex = 0.0;
  double visibility = 0.0;
  Speed windSpeed;
  std::optional<Speed> windGust;
  double windDirection = 0.0;
  bool operator==(const WeatherKitHour&) const = default;
};

struct WeatherKitDayPart {
  double cloudCover = 0.0;
  double humidity = 0.0;
  Speed windSpeed;
  std::optional<Speed> windGust;
  double windDirection = 0.0;
  bool operator==(const WeatherKitDayPart&) const = default;
};

struct WeatherKitDay {
  Date forecastStart;
  Date forecastEnd;
  std::string conditionCode;
  std::optional<double> maxUvIndex;
  double precipitationAmount = 0.0;
  double precipitationChance = 0.0;
  std::string precipitationType;
  std::optional<double> rainfallAmount;
  double snowfallAmount = 0.0;
  std::optional<Date> sunrise;
  std::optional<Date> sunset;
  Temperature temperatureMax;
  Temperature temperatureMin;
  std::optional<WeatherKitDayPart> daytimeForecast;
  bool operator==(const WeatherKitDay&) const = default;
};

struct WeatherKitMinute {
  Date startTime;
  double precipitationChance = 0.0;
  double precipitationIntensity = 0.0;
  bool operator==(const WeatherKitMinute&) const = default;
};

// A stretch of the next hour with one condition ("clear", "precipitation", "rain", "snow", ...).
struct WeatherKitSummary {
  Date startTime;
  std::optional<Date> endTime;
  std::string condition;
  bool operator==(const WeatherKitSummary&) const = default;
};

struct WeatherKitNextHour {
  std::vector<WeatherKitMinute> minutes;
  std::vector<WeatherKitSummary> summary;
  bool operator==(const WeatherKitNextHour&) const = default;
};

struct WeatherKitAlert {
  std::string id;
  std::string areaName;
  std::string description;
  Date effectiveTime;
  Date expireTime;
  Date issuedTime;
  std::optional<Date> eventOnsetTime;
  std::optional<Date> eventEndTime;
  std::optional<std::string> detailsUrl;
  std::string severity;
  std::string source;
  std::optional<std::string> importance;
  std::vector<std::string> responses;
  bool operator==(const WeatherKitAlert&) const = default;
};

// What the adapter maps: the answer's data sets and the service's attribution (the metadata's
// "attributionURL" and "providerName" of the first data set that has them).
struct AppleWeather {
  std::optional<WeatherKitCurrent> currentWeather;
  std::optional<WeatherKitNextHour> minuteForecast;
  std::vector<WeatherKitHour> hourlyForecast;
  std::vector<WeatherKitDay> dailyForecast;
  std::optional<std::vector<WeatherKitAlert>> weatherAlerts;
  boost::json::value attribution;
  bool operator==(const AppleWeather&) const = default;
};

AppleWeather decodeWeatherKitAnswer(std::string_view json);

}  // namespace ombrine
