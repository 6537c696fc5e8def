#pragma once
// The offline place index, places.bin (resources/places, generated from GeoNames cities500):
// populated places with coordinates, population, first-level division and country; folded
// name keys for prefix search; latitude rows for nearest-place lookup.
//
// File layout (little-endian; offsets from the start of the file):
//   0  "OMBPLACE"           8  u32 version = 1        12 u32 header size = 104
//   16 u32 file size        20 u32 place count        24 u32 region count
//   28 u32 country count    32 u32 key count          36 u32 keys per block
//   40 u32 row count        44 u32 source text (string offset)
//   48 sections as {u32 offset, u32 size}: rows, places, regions, countries, key blocks,
//      key data, strings
// Rows: row count + 1 u32 place indices. Row r holds the places with latitude in
//   [-90 + r·h, -90 + (r+1)·h), h = 180° / row count, sorted by longitude; row r spans
//   places [rows[r], rows[r+1]).
// Place (16 bytes): u32 (latitude + 90)·10⁵ in bits 0-24, region bits 0-6 in bits 25-31;
//   u32 (longitude + 180)·10⁵ in bits 0-25, region bits 7-12 in bits 26-31;
//   u32 population in bits 0-27, flags (PlaceFlag) in bits 28-31; u32 name (string offset).
// Region (16 bytes): u32 admin-1 code, u32 name, u32 search key (string offsets; empty when
//   GeoNames has none), u16 country index, u16 0.
// Country (16 bytes): char code[2], u16 0, u32 name, u32 search key, u32 aliases (search keys
//   joined by "|").
// Key blocks (8 bytes each, one per `keys per block` keys): u32 offset into key data, u32 the
//   largest population among the places its keys name.
// Key data: keys sorted bytewise, front-coded per block: u8 bytes shared with the previous key
//   (0 for a block's first), u8 suffix length, the suffix, u24 reference (place index in bits
//   0-21, KeyKind in bits 22-23). Keys are folded by searchKey (places/search_key.hpp).
// Strings: NUL-terminated UTF-8; offset 0 is the empty string.
//
// Opening validates the header, the section bounds and sizes, the rows, regions and countries
// (microseconds). Places and keys are checked as they are read: a reference that leaves the
// file raises FileError, so a corrupt file fails with a message instead of a crash. Lookups
// allocate nothing. Thread-safe: the object is immutable.

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "places/binary_format.hpp"
#include "places/mapped_file.hpp"

namespace ombrine {

enum PlaceFlag : std::uint8_t {
  kPlaceSection = 1,     // a section of a populated place (neighbourhood, district)
  kPlaceCapital = 2,     // a country's capital
  kPlaceRegionSeat = 4,  // seat of a first-level division
  kPlaceAdminSeat = 8,   // seat of a lower division or of a government
};

struct IndexedPlace {
  std::string_view name;
  double latitude = 0;
  double longitude = 0;
  std::uint32_t population = 0;
  std::uint8_t flags = 0;  // PlaceFlag bits
  std::uint16_t region = 0;
};

struct IndexedRegion {
  std::string_view code;       // GeoNames admin-1 code ("IL", "08"); may be empty
  std::string_view name;       // "Illinois"; empty when unknown
  std::string_view searchKey;  // "illinois"
  std::uint16_t country = 0;
};

struct IndexedCountry {
  std::string_view code;       // "US"
  std::string_view name;       // "United States"
  std::string_view searchKey;  // "united states"
  std::string_view aliases;    // "usa|united states of america|america"
};

enum class KeyKind : std::uint8_t { name = 0, asciiName = 1, alternateName = 2 };

struct KeyEntry {
  std::string_view key;  // valid during the visit only
  std::uint32_t place = 0;
  KeyKind kind = KeyKind::name;
};

// Receives the keys of a prefix scan.
class KeyVisitor {
 public:
  virtual ~KeyVisitor() = default;
  // Return false to end the scan.
  virtual bool visit(const KeyEntry& entry) = 0;
  // Called before a block whose keys all extend the prefix (none equals it) and whose most
  // populous place has `maxPopulation`; return true to skip the block.
  virtual bool skipBlock(std::uint32_t maxPopulation) { return false; }
};

struct NearestQuery {
  double latitude = 0;
  double longitude = 0;
  double radiusMeters = 0;
  std::uint8_t excludeFlags = 0;         // skip places with any of these PlaceFlag bits
  std::optional<std::uint16_t> country;  // only places of this country index
};

struct NearestPlace {
  std::uint32_t place = 0;
  double distanceMeters = 0;
};

class PlaceIndex {
 public:
  // Maps and validates the file. Raises FileError.
  explicit PlaceIndex(const std::filesystem::path& file);
  // Validates bytes that the caller keeps alive for the life of the index. Raises FileError
  // with `label` as the name of the data.
  static PlaceIndex fromBytes(std::span<const std::byte> bytes, std::string label);

  std::uint32_t placeCount() const noexcept { return placeCount_; }
  std::uint16_t regionCount() const noexcept { return regionCount_; }
  std::uint16_t countryCount() const noexcept { return countryCount_; }
  std::uint32_t keyCount() const noexcept { return keyCount_; }
  std::string_view source() const noexcept { return source_; }

  // Preconditions: index below the matching count. Raise FileError on a corrupt record.
  IndexedPlace place(std::uint32_t index) const;
  IndexedRegion region(std::uint16_t index) const;
  IndexedCountry country(std::uint16_t index) const;
  // The index of the country with this ISO code ("DE"), if any.
  std::optional<std::uint16_t> findCountry(std::string_view code) const;

  // The place nearest to the query coordinate within its radius (great-circle distance on
  // the mean earth radius), among those the query admits; ties go to the lower index.
  // Precondition: a valid coordinate. Raises FileError on a corrupt record.
  std::optional<NearestPlace> nearest(const NearestQuery& query) const;

  // The most populous place within the query's radius among those it admits; ties go to the
  // nearer place. Used to find the town a district belongs to.
  std::optional<NearestPlace> largest(const NearestQuery& query) const;

  // Visits, in key order, every key that starts with `prefix` (bytes). Raises FileError on
  // corrupt key data.
  void scanPrefix(std::string_view prefix, KeyVisitor& visitor) const;

 private:
  PlaceIndex() = default;
  void load(std::span<const std::byte> bytes, std::string label);
  std::uint32_t rowStart(std::uint32_t row) const noexcept;
  std::uint32_t longitudeField(std::uint32_t place) const noexcept;
  std::string_view firstKeyOfBlock(std::uint32_t block) const;
  bool admits(const NearestQuery& query, std::uint32_t index) const;
  void scanRow(std::uint32_t row, const NearestQuery& query, double cosLatitude, double& bestHaversine,
               std::optional<NearestPlace>& best) const;

  std::optional<MappedFile> mapping_;
  binary::File file_;
  std::uint32_t placeCount_ = 0;
  std::uint16_t regionCount_ = 0;
  std::uint16_t countryCount_ = 0;
  std::uint32_t keyCount_ = 0;
  std::uint32_t keysPerBlock_ = 0;
  std::uint32_t blockCount_ = 0;
  std::uint32_t rowCount_ = 0;
  std::span<const std::byte> rows_;
  std::span<const std::byte> places_;
  std::span<const std::byte> regions_;
  std::span<const std::byte> countries_;
  std::span<const std::byte> blocks_;
  std::span<const std::byte> keys_;
  std::span<const std::byte> strings_;
  std::string_view source_;
};

}  // namespace ombrine
