#pragma once
// The records of the Foreca point forecast and warning answers, and their decoders.
//
// The records mirror the service's JSON: keys equal the field names. All six answers are
// decoded here and nowhere else. Units on reading:
//   - temperatures in degrees Celsius, as sent;
//   - wind speeds arrive in km/h (every request asks windunit=KMH) and are stored in the base
//     unit of `Speed`, metres per second;
//   - precipitation amounts in millimetres, visibility in metres, as sent;
//   - `ForecaMinute::precipRate` is a rate in millimetres per hour held in a `Speed` (see there).
// A JSON null where a measurement belongs reads as 0.0; a missing required key, a value of the
// wrong type, an unknown enumeration value or a malformed date raise DecodingError, whose
// text names the answer and the path of the offending value (never the request).
//
// Date forms of the answers:
//   - current, hourly, minutely, air quality: "yyyy-MM-dd'T'HH:mmZZZZZ", e.g.
//     "2024-03-05T14:00+02:00" or "2024-03-05T12:00Z";
//   - daily: `date` is "yyyy-MM-dd", read as the start of that day in the place's time zone;
//     `sunrise` and `sunset` may be the place's wall-clock time of that day ("06:52" or
//     "06:52:10"), a full date-time as above, or a plain day;
//   - warnings: ISO 8601 internet date-time, with or without fractional seconds.
//
// Pure functions of their input; safe from any thread. Every decoder raises only
// DecodingError (and std::bad_alloc).

#include <boost/url/url.hpp>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/values/air_quality.hpp"
#include "core/values/date.hpp"
#include "core/values/measurements.hpp"
#include "core/values/time_zone.hpp"

namespace ombrine {

struct ForecaCurrent {
  Date time;
  std::string symbol;  // one letter (d day, n night) and three digits, e.g. "d320"
  std::string symbolPhrase;
  Temperature temperature;
  Temperature feelsLikeTemp;
  int relHumidity = 0;  // percent
  Temperature dewPoint;
  Speed windSpeed;
  Angle windDir;
  Speed windGust;
  int precipProb = 0;  // percent
  int cloudiness = 0;  // percent
  double uvIndex = 0.0;
  std::optional<double> pressure;    // hPa
  std::optional<double> visibility;  // metres
  bool operator==(const ForecaCurrent&) const = default;
};

struct ForecaCurrentResponse {
  ForecaCurrent current;
  bool operator==(const ForecaCurrentResponse&) const = default;
};

struct ForecaHourly {
  // JSON: "rain", "mixed", "snow".
  enum class PrecipitationType { rain, mixed, snow };

  Date time;
  std::string symbol;
  std::string symbolPhrase;
  Temperature temperature;
  Temperature feelsLikeTemp;
  Speed windSpeed;
  Speed windGust;
  Angle windDir;
  std::string windDirString;  // compass point, e.g. "SW"
  int precipProb = 0;
  Precipitation precipAccum;
  Precipitation snowAccum;
  int cloudiness = 0;
  double uvIndex = 0.0;
  std::optional<double> pressure;
  std::optional<double> visibility;  // metres
  int relHumidity = 0;
  Temperature dewPoint;
  PrecipitationType precipType = PrecipitationType::rain;
  bool operator==(const ForecaHourly&) const = default;
};

struct ForecaDaily {
  Date date;  // start of the day in the place's time zone
  std::string symbol;
  std::string symbolPhrase;
  Temperature maxTemp;
  Temperature minTemp;
  Temperature maxFeelsLikeTemp;
  Temperature minFeelsLikeTemp;
  int maxRelHumidity = 0;
  int minRelHumidity = 0;
  Temperature maxDewPoint;
  Temperature minDewPoint;
  Precipitation precipAccum;
  Precipitation snowAccum;
  Speed maxWindSpeed;
  Angle windDir;
  Speed maxWindGust;
  int precipProb = 0;
  int cloudiness = 0;
  std::optional<Date> sunrise;  // absent in polar day and night
  std::optional<Date> sunset;
  std::optional<double> uvIndex;
  bool operator==(const ForecaDaily&) const = default;
};

struct ForecaMinute {
  Date time;
  // A rate whose JSON number is millimetres per hour, held as a `Speed` (so in metres per
  // second: the JSON number / 3.6e6). `precipRateMillimetersPerHour` gives the number back.
  Speed precipRate;
  bool operator==(const ForecaMinute&) const = default;
};

// The rate of a minute in millimetres per hour, free of the last-bit noise of the unit round
// trip (rounded to 1e-9 mm/h).
double precipRateMillimetersPerHour(const ForecaMinute& minute);

// The envelope of the hourly, daily, minutely and air quality answers.
template <class T>
struct ForecaForecast {
  std::vector<T> forecast;
  bool operator==(const ForecaForecast&) const = default;
};

struct ForecaWarning {
  // Ordered by rising significance: `purple` is the highest.
  enum class Significance { green, yellow, orange, red, purple };

  struct Description {
    std::string lang;  // language code, e.g. "en", "fi"
    std::optional<std::string> title;
    std::optional<std::string> text;
    bool operator==(const Description&) const = default;
  };

  std::string name;
  std::string type;
  Significance significance = Significance::green;
  std::string attribution;
  std::optional<boost::urls::url> attributionUrl;  // an empty string reads as absent
  Date validFrom;
  Date validUntil;
  std::vector<Description> description;
  std::string significanceDescription;
  Date sent;
  std::optional<std::string> title;
  std::optional<std::string> langArea;
  bool operator==(const ForecaWarning&) const = default;
};

struct ForecaWarnings {
  std::vector<ForecaWarning> warnings;
  bool operator==(const ForecaWarnings&) const = default;
};

// Everything one fetch gathered, ready for conversion.
struct ForecaWeather {
  std::vector<ForecaWarning> warnings;
  ForecaCurrent current;
  std::vector<ForecaMinute> minutely;
  std::vector<ForecaHourly> hourly;
  std::vector<ForecaDaily> daily;
  std::vector<AirQuality> airQuality;
  bool operator==(const ForecaWeather&) const = default;
};

// One decoder per answer. `placeZone` is the time zone of the forecast place.
ForecaCurrentResponse decodeForecaCurrent(std::string_view json);
ForecaForecast<ForecaHourly> decodeForecaHourly(std::string_view json);
ForecaForecast<ForecaDaily> decodeForecaDaily(std::string_view json, const TimeZone& placeZone);
ForecaForecast<ForecaMinute> decodeForecaMinutely(std::string_view json);
// Entries {"time": date, "AQI": integer}; other keys of an entry are ignored.
ForecaForecast<AirQuality> decodeForecaAirQuality(std::string_view json);
ForecaWarnings decodeForecaWarnings(std::string_view json);

// "yyyy-MM-dd'T'HH:mmZZZZZ": the zone is "Z" or "+HH:MM" / "-HH:MM" (also "+HHMM", "+HH").
// Nothing for any other text, or for a field out of range.
std::optional<Date> parseForecaDateTime(std::string_view text);

}  // namespace ombrine
