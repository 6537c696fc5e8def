// Feeds arbitrary bytes to the tile index reader, then searches and measures what it accepts.
#include <cstdint>
#include <span>

#include "tides/coast_tile_index.hpp"
#include "tides/tide_region_gate.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  try {
    auto loaded = ombrine::CoastTileIndex::parse(std::as_bytes(std::span(data, size)));
    if (!loaded) return 0;
    const ombrine::CoastTileIndex index(std::move(*loaded));
    for (double latitude : {-89.9, -18.57, 0.0, 51.1, 89.9}) {
      for (double longitude : {-179.995, 0.0, 1.3, 179.99}) {
        const auto segments = index.segmentsNear(latitude, longitude, 25.0);
        (void)ombrine::TideRegionGate::distanceMeters(latitude, longitude, segments);
      }
    }
  } catch (const ombrine::CoastRangeError&) {
    // An inverted range: the loader stops the process for it, the parser reports it.
  }
  return 0;
}
