#include "core/values/geo.hpp"

#include <cmath>
#include <numbers>

#include <gtest/gtest.h>

namespace ombrine {
namespace {

TEST(GeoTest, MapPointsOfKnownCoordinates) {
  struct Row {
    double latitude;
    double longitude;
    double x;
    double y;
    const char* why;
  };
  const double w = kMapWorldSize;
  const Row rows[] = {
      {0.0, 0.0, w / 2, w / 2, "the origin of the coordinates is the centre of the world"},
      {0.0, -180.0, 0.0, w / 2, "x starts at the antimeridian on the west"},
      {0.0, 180.0, w, w / 2, "and ends there on the east"},
      {85.0511287798066, 0.0, w / 2, 0.0, "the square world's top edge"},
      {-85.0511287798066, 0.0, w / 2, w, "its bottom edge: y grows southwards"},
      {0.0, 181.0, w * 361.0 / 360.0, w / 2, "past 180° x keeps growing"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    const MapPoint p = mapPointForCoordinate(row.latitude, row.longitude);
    EXPECT_NEAR(p.x, row.x, 1e-3);
    EXPECT_NEAR(p.y, row.y, 1e-3);
  }
}

TEST(GeoTest, MetersPerMapPointFollowTheCosineOfTheLatitude) {
  const double equator = metersPerMapPointAtLatitude(0.0);
  EXPECT_NEAR(equator * kMapWorldSize, 40075016.686, 0.01);  // the WGS 84 equator
  EXPECT_NEAR(metersPerMapPointAtLatitude(60.0), equator / 2, 1e-12);
  EXPECT_NEAR(metersPerMapPointAtLatitude(-60.0), equator / 2, 1e-12);
}

TEST(GeoTest, DistancesMeasuredInMapPointsMatchTheGround) {
  // One kilometre north or east of a point measures one kilometre within 0.1 % at any latitude
  // the projection covers, which is what the coastline distances rely on.
  for (double latitude : {-70.0, -33.9, 0.0, 21.3, 51.1, 78.2}) {
    SCOPED_TRACE(latitude);
    const MapPoint here = mapPointForCoordinate(latitude, 10.0);
    const MapPoint north = mapPointForCoordinate(latitude + 1.0 / 111.2, 10.0);
    const double east = 1.0 / (111.32 * std::cos(latitude * std::numbers::pi / 180.0));
    const MapPoint eastward = mapPointForCoordinate(latitude, 10.0 + east);
    const double scale = metersPerMapPointAtLatitude(latitude);
    EXPECT_NEAR(std::hypot(north.x - here.x, north.y - here.y) * scale, 1000.0, 3.0);
    EXPECT_NEAR(std::hypot(eastward.x - here.x, eastward.y - here.y) * scale, 1000.0, 1.0);
  }
}

TEST(GeoTest, CoordinateForMapPointInvertsTheProjection) {
  for (double latitude : {-84.0, -45.5, 0.0, 12.25, 78.2}) {
    for (double longitude : {-179.9, -3.5, 0.0, 151.2}) {
      const MapCoordinate back = coordinateForMapPoint(mapPointForCoordinate(latitude, longitude));
      EXPECT_NEAR(back.latitude, latitude, 1e-9);
      EXPECT_NEAR(back.longitude, longitude, 1e-9);
    }
  }
}

}  // namespace
}  // namespace ombrine
