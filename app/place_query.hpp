#pragma once
// The place a command names: a place name or a coordinate, with its display name and time zone.

#include <string>

#include "core/values/location.hpp"
#include "core/values/time_zone.hpp"
#include "wiring/services.hpp"

namespace ombrine::app {

struct NamedPlace {
  std::string name;
  Location location;
  TimeZone zone;
};

// `query` is a place name, or with `isCoordinate` a "LAT,LON" text (named by reverse geocoding).
// A coordinate nothing names (open sea) keeps its numbers as its name and the nautical zone.
// Raises InvalidPlaceQuery (usage) for empty or malformed text, DomainError("No result", 6000)
// when no place has that name.
NamedPlace resolveNamedPlace(Services& services, const std::string& query, bool isCoordinate);

}  // namespace ombrine::app
