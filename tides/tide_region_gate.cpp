#include "tides/tide_region_gate.hpp"

#include <cmath>
#include <limits>

#include "core/geo.hpp"

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
  const auto segments = index->segmentsNear(latitude, longitude, tileRadiusKilometers);
  if (segments.empty()) return {.admitted = false, .step = Step::noShoreNearby};
  const double distance = distanceMeters(latitude, longitude, segments);
  const bool within = distance <= thresholdMeters;
  return {.admitted = within, .step = within ? Step::withinThreshold : Step::beyondThreshold, .distanceMeters = distance};
}

double TideRegionGate::distanceMeters(double latitude, double longitude,
                                      std::span<const CoastTileIndex::Segment> segments) noexcept {
  const MapPoint p = mapPointForCoordinate(latitude, longitude);
  // The smallest distance in map points first; one scale at the query's latitude serves all.
  double nearest = std::numeric_limits<double>::max();
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
    const double d = std::hypot(segment.start.x + t * dx - p.x, segment.start.y + t * dy - p.y);
    if (d < nearest) nearest = d;
  }
  if (nearest == std::numeric_limits<double>::max()) return nearest;
  return nearest * metersPerMapPointAtLatitude(latitude);
}

}  // namespace ombrine
