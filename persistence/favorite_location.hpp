#pragma once
// A saved place.
//
// JSON, keys in this order: "id" (UUID text), "location" ({"latitude", "longitude"}, numbers),
// "name" (string), "displayName" (string, the user's own name), "timeZone" (IANA identifier or
// "GMT+HHMM"), "region" (two-letter code); the last three are left out when absent and read as
// absent when missing or null. A time zone the zone data does not know reads as absent rather
// than failing the whole list. Equality: `location` by coordinate (Location's own rule).

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/values/location.hpp"
#include "core/values/time_zone.hpp"
#include "core/values/uuid.hpp"
#include "core/values/value_json.hpp"

namespace ombrine {

struct FavoriteLocation {
  Uuid id;
  Location location;
  std::string name;
  std::optional<std::string> displayName;
  std::optional<TimeZone> timeZone;
  std::optional<Region> region;

  // The name to show: the user's own when set and not empty, else `name`.
  const std::string& shownName() const noexcept { return displayName && !displayName->empty() ? *displayName : name; }

  bool operator==(const FavoriteLocation&) const = default;
};

void writeJson(JsonWriter& writer, const FavoriteLocation& favorite);
void decodeJson(const boost::json::value& value, const JsonPath& path, FavoriteLocation& out);

// Compact JSON text. Raises EncodingError for a non-finite coordinate.
std::string encodeFavoriteLocation(const FavoriteLocation& favorite);
std::string encodeFavoriteLocations(const std::vector<FavoriteLocation>& favorites);
// Raise DecodingError naming the place of the fault ("[3].location.latitude: missing key").
FavoriteLocation decodeFavoriteLocation(std::string_view json);
std::vector<FavoriteLocation> decodeFavoriteLocations(std::string_view json);

}  // namespace ombrine
