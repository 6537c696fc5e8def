#pragma once
// Naming a coordinate: the display name, region and time zone of a geocoder's placemark.
//
// The geocoder (platform Geocoder, places/) answers with placemarks; the geocode cache names
// the first. Pure functions; thread-safe.

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "core/values/location.hpp"
#include "core/values/time_zone.hpp"

namespace ombrine {

// What a geocoder knows about a place. Absent fields are std::nullopt.
struct Placemark {
  std::optional<std::string> name;
  std::optional<std::string> locality;               // city or town
  std::optional<std::string> subLocality;            // district or neighbourhood
  std::optional<std::string> administrativeArea;     // state or province
  std::optional<std::string> subAdministrativeArea;  // county
  std::optional<std::string> country;
  std::optional<std::string> ISOcountryCode;  // two letters, e.g. "US"
  std::vector<std::string> areasOfInterest;   // landmarks, parks, airports
  std::optional<TimeZone> timeZone;
  // The one-line text form: the address components joined by ", ", then " @ " and the
  // coordinate, e.g. "Pier 39, Beach St, San Francisco, CA  94133, United States @ <...>".
  std::string description;

  bool operator==(const Placemark&) const = default;
};

// The name shown for a place when reverse geocoding finds nothing usable (a localisation key).
// Comment for translators: "Fallback place name when reverse geocoding returns no usable name."
inline constexpr const char* kUnknownPlaceName = "Unknown";

// Names a placemark:
//  1. the first area of interest containing "Airport";
//  2. in the US, the city part of `description` (cut at the first "@", split at ",", the third
//     component from the end, or the first if fewer than three, trimmed) when it equals
//     `locality` or else `subLocality` ignoring case, that field's spelling winning;
//  3. else the first present of locality, subAdministrativeArea, administrativeArea, country,
//     name; 4. else "Unknown".
// The region is `ISOcountryCode` or "XX"; the time zone the placemark's or the device's.
GeoDetails geoDetails(const Placemark& placemark);

// Names the first of a geocoder's results. Raises DomainError("No result", 6000) when there
// is none; callers treat that like any failed fetch and cache nothing.
GeoDetails geoDetailsOfFirst(std::span<const Placemark> placemarks);

}  // namespace ombrine
