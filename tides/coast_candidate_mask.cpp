#include "tides/coast_candidate_mask.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace ombrine {

namespace {

constexpr std::string_view kMaskMagic = "OMBRCMK1";
constexpr double kCellNumberLimit = 4294967295.0;

// Lower-bound search over `count` unsigned 32-bit values stored from `cells`, at any alignment.
bool containsCell(const std::byte* cells, std::uint32_t count, std::uint32_t cell) noexcept {
  std::uint32_t low = 0;
  std::uint32_t high = count;
  while (low < high) {
    const std::uint32_t middle = low + (high - low) / 2;
    std::uint32_t value;
    std::memcpy(&value, cells + std::size_t{middle} * 4, sizeof value);
    if (value < cell) {
      low = middle + 1;
    } else {
      high = middle;
    }
  }
  if (low == count) return false;
  std::uint32_t found;
  std::memcpy(&found, cells + std::size_t{low} * 4, sizeof found);
  return found == cell;
}

}  // namespace

CoastCandidateMask::CoastCandidateMask(LoadedMask loaded)
    : cellSizeDegrees_(loaded.cellSizeDegrees),
      lonIndexStride_(loaded.lonIndexStride),
      candidateStorage_(std::move(loaded.candidateStorage)),
      filterBounds_(std::move(loaded.filterBounds)) {}

std::optional<CoastCandidateMask::LoadedMask> CoastCandidateMask::parse(const CoastResourceBytes& file) {
  CoastByteCursor cursor(file.bytes);
  if (!cursor.skipMagic(kMaskMagic)) return std::nullopt;
  const auto cellSize = cursor.f64();
  if (!cellSize) return std::nullopt;
  const auto stride = cursor.u32();
  if (!stride) return std::nullopt;
  // A cell size that is zero, negative or not a number names no cells at all.
  if (!(std::isfinite(*cellSize) && *cellSize > 0.0)) return std::nullopt;
  const auto latitudeRange = cursor.range();
  if (!latitudeRange) return std::nullopt;
  auto longitudeRanges = cursor.ranges();
  if (!longitudeRanges) return std::nullopt;
  const auto count = cursor.u32();
  if (!count || cursor.remaining() != std::uint64_t{*count} * 4) return std::nullopt;
  return LoadedMask{
      .cellSizeDegrees = *cellSize,
      .lonIndexStride = *stride,
      .candidateStorage = MappedData{.file = file, .cellsOffset = cursor.offset(), .cellCount = *count},
      .filterBounds = {.latitudeRange = *latitudeRange, .longitudeRanges = std::move(*longitudeRanges)},
  };
}

std::shared_ptr<const CoastCandidateMask> CoastCandidateMask::load(const std::filesystem::path& path) {
  return loadCoastResource<CoastCandidateMask>(path, [](CoastResourceBytes file) {
    auto loaded = parse(file);
    return loaded ? std::make_shared<const CoastCandidateMask>(std::move(*loaded)) : nullptr;
  });
}

bool CoastCandidateMask::contains(double latitude, double longitude) const noexcept {
  if (!filterBounds_.contains(latitude, longitude)) return false;
  if (!std::isfinite(latitude) || !std::isfinite(longitude)) return false;
  // In doubles first: a bound far outside the world must not overflow an integer conversion.
  const double latitudeIndex = std::floor((latitude + 90.0) / cellSizeDegrees_);
  const double longitudeIndex = std::floor((longitude + 180.0) / cellSizeDegrees_);
  if (latitudeIndex < 0.0 || longitudeIndex < 0.0) return false;
  if (latitudeIndex > kCellNumberLimit || longitudeIndex > kCellNumberLimit) return false;
  const auto cell = static_cast<unsigned __int128>(latitudeIndex) * static_cast<std::uint64_t>(lonIndexStride_) +
                    static_cast<std::uint64_t>(longitudeIndex);
  if (cell > static_cast<unsigned __int128>(kCellNumberLimit)) return false;
  const auto wanted = static_cast<std::uint32_t>(cell);
  return std::visit(
      [&](const auto& storage) {
        using Storage = std::decay_t<decltype(storage)>;
        if constexpr (std::is_same_v<Storage, MappedData>) {
          return containsCell(storage.file.bytes.data() + storage.cellsOffset, storage.cellCount, wanted);
        } else {
          return std::binary_search(storage.cells.begin(), storage.cells.end(), wanted);
        }
      },
      candidateStorage_);
}

std::shared_ptr<const CoastCandidateMask> sharedCoastCandidateMask() {
  static const std::shared_ptr<const CoastCandidateMask> instance = [] {
    const auto path = findCoastResource("coastline_candidate_mask");
    return path ? CoastCandidateMask::load(*path) : nullptr;
  }();
  return instance;
}

}  // namespace ombrine
