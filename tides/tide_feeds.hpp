#pragma once
// The wire records of the two tide services and their decoders: NOAA CO-OPS (metadata station
// list, data getter predictions) and the Canadian Hydrographic Service IWLS API (station list,
// data series). Each decoder reads a whole reply body.
//
// A body that is not JSON, or whose shape differs from the service's, raises DecodingError
// naming the place ("stations[3].lat: missing key"); no partial list is ever returned. A NOAA
// error object (no "predictions" key) is such a failure. Inside a well-formed prediction list,
// rows whose time or value do not parse are the caller's to skip (parseNOAAPredictionTime).
// Pure functions; reentrant.

#include <boost/json/object.hpp>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/record/tide_records.hpp"
#include "core/values/date.hpp"

namespace ombrine {

// One row of the NOAA data getter: "t", "v" and, for high/low rows, "type".
struct NOAAPrediction {
  std::string time;
  std::string value;
  std::optional<std::string> type;

  bool operator==(const NOAAPrediction&) const = default;
};

struct CHSStation {
  struct TimeSeries {
    std::string code;
    bool operator==(const TimeSeries&) const = default;
  };

  std::string id;
  std::string code;
  std::string officialName;
  double latitude = 0.0;
  double longitude = 0.0;
  std::optional<bool> operating;
  std::optional<std::string> timeZoneCode;
  std::optional<std::string> provinceCode;
  std::optional<std::string> classCode;
  std::optional<std::string> type;
  std::optional<std::vector<TimeSeries>> timeSeries;

  // The station as the rest of the program knows stations: CHS id, official name, province as
  // state, its type, never a reference station.
  TideStation tideStation() const;

  bool operator==(const CHSStation&) const = default;
};

// One value of a CHS series ("wlp" full predictions or "wlp-hilo" highs and lows), in metres.
struct CHSDataPoint {
  Date eventDate;
  double value = 0.0;

  bool operator==(const CHSDataPoint&) const = default;
};

// {"stations": [TideStation...]}
std::vector<TideStation> decodeNOAAStations(std::string_view body);
// {"predictions": [{"t", "v", "type"?}...]}
std::vector<NOAAPrediction> decodeNOAAPredictions(std::string_view body);
// [CHSStation...]
std::vector<CHSStation> decodeCHSStations(std::string_view body);
// [{"eventDate": ISO 8601, "value": number}...]
std::vector<CHSDataPoint> decodeCHSDataPoints(std::string_view body);

// The same decoders over a parsed document, for the cache files that embed these lists.
std::vector<TideStation> decodeTideStationList(const boost::json::value& value, std::string_view path);
std::vector<CHSStation> decodeCHSStationList(const boost::json::value& value, std::string_view path);
// The CHS station in its wire shape; optional keys only when present.
boost::json::object chsStationToJson(const CHSStation& station);

// "yyyy-MM-dd HH:mm" read as UTC; nothing for any other text or an impossible date.
std::optional<Date> parseNOAAPredictionTime(std::string_view text) noexcept;
// "yyyyMMdd HH:mm" in UTC, as the data getter's begin_date and end_date want it.
std::string formatNOAARequestTime(Date date);
// A decimal number with nothing around it; nothing otherwise.
std::optional<double> parseDecimal(std::string_view text) noexcept;

}  // namespace ombrine
