#include "places/offline_geocoder.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <string>
#include <utility>

#include "places/coordinate_text.hpp"
#include "places/region_abbreviations.hpp"
#include "places/search_key.hpp"
#include "platform/paths.hpp"

namespace ombrine {

namespace {

bool startsWith(std::string_view text, std::string_view prefix) noexcept {
  return text.size() >= prefix.size() && text.compare(0, prefix.size(), prefix) == 0;
}

bool equalsLowercased(std::string_view code, std::string_view folded) noexcept {
  if (code.size() != folded.size()) return false;
  for (std::size_t i = 0; i < code.size(); ++i) {
    const char c = code[i] >= 'A' && code[i] <= 'Z' ? static_cast<char>(code[i] - 'A' + 'a') : code[i];
    if (c != folded[i]) return false;
  }
  return true;
}

bool isAlias(std::string_view aliases, std::string_view folded) noexcept {
  while (!aliases.empty()) {
    const std::size_t bar = aliases.find('|');
    if (aliases.substr(0, bar) == folded) return true;
    if (bar == std::string_view::npos) break;
    aliases.remove_prefix(bar + 1);
  }
  return false;
}

// A qualifier such as "il", "illinois", "ill", "us", "usa", "united states" or, outside the
// United States, a usual region abbreviation ("nsw", "ns") (folded).
bool qualifies(std::string_view qualifier, const IndexedRegion& region, const IndexedCountry& country) noexcept {
  return equalsLowercased(region.code, qualifier) ||
         (!region.searchKey.empty() && startsWith(region.searchKey, qualifier)) ||
         equalsLowercased(country.code, qualifier) || startsWith(country.searchKey, qualifier) ||
         isAlias(country.aliases, qualifier) || isRegionAbbreviation(country.code, region.searchKey, qualifier);
}

// Capitals first, then seats of divisions, towns, and districts of towns last.
int featureRank(std::uint8_t flags) noexcept {
  if (flags & kPlaceCapital) return 0;
  if (flags & kPlaceRegionSeat) return 1;
  if (flags & kPlaceAdminSeat) return 2;
  if (flags & kPlaceSection) return 4;
  return 3;
}

std::string_view trimSpaces(std::string_view text) noexcept {
  const std::size_t first = text.find_first_not_of(" \t\r\n");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

// The zone of an "Etc/GMT±N" identifier as a fixed offset (the sign is inverted in these
// names: Etc/GMT+5 is five hours west of Greenwich).
std::optional<TimeZone> nauticalZone(std::string_view identifier) {
  constexpr std::string_view prefix = "Etc/GMT";
  if (!startsWith(identifier, prefix)) return std::nullopt;
  std::string_view offset = identifier.substr(prefix.size());
  if (offset.empty()) return TimeZone::gmt();
  int sign = offset[0] == '-' ? 1 : -1;
  if (offset[0] == '+' || offset[0] == '-') offset.remove_prefix(1);
  int hours = 0;
  const auto [end, error] = std::from_chars(offset.data(), offset.data() + offset.size(), hours);
  if (error != std::errc() || end != offset.data() + offset.size()) return std::nullopt;
  return TimeZone::fixedOffset(sign * hours * 3600);
}

}  // namespace

struct OfflineGeocoder::Candidate {
  int tier = 0;  // 0 the whole name matches, 1 a prefix of it
  std::uint32_t population = 0;
  bool otherName = false;  // matched an ASCII spelling, exonym or other-language name
  int featureRank = 0;
  std::size_t keyLength = 0;
  std::string_view name;
  std::uint32_t place = 0;

  bool operator<(const Candidate& other) const noexcept {
    if (tier != other.tier) return tier < other.tier;
    if (population != other.population) return population > other.population;
    if (otherName != other.otherName) return !otherName;
    if (featureRank != other.featureRank) return featureRank < other.featureRank;
    if (keyLength != other.keyLength) return keyLength < other.keyLength;
    if (name != other.name) return name < other.name;
    return place < other.place;
  }
};

// Keeps the best `limit` distinct places of a prefix scan, best first.
class OfflineGeocoder::RankedSearch final : public KeyVisitor {
 public:
  RankedSearch(const PlaceIndex& places, std::string_view key, const std::vector<std::string>& qualifiers,
               std::size_t limit)
      : places_(places), key_(key), qualifiers_(qualifiers), limit_(limit) {
    best_.reserve(limit + 1);
  }

  bool visit(const KeyEntry& entry) override {
    const int tier = entry.key.size() == key_.size() ? 0 : 1;
    const IndexedPlace place = places_.place(entry.place);
    if (full() &&
        (tier > best_.back().tier || (tier == best_.back().tier && place.population < best_.back().population))) {
      return true;
    }
    if (!qualifiers_.empty()) {
      const IndexedRegion region = places_.region(place.region);
      const IndexedCountry country = places_.country(region.country);
      for (const std::string& qualifier : qualifiers_) {
        if (!qualifies(qualifier, region, country)) return true;
      }
    }
    offer(Candidate{.tier = tier,
                    .population = place.population,
                    .otherName = entry.kind != KeyKind::name,
                    .featureRank = featureRank(place.flags),
                    .keyLength = entry.key.size(),
                    .name = place.name,
                    .place = entry.place});
    return true;
  }

  // Blocks reached here hold prefix matches only; a block cannot improve on a full list whose
  // worst entry is exact, or a prefix match more populous than all of the block.
  bool skipBlock(std::uint32_t maxPopulation) override {
    if (!full()) return false;
    const Candidate& worst = best_.back();
    return worst.tier == 0 || worst.population > maxPopulation;
  }

  const std::vector<Candidate>& best() const noexcept { return best_; }

 private:
  bool full() const noexcept { return best_.size() >= limit_; }

  void offer(const Candidate& candidate) {
    const auto same =
        std::find_if(best_.begin(), best_.end(), [&](const Candidate& held) { return held.place == candidate.place; });
    if (same != best_.end()) {
      if (!(candidate < *same)) return;
      best_.erase(same);
    } else if (full() && !(candidate < best_.back())) {
      return;
    }
    best_.insert(std::upper_bound(best_.begin(), best_.end(), candidate), candidate);
    if (best_.size() > limit_) best_.pop_back();
  }

  const PlaceIndex& places_;
  std::string_view key_;
  const std::vector<std::string>& qualifiers_;
  std::size_t limit_;
  std::vector<Candidate> best_;
};

std::filesystem::path OfflineGeocoder::defaultDirectory() { return resourceDirectory() / "places"; }

OfflineGeocoder::OfflineGeocoder(const std::filesystem::path& directory)
    : OfflineGeocoder(PlaceIndex(directory / "places.bin"), TimeZoneGrid(directory / "timezones.bin")) {}

OfflineGeocoder::OfflineGeocoder(PlaceIndex places, TimeZoneGrid zones)
    : places_(std::move(places)), zones_(std::move(zones)), zoneCache_(zones_.zoneCount()) {}

std::optional<TimeZone> OfflineGeocoder::zone(std::uint16_t index) const {
  std::lock_guard lock(zoneMutex_);
  CachedZone& cached = zoneCache_[index];
  if (!cached.resolved) {
    const std::string_view identifier = zones_.zone(index).identifier;
    cached.zone = TimeZone::named(identifier);
    if (!cached.zone) cached.zone = nauticalZone(identifier);
    cached.resolved = true;
  }
  return cached.zone;
}

TimeZone OfflineGeocoder::timeZone(const Location& location) const {
  checkCoordinate(location.latitude(), location.longitude());
  // Every identifier of the shipped grid is known to the shipped ICU data (tested); GMT only
  // stands in should a newer grid name a zone this ICU data lacks.
  return zone(zones_.zoneIndexAt(location.latitude(), location.longitude())).value_or(TimeZone::gmt());
}

std::vector<Placemark> OfflineGeocoder::reverseGeocode(const Location& location) const {
  checkCoordinate(location.latitude(), location.longitude());
  return {placemark(location.latitude(), location.longitude())};
}

Placemark OfflineGeocoder::placemark(double latitude, double longitude) const {
  const std::uint16_t zoneIndex = zones_.zoneIndexAt(latitude, longitude);
  Placemark mark{.timeZone = zone(zoneIndex)};
  // The state as US addresses write it ("IL"), so that the description reads like one.
  std::optional<std::string_view> addressArea;

  auto nameArea = [&](const IndexedRegion& region) {
    if (!region.name.empty()) {
      mark.administrativeArea = std::string(region.name);
      addressArea = region.name;
    }
    const IndexedCountry country = places_.country(region.country);
    mark.country = std::string(country.name);
    mark.ISOcountryCode = std::string(country.code);
    if (country.code == "US" && !region.code.empty()) addressArea = region.code;
  };

  const NearestQuery near{.latitude = latitude, .longitude = longitude, .radiusMeters = kLocalityRadiusMeters};
  if (const auto found = places_.nearest(near)) {
    const IndexedPlace nearest = places_.place(found->place);
    IndexedPlace town = nearest;
    if (nearest.flags & kPlaceSection) {
      // A district belongs to a city, not to the village that happens to be nearest: take the
      // most populous town around the district.
      mark.subLocality = std::string(nearest.name);
      const NearestQuery towns{.latitude = nearest.latitude,
                               .longitude = nearest.longitude,
                               .radiusMeters = kDistrictTownRadiusMeters,
                               .excludeFlags = kPlaceSection};
      if (const auto other = places_.largest(towns)) town = places_.place(other->place);
    }
    mark.name = std::string(nearest.name);
    mark.locality = std::string(town.name);
    nameArea(places_.region(town.region));
  } else {
    mark.name = coordinateName(latitude, longitude);
    const GridZone gridZone = zones_.zone(zoneIndex);
    const auto country = gridZone.countryCode.empty() ? std::nullopt : places_.findCountry(gridZone.countryCode);
    if (country) {
      NearestQuery sparse = near;
      sparse.radiusMeters = kRegionRadiusMeters;
      sparse.excludeFlags = kPlaceSection;
      sparse.country = country;
      if (const auto far = places_.nearest(sparse)) {
        nameArea(places_.region(places_.place(far->place).region));
      } else {
        mark.country = std::string(places_.country(*country).name);
        mark.ISOcountryCode = std::string(gridZone.countryCode);
      }
    }
  }

  std::vector<std::string_view> address;
  if (!mark.locality) address.push_back(*mark.name);
  if (mark.subLocality) address.push_back(*mark.subLocality);
  if (mark.locality) address.push_back(*mark.locality);
  if (addressArea) address.push_back(*addressArea);
  if (mark.country) address.push_back(*mark.country);
  mark.description = fmt::format("{} @ <{:+.8f},{:+.8f}>", fmt::join(address, ", "), latitude, longitude);
  return mark;
}

PlaceMatch OfflineGeocoder::match(std::uint32_t index) const {
  const IndexedPlace place = places_.place(index);
  const IndexedRegion region = places_.region(place.region);
  const IndexedCountry country = places_.country(region.country);
  return PlaceMatch{
      .name = std::string(place.name),
      .admin1 = std::string(region.name),
      .countryCode = std::string(country.code),
      .countryName = std::string(country.name),
      .coordinate = Location(place.latitude, place.longitude),
      .population = place.population,
      .timeZoneIdentifier = std::string(zones_.zoneAt(place.latitude, place.longitude).identifier),
  };
}

std::vector<PlaceMatch> OfflineGeocoder::matchCoordinate(std::string_view text) const {
  const Location location = parseCoordinate(text);
  const Placemark mark = placemark(location.latitude(), location.longitude());
  return {PlaceMatch{
      .name = geoDetails(mark).name,
      .admin1 = mark.administrativeArea.value_or(""),
      .countryCode = mark.ISOcountryCode.value_or(""),
      .countryName = mark.country.value_or(""),
      .coordinate = location,
      .population = 0,
      .timeZoneIdentifier = std::string(zones_.zoneAt(location.latitude(), location.longitude()).identifier),
  }};
}

std::vector<PlaceMatch> OfflineGeocoder::search(std::string_view text, std::size_t limit) const {
  const std::string_view query = trimSpaces(text);
  if (query.empty()) {
    throw InvalidPlaceQuery(
        "the search text is empty: give a place name such as \"Munich\" or a coordinate such as \"48.14,11.58\"");
  }
  if (looksLikeCoordinate(query)) {
    auto matches = matchCoordinate(query);
    if (limit == 0) matches.clear();
    return matches;
  }

  // "Name, Qualifier, Qualifier": the first part is searched, the others narrow the result.
  std::vector<std::string> parts;
  for (std::size_t start = 0;;) {
    const std::size_t comma = query.find(',', start);
    parts.push_back(searchKey(query.substr(start, comma - start)));
    if (comma == std::string_view::npos) break;
    start = comma + 1;
  }
  const std::string key = std::move(parts.front());
  if (key.empty()) {
    throw InvalidPlaceQuery("\"" + std::string(query) + "\" has no place name to search for");
  }
  std::vector<std::string> qualifiers;
  for (std::size_t i = 1; i < parts.size(); ++i) {
    if (!parts[i].empty()) qualifiers.push_back(std::move(parts[i]));
  }

  limit = std::min(limit, kMaxLimit);
  if (limit == 0) return {};
  RankedSearch ranked(places_, key, qualifiers, limit);
  places_.scanPrefix(key, ranked);
  std::vector<PlaceMatch> matches;
  matches.reserve(ranked.best().size());
  for (const Candidate& candidate : ranked.best()) matches.push_back(match(candidate.place));
  return matches;
}

}  // namespace ombrine
