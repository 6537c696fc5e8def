#include "wiring/geocode_namer.hpp"

#include <functional>

#include "core/values/geo_naming.hpp"
#include "persistence/geocode_cache.hpp"

namespace ombrine {

GeocodeNamer::GeocodeNamer(const Geocoder& geocoder, std::filesystem::path folder)
    : geocoder_(geocoder), folder_(std::move(folder)) {}

GeoDetails GeocodeNamer::detailsOf(const Location& location) const {
  const std::function<GeoDetails(const Location&)> geocode = [this](const Location& place) {
    return geoDetailsOfFirst(geocoder_.reverseGeocode(place));
  };
  return GeocodeCache::cachedOrGeocoded(folder_, location, geocode);
}

Task<GeoDetails> GeocodeNamer::name(Location location) { co_return detailsOf(location); }

}  // namespace ombrine
