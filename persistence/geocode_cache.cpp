#include "persistence/geocode_cache.hpp"

#include <boost/json.hpp>

#include <charconv>
#include <cstdlib>
#include <system_error>
#include <vector>

#include "core/value_json.hpp"
#include "platform/atomic_file.hpp"
#include "platform/errors.hpp"

namespace ombrine {

namespace {

std::string shortestText(double value) {
  char buffer[64];
  const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
  return std::string(buffer, result.ptr);
}

// The number a whole piece of a file name spells, or 0 when it spells none.
double pieceValue(std::string_view piece) {
  double value = 0.0;
  const auto result = std::from_chars(piece.data(), piece.data() + piece.size(), value);
  if (result.ec != std::errc() || result.ptr != piece.data() + piece.size()) return 0.0;
  return value;
}

// The coordinate a cache file name stands for; nothing for a name with fewer than two pieces,
// which this cache never writes.
std::optional<Location> coordinateOfFileName(std::string name) {
  for (auto at = name.find(".data"); at != std::string::npos; at = name.find(".data")) name.erase(at, 5);
  std::vector<std::string_view> pieces;
  std::string_view rest = name;
  while (!rest.empty()) {
    const auto cut = rest.find('_');
    const std::string_view piece = rest.substr(0, cut);
    if (!piece.empty()) pieces.push_back(piece);
    if (cut == std::string_view::npos) break;
    rest.remove_prefix(cut + 1);
  }
  if (pieces.size() < 2) return std::nullopt;
  return Location(pieceValue(pieces[0]), pieceValue(pieces[1]));
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
  return shortestText(latitude) + "_" + shortestText(longitude) + ".data";
}

std::string GeocodeCache::encode(const GeoDetails& geoDetails) {
  boost::json::object object;
  object["name"] = geoDetails.name;
  object["region"] = geoDetails.region.identifier;
  object["timeZone"] = geoDetails.timeZone.identifier();
  return serializeJson(object);
}

GeoDetails GeocodeCache::decode(std::string_view json) {
  const boost::json::value document = parseJson(json);
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
  writeFileAtomically(directory / fileName(latitude, longitude), encode(geoDetails));
}

}  // namespace ombrine
