#include "core/values/location_json.hpp"

namespace ombrine {

void decodeJson(const boost::json::value& value, const JsonPath& path, Location& out) {
  JsonObjectReader reader(value, path);
  double latitude = 0.0;
  double longitude = 0.0;
  reader.read("latitude", latitude);
  reader.read("longitude", longitude);
  out = Location(latitude, longitude);
}

void writeJson(JsonWriter& writer, const Location& location) {
  writer.beginObject();
  writeKey(writer, "latitude", location.latitude());
  writeKey(writer, "longitude", location.longitude());
  writer.endObject();
}

boost::json::object locationToJson(const Location& location) {
  boost::json::object object;
  object["latitude"] = location.latitude();
  object["longitude"] = location.longitude();
  return object;
}

}  // namespace ombrine
