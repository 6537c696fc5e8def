#include "core/values/compass.hpp"

#include <gtest/gtest.h>

#include <limits>

namespace ombrine {
namespace {

using D = CompassDirection;

TEST(CompassTest, IndexIsTruncatedDegreesOver22ClampedToTheLastPoint) {
  struct Row {
    double degrees;
    int index;
    D direction;
  };
  const Row rows[] = {
      {0.0, 0, D::north},
      {21.99, 0, D::north},
      {22.0, 1, D::northNorthEast},  // sectors are 22 degrees wide, not 22.5
      {45.0, 2, D::northEast},
      {90.0, 4, D::east},
      {180.0, 8, D::south},
      {270.0, 12, D::west},
      {329.9, 14, D::northWest},
      {330.0, 15, D::northNorthWest},  // from here on everything is the last point
      {352.0, 15, D::northNorthWest},  // not north: the sectors do not close the circle
      {359.9, 15, D::northNorthWest},
      {360.0, 15, D::northNorthWest},
      {725.0, 15, D::northNorthWest},
      {-10.0, 0, D::north},
      {std::numeric_limits<double>::quiet_NaN(), 0, D::north},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.degrees);
    EXPECT_EQ(compassIndex(row.degrees), row.index);
    EXPECT_EQ(compassDirection(Angle::degrees(row.degrees)), row.direction);
  }
}

// The table's order is pinned through the bearing names of fires/fire_report_test.
TEST(CompassTest, AbbreviationsReadBackCaseBlindAndNothingElse) {
  for (int i = 0; i < kCompassPointCount; ++i) {
    const auto direction = static_cast<D>(i);
    EXPECT_EQ(compassDirection(abbreviation(direction)), direction);
  }
  EXPECT_EQ(compassDirection("wnw"), D::westNorthWest);
  EXPECT_EQ(compassDirection(""), std::nullopt);
  EXPECT_EQ(compassDirection("N "), std::nullopt);
  EXPECT_EQ(compassDirection("NNNE"), std::nullopt);
  EXPECT_EQ(compassDirection("CALM"), std::nullopt);
}

}  // namespace
}  // namespace ombrine
