#pragma once
// The exact second step of the tide gate: shore segments in map points (core/values/geo.hpp),
// bucketed by square tiles of latitude and longitude, read from "coastline_tiles.bin".
//
// File layout (little-endian, no padding, fields at any offset):
//   0   8       magic "OMBRCTI2"
//   8   8       tile size in degrees, 64-bit float
//   16  8 + 8   latitude range, lower and upper, 64-bit floats
//   32  4       L, number of longitude ranges, unsigned 32-bit
//   36  16 · L  L pairs of 64-bit floats: lower, upper
//   +   4       T, number of tiles, unsigned 32-bit
//   +   4       S, number of segments in all tiles, unsigned 32-bit
//   +   ...     T tile records: latitude index (signed 32-bit), longitude index (signed
//               32-bit), n (unsigned 32-bit), then n segments of four 64-bit floats: start x,
//               start y, end x, end y. The file ends right after the last tile.
// A tile's indexes are floor((latitude + 90) / size) and floor((longitude + 180) / size).
//
// An index is immutable once made and may be read from any thread.

#include <compare>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "core/values/geo.hpp"
#include "tides/coast_resource.hpp"

namespace ombrine {

class CoastTileIndex {
 public:
  using FilterBounds = CoastFilterBounds;

  struct Segment {
    MapPoint start;
    MapPoint end;

    friend bool operator==(const Segment&, const Segment&) = default;
  };

  struct TileKey {
    std::int32_t latitudeIndex = 0;
    std::int32_t longitudeIndex = 0;

    friend auto operator<=>(const TileKey&, const TileKey&) = default;
  };

  // Half-open range of indexes into allSegments.
  struct SegmentRange {
    std::uint32_t begin = 0;
    std::uint32_t end = 0;

    friend bool operator==(const SegmentRange&, const SegmentRange&) = default;
  };

  struct LoadedIndex {
    double tileSizeDegrees = 0.0;
    std::vector<Segment> allSegments;  // tile after tile, in file order
    // One entry per tile with segments, ordered by key. When a file names a tile twice the
    // later record wins, as an assignment into a map would.
    std::vector<std::pair<TileKey, SegmentRange>> tileSegmentRanges;
    FilterBounds filterBounds;
  };

  explicit CoastTileIndex(LoadedIndex loaded);

  // Reads a whole tile file. Nothing for a file with the wrong magic, one that ends inside a
  // field or a tile record, one with bytes after the last tile, one whose tiles hold another
  // number of segments than S, or a tile size that is not a positive finite number. Raises
  // CoastRangeError for a range with lower above upper.
  static std::optional<LoadedIndex> parse(std::span<const std::byte> bytes);

  // The index in the file at `path`; null when the file cannot be read or is rejected. A
  // file with an inverted range stops the process.
  static std::shared_ptr<const CoastTileIndex> load(const std::filesystem::path& path);

  // The segments of every tile that a box of `radiusKilometers` around the coordinate touches:
  // latitude ± r / 111 (clamped to the latitude range), longitude ± r / (max(cos(latitude),
  // 0.1) · 111.32) intersected with each longitude range in turn. Tiles in the order latitude,
  // then longitude range, then longitude; a tile reached through two overlapping ranges comes
  // twice. Empty for non-finite input or a negative radius.
  std::vector<Segment> segmentsNear(double latitude, double longitude, double radiusKilometers) const;

  // The same tiles in the same order, handed to `visit` one tile at a time as views into
  // allSegments, without copying: for callers that only measure.
  void forEachTileNear(double latitude, double longitude, double radiusKilometers,
                       const std::function<void(std::span<const Segment>)>& visit) const;

  // The segments of one tile; nothing for a tile without segments.
  std::optional<SegmentRange> segmentRange(TileKey key) const noexcept;

  double tileSizeDegrees() const noexcept { return tileSizeDegrees_; }
  std::span<const Segment> allSegments() const noexcept { return allSegments_; }
  std::span<const std::pair<TileKey, SegmentRange>> tileSegmentRanges() const noexcept { return tileSegmentRanges_; }
  const FilterBounds& filterBounds() const noexcept { return filterBounds_; }

 private:
  double tileSizeDegrees_;
  std::vector<Segment> allSegments_;
  std::vector<std::pair<TileKey, SegmentRange>> tileSegmentRanges_;
  FilterBounds filterBounds_;
};

// The process-wide index from "coastline_tiles.bin" (see findCoastResource), loaded on the
// first call under a once-only guard and kept until the process ends. Null when the file is
// missing or rejected; the answer never changes afterwards.
std::shared_ptr<const CoastTileIndex> sharedCoastTileIndex();

}  // namespace ombrine
