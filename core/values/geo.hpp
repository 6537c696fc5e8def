#pragma once
// Map point maths: spherical Web Mercator on a square world of 2^28 map points, with the
// origin at the top-left corner (180° W on the northern edge of the projection), x growing
// east and y growing south. Files that store map points (resources/coastline) are generated
// with exactly these formulas, so a point computed here and a stored one can be compared.
//
// Pure functions, callable from any thread; nothing is raised. Latitudes of ±90° project to an
// infinite y; callers that may see them must decide what that means for them.

namespace ombrine {

// Map points along the equator, and from the top edge to the bottom edge.
inline constexpr double kMapWorldSize = 268435456.0;  // 2^28

// The sphere the projection is drawn on: the WGS 84 equatorial radius.
inline constexpr double kMapEarthRadiusMeters = 6378137.0;

struct MapPoint {
  double x = 0.0;
  double y = 0.0;

  friend bool operator==(const MapPoint&, const MapPoint&) = default;
};

// The map point of a coordinate in degrees. Longitudes outside [-180, 180] continue past the
// edges of the world (x below 0 or above kMapWorldSize) rather than wrapping.
MapPoint mapPointForCoordinate(double latitude, double longitude) noexcept;

// Metres on the ground covered by one map point at a latitude: the equator's length divided by
// kMapWorldSize, scaled by the cosine of the latitude.
double metersPerMapPointAtLatitude(double latitude) noexcept;

// The coordinate of a map point, the inverse of mapPointForCoordinate: {latitude, longitude}.
struct MapCoordinate {
  double latitude = 0.0;
  double longitude = 0.0;

  friend bool operator==(const MapCoordinate&, const MapCoordinate&) = default;
};
MapCoordinate coordinateForMapPoint(MapPoint point) noexcept;

}  // namespace ombrine
