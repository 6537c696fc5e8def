#include "tides/tide_region_gate.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

#include "core/values/geo.hpp"

namespace ombrine {

TideRegionGate TideRegionGate::processWide() {
  TideRegionGate gate;
  gate.coastCandidateMask = sharedCoastCandidateMask();
  gate.coastTileIndex = sharedCoastTileIndex;
  return gate;
}

TideGateDecision TideRegionGate::decide(double latitude, double longitude) const {
  using Step = TideGateDecision::Step;
  if (coastCandidateMask && !coastCandidateMask->contains(latitude, longitude)) {
    return {.admitted = false, .step = Step::outsideCandidateMask};
  }
  const auto index = coastTileIndex ? coastTileIndex() : nullptr;
  if (!index) return {.admitted = true, .step = Step::unchecked};
  // Measured tile by tile in place: the same minimum as over segmentsNear, without the copy.
  bool anySegment = false;
  double distance = std::numeric_limits<double>::max();
  index->forEachTileNear(latitude, longitude, tileRadiusKilometers, [&](std::span<const CoastTileIndex::Segment> tile) {
    anySegment = anySegment || !tile.empty();
    distance = std::min(distance, distanceMeters(latitude, longitude, tile));
  });
  if (!anySegment) return {.admitted = false, .step = Step::noShoreNearby};
  const bool within = distance <= thresholdMeters;
  return {
      .admitted = within, .step = within ? Step::withinThreshold : Step::beyondThreshold, .distanceMeters = distance};
}

double TideRegionGate::distanceMeters(double latitude, double longitude,
                                      std::span<const CoastTileIndex::Segment> segments) noexcept {
  const MapPoint p = mapPointForCoordinate(latitude, longitude);
  // The nearest by squared distance in map points, one square root and one scale at the end:
  // map points stay below 2^29, so the squares are exact enough and never overflow.
  double nearestSquared = std::numeric_limits<double>::infinity();
  for (const auto& segment : segments) {
    const double dx = segment.end.x - segment.start.x;
    const double dy = segment.end.y - segment.start.y;
    const double q = dx * dx + dy * dy;
    double t = 0.0;
    if (q != 0.0) {
      t = ((p.x - segment.start.x) * dx + (p.y - segment.start.y) * dy) / q;
      if (t >= 1.0) {
        t = 1.0;
      } else if (t < 0.0) {
        t = 0.0;
      }
    }
    const double ex = segment.start.x + t * dx - p.x;
    const double ey = segment.start.y + t * dy - p.y;
    const double squared = ex * ex + ey * ey;
    if (squared < nearestSquared) nearestSquared = squared;
  }
  const double meters = std::sqrt(nearestSquared) * metersPerMapPointAtLatitude(latitude);
  // Nothing measured (or only segments with non-finite points) stays the largest finite double.
  return meters < std::numeric_limits<double>::max() ? meters : std::numeric_limits<double>::max();
}

}  // namespace ombrine
