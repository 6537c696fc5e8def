#pragma once
// JSON of the tide records, over Boost.JSON documents.
//
// TideStation: {"id", "name", "lat", "lng", "state"?, "type"?, "reference_id"?}, the keys of
// NOAA's metadata feed; the three optional keys are written only when present and read as
// absent when missing or null. "id" and "name" must be strings, "lat" and "lng" numbers.
//
// TideData, the form carried inside OneCallWeather: {"station", "distance", "extremes":
// [{"date", "height", "kind"}], "chartPoints": [{"date", "height"}], "fetchedAt"}. Dates are
// numbers, seconds since 2001-01-01T00:00:00Z; heights are bare numbers in metres, and a null
// height reads as 0.0 like every measurement; "kind" is "H" or "L". Lists are kept in the order
// read. decode(encode(x)) == x bit for bit (with an exact parser, core/values/value_json.hpp).
//
// Decoders raise DecodingError "<path>.<key>: <problem>" (no unknown key is a problem); the
// `path` argument names where the value sits in its document ("" at the root). Encoders raise
// nothing. Pure functions; reentrant.

#include <boost/json/object.hpp>
#include <boost/json/value.hpp>

#include <optional>
#include <string>
#include <string_view>

#include "core/record/tide_records.hpp"

namespace ombrine {

boost::json::object tideStationToJson(const TideStation& station);
TideStation decodeTideStation(const boost::json::value& value, std::string_view path);

boost::json::value tideDataToJson(const TideData& data);
TideData decodeTideData(const boost::json::value& value, std::string_view path);

// Reads the members of one JSON object, failing with the member's path. Shared by the decoders
// of the tide feeds and files so that they all word their failures alike.
class TideJsonObject {
 public:
  // Raises DecodingError "<path>: expected an object, found <kind>".
  TideJsonObject(const boost::json::value& value, std::string_view path);

  const boost::json::object& object() const noexcept { return *object_; }
  // "<path>.<key>".
  std::string pathOf(std::string_view key) const;

  // The member, or null when missing.
  const boost::json::value* find(std::string_view key) const;
  const boost::json::value& require(std::string_view key) const;
  std::string string(std::string_view key) const;
  std::optional<std::string> optionalString(std::string_view key) const;
  // Any JSON number; `nullIsZero` makes null read as 0.0 (measurements).
  double number(std::string_view key, bool nullIsZero = false) const;
  std::optional<bool> optionalBoolean(std::string_view key) const;
  const boost::json::array& array(std::string_view key) const;
  std::optional<std::reference_wrapper<const boost::json::array>> optionalArray(std::string_view key) const;

  [[noreturn]] void fail(std::string_view key, std::string_view problem) const;

 private:
  const boost::json::object* object_;
  std::string path_;
};

// The number `value` as a double; nothing when it is not a number.
std::optional<double> jsonNumber(const boost::json::value& value) noexcept;
// "<path>[<index>]".
std::string indexPath(std::string_view path, size_t index);
// Raises DecodingError "<path>: expected an array, found <kind>".
const boost::json::array& requireJsonArray(const boost::json::value& value, std::string_view path);

}  // namespace ombrine
