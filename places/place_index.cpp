#include "places/place_index.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>
#include <utility>

#include "core/values/location.hpp"

namespace ombrine {

namespace {

constexpr std::size_t kHeaderSize = 104;
constexpr std::size_t kRecordSize = 16;
constexpr std::uint32_t kMaxPlaces = 1u << 22;   // key references carry 22 bits
constexpr std::uint32_t kMaxRegions = 1u << 13;  // place records carry 13 bits
constexpr std::uint32_t kMaxRows = 1u << 20;
constexpr std::uint32_t kMaxKeysPerBlock = 1u << 16;
constexpr std::uint32_t kLatitudeMask = (1u << 25) - 1;
constexpr std::uint32_t kLongitudeMask = (1u << 26) - 1;
constexpr std::uint32_t kPopulationMask = (1u << 28) - 1;
constexpr std::uint32_t kMaxLatitudeField = 18'000'000;
constexpr std::uint32_t kMaxLongitudeField = 36'000'000;
constexpr double kScale = 1e5;
// The same mean radius as Location::distance, so that distances agree across the program.
constexpr double kEarthRadius = 6371009.0;
constexpr double kRadians = std::numbers::pi / 180.0;

bool startsWith(std::string_view text, std::string_view prefix) noexcept {
  return text.size() >= prefix.size() && std::memcmp(text.data(), prefix.data(), prefix.size()) == 0;
}

double square(double x) noexcept { return x * x; }

// The first index in [low, high) for which `isBelow` is false; `isBelow` must hold for a
// prefix of the range only.
template <class IsBelow>
std::uint32_t firstNotBelow(std::uint32_t low, std::uint32_t high, IsBelow isBelow) {
  while (low < high) {
    const std::uint32_t middle = low + (high - low) / 2;
    if (isBelow(middle)) {
      low = middle + 1;
    } else {
      high = middle;
    }
  }
  return low;
}

// Offset first, scale last: the one rounding of the division gives back GeoNames' five-decimal
// values exactly ("39.80172", not "39.80171999999999").
double toLatitude(std::uint32_t field) noexcept { return (static_cast<double>(field) - 9'000'000.0) / kScale; }
double toLongitude(std::uint32_t field) noexcept { return (static_cast<double>(field) - 18'000'000.0) / kScale; }

}  // namespace

PlaceIndex::PlaceIndex(const std::filesystem::path& file) {
  mapping_.emplace(file);
  load(mapping_->bytes(), file.string());
}

PlaceIndex PlaceIndex::fromBytes(std::span<const std::byte> bytes, std::string label) {
  PlaceIndex index;
  index.load(bytes, std::move(label));
  return index;
}

void PlaceIndex::load(std::span<const std::byte> bytes, std::string label) {
  file_ = binary::File{bytes, std::move(label), "place index"};
  binary::checkHeader(file_, "OMBPLACE", 1, kHeaderSize);
  placeCount_ = file_.u32At(20);
  const std::uint32_t regionCount = file_.u32At(24);
  const std::uint32_t countryCount = file_.u32At(28);
  keyCount_ = file_.u32At(32);
  keysPerBlock_ = file_.u32At(36);
  rowCount_ = file_.u32At(40);
  if (placeCount_ >= kMaxPlaces) file_.fail("too many places");
  if (regionCount > kMaxRegions || countryCount > 0xffff) file_.fail("too many regions or countries");
  if (rowCount_ == 0 || rowCount_ > kMaxRows) file_.fail("row count out of range");
  if (keysPerBlock_ == 0 || keysPerBlock_ > kMaxKeysPerBlock) file_.fail("keys per block out of range");
  regionCount_ = static_cast<std::uint16_t>(regionCount);
  countryCount_ = static_cast<std::uint16_t>(countryCount);
  blockCount_ = static_cast<std::uint32_t>((std::uint64_t{keyCount_} + keysPerBlock_ - 1) / keysPerBlock_);

  rows_ = file_.section(48, "row", 4, std::uint64_t{rowCount_} + 1);
  places_ = file_.section(56, "place", kRecordSize, placeCount_);
  regions_ = file_.section(64, "region", kRecordSize, regionCount_);
  countries_ = file_.section(72, "country", kRecordSize, countryCount_);
  blocks_ = file_.section(80, "key block", 8, blockCount_);
  keys_ = file_.section(88, "key", 1, std::nullopt);
  strings_ = file_.stringPool(96);
  source_ = binary::string(file_, strings_, file_.u32At(44));

  if (rowStart(0) != 0 || rowStart(rowCount_) != placeCount_) file_.fail("rows do not cover the places");
  for (std::uint32_t row = 0; row < rowCount_; ++row) {
    if (rowStart(row) > rowStart(row + 1)) file_.fail("rows are out of order");
  }
  // Reading every region and country checks their string references and country indices.
  for (std::uint16_t r = 0; r < regionCount_; ++r) region(r);
  for (std::uint16_t c = 0; c < countryCount_; ++c) {
    if (country(c).code.size() != 2 || (c > 0 && country(c - 1).code >= country(c).code)) {
      file_.fail("country codes are malformed or out of order");
    }
  }
}

std::uint32_t PlaceIndex::rowStart(std::uint32_t row) const noexcept {
  return binary::u32(rows_.data() + 4 * std::size_t{row});
}

IndexedPlace PlaceIndex::place(std::uint32_t index) const {
  const std::byte* record = places_.data() + kRecordSize * index;
  const std::uint32_t latitude = binary::u32(record);
  const std::uint32_t longitude = binary::u32(record + 4);
  const std::uint32_t population = binary::u32(record + 8);
  const std::uint16_t region = static_cast<std::uint16_t>((latitude >> 25) | (longitude >> 26) << 7);
  if ((latitude & kLatitudeMask) > kMaxLatitudeField || (longitude & kLongitudeMask) > kMaxLongitudeField) {
    file_.fail("place " + std::to_string(index) + " has a coordinate out of range");
  }
  if (region >= regionCount_) file_.fail("place " + std::to_string(index) + " names a missing region");
  return IndexedPlace{
      .name = binary::string(file_, strings_, binary::u32(record + 12)),
      .latitude = toLatitude(latitude & kLatitudeMask),
      .longitude = toLongitude(longitude & kLongitudeMask),
      .population = population & kPopulationMask,
      .flags = static_cast<std::uint8_t>(population >> 28),
      .region = region,
  };
}

IndexedRegion PlaceIndex::region(std::uint16_t index) const {
  const std::byte* record = regions_.data() + kRecordSize * index;
  IndexedRegion region{
      .code = binary::string(file_, strings_, binary::u32(record)),
      .name = binary::string(file_, strings_, binary::u32(record + 4)),
      .searchKey = binary::string(file_, strings_, binary::u32(record + 8)),
      .country = binary::u16(record + 12),
  };
  if (region.country >= countryCount_) file_.fail("region " + std::to_string(index) + " names a missing country");
  return region;
}

IndexedCountry PlaceIndex::country(std::uint16_t index) const {
  const std::byte* record = countries_.data() + kRecordSize * index;
  const char* code = reinterpret_cast<const char*>(record);
  return IndexedCountry{
      .code = std::string_view(code, std::find(code, code + 2, '\0') - code),
      .name = binary::string(file_, strings_, binary::u32(record + 4)),
      .searchKey = binary::string(file_, strings_, binary::u32(record + 8)),
      .aliases = binary::string(file_, strings_, binary::u32(record + 12)),
  };
}

std::optional<std::uint16_t> PlaceIndex::findCountry(std::string_view code) const {
  auto codeAt = [&](std::uint32_t i) { return country(static_cast<std::uint16_t>(i)).code; };
  const std::uint32_t found = firstNotBelow(0, countryCount_, [&](std::uint32_t i) { return codeAt(i) < code; });
  if (found == countryCount_ || codeAt(found) != code) return std::nullopt;
  return static_cast<std::uint16_t>(found);
}

std::uint32_t PlaceIndex::longitudeField(std::uint32_t place) const noexcept {
  return binary::u32(places_.data() + kRecordSize * place + 4) & kLongitudeMask;
}

// Rows are bands of latitude; within a row places are sorted by longitude. The search starts in
// the query's row and moves outwards while a row can still hold a place nearer than the best so
// far. Inside a row it walks east and west from the query's longitude, wrapping at the date
// line, and stops once the longitude difference alone puts a place beyond the best distance.
// Distances compare as haversines (sin² of half the central angle), which order like distances.
std::optional<NearestPlace> PlaceIndex::nearest(const NearestQuery& query) const {
  std::optional<NearestPlace> best;
  if (placeCount_ == 0 || !(query.radiusMeters >= 0)) return best;
  const double radius = std::min(query.radiusMeters / kEarthRadius, std::numbers::pi);
  double bestHaversine = square(std::sin(radius / 2));
  const double cosLatitude = std::cos(query.latitude * kRadians);
  const double rowHeight = 180.0 / rowCount_;
  const auto queryRow =
      static_cast<std::int64_t>(std::clamp(std::floor((query.latitude + 90.0) / rowHeight), 0.0, rowCount_ - 1.0));

  for (std::int64_t step = 0; step < rowCount_; ++step) {
    bool reachable = false;
    const std::int64_t rows[2] = {queryRow - step, queryRow + step};
    for (int side = 0; side < (step == 0 ? 1 : 2); ++side) {
      const std::int64_t row = rows[side];
      if (row < 0 || row >= rowCount_) continue;
      const double south = -90.0 + row * rowHeight;
      const double gap = std::max({0.0, south - query.latitude, query.latitude - (south + rowHeight)});
      if (square(std::sin(gap * kRadians / 2)) > bestHaversine) continue;
      reachable = true;
      scanRow(static_cast<std::uint32_t>(row), query, cosLatitude, bestHaversine, best);
    }
    if (!reachable) break;
  }
  if (best) best->distanceMeters = 2 * kEarthRadius * std::asin(std::min(1.0, std::sqrt(bestHaversine)));
  return best;
}

void PlaceIndex::scanRow(std::uint32_t row, const NearestQuery& query, double cosLatitude, double& bestHaversine,
                         std::optional<NearestPlace>& best) const {
  const std::uint32_t start = rowStart(row);
  const std::uint32_t count = rowStart(row + 1) - start;
  if (count == 0) return;

  const double queryLatitude = query.latitude * kRadians;
  // Half the longitude span of the circle of the best distance; the whole row when that
  // circle holds a pole.
  auto window = [&] {
    const double angle = 2 * std::asin(std::min(1.0, std::sqrt(bestHaversine)));
    if (std::abs(queryLatitude) + angle >= std::numbers::pi / 2) return 361.0;
    return std::asin(std::min(1.0, std::sin(angle) / cosLatitude)) / kRadians;
  };
  double halfWidth = window();

  auto consider = [&](std::uint32_t index) {
    const std::byte* record = places_.data() + kRecordSize * index;
    const double latitude = toLatitude(binary::u32(record) & kLatitudeMask) * kRadians;
    const double partLatitude = square(std::sin((latitude - queryLatitude) / 2));
    if (partLatitude > bestHaversine) return;
    const double longitude = toLongitude(binary::u32(record + 4) & kLongitudeMask);
    const double partLongitude = square(std::sin((longitude - query.longitude) * kRadians / 2));
    const double haversine = partLatitude + cosLatitude * std::cos(latitude) * partLongitude;
    if (haversine > bestHaversine || (haversine == bestHaversine && best && best->place < index)) return;
    if (!admits(query, index)) return;
    best = NearestPlace{.place = index};
    bestHaversine = haversine;
    halfWidth = window();
  };

  // The first place of the row at or east of the query's longitude (wrapping to the start).
  const auto target = static_cast<std::uint32_t>(std::lround((query.longitude + 180.0) * kScale));
  const std::uint32_t low =
      firstNotBelow(start, start + count, [&](std::uint32_t i) { return longitudeField(i) < target; });
  const std::uint32_t first = low - start == count ? 0 : low - start;

  auto degreesBetween = [](double from, double to) {
    double difference = to - from;
    if (difference < 0) difference += 360.0;
    return difference;
  };
  std::uint32_t east = 0;
  for (; east < count; ++east) {
    const std::uint32_t index = start + (first + east) % count;
    const double longitude = toLongitude(longitudeField(index));
    if (degreesBetween(query.longitude, longitude) > halfWidth) break;
    consider(index);
  }
  for (std::uint32_t west = 1; east + west <= count; ++west) {
    const std::uint32_t index = start + (first + count - west) % count;
    const double longitude = toLongitude(longitudeField(index));
    if (degreesBetween(longitude, query.longitude) > halfWidth) break;
    consider(index);
  }
}

bool PlaceIndex::admits(const NearestQuery& query, std::uint32_t index) const {
  if (query.excludeFlags & (binary::u32(places_.data() + kRecordSize * index + 8) >> 28)) return false;
  return !query.country || region(place(index).region).country == *query.country;
}

std::optional<NearestPlace> PlaceIndex::largest(const NearestQuery& query) const {
  std::optional<NearestPlace> best;
  std::uint32_t bestPopulation = 0;
  if (placeCount_ == 0 || !(query.radiusMeters >= 0)) return best;
  const Location from(query.latitude, query.longitude);
  const double radius = std::min(query.radiusMeters / kEarthRadius, std::numbers::pi);
  const double rowHeight = 180.0 / rowCount_;
  const double reach = radius / kRadians;
  const double cosLatitude = std::cos(query.latitude * kRadians);
  // The longitude span of the circle, or every longitude when it holds a pole.
  const double halfWidth = std::abs(query.latitude * kRadians) + radius >= std::numbers::pi / 2
                               ? 180.0
                               : std::asin(std::min(1.0, std::sin(radius) / cosLatitude)) / kRadians;
  const auto firstRow = static_cast<std::uint32_t>(
      std::clamp(std::floor((query.latitude - reach + 90.0) / rowHeight), 0.0, rowCount_ - 1.0));
  const auto lastRow = static_cast<std::uint32_t>(
      std::clamp(std::floor((query.latitude + reach + 90.0) / rowHeight), 0.0, rowCount_ - 1.0));
  // The window of longitudes as field values, split in two where it crosses the date line.
  const auto field = [](double longitude) {
    return static_cast<std::uint32_t>(std::clamp(std::lround((longitude + 180.0) * kScale), 0L, 36'000'000L));
  };
  std::pair<std::uint32_t, std::uint32_t> windows[2] = {{0, 36'000'000}, {1, 0}};
  if (halfWidth < 180.0) {
    const double west = query.longitude - halfWidth;
    const double east = query.longitude + halfWidth;
    windows[0] = {field(std::max(west, -180.0)), field(std::min(east, 180.0))};
    if (west < -180.0) windows[1] = {field(west + 360.0), field(180.0)};
    if (east > 180.0) windows[1] = {field(-180.0), field(east - 360.0)};
  }
  for (std::uint32_t row = firstRow; row <= lastRow; ++row) {
    for (const auto& [low, high] : windows) {
      const std::uint32_t end = rowStart(row + 1);
      std::uint32_t index = firstNotBelow(rowStart(row), end, [&](std::uint32_t i) { return longitudeField(i) < low; });
      for (; index < end && longitudeField(index) <= high; ++index) {
        // Population first: it rules most places out without any trigonometry.
        const std::byte* record = places_.data() + kRecordSize * index;
        const std::uint32_t population = binary::u32(record + 8) & kPopulationMask;
        if (best && population < bestPopulation) continue;
        const double latitude = toLatitude(binary::u32(record) & kLatitudeMask);
        if (std::abs(latitude - query.latitude) > reach) continue;
        const double distance = from.distance(Location(latitude, toLongitude(longitudeField(index))));
        if (distance > query.radiusMeters || !admits(query, index)) continue;
        if (!best || population > bestPopulation || distance < best->distanceMeters) {
          best = NearestPlace{.place = index, .distanceMeters = distance};
          bestPopulation = population;
        }
      }
    }
  }
  return best;
}

std::string_view PlaceIndex::firstKeyOfBlock(std::uint32_t block) const {
  const std::size_t offset = binary::u32(blocks_.data() + 8 * std::size_t{block});
  if (offset + 2 > keys_.size() || keys_[offset] != std::byte{0}) {
    file_.fail("key block " + std::to_string(block) + " is malformed");
  }
  const auto length = static_cast<std::size_t>(keys_[offset + 1]);
  if (offset + 2 + length + 3 > keys_.size()) file_.fail("key block " + std::to_string(block) + " is malformed");
  return std::string_view(reinterpret_cast<const char*>(keys_.data() + offset + 2), length);
}

void PlaceIndex::scanPrefix(std::string_view prefix, KeyVisitor& visitor) const {
  // The first block whose first key is not below the prefix; matches may start in the block
  // before it.
  const std::uint32_t low =
      firstNotBelow(0, blockCount_, [&](std::uint32_t block) { return firstKeyOfBlock(block) < prefix; });
  char key[2 * 255];
  for (std::uint32_t block = low == 0 ? 0 : low - 1; block < blockCount_; ++block) {
    const std::string_view first = firstKeyOfBlock(block);
    if (first > prefix) {
      if (!startsWith(first, prefix)) return;
      if (visitor.skipBlock(binary::u32(blocks_.data() + 8 * std::size_t{block} + 4))) continue;
    }
    std::size_t offset = binary::u32(blocks_.data() + 8 * std::size_t{block});
    std::size_t length = 0;
    const std::uint64_t entries =
        std::min<std::uint64_t>(keysPerBlock_, keyCount_ - std::uint64_t{block} * keysPerBlock_);
    for (std::uint64_t i = 0; i < entries; ++i) {
      if (offset + 2 > keys_.size()) file_.fail("key data runs past its section");
      const auto shared = static_cast<std::size_t>(keys_[offset]);
      const auto suffix = static_cast<std::size_t>(keys_[offset + 1]);
      if (shared > length || offset + 2 + suffix + 3 > keys_.size()) file_.fail("key data is inconsistent");
      std::memcpy(key + shared, keys_.data() + offset + 2, suffix);
      length = shared + suffix;
      const std::uint32_t reference = binary::u24(keys_.data() + offset + 2 + suffix);
      offset += 2 + suffix + 3;

      const std::string_view text(key, length);
      if (text < prefix) continue;
      if (!startsWith(text, prefix)) return;
      const std::uint32_t placeIndex = reference & (kMaxPlaces - 1);
      const std::uint32_t kind = reference >> 22;
      if (placeIndex >= placeCount_ || kind > 2) file_.fail("a key names a missing place");
      if (!visitor.visit(KeyEntry{.key = text, .place = placeIndex, .kind = static_cast<KeyKind>(kind)})) return;
    }
  }
}

}  // namespace ombrine
