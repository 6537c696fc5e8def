#include "places/time_zone_grid.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

namespace ombrine {

namespace {

constexpr std::size_t kHeaderSize = 72;
constexpr std::uint16_t kLeaf = 0x8000;
constexpr std::uint32_t kMaxDimension = 4096;

}  // namespace

TimeZoneGrid::TimeZoneGrid(const std::filesystem::path& file) {
  mapping_.emplace(file);
  load(mapping_->bytes(), file.string());
}

TimeZoneGrid TimeZoneGrid::fromBytes(std::span<const std::byte> bytes, std::string label) {
  TimeZoneGrid grid;
  grid.load(bytes, std::move(label));
  return grid;
}

void TimeZoneGrid::load(std::span<const std::byte> bytes, std::string label) {
  file_ = binary::File{bytes, std::move(label), "time-zone grid"};
  binary::checkHeader(file_, "OMBTZGRD", 1, kHeaderSize);
  columns_ = file_.u32At(20);
  rows_ = file_.u32At(24);
  const std::uint32_t nodeCount = file_.u32At(28);
  const std::uint32_t zoneCount = file_.u32At(32);
  if (columns_ == 0 || rows_ == 0 || columns_ > kMaxDimension || rows_ > kMaxDimension) {
    file_.fail("grid dimensions out of range");
  }
  if (zoneCount == 0 || zoneCount >= kLeaf || nodeCount >= kLeaf) file_.fail("zone or node count out of range");
  zoneCount_ = static_cast<std::uint16_t>(zoneCount);
  top_ = file_.section(40, "top tile", 2, std::uint64_t{columns_} * rows_);
  nodes_ = file_.section(48, "node", 8, nodeCount);
  zones_ = file_.section(56, "zone", 8, zoneCount);
  strings_ = file_.stringPool(64);
  source_ = binary::string(file_, strings_, file_.u32At(36));

  auto checkEntry = [&](std::uint16_t value, std::int64_t holder) {
    if (value & kLeaf) {
      if ((value & ~kLeaf) >= zoneCount) file_.fail("an entry names a zone that does not exist");
    } else if (value >= nodeCount || value <= holder) {
      file_.fail("an entry points to an invalid node");
    }
  };
  for (std::size_t i = 0; i < std::size_t{columns_} * rows_; ++i) checkEntry(entry(top_, i), -1);
  for (std::size_t i = 0; i < std::size_t{nodeCount} * 4; ++i) checkEntry(entry(nodes_, i), i / 4);
  for (std::uint16_t z = 0; z < zoneCount_; ++z) {
    const GridZone named = zone(z);
    if (named.identifier.empty()) file_.fail("a zone has no identifier");
    if (named.identifier == "Etc/GMT") northPole_ = z;
  }
}

std::uint16_t TimeZoneGrid::entry(std::span<const std::byte> table, std::size_t index) const noexcept {
  return binary::u16(table.data() + 2 * index);
}

GridZone TimeZoneGrid::zone(std::uint16_t index) const {
  const std::byte* record = zones_.data() + 8 * std::size_t{index};
  const char* code = reinterpret_cast<const char*>(record + 4);
  return GridZone{
      .identifier = binary::string(file_, strings_, binary::u32(record)),
      .countryCode = code[0] ? std::string_view(code, code[1] ? 2 : 1) : std::string_view(),
  };
}

std::uint16_t TimeZoneGrid::zoneIndexAt(double latitude, double longitude) const noexcept {
  // Out-of-contract input still stays inside the grid.
  latitude = std::isnan(latitude) ? 0.0 : std::clamp(latitude, -90.0, 90.0);
  longitude = std::isnan(longitude) ? 0.0 : std::clamp(longitude, -180.0, 180.0);
  // Every meridian meets at the North Pole; the grid's top row would pick one by longitude.
  if (latitude >= 90 && northPole_) return *northPole_;
  // One ulp more than 360 and 180, as in the data's source library: a point on a cell edge
  // belongs to the cell west or north of it (so (0,0) is in the open sea north of the equator,
  // not in the tile of the Gulf of Guinea's islands), and 180° E and 90° S stay in the grid.
  static const double kFullCircle = std::nextafter(360.0, 361.0);
  static const double kHalfCircle = std::nextafter(180.0, 181.0);
  double x = columns_ * (longitude + 180.0) / kFullCircle;
  double y = rows_ * (90.0 - latitude) / kHalfCircle;
  const double column = std::clamp(std::floor(x), 0.0, columns_ - 1.0);
  const double row = std::clamp(std::floor(y), 0.0, rows_ - 1.0);
  x = std::clamp(x - column, 0.0, 1.0);
  y = std::clamp(y - row, 0.0, 1.0);
  std::uint16_t value = entry(top_, static_cast<std::size_t>(row) * columns_ + static_cast<std::size_t>(column));
  // Child indices only grow (checked on load), so this descends at most node-count times.
  while (!(value & kLeaf)) {
    x *= 2;
    y *= 2;
    const int east = x >= 1 ? 1 : 0;
    const int south = y >= 1 ? 1 : 0;
    x -= east;
    y -= south;
    value = entry(nodes_, std::size_t{value} * 4 + 2 * south + east);
  }
  return value & ~kLeaf;
}

}  // namespace ombrine
