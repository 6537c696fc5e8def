// Feeds arbitrary bytes to the place-index and time-zone-grid loaders, and runs lookups on
// whatever loads (the zone lookups include points in the sample's polygons around Samoa). A loader may only accept or
// raise FileError; a loaded file may only answer or raise FileError — never read outside the bytes, loop, or crash.

#include <cstddef>
#include <cstdint>
#include <span>

#include "places/place_index.hpp"
#include "places/time_zone_grid.hpp"

namespace {

class CountKeys final : public ombrine::KeyVisitor {
 public:
  bool visit(const ombrine::KeyEntry& entry) override { return ++seen < 2000; }
  bool skipBlock(std::uint32_t maxPopulation) override { return maxPopulation % 3 == 0; }
  int seen = 0;
};

void explorePlaces(std::span<const std::byte> bytes) {
  try {
    const auto index = ombrine::PlaceIndex::fromBytes(bytes, "fuzz");
    for (std::uint32_t i = 0; i < index.placeCount() && i < 64; ++i) index.place(i);
    index.findCountry("DE");
    CountKeys keys;
    index.scanPrefix("", keys);
    index.scanPrefix("s", keys);
    for (const double latitude : {-90.0, -33.9, 0.0, 48.1, 90.0}) {
      index.nearest({.latitude = latitude, .longitude = 179.9, .radiusMeters = 500000});
      index.nearest({.latitude = latitude,
                     .longitude = -10,
                     .radiusMeters = 30000,
                     .excludeFlags = 1,
                     .country = std::uint16_t{0}});
    }
  } catch (const ombrine::FileError&) {
  }
}

void exploreZones(std::span<const std::byte> bytes) {
  try {
    const auto grid = ombrine::TimeZoneGrid::fromBytes(bytes, "fuzz");
    for (const double latitude : {-90.0, -45.5, -14.2781, 0.0, 12.3, 89.99, 90.0}) {
      for (const double longitude : {-180.0, -170.7025, -0.1, 0.0, 77.7, 180.0}) grid.zoneAt(latitude, longitude);
    }
  } catch (const ombrine::FileError&) {
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::span<const std::byte> bytes(reinterpret_cast<const std::byte*>(data), size);
  explorePlaces(bytes);
  exploreZones(bytes);
  return 0;
}
