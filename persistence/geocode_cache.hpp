#pragma once
// A per-process file cache of reverse-geocoding results, in front of the geocoder.
//
// One file per coordinate, "<latitude>_<longitude>.data" (each number the shortest decimal text
// that reads back as the same double), holding the JSON of a GeoDetails: {"name", "region" (the
// two-letter code), "timeZone" (the zone identifier)}; keys are read from snake case as well
// ("time_zone"). A lookup takes the first file, in directory
// listing order, whose coordinate lies under 200 metres from the wanted one; the nearest is not
// sought. Nothing is ever expired. There is no lock: a lost write is harmless, a later lookup
// just misses.
//
// Stateless; every function may be called from any thread and blocks on file input and output.

#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include "core/values/location.hpp"

namespace ombrine {

class GeocodeCache {
 public:
  static constexpr double kLookupRadiusMeters = 200.0;

  // "geocode" under the per-process caches folder: $XDG_CACHE_HOME/ombrine, else
  // ~/.cache/ombrine. Reads the environment at the call; creates nothing.
  static std::filesystem::path defaultDirectory();

  // "<latitude>_<longitude>.data".
  static std::string fileName(double latitude, double longitude);

  // The cached details of a coordinate under 200 metres away, or nothing (also when the folder
  // cannot be listed or the first match cannot be read or decoded).
  static std::optional<GeoDetails> cachedGeoDetails(const std::filesystem::path& directory, double latitude,
                                                    double longitude);

  // Writes the details under the exact name of the coordinate, replacing a file of that name and
  // creating the folder if needed. Raises FileError.
  static void store(const std::filesystem::path& directory, const GeoDetails& geoDetails, double latitude,
                    double longitude);

  // The details of `location` from the cache when a record lies under 200 metres away; otherwise
  // from `geocode`, whose answer is stored for the next lookup. A failed store is logged
  // ("Failed to write geocode cache <folder>: <reason>") and the answer returned all the same.
  // Raises what `geocode` raises; nothing is stored then.
  static GeoDetails cachedOrGeocoded(const std::filesystem::path& directory, const Location& location,
                                     const std::function<GeoDetails(const Location&)>& geocode);

  // The JSON form of a record; decoding raises DecodingError.
  static std::string encode(const GeoDetails& geoDetails);
  static GeoDetails decode(std::string_view json);
};

}  // namespace ombrine
