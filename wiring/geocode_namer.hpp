#pragma once
// Names a coordinate: the geocode cache when a record lies under 200 m away, else the offline
// geocoder, whose answer is cached for the next lookup. The only reader and writer of the
// geocode cache on the fetch path.
//
// Thread-safe (the cache is a folder of files replaced atomically). Raises DomainError("No
// result", 6000) when nothing names the coordinate; a failed cache write is logged and the
// answer returned all the same.

#include <filesystem>

#include "core/fetch/fetch_dependencies.hpp"
#include "core/fetch/geocoder.hpp"

namespace ombrine {

class GeocodeNamer final : public CoordinateNamer {
 public:
  GeocodeNamer(const Geocoder& geocoder, std::filesystem::path folder);

  GeoDetails detailsOf(const Location& location) const;
  Task<GeoDetails> name(Location location) override;

 private:
  const Geocoder& geocoder_;
  std::filesystem::path folder_;
};

}  // namespace ombrine
