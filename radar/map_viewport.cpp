#include "radar/map_viewport.hpp"

#include <cmath>

namespace ombrine {

double MapViewport::zoomScale() const { return 256.0 * std::exp2(zoom) / kMapWorldSize; }

MapRect MapViewport::mapRect() const {
  const MapPoint centre = mapPointForCoordinate(latitude, longitude);
  const double scale = zoomScale();
  return {centre.x - width / 2.0 / scale, centre.y - height / 2.0 / scale, width / scale, height / scale};
}

void MapViewport::applyTransform(cairo_t* context) const {
  const MapRect rect = mapRect();
  cairo_scale(context, zoomScale(), zoomScale());
  cairo_translate(context, -rect.x, -rect.y);
}

MapPoint MapViewport::pixelOf(double pointLatitude, double pointLongitude) const {
  const MapRect rect = mapRect();
  const MapPoint point = mapPointForCoordinate(pointLatitude, pointLongitude);
  return {(point.x - rect.x) * zoomScale(), (point.y - rect.y) * zoomScale()};
}

}  // namespace ombrine
