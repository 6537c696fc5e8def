#include "persistence/geocode_cache.hpp"

#include <boost/json.hpp>

#include <cstdlib>

#include "core/values/value_json.hpp"
#include "persistence/coordinate_file_cache.hpp"
#include "platform/atomic_file.hpp"
#include "platform/errors.hpp"
#include "platform/log.hpp"

namespace ombrine {

namespace {

// The coordinate a cache file name stands for: every ".data" deleted, split at "_", the first two
// pieces read as numbers (one that does not parse counts as 0). Nothing for a name with fewer
// than two pieces, which this cache never writes.
std::optional<Location> coordinateOfFileName(std::string name) {
  for (auto at = name.find(".data"); at != std::string::npos; at = name.find(".data")) name.erase(at, 5);
  const auto pieces = fileNamePieces(name);
  if (pieces.size() < 2) return std::nullopt;
  return Location(numberOfPiece(pieces[0]).value_or(0.0), numberOfPiece(pieces[1]).value_or(0.0));
}

}  // namespace

std::filesystem::path GeocodeCache::defaultDirectory() {
  if (const char* cache = std::getenv("XDG_CACHE_HOME"); cache != nullptr && *cache != '\0') {
    return std::filesystem::path(cache) / "ombrine" / "geocode";
  }
  const char* home = std::getenv("HOME");
  return std::filesystem::path(home != nullptr ? home : ".") / ".cache" / "ombrine" / "geocode";
}

std::string GeocodeCache::fileName(double latitude, double longitude) {
  return coordinateFileName(latitude, longitude);
}

std::string GeocodeCache::encode(const GeoDetails& geoDetails) {
  boost::json::object object;
  object["name"] = geoDetails.name;
  object["region"] = geoDetails.region.identifier;
  object["timeZone"] = geoDetails.timeZone.identifier();
  return serializeJson(object);
}

GeoDetails GeocodeCache::decode(std::string_view json) {
  // Keys are read as snake case converted to camel case, so both "timeZone" (what this cache
  // writes) and "time_zone" name the zone.
  const boost::json::value document = withKeysFromSnakeCase(parseJson(json));
  const JsonPath root;
  JsonObjectReader reader(document, root);
  GeoDetails details;
  std::string zone;
  reader.read("name", details.name);
  reader.read("region", details.region.identifier);
  reader.read("timeZone", zone);
  const auto timeZone = TimeZone::named(zone);
  if (!timeZone) root.key("timeZone").fail("unknown time zone");
  details.timeZone = *timeZone;
  return details;
}

std::optional<GeoDetails> GeocodeCache::cachedGeoDetails(const std::filesystem::path& directory, double latitude,
                                                         double longitude) {
  const Location wanted(latitude, longitude);
  std::error_code ec;
  std::filesystem::directory_iterator entries(directory, ec);
  if (ec) return std::nullopt;
  for (const auto& entry : entries) {
    const auto coordinate = coordinateOfFileName(entry.path().filename().string());
    if (!coordinate || !(coordinate->distance(wanted) < kLookupRadiusMeters)) continue;
    try {
      const auto bytes = readFileIfExists(entry.path());
      if (!bytes) return std::nullopt;
      return decode(*bytes);
    } catch (const std::exception&) {
      return std::nullopt;
    }
  }
  return std::nullopt;
}

void GeocodeCache::store(const std::filesystem::path& directory, const GeoDetails& geoDetails, double latitude,
                         double longitude) {
  // A record lost to a power cut is only a later miss: no sync on the fetch's path.
  writeFileAtomically(directory / fileName(latitude, longitude), encode(geoDetails), 0644, Durability::processCrash);
}

GeoDetails GeocodeCache::cachedOrGeocoded(const std::filesystem::path& directory, const Location& location,
                                          const std::function<GeoDetails(const Location&)>& geocode) {
  if (auto cached = cachedGeoDetails(directory, location.latitude(), location.longitude())) return *cached;
  GeoDetails details = geocode(location);
  try {
    store(directory, details, location.latitude(), location.longitude());
  } catch (const std::exception& error) {
    logf("Failed to write geocode cache {}: {}", directory.string(), error.what());
  }
  return details;
}

}  // namespace ombrine
