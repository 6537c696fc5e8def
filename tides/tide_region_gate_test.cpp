#include "tides/tide_region_gate.hpp"

#include <atomic>
#include <cmath>
#include <filesystem>
#include <limits>
#include <numbers>

#include <gtest/gtest.h>

#include "tides/coast_test_files.hpp"

namespace ombrine {
namespace {

using Step = TideGateDecision::Step;
using testing::segmentBetween;

const std::filesystem::path kShippedFiles =
    std::filesystem::path(OMBRINE_TESTDATA_DIR) / ".." / ".." / "resources" / "coastline";

// The gate over the files that ship with the program.
TideRegionGate shippedGate() {
  static const auto mask = CoastCandidateMask::load(kShippedFiles / "coastline_candidate_mask.bin");
  static const auto tiles = CoastTileIndex::load(kShippedFiles / "coastline_tiles.bin");
  TideRegionGate gate;
  gate.coastCandidateMask = mask;
  gate.coastTileIndex = [] { return tiles; };
  return gate;
}

TEST(TideRegionGateTest, ShippedFilesLoad) {
  const auto gate = shippedGate();
  ASSERT_NE(gate.coastCandidateMask, nullptr);
  ASSERT_NE(gate.coastTileIndex(), nullptr);
  EXPECT_TRUE(std::holds_alternative<CoastCandidateMask::MappedData>(gate.coastCandidateMask->candidateStorage()));
}

TEST(TideRegionGateTest, CoastalAndInlandPlacesOnEveryContinent) {
  struct Row {
    const char* place;
    double latitude;
    double longitude;
    bool admitted;
  };
  const Row rows[] = {
      // Within 6 km of salt water.
      {"Dover harbour", 51.1279, 1.3134, true},
      {"Halifax, Nova Scotia", 44.6488, -63.5752, true},
      {"Honolulu", 21.3069, -157.8583, true},
      {"San Francisco, Fisherman's Wharf", 37.8080, -122.4177, true},
      {"Nome, Alaska", 64.5011, -165.4064, true},
      {"Rio de Janeiro", -22.9068, -43.1729, true},
      {"Punta Arenas", -53.1638, -70.9171, true},
      {"Reykjavik", 64.1466, -21.9426, true},
      {"Cape Town", -33.9249, 18.4241, true},
      {"Mumbai", 18.9220, 72.8347, true},
      {"Sydney Opera House", -33.8568, 151.2153, true},
      {"Suva, Fiji", -18.1416, 178.4419, true},
      {"Longyearbyen, Svalbard", 78.2232, 15.6267, true},
      // Far from it, or only near fresh water.
      {"Denver", 39.7392, -104.9903, false},
      {"Lausanne on Lake Geneva", 46.5197, 6.6323, false},
      {"Chicago on Lake Michigan", 41.8781, -87.6298, false},
      {"Madrid", 40.4168, -3.7038, false},
      {"Nairobi", -1.2921, 36.8219, false},
      {"Manaus on the Amazon", -3.1190, -60.0217, false},
      {"Alice Springs", -23.6980, 133.8807, false},
      {"Ulaanbaatar", 47.8864, 106.9057, false},
      {"Canterbury, 9 km from the sea", 51.2802, 1.0789, false},
      {"mid-Channel, 16 km from either shore", 51.0, 1.45, false},
      {"the open Pacific", 30.0, -140.0, false},
  };
  const auto gate = shippedGate();
  for (const auto& row : rows) {
    SCOPED_TRACE(row.place);
    const auto decision = gate.decide(row.latitude, row.longitude);
    EXPECT_EQ(decision.admitted, row.admitted);
    if (row.admitted) {
      EXPECT_EQ(decision.step, Step::withinThreshold);
      ASSERT_TRUE(decision.distanceMeters);
      EXPECT_LE(*decision.distanceMeters, 6000.0);
    }
  }
  // Far inland the mask answers alone.
  EXPECT_EQ(gate.decide(39.7392, -104.9903).step, Step::outsideCandidateMask);
}

TEST(TideRegionGateTest, BothSidesOfTheAntimeridian) {
  struct Row {
    const char* place;
    double latitude;
    double longitude;
  };
  const Row rows[] = {
      {"Taveuni, Fiji, east of 180°", -16.8, -179.99},
      {"Taveuni, Fiji, west of 180°", -16.8, 179.99},
      {"Wrangel Island, east", 71.0, -179.99},
      {"Wrangel Island, west", 71.0, 179.99},
      {"Chukotka coast, east", 65.05, -179.98},
      {"Chukotka coast, west", 65.05, 179.98},
      // The nearest shore is an islet at 179.95° E, 5.5 km away across the antimeridian: only
      // the tiles repeated past -180° find it.
      {"Lau islands, across the line", -18.57, -179.995},
  };
  const auto gate = shippedGate();
  for (const auto& row : rows) {
    SCOPED_TRACE(row.place);
    const auto decision = gate.decide(row.latitude, row.longitude);
    EXPECT_TRUE(decision.admitted);
    EXPECT_EQ(decision.step, Step::withinThreshold);
  }
}

// A world with one shore: a straight segment along latitude 10° from 20° E to 20.5° E, in the
// tile (100, 200), and mask cells of 1° around it.
struct SmallWorld {
  std::shared_ptr<const CoastCandidateMask> mask;
  std::shared_ptr<const CoastTileIndex> tiles;
};

SmallWorld smallWorld() {
  testing::MaskFileSpec mask;
  mask.cells = {99u * 361 + 200, 100u * 361 + 200, 100u * 361 + 201};
  testing::TilesFileSpec tiles;
  tiles.tiles = {{100, 200, {segmentBetween(10.0, 20.0, 10.0, 20.5)}}};
  auto loadedMask = CoastCandidateMask::parse(coastResourceFromBuffer(testing::maskFile(mask)));
  auto loadedTiles = CoastTileIndex::parse(testing::tilesFile(tiles));
  return {std::make_shared<const CoastCandidateMask>(std::move(*loadedMask)),
          std::make_shared<const CoastTileIndex>(std::move(*loadedTiles))};
}

TEST(TideRegionGateTest, StepsAndTheirOrder) {
  const auto world = smallWorld();
  struct Row {
    bool withMask;
    bool withTiles;
    double latitude;
    double longitude;
    TideGateDecision::Step step;
    bool admitted;
    bool tilesAsked;
    const char* why;
  };
  const Row rows[] = {
      {true, true, 10.03, 20.25, Step::withinThreshold, true, true, "3.3 km north of the shore"},
      {true, true, 10.08, 20.25, Step::beyondThreshold, false, true, "8.9 km north of it"},
      {true, true, 10.5, 21.5, Step::noShoreNearby, false, true, "a candidate cell with no segment within 25 km"},
      {true, true, 12.5, 20.25, Step::outsideCandidateMask, false, false, "the mask refuses before the tiles are read"},
      {true, false, 10.08, 20.25, Step::unchecked, true, true, "no tile index: let through unmeasured"},
      {true, false, 12.5, 20.25, Step::outsideCandidateMask, false, false, "the mask still refuses"},
      {false, true, 12.5, 20.25, Step::noShoreNearby, false, true, "no mask: the tiles decide"},
      {false, false, 12.5, 20.25, Step::unchecked, true, true, "no resources at all: every coordinate passes"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    std::atomic<int> asked = 0;
    TideRegionGate gate;
    if (row.withMask) gate.coastCandidateMask = world.mask;
    gate.coastTileIndex = [&] {
      ++asked;
      return row.withTiles ? world.tiles : nullptr;
    };
    const auto decision = gate.decide(row.latitude, row.longitude);
    EXPECT_EQ(decision.step, row.step);
    EXPECT_EQ(decision.admitted, row.admitted);
    EXPECT_EQ(asked.load(), row.tilesAsked ? 1 : 0);
  }
}

TEST(TideRegionGateTest, TheThresholdItselfPasses) {
  const auto world = smallWorld();
  TideRegionGate gate;
  gate.coastCandidateMask = world.mask;
  gate.coastTileIndex = [&] { return world.tiles; };
  const double distance = *gate.decide(10.05, 20.25).distanceMeters;
  gate.thresholdMeters = distance;
  EXPECT_TRUE(gate.admits(10.05, 20.25));
  gate.thresholdMeters = std::nextafter(distance, 0.0);
  EXPECT_FALSE(gate.admits(10.05, 20.25));
}

TEST(TideRegionGateTest, DistanceToSegmentsOnTheGround) {
  struct Row {
    std::vector<CoastTileIndex::Segment> segments;
    double latitude;
    double longitude;
    double expectedMeters;
    const char* why;
  };
  // Distances are measured on the projection's sphere (radius 6,378,137 m), where a kilometre
  // is 1/111.32 of a degree of latitude and 1/(111.32 · cos) of a degree of longitude.
  const double kmNorth = 1.0 / 111.32;
  const double kmEast = 1.0 / (111.32 * std::cos(10.0 * std::numbers::pi / 180.0));
  const Row rows[] = {
      {{segmentBetween(10.0, 20.0, 10.0, 20.0)},
       10.0 + 2 * kmNorth,
       20.0,
       2000.0,
       "a segment with start equal to end measures the distance to that point"},
      {{segmentBetween(10.0, 20.0, 10.0, 21.0)}, 10.0 - 3 * kmNorth, 20.5, 3000.0, "the foot of the perpendicular"},
      {{segmentBetween(10.0, 20.0, 10.0, 21.0)}, 10.0, 21.0 + 4 * kmEast, 4000.0, "beyond the end: the end point"},
      {{segmentBetween(10.0, 20.0, 10.0, 21.0)}, 10.0, 20.0 - 4 * kmEast, 4000.0, "before the start: the start point"},
      {{segmentBetween(10.0, 20.0, 10.0, 21.0), segmentBetween(10.0 + 5 * kmNorth, 20.0, 10.0 + 5 * kmNorth, 21.0)},
       10.0 + 4 * kmNorth,
       20.5,
       1000.0,
       "the nearest of several"},
      {{segmentBetween(10.0, 21.0, 10.0, 20.0)}, 10.0 + kmNorth, 20.5, 1000.0, "direction does not matter"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    EXPECT_NEAR(TideRegionGate::distanceMeters(row.latitude, row.longitude, row.segments), row.expectedMeters,
                row.expectedMeters * 0.001);
  }
  EXPECT_EQ(TideRegionGate::distanceMeters(10.0, 20.0, {}), std::numeric_limits<double>::max());
}

}  // namespace
}  // namespace ombrine
