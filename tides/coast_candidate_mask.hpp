#pragma once
// The coarse first step of the tide gate: a set of grid cells that may lie close enough to the
// shore for tides, read from "coastline_candidate_mask.bin".
//
// File layout (little-endian, no padding, fields at any offset):
//   0   8       magic "OMBRCMK1"
//   8   8       cell size in degrees, 64-bit float
//   16  4       lonIndexStride, unsigned 32-bit
//   20  8 + 8   latitude range, lower and upper, 64-bit floats
//   36  4       L, number of longitude ranges, unsigned 32-bit
//   40  16 · L  L pairs of 64-bit floats: lower, upper
//   +   4       N, number of cells, unsigned 32-bit
//   +   4 · N   cell numbers, unsigned 32-bit, strictly ascending; the file ends right here.
// A cell number is floor((latitude + 90) / size) · lonIndexStride + floor((longitude + 180) / size).
//
// A mask is immutable once made and may be read from any thread.

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <variant>
#include <vector>

#include "tides/coast_resource.hpp"

namespace ombrine {

class CoastCandidateMask {
 public:
  using FilterBounds = CoastFilterBounds;

  // The cells still inside the file they came from, searched in place.
  struct MappedData {
    CoastResourceBytes file;
    std::size_t cellsOffset = 0;  // byte offset of the first cell number
    std::uint32_t cellCount = 0;
  };
  // Cells held in memory, ascending.
  struct SortedCells {
    std::vector<std::uint32_t> cells;
  };
  using CandidateStorage = std::variant<MappedData, SortedCells>;

  struct LoadedMask {
    double cellSizeDegrees = 0.0;
    std::int64_t lonIndexStride = 0;
    CandidateStorage candidateStorage;
    FilterBounds filterBounds;
  };

  explicit CoastCandidateMask(LoadedMask loaded);

  // Reads the header of a mask file; the cells stay in `file` (MappedData), so the cost does
  // not grow with the number of cells and the cells are never copied. Nothing for a file with
  // the wrong magic, one that ends before a field, one that does not end exactly after the
  // cells, or a cell size that is not a positive finite number. Raises CoastRangeError for a
  // range with lower above upper.
  static std::optional<LoadedMask> parse(const CoastResourceBytes& file);

  // The mask in the file at `path`; null when the file cannot be read or is rejected. A file
  // with an inverted range stops the process.
  static std::shared_ptr<const CoastCandidateMask> load(const std::filesystem::path& path);

  // True when the cell of the coordinate (degrees) is in the set. False outside the filter
  // bounds, for non-finite input, and for a cell number beyond 32 bits.
  bool contains(double latitude, double longitude) const noexcept;

  double cellSizeDegrees() const noexcept { return cellSizeDegrees_; }
  std::int64_t lonIndexStride() const noexcept { return lonIndexStride_; }
  const CandidateStorage& candidateStorage() const noexcept { return candidateStorage_; }
  const FilterBounds& filterBounds() const noexcept { return filterBounds_; }

 private:
  double cellSizeDegrees_;
  std::int64_t lonIndexStride_;
  CandidateStorage candidateStorage_;
  FilterBounds filterBounds_;
};

// The process-wide mask from "coastline_candidate_mask.bin" (see findCoastResource), loaded on
// the first call under a once-only guard and kept until the process ends. Null when the file
// is missing or rejected; the answer never changes afterwards.
std::shared_ptr<const CoastCandidateMask> sharedCoastCandidateMask();

}  // namespace ombrine
