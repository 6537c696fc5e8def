#pragma once
// Decides, with no network, whether a coordinate lies close enough to salt water to be worth
// a tide station search. Two steps of growing cost:
//   1. the candidate mask (tides/coast_candidate_mask.hpp): a coordinate outside every
//      candidate cell is refused at once;
//   2. the shore tiles (tides/coast_tile_index.hpp): the segments within tileRadiusKilometers
//      are measured; none, or a nearest one farther than thresholdMeters, refuses the
//      coordinate. Exactly thresholdMeters passes.
// A step whose resource is missing or unreadable is skipped: the coordinate goes on to the
// station search, whose own distance limit is then the only filter. The tile index is asked
// for only when a coordinate passes the first step, so a process that never meets a coastal
// coordinate never reads it.
//
// The gate holds no mutable state; `decide` may run on any thread at once as long as the tile
// index source may (the process-wide one may). Nothing is raised.

#include <functional>
#include <memory>
#include <optional>
#include <span>

#include "tides/coast_candidate_mask.hpp"
#include "tides/coast_tile_index.hpp"

namespace ombrine {

struct TideGateDecision {
  enum class Step {
    outsideCandidateMask,  // refused by the mask
    noShoreNearby,         // no segment within the tile radius
    beyondThreshold,       // nearest segment farther than the threshold
    withinThreshold,       // nearest segment at or within the threshold
    unchecked,             // no tile index: let through unmeasured
  };

  bool admitted = false;
  Step step = Step::unchecked;
  std::optional<double> distanceMeters;  // set when segments were measured

  friend bool operator==(const TideGateDecision&, const TideGateDecision&) = default;
};

struct TideRegionGate {
  // Returns the tile index to measure with, or null when there is none; called at most once
  // per decision and only after the mask let the coordinate through.
  using TileIndexSource = std::function<std::shared_ptr<const CoastTileIndex>()>;

  double thresholdMeters = 6000.0;
  double tileRadiusKilometers = 25.0;
  std::shared_ptr<const CoastCandidateMask> coastCandidateMask;
  TileIndexSource coastTileIndex;

  // The gate over the process-wide resources: loads the mask now (sharedCoastCandidateMask)
  // and the tile index on the first coordinate that passes it (sharedCoastTileIndex).
  static TideRegionGate processWide();

  TideGateDecision decide(double latitude, double longitude) const;
  bool admits(double latitude, double longitude) const { return decide(latitude, longitude).admitted; }

  // Distance in metres from the coordinate to the nearest of `segments`, measured in map
  // points and scaled at the coordinate's latitude. The largest finite double for an empty list.
  static double distanceMeters(double latitude, double longitude,
                               std::span<const CoastTileIndex::Segment> segments) noexcept;
};

}  // namespace ombrine
