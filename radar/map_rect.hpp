#pragma once
// Rectangles of map points (core/values/geo.hpp: a square world of 2^28 points, y growing south),
// what a map view asks its overlays to draw. Plain values.

#include <algorithm>

#include "core/values/geo.hpp"

namespace ombrine {

struct MapRect {
  double x = 0.0;
  double y = 0.0;
  double width = 0.0;
  double height = 0.0;

  double minX() const { return x; }
  double minY() const { return y; }
  double maxX() const { return x + width; }
  double maxY() const { return y + height; }
  bool isEmpty() const { return !(width > 0.0 && height > 0.0); }
  bool intersects(const MapRect& other) const {
    return minX() < other.maxX() && other.minX() < maxX() && minY() < other.maxY() && other.minY() < maxY();
  }
  MapRect united(const MapRect& other) const {
    const double left = std::min(minX(), other.minX()), top = std::min(minY(), other.minY());
    return {left, top, std::max(maxX(), other.maxX()) - left, std::max(maxY(), other.maxY()) - top};
  }

  static MapRect world() { return {0.0, 0.0, kMapWorldSize, kMapWorldSize}; }

  bool operator==(const MapRect&) const = default;
};

}  // namespace ombrine
