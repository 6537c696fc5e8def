#pragma once
// The records of the Bureau of Meteorology locations API answers, and their decoders.
//
// Keys are the service's snake_case names; dates ISO 8601 ("2022-10-07T00:00:00Z"); speeds
// km/h (stored as `Speed`), temperatures °C, amounts mm; wind directions are compass points
// ("SSE", or "CALM" for none). Every answer wraps its record in "data". A missing required key,
// a value of the wrong type or a malformed date raise DecodingError naming the path. Pure; safe
// from any thread.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/values/date.hpp"
#include "core/values/measurements.hpp"

namespace ombrine {

// The Bureau's records, named as the API documents them; keys camel-cased from the wire.
namespace BOM {

struct Wind {
  Speed speedKilometre;
  std::optional<Speed> gustSpeedKilometre;
  std::optional<Angle> direction;  // nothing for calm or an unknown point
  bool operator==(const Wind&) const = default;
};

struct Gust {
  Speed speedKilometre;
  bool operator==(const Gust&) const = default;
};

struct Rain {
  struct Amount {
    int min = 0;  // millimetres
    std::optional<int> max;
    bool operator==(const Amount&) const = default;
  };
  int chance = 0;  // percent
  Amount amount;
  bool operator==(const Rain&) const = default;
};

struct LocationInfo {
  struct Data {
    std::string timezone;
    std::string name;
    bool operator==(const Data&) const = default;
  };
  Data data;
  bool operator==(const LocationInfo&) const = default;
};

struct Current {
  struct WeatherData {
    Temperature temp;
    Temperature tempFeelsLike;
    int humidity = 0;
    Wind wind;
    std::optional<Gust> gust;
    bool operator==(const WeatherData&) const = default;
  };
  WeatherData data;
  bool operator==(const Current&) const = default;
};

struct Hourly {
  struct WeatherData {
    Date time;
    Temperature temp;
    Temperature tempFeelsLike;
    Wind wind;
    int relativeHumidity = 0;
    std::optional<Temperature> dewPoint;  // the service leaves it out
    int uv = 0;
    bool isNight = false;
    std::optional<std::string> iconDescriptor;
    Rain rain;
    bool operator==(const WeatherData&) const = default;
  };
  std::vector<WeatherData> data;
  bool operator==(const Hourly&) const = default;
};

struct Daily {
  struct WeatherData {
    struct UV {
      std::optional<int> maxIndex;
      bool operator==(const UV&) const = default;
    };
    struct Astronomical {
      std::optional<Date> sunriseTime;
      std::optional<Date> sunsetTime;
      bool operator==(const Astronomical&) const = default;
    };
    // Sent for the first day only.
    struct Now {
      bool isNight = false;
      std::optional<Temperature> tempNow;
      std::optional<Temperature> tempLater;  // tonight's low
      bool operator==(const Now&) const = default;
    };
    Date date;
    std::optional<Temperature> tempMin;
    std::optional<Temperature> tempMax;
    UV uv;
    Astronomical astronomical;
    std::optional<std::string> iconDescriptor;
    std::optional<std::string> shortText;
    std::optional<std::string> extendedText;
    Rain rain;
    std::optional<Now> now;
    bool operator==(const WeatherData&) const = default;
  };
  std::vector<WeatherData> data;
  bool operator==(const Daily&) const = default;
};

}  // namespace BOM

// The published days of a daily answer: entries with neither a maximum temperature nor an icon
// (the service pads its list with such days) are dropped.
struct BOMPublishedDailyForecasts {
  std::vector<BOM::Daily::WeatherData> forecasts;
  explicit BOMPublishedDailyForecasts(const BOM::Daily& daily);
  bool operator==(const BOMPublishedDailyForecasts&) const = default;
};

struct BomWarning {
  std::string id;
  std::string type;
  std::string title;
  Date issueTime;
  std::optional<Date> expiryTime;
  bool operator==(const BomWarning&) const = default;
};

struct BomSearchResult {
  std::string geohash;
  std::string name;
  bool operator==(const BomSearchResult&) const = default;
};

BOM::LocationInfo decodeBomLocationInfo(std::string_view json);
std::vector<BomSearchResult> decodeBomLocationSearch(std::string_view json);
BOM::Current decodeBomObservations(std::string_view json);
BOM::Hourly decodeBomHourly(std::string_view json);
BOM::Daily decodeBomDaily(std::string_view json);
std::vector<BomWarning> decodeBomWarnings(std::string_view json);

// The geohash of a coordinate with `length` characters (alphabet
// "0123456789bcdefghjkmnpqrstuvwxyz").
std::string geohash(double latitude, double longitude, int length);

}  // namespace ombrine
