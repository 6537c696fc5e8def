#pragma once
// A coordinate as the stores write it: {"latitude": <degrees>, "longitude": <degrees>}.
//
// The weather cache, the trip cache, saved places and trips all embed one; these are the single
// reader and writers of that shape. Decoding raises DecodingError at `path` (a missing or
// non-numeric member, or a value that is not an object).

#include <boost/json/object.hpp>

#include "core/values/location.hpp"
#include "core/values/value_json.hpp"

namespace ombrine {

void decodeJson(const boost::json::value& value, const JsonPath& path, Location& out);
void writeJson(JsonWriter& writer, const Location& location);
boost::json::object locationToJson(const Location& location);

}  // namespace ombrine
