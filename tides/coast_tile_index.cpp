#include "tides/coast_tile_index.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace ombrine {

namespace {

constexpr std::string_view kTilesMagic = "OMBRCTI2";
constexpr std::size_t kSegmentRecordSize = 32;
constexpr std::size_t kSegmentsReserved = 128;

bool lessByKey(const std::pair<CoastTileIndex::TileKey, CoastTileIndex::SegmentRange>& entry,
               const CoastTileIndex::TileKey& key) noexcept {
  return entry.first < key;
}

// Visits the ranges of the tiles of one row whose longitude index lies in [first, last].
template <class Visit>
void visitRow(std::span<const std::pair<CoastTileIndex::TileKey, CoastTileIndex::SegmentRange>> row, double first,
              double last, Visit visit) {
  auto it = std::partition_point(row.begin(), row.end(), [&](const auto& entry) {
    return static_cast<double>(entry.first.longitudeIndex) < first;
  });
  for (; it != row.end() && static_cast<double>(it->first.longitudeIndex) <= last; ++it) visit(it->second);
}

}  // namespace

CoastTileIndex::CoastTileIndex(LoadedIndex loaded)
    : tileSizeDegrees_(loaded.tileSizeDegrees),
      allSegments_(std::move(loaded.allSegments)),
      tileSegmentRanges_(std::move(loaded.tileSegmentRanges)),
      filterBounds_(std::move(loaded.filterBounds)) {}

std::optional<CoastTileIndex::LoadedIndex> CoastTileIndex::parse(std::span<const std::byte> bytes) {
  CoastByteCursor cursor(bytes);
  if (!cursor.skipMagic(kTilesMagic)) return std::nullopt;
  const auto tileSize = cursor.f64();
  if (!tileSize || !(std::isfinite(*tileSize) && *tileSize > 0.0)) return std::nullopt;
  const auto latitudeRange = cursor.range();
  if (!latitudeRange) return std::nullopt;
  auto longitudeRanges = cursor.ranges();
  if (!longitudeRanges) return std::nullopt;
  const auto tileCount = cursor.u32();
  const auto segmentCount = cursor.u32();
  if (!tileCount || !segmentCount) return std::nullopt;

  LoadedIndex index{.tileSizeDegrees = *tileSize,
                    .filterBounds = {.latitudeRange = *latitudeRange, .longitudeRanges = std::move(*longitudeRanges)}};
  // Reserve only what the bytes can hold: a corrupt count must not allocate gigabytes.
  index.allSegments.reserve(std::min<std::size_t>(*segmentCount, cursor.remaining() / kSegmentRecordSize));
  index.tileSegmentRanges.reserve(std::min<std::size_t>(*tileCount, cursor.remaining() / 12));
  for (std::uint32_t tile = 0; tile < *tileCount; ++tile) {
    const auto latitudeIndex = cursor.i32();
    const auto longitudeIndex = cursor.i32();
    const auto n = cursor.u32();
    if (!n || !latitudeIndex || !longitudeIndex) return std::nullopt;
    if (std::uint64_t{*n} * kSegmentRecordSize > cursor.remaining()) return std::nullopt;
    const auto begin = static_cast<std::uint32_t>(index.allSegments.size());
    for (std::uint32_t i = 0; i < *n; ++i) {
      const double sx = *cursor.f64();
      const double sy = *cursor.f64();
      const double ex = *cursor.f64();
      const double ey = *cursor.f64();
      index.allSegments.push_back({{sx, sy}, {ex, ey}});
    }
    if (*n > 0) {
      const auto end = static_cast<std::uint32_t>(index.allSegments.size());
      index.tileSegmentRanges.push_back({{*latitudeIndex, *longitudeIndex}, {begin, end}});
    }
  }
  if (!cursor.atEnd() || index.allSegments.size() != *segmentCount) return std::nullopt;

  // Ordered by key for the row-by-row search; of two records for one tile the later one
  // stays, so the stable sort is followed by keeping the last of each run.
  auto& ranges = index.tileSegmentRanges;
  std::stable_sort(ranges.begin(), ranges.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
  std::vector<std::pair<TileKey, SegmentRange>> unique;
  unique.reserve(ranges.size());
  for (std::size_t i = 0; i < ranges.size(); ++i) {
    if (i + 1 < ranges.size() && ranges[i + 1].first == ranges[i].first) continue;
    unique.push_back(ranges[i]);
  }
  ranges = std::move(unique);
  return index;
}

std::shared_ptr<const CoastTileIndex> CoastTileIndex::load(const std::filesystem::path& path) {
  return loadCoastResource<CoastTileIndex>(path, [](CoastResourceBytes file) {
    auto loaded = parse(file.bytes);
    return loaded ? std::make_shared<const CoastTileIndex>(std::move(*loaded)) : nullptr;
  });
}

std::optional<CoastTileIndex::SegmentRange> CoastTileIndex::segmentRange(TileKey key) const noexcept {
  auto it = std::lower_bound(tileSegmentRanges_.begin(), tileSegmentRanges_.end(), key, lessByKey);
  if (it == tileSegmentRanges_.end() || it->first != key) return std::nullopt;
  return it->second;
}

void CoastTileIndex::forEachTileNear(double latitude, double longitude, double radiusKilometers,
                                     const std::function<void(std::span<const Segment>)>& visit) const {
  if (tileSegmentRanges_.empty()) return;
  if (!std::isfinite(latitude) || !std::isfinite(longitude) || !(radiusKilometers >= 0.0)) return;
  const auto& bounds = filterBounds_.latitudeRange;
  const double minLatitude = std::max(bounds.lower, latitude - radiusKilometers / 111.0);
  const double maxLatitude = std::min(bounds.upper, latitude + radiusKilometers / 111.0);
  if (minLatitude > maxLatitude) return;
  const double cosine = std::cos(latitude * std::numbers::pi / 180.0);
  const double longitudeSpan = radiusKilometers / (std::max(cosine, 0.1) * 111.32);

  struct Interval {
    double first;
    double last;
  };
  std::vector<Interval> columns;
  columns.reserve(filterBounds_.longitudeRanges.size());
  for (const auto& range : filterBounds_.longitudeRanges) {
    const double a = std::max(range.lower, longitude - longitudeSpan);
    const double b = std::min(range.upper, longitude + longitudeSpan);
    if (a <= b) {
      columns.push_back({std::floor((a + 180.0) / tileSizeDegrees_), std::floor((b + 180.0) / tileSizeDegrees_)});
    }
  }
  if (columns.empty()) return;

  const double firstRow = std::floor((minLatitude + 90.0) / tileSizeDegrees_);
  const double lastRow = std::floor((maxLatitude + 90.0) / tileSizeDegrees_);
  // Walks the rows that hold tiles rather than every index in between, so that the work stays
  // bounded by the tiles present whatever the file's tile size.
  std::span<const std::pair<TileKey, SegmentRange>> entries = tileSegmentRanges_;
  auto row = std::partition_point(entries.begin(), entries.end(), [&](const auto& entry) {
    return static_cast<double>(entry.first.latitudeIndex) < firstRow;
  });
  while (row != entries.end() && static_cast<double>(row->first.latitudeIndex) <= lastRow) {
    const std::int32_t index = row->first.latitudeIndex;
    const auto rowEnd =
        std::partition_point(row, entries.end(), [&](const auto& entry) { return entry.first.latitudeIndex == index; });
    const std::span<const std::pair<TileKey, SegmentRange>> rowEntries(row, rowEnd);
    for (const auto& column : columns) {
      visitRow(rowEntries, column.first, column.last, [&](const SegmentRange& range) {
        visit(std::span<const Segment>(allSegments_).subspan(range.begin, range.end - range.begin));
      });
    }
    row = rowEnd;
  }
}

std::vector<CoastTileIndex::Segment> CoastTileIndex::segmentsNear(double latitude, double longitude,
                                                                  double radiusKilometers) const {
  std::vector<Segment> result;
  result.reserve(kSegmentsReserved);
  forEachTileNear(latitude, longitude, radiusKilometers,
                  [&](std::span<const Segment> tile) { result.insert(result.end(), tile.begin(), tile.end()); });
  return result;
}

std::shared_ptr<const CoastTileIndex> sharedCoastTileIndex() {
  static const std::shared_ptr<const CoastTileIndex> instance = [] {
    const auto path = findCoastResource("coastline_tiles");
    return path ? CoastTileIndex::load(*path) : nullptr;
  }();
  return instance;
}

}  // namespace ombrine
