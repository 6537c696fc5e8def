#pragma once
// The unified forecast record.
//
// Every provider converts its answer into one `OneCallWeather`; everything after the fetch
// (caches, notifications, charts, widgets, trips) reads only this record. Field names follow the
// One Call vocabulary and are the JSON keys of the cache form (core/record/one_call_weather_json.hpp).
// Fields are listed in the order the JSON form writes them.
//
// Plain values: copy freely, no thread affinity. Equality compares every field. The hash
// (std::hash<OneCallWeather>) is for noticing changed records: it leaves `tideData` out, hashes
// the time zone by identifier and treats 0.0 and -0.0 alike.

#include <boost/json/value.hpp>
#include <boost/url/url.hpp>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "core/record/tide_records.hpp"
#include "core/values/air_quality.hpp"
#include "core/values/date.hpp"
#include "core/values/measurements.hpp"
#include "core/values/time_zone.hpp"

namespace ombrine {

// The severities of a weather alert, in the platform's vocabulary. JSON: the case name.
enum class WeatherSeverity { minor, moderate, severe, extreme, unknown };

std::string_view weatherSeverityName(WeatherSeverity severity) noexcept;
// The severity named `name`; nothing for any other text.
std::optional<WeatherSeverity> weatherSeverityNamed(std::string_view name) noexcept;

// The sun rising or setting at a date, attached to the hourly entry it falls in.
// JSON: {"rise": {"_0": date}} or {"set": {"_0": date}}.
struct SunStateChange {
  struct Rise {
    Date date;
    bool operator==(const Rise&) const = default;
  };
  struct Set {
    Date date;
    bool operator==(const Set&) const = default;
  };

  std::variant<Rise, Set> event;

  static SunStateChange rise(Date date) { return {Rise{date}}; }
  static SunStateChange set(Date date) { return {Set{date}}; }
  bool isRise() const noexcept { return std::holds_alternative<Rise>(event); }
  Date date() const noexcept;
  // Localisation key of the label: "Sunrise" ("Weather condition label for a sunrise sun
  // event") or "Sunset" ("Weather condition label for a sunset sun event").
  std::string_view label() const noexcept;

  bool operator==(const SunStateChange&) const = default;
};

// Who delivered the data. JSON: exactly one key, "apple", "image" or "name", holding {"_0": ...}.
struct WeatherServiceAttribution {
  // The system weather service's own attribution value. Only the system-weather adapter knows
  // its shape, so it is kept as the JSON it was encoded as and written back unchanged.
  struct Apple {
    boost::json::value attribution;
    bool operator==(const Apple&) const = default;
  };
  struct ImageAttribution {
    boost::urls::url combinedMarkDarkURL;
    boost::urls::url combinedMarkLightURL;
    boost::urls::url legalPageURL;
    std::string serviceName;
    boost::urls::url squareMarkURL;
    bool operator==(const ImageAttribution&) const = default;
  };
  // Service names in use: "Foreca", "OpenWeather", and the joined name of a merged record.
  struct NameAttribution {
    std::string serviceName;
    std::optional<boost::urls::url> url;
    bool operator==(const NameAttribution&) const = default;
  };

  std::variant<Apple, ImageAttribution, NameAttribution> source;

  bool operator==(const WeatherServiceAttribution&) const = default;
};

struct OneCallWeather {
  struct Rain {
    Precipitation rainVolume;  // JSON key "1h"
    bool operator==(const Rain&) const = default;
  };
  struct Snow {
    Precipitation snowVolume;  // JSON key "1h"
    bool operator==(const Snow&) const = default;
  };

  // One condition: an OpenWeather condition code (701 mist, 803 broken clouds), a short English
  // word, a description, and the symbol to draw.
  struct Glyph {
    int id = 0;
    std::string main;
    std::string description;
    std::string symbolName;  // JSON key "icon"
    bool isDaylight = false;
    bool operator==(const Glyph&) const = default;
  };

  struct Current {
    Date dt;
    std::optional<Date> sunrise;
    std::optional<Date> sunset;
    Temperature temp;
    Temperature feelsLike;
    std::optional<int> pressure;  // hPa
    Temperature dewPoint;
    double uvi = 0.0;
    int humidity = 0;               // percent
    int clouds = 0;                 // percent
    std::optional<int> visibility;  // metres
    Speed windSpeed;
    std::optional<Speed> windGust;
    Angle windDeg;
    std::optional<Rain> rain;
    std::optional<Snow> snow;
    std::vector<Glyph> weather;
    std::optional<AirQuality> airQuality;
    bool operator==(const Current&) const = default;
  };

  struct Minutely {
    Date dt;
    Precipitation precipitation;  // a rate, millimetres per hour
    std::optional<PrecipitationKind> type;
    bool operator==(const Minutely&) const = default;
  };

  struct Hourly {
    Date dt;
    Temperature temp;
    Temperature feelsLike;
    std::optional<int> pressure;
    int humidity = 0;
    Temperature dewPoint;
    double uvi = 0.0;
    int clouds = 0;
    std::optional<int> visibility;
    Speed windSpeed;
    Angle windDeg;
    std::optional<Speed> windGust;
    double pop = 0.0;  // probability of precipitation, 0 to 1
    std::optional<Rain> rain;
    std::optional<Snow> snow;
    std::vector<Glyph> weather;
    std::optional<SunStateChange> sunStateChange;
    std::optional<AirQuality> airQuality;
    bool operator==(const Hourly&) const = default;
  };

  struct Daily {
    struct Temp {
      Temperature min;
      Temperature max;
      bool operator==(const Temp&) const = default;
    };
    struct FeelsLikeTemp {
      Temperature day;
      Temperature night;
      Temperature eve;
      Temperature morn;
      bool operator==(const FeelsLikeTemp&) const = default;
    };

    Date dt;
    Temp temp;
    FeelsLikeTemp feelsLike;
    double pop = 0.0;
    std::optional<Precipitation> rain;
    std::optional<Precipitation> snow;
    std::optional<double> uvi;
    std::optional<Speed> windSpeed;
    std::optional<Angle> windDeg;
    std::optional<Speed> windGust;
    std::optional<double> humidity;
    std::optional<Temperature> dewPoint;
    std::optional<double> clouds;
    std::vector<Glyph> weather;
    std::optional<Date> sunrise;
    std::optional<Date> sunset;
    bool operator==(const Daily&) const = default;
  };

  struct Alert {
    std::string senderName;
    std::string event;
    Date start;
    std::optional<Date> end;
    std::optional<std::string> description;
    std::optional<boost::urls::url> url;
    std::optional<WeatherSeverity> severity;
    std::vector<std::string> tags;
    bool operator==(const Alert&) const = default;
  };

  double lat = 0.0;
  double lon = 0.0;
  TimeZone timeZone;
  // The tides for the place, set by the fetch pipeline after a provider built the record, never
  // by a provider (core/record/tide_records.hpp).
  std::optional<TideData> tideData;
  Current current;
  std::optional<std::vector<Minutely>> minutely;
  std::vector<Hourly> hourly;
  std::vector<Daily> daily;
  std::optional<std::vector<Alert>> alerts;
  std::optional<WeatherServiceAttribution> attribution;
  // True only for the ready-made record shown while nothing better exists. Never written to
  // JSON, so every decoded record has false.
  bool isPlaceholder = false;

  bool operator==(const OneCallWeather&) const = default;
};

// The hash std::hash<OneCallWeather> uses.
size_t hashValue(const OneCallWeather& weather) noexcept;

}  // namespace ombrine

template <>
struct std::hash<ombrine::OneCallWeather> {
  size_t operator()(const ombrine::OneCallWeather& weather) const noexcept { return ombrine::hashValue(weather); }
};
