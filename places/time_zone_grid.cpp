#include "places/time_zone_grid.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

namespace ombrine {

namespace {

constexpr std::size_t kHeaderSize = 112;
constexpr std::uint32_t kKindShift = 30;
constexpr std::uint32_t kPayload = (1u << kKindShift) - 1;
enum Kind : std::uint32_t { kNode = 0, kZone = 1, kBucket = 2, kSea = 3 };
constexpr int kSeaZones = 25;  // UTC-12 .. UTC+12
// The world's bounds in the data: a ten-thousandth of a degree short of the poles and of the
// date line.
constexpr double kLimitLatitude = 89.9999;
constexpr double kLimitLongitude = 179.9999;

// Reads one zigzag LEB128 varint from [at, end); past the end it reads zeros, so bad bytes
// give a wrong point, never a read outside the ring.
std::int64_t readVarint(const std::byte*& at, const std::byte* end) noexcept {
  std::uint64_t value = 0;
  for (int shift = 0; at < end && shift < 64; shift += 7) {
    const auto byte = static_cast<std::uint8_t>(*at++);
    value |= std::uint64_t{byte & 0x7fu} << shift;
    if (!(byte & 0x80)) break;
  }
  return static_cast<std::int64_t>(value >> 1) ^ -static_cast<std::int64_t>(value & 1);
}

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
  binary::checkHeader(file_, "OMBTZGRD", 2, kHeaderSize);
  const std::uint32_t nodeCount = file_.u32At(20);
  const std::uint32_t zoneCount = file_.u32At(24);
  const std::uint32_t bucketCount = file_.u32At(28);
  const std::uint32_t polygonCount = file_.u32At(32);
  const std::uint32_t ringCount = file_.u32At(36);
  const std::uint32_t units = file_.u32At(44);
  if (nodeCount == 0 || nodeCount > kPayload || bucketCount > kPayload) file_.fail("node or bucket count out of range");
  if (zoneCount == 0 || zoneCount > 0xffff) file_.fail("zone count out of range");
  if (units == 0 || units > 10'000'000) file_.fail("coordinate units out of range");
  zoneCount_ = static_cast<std::uint16_t>(zoneCount);
  unitsPerDegree_ = units;
  nodes_ = file_.section(48, "node", 16, nodeCount);
  sea_ = file_.section(56, "sea zone", 2, kSeaZones);
  zones_ = file_.section(64, "zone", 8, zoneCount);
  buckets_ = file_.section(72, "bucket", 4, std::uint64_t{bucketCount} + 1);
  polygons_ = file_.section(80, "polygon", 8, std::uint64_t{polygonCount} + 1);
  rings_ = file_.section(88, "ring", 4, std::uint64_t{ringCount} + 1);
  coordinates_ = file_.section(96, "coordinate", 1, std::nullopt);
  strings_ = file_.stringPool(104);
  source_ = binary::string(file_, strings_, file_.u32At(40));

  // Every run that places a point checks the whole table, so a sound file costs one pass with
  // no branch per entry; only a bad one is walked again to say what is wrong with it.
  const std::size_t entries = std::size_t{nodeCount} * 4;
  std::uint32_t bad = 0;
  for (std::size_t i = 0; i < entries; ++i) {
    const std::uint32_t value = u32In(nodes_, i);
    const std::uint32_t payload = value & kPayload;
    const std::uint32_t kind = value >> kKindShift;
    const std::uint32_t holder = static_cast<std::uint32_t>(i >> 2);
    bad |= static_cast<std::uint32_t>(kind == kNode) &
           (static_cast<std::uint32_t>(payload >= nodeCount) | static_cast<std::uint32_t>(payload <= holder));
    bad |= static_cast<std::uint32_t>(kind == kZone) & static_cast<std::uint32_t>(payload >= zoneCount);
    bad |= static_cast<std::uint32_t>(kind == kBucket) & static_cast<std::uint32_t>(payload >= bucketCount);
  }
  for (std::size_t i = 0; bad != 0 && i < entries; ++i) {
    const std::uint32_t value = u32In(nodes_, i);
    const std::uint32_t payload = value & kPayload;
    switch (value >> kKindShift) {
      case kNode:
        if (payload >= nodeCount || payload <= i / 4) file_.fail("an entry points to an invalid node");
        break;
      case kZone:
        if (payload >= zoneCount) file_.fail("an entry names a zone that does not exist");
        break;
      case kBucket:
        if (payload >= bucketCount) file_.fail("an entry names a bucket that does not exist");
        break;
      default: break;
    }
  }
  for (int i = 0; i < kSeaZones; ++i) {
    if (binary::u16(sea_.data() + 2 * i) >= zoneCount) file_.fail("a sea zone does not exist");
  }
  // Each list of starts must grow and end exactly at the size of what it indexes.
  const auto checkStarts = [&](std::span<const std::byte> table, std::size_t stride, std::uint32_t count,
                               std::uint64_t end, std::string_view what) {
    const std::byte* const first = table.data() + (stride == 8 ? 4 : 0);
    std::uint32_t previous = 0;
    std::uint32_t bad = 0;
    for (std::uint32_t i = 0; i <= count; ++i) {
      const std::uint32_t start = binary::u32(first + stride * i);
      bad |= static_cast<std::uint32_t>(start < previous) | static_cast<std::uint32_t>(start > end);
      previous = start;
    }
    if (bad != 0 || previous != end) file_.fail(std::string(what) + " starts are out of order or out of range");
  };
  checkStarts(buckets_, 4, bucketCount, polygonCount, "bucket");
  checkStarts(polygons_, 8, polygonCount, ringCount, "polygon");
  checkStarts(rings_, 4, ringCount, coordinates_.size(), "ring");
  std::uint32_t badPolygon = 0;
  for (std::uint32_t p = 0; p < polygonCount; ++p) {
    badPolygon |= static_cast<std::uint32_t>(binary::u16(polygons_.data() + 8 * std::size_t{p}) >= zoneCount);
  }
  if (badPolygon != 0) file_.fail("a polygon names a zone that does not exist");
  for (std::uint16_t z = 0; z < zoneCount_; ++z) {
    if (zone(z).identifier.empty()) file_.fail("a zone has no identifier");
  }
}

std::uint32_t TimeZoneGrid::u32In(std::span<const std::byte> table, std::size_t index) const noexcept {
  return binary::u32(table.data() + 4 * index);
}

GridZone TimeZoneGrid::zone(std::uint16_t index) const {
  const std::byte* record = zones_.data() + 8 * std::size_t{index};
  const char* code = reinterpret_cast<const char*>(record + 4);
  return GridZone{
      .identifier = binary::string(file_, strings_, binary::u32(record)),
      .countryCode = code[0] ? std::string_view(code, code[1] ? 2 : 1) : std::string_view(),
  };
}

std::uint16_t TimeZoneGrid::seaZone(double longitude) const noexcept {
  // Bands of 15° centred on the whole hours; a longitude on a band edge belongs to the band
  // east of it, and the date line itself to UTC-12.
  int offset = -12;
  if (longitude > -180 && longitude < 180)
    offset = std::clamp(static_cast<int>(std::floor((longitude + 7.5) / 15)), -12, 12);
  return binary::u16(sea_.data() + 2 * (offset + 12));
}

bool TimeZoneGrid::insidePolygon(std::uint32_t polygon, double x, double y) const noexcept {
  const std::uint32_t firstRing = binary::u32(polygons_.data() + 8 * std::size_t{polygon} + 4);
  const std::uint32_t endRing = binary::u32(polygons_.data() + 8 * (std::size_t{polygon} + 1) + 4);
  bool inside = false;
  for (std::uint32_t ring = firstRing; ring < endRing; ++ring) {
    const std::byte* at = coordinates_.data() + u32In(rings_, ring);
    const std::byte* const end = coordinates_.data() + u32In(rings_, std::size_t{ring} + 1);
    if (at == end) continue;
    std::int64_t px = readVarint(at, end);
    std::int64_t py = readVarint(at, end);
    const double firstX = static_cast<double>(px);
    const double firstY = static_cast<double>(py);
    double xi = firstX;
    double yi = firstY;
    for (bool closing = false; !closing;) {
      double xj;
      double yj;
      if (at < end) {
        px += readVarint(at, end);
        py += readVarint(at, end);
        xj = static_cast<double>(px);
        yj = static_cast<double>(py);
      } else {
        xj = firstX;
        yj = firstY;
        closing = true;
      }
      if ((yi > y) != (yj > y) && x < (xj - xi) * (y - yi) / (yj - yi) + xi) inside = !inside;
      xi = xj;
      yi = yj;
    }
  }
  return inside;
}

std::optional<std::uint16_t> TimeZoneGrid::bucketZone(std::uint32_t bucket, double x, double y) const noexcept {
  const std::uint32_t first = u32In(buckets_, bucket);
  const std::uint32_t end = u32In(buckets_, std::size_t{bucket} + 1);
  for (std::uint32_t polygon = first; polygon < end; ++polygon) {
    if (insidePolygon(polygon, x, y)) return binary::u16(polygons_.data() + 8 * std::size_t{polygon});
  }
  return std::nullopt;
}

std::uint16_t TimeZoneGrid::zoneIndexAt(double latitude, double longitude) const noexcept {
  // Out-of-contract input still stays inside the world.
  latitude = std::isnan(latitude) ? 0.0 : std::clamp(latitude, -90.0, 90.0);
  longitude = std::isnan(longitude) ? 0.0 : std::clamp(longitude, -180.0, 180.0);
  // Every meridian meets at the North Pole: no longitude's zone is more right than another.
  if (latitude >= 90) return binary::u16(sea_.data() + 2 * 12);
  const double lat = std::clamp(latitude, -kLimitLatitude, kLimitLatitude);
  const double lon = std::clamp(longitude, -kLimitLongitude, kLimitLongitude);
  double top = kLimitLatitude;
  double bottom = -kLimitLatitude;
  double left = -kLimitLongitude;
  double right = kLimitLongitude;
  double midLatitude = 0;
  double midLongitude = 0;
  // Child nodes only grow (checked on load), so this descends at most node-count times.
  std::uint32_t node = 0;
  for (;;) {
    const bool north = lat >= midLatitude;
    const bool east = lon >= midLongitude;
    (north ? bottom : top) = midLatitude;
    (east ? left : right) = midLongitude;
    const std::uint32_t value = u32In(nodes_, std::size_t{node} * 4 + (north ? 0 : 2) + (east ? 1 : 0));
    const std::uint32_t payload = value & kPayload;
    switch (value >> kKindShift) {
      case kZone: return static_cast<std::uint16_t>(payload);
      case kSea: return seaZone(longitude);
      case kBucket:
        return bucketZone(payload, lon * unitsPerDegree_, lat * unitsPerDegree_).value_or(seaZone(longitude));
      default:
        node = payload;
        midLatitude = (top + bottom) / 2;
        midLongitude = (left + right) / 2;
    }
  }
}

}  // namespace ombrine
