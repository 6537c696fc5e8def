#pragma once
// The time zone of any coordinate, from timezones.bin (resources/places, generated from the
// timezone-boundary-builder polygons as shipped by geo-tz): on land and in territorial waters
// the IANA zone, at sea the nautical zone "Etc/GMT±N", at the North Pole "Etc/GMT". Tiles
// wholly inside one zone answer from the quadtree; tiles a border or a coast crosses answer
// from the zone polygons clipped to the tile (simplified to about 20 m), so border towns and
// islands get their own zone.
//
// File layout (little-endian; offsets from the start of the file):
//   0  "OMBTZGRD"          8  u32 version = 2     12 u32 header size = 112
//   16 u32 file size       20 u32 node count      24 u32 zone count
//   28 u32 bucket count    32 u32 polygon count   36 u32 ring count
//   40 u32 source text (string offset)            44 u32 coordinate units per degree
//   48 sections as {u32 offset, u32 size}: nodes, sea zones, zones, buckets, polygons, rings,
//      coordinates, strings
// Node 0 is the world from -89.9999 to 89.9999 latitude and -179.9999 to 179.9999 longitude,
// split at 0/0; every other node is split at the middle of its bounds. A node is four u32
// entries in the order north-west, north-east, south-west, south-east (a point on a split line
// belongs to the north or east). An entry's top two bits give its kind: 0 a child node (always
// greater than the node holding it), 1 a zone, 2 a bucket, 3 open sea; the other bits its index.
// Sea zones: 25 u16 zone indices, for UTC-12 to UTC+12. A zone record is {u32 identifier
// (string offset), char country[2] (ISO code, zero bytes when the zone has none), u16 0}.
// Buckets: bucket count + 1 u32, each the first polygon of the bucket (the last one closes
// the list). Polygons: polygon count + 1 records {u16 zone, u16 0, u32 first ring}. Rings: ring
// count + 1 u32, each the offset of the ring's first byte in the coordinates. A ring is its
// points (x = longitude, y = latitude in coordinate units), each as two zigzag LEB128 varints,
// the difference from the previous point (the first from 0, 0); it closes on its first point.
// A point is in a polygon when an odd number of its rings' edges cross the ray to its east;
// the first polygon of the bucket holding it names its zone, and when none does it is at sea.
//
// Opening validates the header, every section, every entry and every index, so that a lookup
// can neither leave the file nor loop; ring bytes are decoded within their own range, so bad
// coordinates can only give a wrong zone. A bad file raises FileError naming it. Lookups
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
  // Where the data comes from, e.g. "timezone-boundary-builder polygons (geo-tz 8.1.9, ODbL 1.0), …".
  std::string_view source() const noexcept { return source_; }

 private:
  TimeZoneGrid() = default;
  void load(std::span<const std::byte> bytes, std::string label);
  std::uint32_t u32In(std::span<const std::byte> table, std::size_t index) const noexcept;
  std::uint16_t seaZone(double longitude) const noexcept;
  std::optional<std::uint16_t> bucketZone(std::uint32_t bucket, double x, double y) const noexcept;
  bool insidePolygon(std::uint32_t polygon, double x, double y) const noexcept;

  std::optional<MappedFile> mapping_;
  binary::File file_;
  std::uint16_t zoneCount_ = 0;
  double unitsPerDegree_ = 1;
  std::span<const std::byte> nodes_;
  std::span<const std::byte> sea_;
  std::span<const std::byte> zones_;
  std::span<const std::byte> buckets_;
  std::span<const std::byte> polygons_;
  std::span<const std::byte> rings_;
  std::span<const std::byte> coordinates_;
  std::span<const std::byte> strings_;
  std::string_view source_;
};

}  // namespace ombrine
