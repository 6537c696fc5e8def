#pragma once
// The geocoder seam: naming a coordinate, finding places by name, and the time zone of a
// coordinate. The core declares it; places/ implements it from offline data (OfflineGeocoder).

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "core/values/geo_naming.hpp"
#include "core/values/location.hpp"
#include "core/values/time_zone.hpp"

namespace ombrine {

// One answer of a place search.
struct PlaceMatch {
  std::string name;
  std::string admin1;       // first-level division ("Illinois"); empty when unknown
  std::string countryCode;  // ISO 3166-1 alpha-2 ("US"); empty when unknown
  std::string countryName;  // English name ("United States"); empty when unknown
  Location coordinate;
  std::int64_t population = 0;
  std::string timeZoneIdentifier;  // IANA identifier, e.g. "America/Chicago" or "Etc/GMT+5"

  bool operator==(const PlaceMatch&) const = default;
};

// Text that cannot be a place query or a coordinate: empty text, "91,200", "48.1,". `what()`
// is a sentence a user can act on. Commands map it to the usage exit code.
class InvalidPlaceQuery : public std::invalid_argument {
 public:
  using std::invalid_argument::invalid_argument;
};

// Thread-safe: every operation may be called from any thread at once. Besides the errors each
// operation names, an implementation raises the errors of its data (FileError when the offline
// files turn out corrupt while being read).
class Geocoder {
 public:
  virtual ~Geocoder() = default;

  // The placemarks describing a coordinate, best first. An empty result is no error here:
  // callers that need a name raise DomainError("No result", 6000) (geoDetailsOfFirst).
  // Raises InvalidPlaceQuery for a coordinate outside ±90/±180 or not finite.
  virtual std::vector<Placemark> reverseGeocode(const Location& location) const = 0;

  // Places whose name starts with `text` (ignoring case and accents), best first, at most
  // `limit`. "Name, Qualifier" narrows by first-level division or country ("Springfield, IL",
  // "Paris, Texas", "Paris, FR"); "lat,lon" text names that coordinate. Raises
  // InvalidPlaceQuery for empty text or a malformed or out-of-range coordinate.
  virtual std::vector<PlaceMatch> search(std::string_view text, std::size_t limit) const = 0;

  // The time zone in force at a coordinate, on land or at sea (nautical Etc/GMT±N zones).
  // Raises InvalidPlaceQuery like reverseGeocode.
  virtual TimeZone timeZone(const Location& location) const = 0;
};

}  // namespace ombrine
