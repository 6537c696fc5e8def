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

#include "core/date.hpp"
#include "core/measurements.hpp"

namespace ombrine {

struct BomWind {
  Speed speedKilometre;
  std::optional<Speed> gustSpeedKilometre;
  std::optional<Angle> direction;  // nothing for calm or an unknown point
  bool operator==(const BomWind&) const = default;
};

struct BomRain {
  int chance = 0;  // percent
  int amountMin = 0;
  std::optional<int> amountMax;
  bool operator==(const BomRain&) const = default;
};

struct BomLocationInfo {
  std::string timezone;
  std::string name;
  bool operator==(const BomLocationInfo&) const = default;
};

struct BomCurrent {
  Temperature temp;
  Temperature tempFeelsLike;
  int humidity = 0;
  BomWind wind;
  std::optional<Speed> gust;
  bool operator==(const BomCurrent&) const = default;
};

struct BomHour {
  Date time;
  Temperature temp;
  Temperature tempFeelsLike;
  BomWind wind;
  int relativeHumidity = 0;
  std::optional<Temperature> dewPoint;
  int uv = 0;
  bool isNight = false;
  std::optional<std::string> iconDescriptor;
  BomRain rain;
  bool operator==(const BomHour&) const = default;
};

struct BomDay {
  Date date;
  std::optional<Temperature> tempMin;
  std::optional<Temperature> tempMax;
  std::optional<int> uvMaxIndex;
  std::optional<Date> sunrise;
  std::optional<Date> sunset;
  std::optional<std::string> iconDescriptor;
  std::optional<std::string> shortText;
  std::optional<std::string> extendedText;
  BomRain rain;
  std::optional<Temperature> tempLater;  // now.temp_later: tonight's low on the first day
  bool operator==(const BomDay&) const = default;
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

BomLocationInfo decodeBomLocationInfo(std::string_view json);
std::vector<BomSearchResult> decodeBomLocationSearch(std::string_view json);
BomCurrent decodeBomObservations(std::string_view json);
std::vector<BomHour> decodeBomHourly(std::string_view json);
// The published days: entries with neither a maximum temperature nor an icon are dropped.
std::vector<BomDay> decodeBomDaily(std::string_view json);
std::vector<BomWarning> decodeBomWarnings(std::string_view json);

// The geohash of a coordinate with `length` characters (alphabet
// "0123456789bcdefghjkmnpqrstuvwxyz").
std::string geohash(double latitude, double longitude, int length);

}  // namespace ombrine
