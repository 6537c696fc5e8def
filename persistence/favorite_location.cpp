#include "persistence/favorite_location.hpp"

#include "core/values/location_json.hpp"

namespace ombrine {

void writeJson(JsonWriter& writer, const FavoriteLocation& favorite) {
  writer.beginObject();
  writer.key("id");
  writeJson(writer, favorite.id);
  writeKey(writer, "location", favorite.location);
  writeKey(writer, "name", favorite.name);
  writeOptionalKey(writer, "displayName", favorite.displayName);
  if (favorite.timeZone) writeKey(writer, "timeZone", favorite.timeZone->identifier());
  if (favorite.region) writeKey(writer, "region", favorite.region->identifier);
  writer.endObject();
}

void decodeJson(const boost::json::value& value, const JsonPath& path, FavoriteLocation& out) {
  JsonObjectReader reader(value, path);
  reader.read("id", out.id);
  reader.read("location", out.location);
  reader.read("name", out.name);
  reader.readOptional("displayName", out.displayName);
  std::optional<std::string> zone;
  reader.readOptional("timeZone", zone);
  out.timeZone = zone ? TimeZone::named(*zone) : std::nullopt;
  std::optional<std::string> region;
  reader.readOptional("region", region);
  out.region = region ? std::optional<Region>(Region{*region}) : std::nullopt;
}

std::string encodeFavoriteLocation(const FavoriteLocation& favorite) { return encodeJson(favorite); }

std::string encodeFavoriteLocations(const std::vector<FavoriteLocation>& favorites) { return encodeJson(favorites); }

FavoriteLocation decodeFavoriteLocation(std::string_view json) {
  const boost::json::value document = parseJson(json);
  const JsonPath root;
  FavoriteLocation out;
  decodeJson(document, root, out);
  return out;
}

std::vector<FavoriteLocation> decodeFavoriteLocations(std::string_view json) {
  const boost::json::value document = parseJson(json);
  const JsonPath root;
  std::vector<FavoriteLocation> out;
  decodeJson(document, root, out);
  return out;
}

}  // namespace ombrine
