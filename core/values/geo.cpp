#include "core/values/geo.hpp"

#include <cmath>
#include <numbers>

namespace ombrine {

namespace {

constexpr double kDegrees = std::numbers::pi / 180.0;
constexpr double kMetersPerMapPointAtEquator = 2.0 * std::numbers::pi * kMapEarthRadiusMeters / kMapWorldSize;

}  // namespace

MapPoint mapPointForCoordinate(double latitude, double longitude) noexcept {
  const double s = std::sin(latitude * kDegrees);
  // ln((1 + s) / (1 - s)) / 2 is the Mercator ordinate; written this way it stays exact near
  // the equator and matches the generator of the coastline files term for term.
  const double mercator = std::log((1.0 + s) / (1.0 - s)) / (4.0 * std::numbers::pi);
  return {(longitude + 180.0) / 360.0 * kMapWorldSize, (0.5 - mercator) * kMapWorldSize};
}

double metersPerMapPointAtLatitude(double latitude) noexcept {
  return kMetersPerMapPointAtEquator * std::cos(latitude * kDegrees);
}

MapCoordinate coordinateForMapPoint(MapPoint point) noexcept {
  const double n = std::numbers::pi * (1.0 - 2.0 * point.y / kMapWorldSize);
  return {std::atan(std::sinh(n)) / kDegrees, point.x / kMapWorldSize * 360.0 - 180.0};
}

}  // namespace ombrine
