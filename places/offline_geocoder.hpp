#pragma once
// The geocoder from offline data: GeoNames places (places.bin) and the time-zone grid
// (timezones.bin), both memory-mapped. Instant, private, and the same with or without network.
//
// Reverse geocoding names a coordinate after the nearest populated place within
// kLocalityRadiusMeters (30 km): its name, first-level division and country. A section of a
// town (a district) nearer than any town becomes the sub-locality, and the most populous town
// within kDistrictTownRadiusMeters (15 km) of it the locality. Farther from any place, in
// sparse land (desert, tundra), the placemark has no locality: the first-level division of the
// nearest place within kRegionRadiusMeters (150 km) in the country the time-zone grid gives,
// and that country. At sea it is the coordinate itself ("40.00°S 130.00°W") with no country,
// so region "XX" when named. The time zone always comes from the grid: an IANA zone on land,
// a nautical "Etc/GMT±N" zone at sea, "Etc/GMT" at the North Pole.
//
// Search ranks whole-name matches before prefix matches, then by population; a place's own
// name, then capitals and seats of divisions, break ties. A place matches under its name, its
// ASCII spelling, and — for places of 200,000 or more — its other names (other languages and
// scripts, exonyms: "Cologne", "Москва"). Each place appears once. See Geocoder for qualifiers
// and coordinate text.
//
// Thread-safe. Raises FileError on construction when a file is missing or corrupt.

#include <cstdint>
#include <filesystem>
#include <mutex>
#include <optional>
#include <vector>

#include "core/fetch/geocoder.hpp"
#include "places/place_index.hpp"
#include "places/time_zone_grid.hpp"

namespace ombrine {

class OfflineGeocoder final : public Geocoder {
 public:
  static constexpr double kLocalityRadiusMeters = 30'000;
  static constexpr double kRegionRadiusMeters = 150'000;
  static constexpr double kDistrictTownRadiusMeters = 15'000;
  static constexpr std::size_t kMaxLimit = 1000;

  // The shipped data: resourceDirectory()/places.
  static std::filesystem::path defaultDirectory();

  // Opens places.bin and timezones.bin in `directory`.
  explicit OfflineGeocoder(const std::filesystem::path& directory = defaultDirectory());
  OfflineGeocoder(PlaceIndex places, TimeZoneGrid zones);

  // Always one placemark: a valid coordinate can always be named.
  std::vector<Placemark> reverseGeocode(const Location& location) const override;
  // `limit` above kMaxLimit counts as kMaxLimit.
  std::vector<PlaceMatch> search(std::string_view text, std::size_t limit) const override;
  TimeZone timeZone(const Location& location) const override;

  const PlaceIndex& places() const noexcept { return places_; }
  const TimeZoneGrid& zones() const noexcept { return zones_; }

 private:
  struct Candidate;
  class RankedSearch;

  std::optional<TimeZone> zone(std::uint16_t index) const;
  Placemark placemark(double latitude, double longitude) const;
  std::vector<PlaceMatch> matchCoordinate(std::string_view text) const;
  PlaceMatch match(std::uint32_t place) const;

  // ICU zones are built on first use: building all of them would cost milliseconds at start.
  struct CachedZone {
    bool resolved = false;
    std::optional<TimeZone> zone;
  };

  PlaceIndex places_;
  TimeZoneGrid zones_;
  mutable std::mutex zoneMutex_;
  mutable std::vector<CachedZone> zoneCache_;
};

}  // namespace ombrine
