#pragma once
// A picture of the map: its centre, its zoom level (the web map convention: the world is
// 256 · 2^zoom pixels wide) and its size in pixels, and how map points land on its pixels.
// Plain values; thread-safe.

#include <cairo.h>

#include "core/values/geo.hpp"
#include "radar/map_rect.hpp"

namespace ombrine {

struct MapViewport {
  double latitude = 0.0;
  double longitude = 0.0;
  double zoom = 6.0;
  int width = 1024;
  int height = 768;

  // Pixels per map point.
  double zoomScale() const;
  // The map points the picture shows.
  MapRect mapRect() const;
  // Sets `context`'s user space to map points of this picture.
  void applyTransform(cairo_t* context) const;
  // The pixel of a coordinate.
  MapPoint pixelOf(double latitude, double longitude) const;
};

}  // namespace ombrine
