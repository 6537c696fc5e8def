#pragma once
// Finding and reading the two coastline resources of the tide gate
// ("coastline_candidate_mask.bin", "coastline_tiles.bin"), and the pieces both file readers
// share: the bytes of a file kept alive by whoever reads them, the filter bounds, and a cursor
// that checks that enough bytes remain before every read.
//
// All functions are callable from any thread. Nothing here raises except CoastRangeError,
// which the readers raise for a range whose lower bound lies above its upper bound.

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string_view>
#include <vector>

namespace ombrine {

// The environment variable naming a folder whose coastline files take precedence over the
// installed ones.
inline constexpr const char* kGeospatialResourceDirVariable = "OMBRINE_GEOSPATIAL_RESOURCE_DIR";

// Where the resource "<name>.bin" lies: in $OMBRINE_GEOSPATIAL_RESOURCE_DIR when that folder
// holds it, else in "coastline/" of the program's resource folder (platform/paths.hpp) when the
// file exists there; otherwise nothing.
std::optional<std::filesystem::path> findCoastResource(std::string_view name);

// A file's bytes and what keeps them valid: a read-only private mapping of the file, or a
// buffer in memory. Copies share the same bytes.
struct CoastResourceBytes {
  std::shared_ptr<const void> owner;
  std::span<const std::byte> bytes;
};

// The bytes of `path`, mapped when the file can be mapped and read into memory otherwise
// (a file system that refuses mappings). Nothing when the file cannot be opened or read.
std::optional<CoastResourceBytes> readCoastResource(const std::filesystem::path& path);

// Bytes held in memory, for files built by tests and fuzzers.
CoastResourceBytes coastResourceFromBuffer(std::vector<std::byte> buffer);

// A closed range of degrees; `lower <= upper` for every range a reader accepts.
struct CoastClosedRange {
  double lower = 0.0;
  double upper = 0.0;

  bool contains(double value) const noexcept { return value >= lower && value <= upper; }
  friend bool operator==(const CoastClosedRange&, const CoastClosedRange&) = default;
};

// The outer bounds of a resource: a coordinate outside them is never near a stored shore.
struct CoastFilterBounds {
  CoastClosedRange latitudeRange;
  std::vector<CoastClosedRange> longitudeRanges;

  // Latitude in the closed latitude range and longitude in at least one longitude range;
  // false for an empty list of longitude ranges.
  bool contains(double latitude, double longitude) const noexcept;
  friend bool operator==(const CoastFilterBounds&, const CoastFilterBounds&) = default;
};

// A file that names a range with its lower bound above its upper bound. Such a file was not
// made by our generator, and it is treated as a broken installation: the loaders stop the
// process (see the load functions), while the parsers raise this so that tests and fuzzers
// can see it.
class CoastRangeError : public std::logic_error {
 public:
  using std::logic_error::logic_error;
};

// Little-endian reads at any offset, each checked against the bytes that remain. A read past
// the end returns nothing and leaves the cursor where it was.
class CoastByteCursor {
 public:
  explicit CoastByteCursor(std::span<const std::byte> bytes) noexcept : bytes_(bytes) {}

  bool skipMagic(std::string_view magic) noexcept;
  std::optional<std::uint32_t> u32() noexcept;
  std::optional<std::int32_t> i32() noexcept;
  std::optional<double> f64() noexcept;
  // A pair of 64-bit floats, lower then upper. Raises CoastRangeError when lower > upper.
  std::optional<CoastClosedRange> range();
  // A 32-bit count L followed by L ranges.
  std::optional<std::vector<CoastClosedRange>> ranges();

  std::size_t offset() const noexcept { return offset_; }
  std::size_t remaining() const noexcept { return bytes_.size() - offset_; }
  bool atEnd() const noexcept { return offset_ == bytes_.size(); }
  // Moves past `count` bytes when that many remain.
  bool skip(std::uint64_t count) noexcept;

 private:
  std::span<const std::byte> bytes_;
  std::size_t offset_ = 0;
};

// Stops the process after a line on stderr naming the file with the inverted range.
[[noreturn]] void stopOnInvertedRange(const std::filesystem::path& path, const CoastRangeError& error) noexcept;

// Reads the resource at `path` and hands its bytes to `make`, which returns null for a file
// it rejects. Null too when the file cannot be read. A CoastRangeError from `make` stops the
// process.
template <class T, class Make>
std::shared_ptr<const T> loadCoastResource(const std::filesystem::path& path, Make make) {
  auto file = readCoastResource(path);
  if (!file) return nullptr;
  try {
    return make(std::move(*file));
  } catch (const CoastRangeError& error) {
    stopOnInvertedRange(path, error);
  }
}

}  // namespace ombrine
