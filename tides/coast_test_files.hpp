#pragma once
// Builds small coastline files byte by byte for the tests of tides/ (not part of the library).

#include <cstdint>
#include <cstring>
#include <optional>
#include <utility>
#include <vector>

#include "tides/coast_tile_index.hpp"

namespace ombrine::testing {

class CoastFileWriter {
 public:
  CoastFileWriter& text(const char* magic) {
    for (const char* c = magic; *c; ++c) bytes.push_back(static_cast<std::byte>(*c));
    return *this;
  }
  template <class T>
  CoastFileWriter& value(T v) {
    const auto at = bytes.size();
    bytes.resize(at + sizeof v);
    std::memcpy(bytes.data() + at, &v, sizeof v);
    return *this;
  }
  CoastFileWriter& ranges(const std::vector<std::pair<double, double>>& list) {
    value(static_cast<std::uint32_t>(list.size()));
    for (const auto& [lower, upper] : list) value(lower).value(upper);
    return *this;
  }

  std::vector<std::byte> bytes;
};

struct MaskFileSpec {
  double cellSizeDegrees = 1.0;
  std::uint32_t lonIndexStride = 361;
  std::pair<double, double> latitudeRange{-90.0, 90.0};
  std::vector<std::pair<double, double>> longitudeRanges{{-180.0, 180.0}};
  std::vector<std::uint32_t> cells;
};

inline std::vector<std::byte> maskFile(const MaskFileSpec& spec) {
  CoastFileWriter out;
  out.text("OMBRCMK1").value(spec.cellSizeDegrees).value(spec.lonIndexStride);
  out.value(spec.latitudeRange.first).value(spec.latitudeRange.second).ranges(spec.longitudeRanges);
  out.value(static_cast<std::uint32_t>(spec.cells.size()));
  for (auto cell : spec.cells) out.value(cell);
  return out.bytes;
}

struct TileSpec {
  std::int32_t latitudeIndex = 0;
  std::int32_t longitudeIndex = 0;
  std::vector<CoastTileIndex::Segment> segments;
};

struct TilesFileSpec {
  double tileSizeDegrees = 1.0;
  std::pair<double, double> latitudeRange{-90.0, 90.0};
  std::vector<std::pair<double, double>> longitudeRanges{{-180.0, 180.0}};
  std::vector<TileSpec> tiles;
  std::optional<std::uint32_t> segmentCount;  // the true total when not given
};

inline std::vector<std::byte> tilesFile(const TilesFileSpec& spec) {
  std::uint32_t total = 0;
  for (const auto& tile : spec.tiles) total += static_cast<std::uint32_t>(tile.segments.size());
  CoastFileWriter out;
  out.text("OMBRCTI2").value(spec.tileSizeDegrees);
  out.value(spec.latitudeRange.first).value(spec.latitudeRange.second).ranges(spec.longitudeRanges);
  out.value(static_cast<std::uint32_t>(spec.tiles.size())).value(spec.segmentCount.value_or(total));
  for (const auto& tile : spec.tiles) {
    out.value(tile.latitudeIndex).value(tile.longitudeIndex).value(static_cast<std::uint32_t>(tile.segments.size()));
    for (const auto& s : tile.segments) out.value(s.start.x).value(s.start.y).value(s.end.x).value(s.end.y);
  }
  return out.bytes;
}

// A segment between two coordinates, in map points.
inline CoastTileIndex::Segment segmentBetween(double latitude0, double longitude0, double latitude1,
                                              double longitude1) {
  return {mapPointForCoordinate(latitude0, longitude0), mapPointForCoordinate(latitude1, longitude1)};
}

}  // namespace ombrine::testing
