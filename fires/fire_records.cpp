#include "fires/fire_records.hpp"

#include <bit>

namespace ombrine {

std::string_view fireMapSourceName(FireMapSource source) noexcept {
  return source == FireMapSource::unitedStates ? "unitedStates" : "canada";
}

std::string FireIncidentType::rawValue() const {
  struct Visitor {
    std::string operator()(const Unknown& u) const { return u.text; }
    std::string operator()(const Wildfire&) const { return "wildfire"; }
    std::string operator()(const PrescribedFire&) const { return "prescribedFire"; }
    std::string operator()(const IncidentComplex&) const { return "incidentComplex"; }
  };
  return std::visit(Visitor{}, value);
}

std::string_view fireControlStatusName(FireControlStatus status) noexcept {
  switch (status) {
    case FireControlStatus::outOfControl: return "outOfControl";
    case FireControlStatus::beingHeld: return "beingHeld";
    case FireControlStatus::underControl: return "underControl";
    case FireControlStatus::out: return "out";
  }
  return "out";
}

std::uint64_t fireBitPattern(double value) noexcept { return std::bit_cast<std::uint64_t>(value); }

namespace {

// FNV-1a over 64-bit words: cheap, and any change of a coordinate's bits changes the result.
struct SignatureHash {
  std::uint64_t state = 14695981039346656037ull;
  void add(std::uint64_t word) noexcept {
    for (int i = 0; i < 8; ++i) {
      state ^= (word >> (i * 8)) & 0xff;
      state *= 1099511628211ull;
    }
  }
  void addRing(const std::vector<FireCoordinate>& ring) noexcept {
    add(ring.size());
    for (const auto& c : ring) {
      add(fireBitPattern(c.latitude));
      add(fireBitPattern(c.longitude));
    }
  }
};

}  // namespace

std::uint64_t fireGeometrySignature(const std::vector<FirePerimeter::Polygon>& polygons) noexcept {
  SignatureHash hash;
  hash.add(polygons.size());
  for (const auto& polygon : polygons) {
    hash.addRing(polygon.exterior);
    hash.add(polygon.interiors.size());
    for (const auto& ring : polygon.interiors) hash.addRing(ring);
  }
  return hash.state;
}

void refreshFirePerimeterRevision(FirePerimeter& perimeter, std::optional<std::uint64_t> componentRevisionSignature) {
  FirePerimeter::Revision revision;
  revision.sourceRawValue = std::string(fireMapSourceName(perimeter.source));
  revision.name = perimeter.name;
  revision.typeRawValue = perimeter.type.rawValue();
  revision.acresBitPattern = fireBitPattern(perimeter.acres);
  if (perimeter.percentContained) revision.percentContainedBitPattern = fireBitPattern(*perimeter.percentContained);
  revision.polygonDateReferenceInterval = perimeter.polygonDate.timeIntervalSinceReferenceDate;
  if (perimeter.modifiedDate) {
    revision.modifiedDateReferenceInterval = perimeter.modifiedDate->timeIntervalSinceReferenceDate;
  }
  revision.state = perimeter.state;
  revision.componentRevisionSignature = componentRevisionSignature;
  int coordinates = 0;
  for (const auto& polygon : perimeter.polygons) {
    coordinates += static_cast<int>(polygon.exterior.size());
    for (const auto& ring : polygon.interiors) coordinates += static_cast<int>(ring.size());
  }
  revision.polygonCount = static_cast<int>(perimeter.polygons.size());
  revision.coordinateCount = coordinates;
  revision.geometrySignature = fireGeometrySignature(perimeter.polygons);
  perimeter.revision = std::move(revision);
}

}  // namespace ombrine
