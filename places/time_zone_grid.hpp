#pragma once
// The time zone of any coordinate, from timezones.bin (resources/places, generated from
// @photostructure/tz-lookup): on land the IANA zone, at sea the nautical zone "Etc/GMT±N",
// at the North Pole "Etc/GMT".
//
// File layout (little-endian; offsets from the start of the file):
//   0  "OMBTZGRD"          8  u32 version = 1     12 u32 header size = 72
//   16 u32 file size       20 u32 columns (48)    24 u32 rows (24)
//   28 u32 node count      32 u32 zone count      36 u32 source text (string offset)
//   40 sections as {u32 offset, u32 size}: top tiles, nodes, zones, strings
// The top tiles split the world into columns × rows cells, row 0 at the north, column 0 at
// 180° W; each is a u16 entry. A node is four u16 entries, its quadrants in the order
// north-west, north-east, south-west, south-east. An entry with bit 15 set names zone
// (entry & 0x7fff); otherwise it is the index of a child node, always greater than the index
// of the node holding it. A zone record is {u32 identifier (string offset), char country[2]
// (ISO code, zero bytes when the zone has no country), u16 0}.
//
// Opening validates the header, every section and every entry, so that a lookup can neither
// leave the file nor loop; a bad file raises FileError naming it. Lookups allocate nothing.
// Thread-safe: the object is immutable.

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "places/binary_format.hpp"
#include "places/mapped_file.hpp"

namespace ombrine {

struct GridZone {
  std::string_view identifier;   // "Europe/Berlin", "Etc/GMT+5"
  std::string_view countryCode;  // "DE"; empty for the nautical zones

  bool operator==(const GridZone&) const = default;
};

class TimeZoneGrid {
 public:
  // Maps and validates the file. Raises FileError.
  explicit TimeZoneGrid(const std::filesystem::path& file);
  // Validates bytes that the caller keeps alive for the life of the grid. Raises FileError
  // with `label` as the name of the data.
  static TimeZoneGrid fromBytes(std::span<const std::byte> bytes, std::string label);

  // Precondition: latitude in [-90, 90], longitude in [-180, 180].
  std::uint16_t zoneIndexAt(double latitude, double longitude) const noexcept;
  GridZone zoneAt(double latitude, double longitude) const { return zone(zoneIndexAt(latitude, longitude)); }

  std::uint16_t zoneCount() const noexcept { return zoneCount_; }
  // Precondition: index < zoneCount().
  GridZone zone(std::uint16_t index) const;
  // Where the data comes from, e.g. "@photostructure/tz-lookup 11.7.0 (CC0 1.0)".
  std::string_view source() const noexcept { return source_; }

 private:
  TimeZoneGrid() = default;
  void load(std::span<const std::byte> bytes, std::string label);
  std::uint16_t entry(std::span<const std::byte> table, std::size_t index) const noexcept;

  std::optional<MappedFile> mapping_;
  binary::File file_;
  std::uint32_t columns_ = 0;
  std::uint32_t rows_ = 0;
  std::uint16_t zoneCount_ = 0;
  std::optional<std::uint16_t> northPole_;
  std::span<const std::byte> top_;
  std::span<const std::byte> nodes_;
  std::span<const std::byte> zones_;
  std::span<const std::byte> strings_;
  std::string_view source_;
};

}  // namespace ombrine
