#include "core/record/tide_records_json.hpp"

#include <boost/json/array.hpp>

#include <cmath>
#include <cstdint>

#include "core/values/errors.hpp"

namespace ombrine {

namespace json = boost::json;

namespace {

std::string_view kindName(json::kind kind) {
  switch (kind) {
    case json::kind::null: return "null";
    case json::kind::bool_: return "a boolean";
    case json::kind::int64:
    case json::kind::uint64:
    case json::kind::double_: return "a number";
    case json::kind::string: return "a string";
    case json::kind::array: return "an array";
    case json::kind::object: return "an object";
  }
  return "a value";
}

[[noreturn]] void failAt(std::string_view path, std::string_view problem) {
  if (path.empty()) throw DecodingError(std::string(problem));
  std::string message(path);
  message.append(": ").append(problem);
  throw DecodingError(message);
}

[[noreturn]] void failExpected(std::string_view path, std::string_view expected, const json::value& found) {
  std::string problem = "expected ";
  problem.append(expected).append(", found ").append(kindName(found.kind()));
  failAt(path, problem);
}

Date decodeDate(const TideJsonObject& o, std::string_view key) { return Date::fromReference(o.number(key)); }

// Whole numbers go in as integers so that the record's writer prints them as the rest of the
// record prints its dates ("727012800", not "727012800.0"); -0.0 and fractions stay doubles.
json::value number(double value) {
  constexpr double kExactLimit = 9007199254740992.0;  // 2^53
  if (value == std::trunc(value) && std::fabs(value) < kExactLimit && !(value == 0.0 && std::signbit(value))) {
    return json::value(static_cast<std::int64_t>(value));
  }
  return json::value(value);
}

}  // namespace

std::optional<double> jsonNumber(const json::value& value) noexcept {
  switch (value.kind()) {
    case json::kind::int64: return static_cast<double>(value.get_int64());
    case json::kind::uint64: return static_cast<double>(value.get_uint64());
    case json::kind::double_: return value.get_double();
    default: return std::nullopt;
  }
}

std::string indexPath(std::string_view path, size_t index) {
  std::string text(path);
  text.append("[").append(std::to_string(index)).append("]");
  return text;
}

const json::array& requireJsonArray(const json::value& value, std::string_view path) {
  if (!value.is_array()) failExpected(path, "an array", value);
  return value.get_array();
}

TideJsonObject::TideJsonObject(const json::value& value, std::string_view path) : path_(path) {
  if (!value.is_object()) failExpected(path, "an object", value);
  object_ = &value.get_object();
}

std::string TideJsonObject::pathOf(std::string_view key) const {
  if (path_.empty()) return std::string(key);
  std::string text = path_;
  text.append(".").append(key);
  return text;
}

void TideJsonObject::fail(std::string_view key, std::string_view problem) const { failAt(pathOf(key), problem); }

const json::value* TideJsonObject::find(std::string_view key) const { return object_->if_contains(key); }

const json::value& TideJsonObject::require(std::string_view key) const {
  const json::value* value = find(key);
  if (value == nullptr) fail(key, "missing key");
  return *value;
}

std::string TideJsonObject::string(std::string_view key) const {
  const json::value& value = require(key);
  if (!value.is_string()) failExpected(pathOf(key), "a string", value);
  return std::string(value.get_string());
}

std::optional<std::string> TideJsonObject::optionalString(std::string_view key) const {
  const json::value* value = find(key);
  if (value == nullptr || value->is_null()) return std::nullopt;
  if (!value->is_string()) failExpected(pathOf(key), "a string", *value);
  return std::string(value->get_string());
}

double TideJsonObject::number(std::string_view key, bool nullIsZero) const {
  const json::value& value = require(key);
  if (nullIsZero && value.is_null()) return 0.0;
  const auto number = jsonNumber(value);
  if (!number) failExpected(pathOf(key), "a number", value);
  return *number;
}

std::optional<bool> TideJsonObject::optionalBoolean(std::string_view key) const {
  const json::value* value = find(key);
  if (value == nullptr || value->is_null()) return std::nullopt;
  if (!value->is_bool()) failExpected(pathOf(key), "a boolean", *value);
  return value->get_bool();
}

const json::array& TideJsonObject::array(std::string_view key) const {
  return requireJsonArray(require(key), pathOf(key));
}

std::optional<std::reference_wrapper<const json::array>> TideJsonObject::optionalArray(std::string_view key) const {
  const json::value* value = find(key);
  if (value == nullptr || value->is_null()) return std::nullopt;
  return std::cref(requireJsonArray(*value, pathOf(key)));
}

json::object tideStationToJson(const TideStation& station) {
  json::object o;
  o["id"] = station.id;
  o["name"] = station.name;
  o["lat"] = number(station.latitude);
  o["lng"] = number(station.longitude);
  if (station.state) o["state"] = *station.state;
  if (station.type) o["type"] = *station.type;
  if (station.referenceStationID) o["reference_id"] = *station.referenceStationID;
  return o;
}

TideStation decodeTideStation(const json::value& value, std::string_view path) {
  const TideJsonObject o(value, path);
  return TideStation{
      .id = o.string("id"),
      .name = o.string("name"),
      .latitude = o.number("lat"),
      .longitude = o.number("lng"),
      .state = o.optionalString("state"),
      .type = o.optionalString("type"),
      .referenceStationID = o.optionalString("reference_id"),
  };
}

json::value tideDataToJson(const TideData& data) {
  json::array extremes;
  extremes.reserve(data.extremes.size());
  for (const auto& extreme : data.extremes) {
    extremes.push_back(json::object{{"date", number(extreme.date.timeIntervalSinceReferenceDate)},
                                    {"height", number(extreme.height.inMeters())},
                                    {"kind", toString(extreme.kind)}});
  }
  json::array points;
  points.reserve(data.chartPoints.size());
  for (const auto& point : data.chartPoints) {
    points.push_back(json::object{{"date", number(point.date.timeIntervalSinceReferenceDate)},
                                  {"height", number(point.height.inMeters())}});
  }
  json::object o;
  o["station"] = tideStationToJson(data.station);
  o["distance"] = number(data.distance);
  o["extremes"] = std::move(extremes);
  o["chartPoints"] = std::move(points);
  o["fetchedAt"] = number(data.fetchedAt.timeIntervalSinceReferenceDate);
  return o;
}

TideData decodeTideData(const json::value& value, std::string_view path) {
  const TideJsonObject o(value, path);
  TideData data;
  data.station = decodeTideStation(o.require("station"), o.pathOf("station"));
  data.distance = o.number("distance");
  const std::string extremesPath = o.pathOf("extremes");
  const auto& extremes = o.array("extremes");
  data.extremes.reserve(extremes.size());
  for (size_t i = 0; i < extremes.size(); ++i) {
    const TideJsonObject e(extremes[i], indexPath(extremesPath, i));
    const std::string kindText = e.string("kind");
    const auto kind = tideExtremeKindFromString(kindText);
    if (!kind) e.fail("kind", "unknown tide kind \"" + kindText + "\"");
    data.extremes.push_back({decodeDate(e, "date"), Length::meters(e.number("height", true)), *kind});
  }
  const std::string pointsPath = o.pathOf("chartPoints");
  const auto& points = o.array("chartPoints");
  data.chartPoints.reserve(points.size());
  for (size_t i = 0; i < points.size(); ++i) {
    const TideJsonObject p(points[i], indexPath(pointsPath, i));
    data.chartPoints.push_back({decodeDate(p, "date"), Length::meters(p.number("height", true))});
  }
  data.fetchedAt = decodeDate(o, "fetchedAt");
  return data;
}

}  // namespace ombrine
