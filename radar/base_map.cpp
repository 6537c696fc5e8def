#include "radar/base_map.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <set>
#include <tuple>
#include <unordered_map>
#include <vector>

namespace ombrine {

namespace {

constexpr std::array<double, 3> kWater = {0.667, 0.827, 0.875};
constexpr std::array<double, 3> kLand = {0.949, 0.937, 0.902};
constexpr std::array<double, 3> kShore = {0.45, 0.60, 0.68};

void setColour(cairo_t* context, const std::array<double, 3>& rgb, double alpha = 1.0) {
  cairo_set_source_rgba(context, rgb[0], rgb[1], rgb[2], alpha);
}

using Segments = std::vector<CoastTileIndex::Segment>;

// The distinct shore segments of one 1-degree latitude band, over every longitude of the world
// (the index stores a segment in every tile its box touches, so copies are dropped).
const Segments& bandSegments(const CoastTileIndex& coast, int band, std::unordered_map<int, Segments>& bands) {
  if (const auto found = bands.find(band); found != bands.end()) return found->second;
  const int columns = static_cast<int>(std::lround(360.0 / coast.tileSizeDegrees()));
  std::set<std::tuple<double, double, double, double>> seen;
  Segments segments;
  for (int column = 0; column < columns; ++column) {
    const auto range = coast.segmentRange({band, column});
    if (!range) continue;
    for (std::uint32_t i = range->begin; i < range->end; ++i) {
      const auto& segment = coast.allSegments()[i];
      if (seen.emplace(segment.start.x, segment.start.y, segment.end.x, segment.end.y).second) {
        segments.push_back(segment);
      }
    }
  }
  return bands.emplace(band, std::move(segments)).first->second;
}

// Land by the even-odd rule along each pixel row: the shore rings are closed away from the
// date line, so a point is on land when a ray from the west crosses the shore an odd number
// of times.
void fillLand(cairo_t* context, const MapViewport& viewport, const CoastTileIndex& coast) {
  const MapRect rect = viewport.mapRect();
  const double scale = viewport.zoomScale();
  std::unordered_map<int, Segments> bands;
  std::vector<double> crossings;
  setColour(context, kLand);
  for (int row = 0; row < viewport.height; ++row) {
    const double y = rect.y + (row + 0.5) / scale;
    const double latitude = coordinateForMapPoint({rect.x, y}).latitude;
    const int band = static_cast<int>(std::floor((latitude + 90.0) / coast.tileSizeDegrees()));
    crossings.clear();
    for (const auto& segment : bandSegments(coast, band, bands)) {
      const double y0 = segment.start.y, y1 = segment.end.y;
      if ((y0 <= y) == (y1 <= y)) continue;
      crossings.push_back(segment.start.x + (y - y0) / (y1 - y0) * (segment.end.x - segment.start.x));
    }
    std::sort(crossings.begin(), crossings.end());
    for (std::size_t i = 0; i + 1 < crossings.size(); i += 2) {
      const double left = std::max((crossings[i] - rect.x) * scale, 0.0);
      const double right = std::min((crossings[i + 1] - rect.x) * scale, static_cast<double>(viewport.width));
      if (right > left) cairo_rectangle(context, left, row, right - left, 1.0);
    }
  }
  cairo_fill(context);
}

void strokeShore(cairo_t* context, const MapViewport& viewport, const CoastTileIndex& coast) {
  const MapRect rect = viewport.mapRect();
  const double scale = viewport.zoomScale();
  const auto south = coordinateForMapPoint({rect.x, rect.maxY()}).latitude;
  const auto north = coordinateForMapPoint({rect.x, rect.y}).latitude;
  std::unordered_map<int, Segments> bands;
  const int first = static_cast<int>(std::floor((south + 90.0) / coast.tileSizeDegrees()));
  const int last = static_cast<int>(std::floor((north + 90.0) / coast.tileSizeDegrees()));
  setColour(context, kShore);
  cairo_set_line_width(context, 1.0);
  for (int band = first; band <= last; ++band) {
    for (const auto& segment : bandSegments(coast, band, bands)) {
      const MapRect box{std::min(segment.start.x, segment.end.x), std::min(segment.start.y, segment.end.y),
                        std::fabs(segment.end.x - segment.start.x) + 1, std::fabs(segment.end.y - segment.start.y) + 1};
      if (!box.intersects(rect)) continue;
      cairo_move_to(context, (segment.start.x - rect.x) * scale, (segment.start.y - rect.y) * scale);
      cairo_line_to(context, (segment.end.x - rect.x) * scale, (segment.end.y - rect.y) * scale);
    }
  }
  cairo_stroke(context);
}

void drawGraticule(cairo_t* context, const MapViewport& viewport) {
  const MapRect rect = viewport.mapRect();
  const auto topLeft = coordinateForMapPoint({rect.x, rect.y});
  const auto bottomRight = coordinateForMapPoint({rect.maxX(), rect.maxY()});
  const double span = bottomRight.longitude - topLeft.longitude;
  const double step = span > 60 ? 10.0 : span > 15 ? 5.0 : span > 4 ? 1.0 : 0.5;
  cairo_set_source_rgba(context, 0.3, 0.3, 0.35, 0.25);
  cairo_set_line_width(context, 0.8);
  for (double lon = std::ceil(topLeft.longitude / step) * step; lon <= bottomRight.longitude; lon += step) {
    const double x = viewport.pixelOf(0.0, lon).x;
    cairo_move_to(context, x, 0);
    cairo_line_to(context, x, viewport.height);
  }
  for (double lat = std::ceil(bottomRight.latitude / step) * step; lat <= topLeft.latitude; lat += step) {
    const double y = viewport.pixelOf(lat, 0.0).y;
    cairo_move_to(context, 0, y);
    cairo_line_to(context, viewport.width, y);
  }
  cairo_stroke(context);
}

void outlinedText(cairo_t* context, double x, double y, const std::string& text) {
  cairo_move_to(context, x, y);
  cairo_text_path(context, text.c_str());
  cairo_set_source_rgba(context, 1, 1, 1, 0.9);
  cairo_set_line_width(context, 3.0);
  cairo_stroke_preserve(context);
  cairo_set_source_rgb(context, 0.1, 0.1, 0.12);
  cairo_fill(context);
}

}  // namespace

void drawBaseMap(cairo_t* context, const MapViewport& viewport, const CoastTileIndex* coast) {
  cairo_save(context);
  setColour(context, coast ? kWater : kLand);
  cairo_paint(context);
  if (coast) {
    fillLand(context, viewport, *coast);
    strokeShore(context, viewport, *coast);
  }
  drawGraticule(context, viewport);
  cairo_restore(context);
}

void drawPlaceMarker(cairo_t* context, const MapViewport& viewport, double latitude, double longitude,
                     const std::string& label) {
  const MapPoint at = viewport.pixelOf(latitude, longitude);
  cairo_save(context);
  cairo_arc(context, at.x, at.y, 6.0, 0, 2 * M_PI);
  cairo_set_source_rgb(context, 1, 1, 1);
  cairo_fill_preserve(context);
  cairo_set_source_rgb(context, 0.1, 0.1, 0.12);
  cairo_set_line_width(context, 2.0);
  cairo_stroke(context);
  cairo_arc(context, at.x, at.y, 2.5, 0, 2 * M_PI);
  cairo_fill(context);
  cairo_select_font_face(context, "DejaVu Sans", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_BOLD);
  cairo_set_font_size(context, 15.0);
  outlinedText(context, at.x + 10, at.y + 5, label);
  cairo_restore(context);
}

void drawCaption(cairo_t* context, const MapViewport& viewport, const std::string& text, const std::string& note) {
  cairo_save(context);
  cairo_select_font_face(context, "DejaVu Sans", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_BOLD);
  cairo_set_font_size(context, 16.0);
  cairo_text_extents_t extents;
  cairo_text_extents(context, text.c_str(), &extents);
  cairo_rectangle(context, 8, 8, extents.x_advance + 16, 28);
  cairo_set_source_rgba(context, 0.1, 0.1, 0.12, 0.75);
  cairo_fill(context);
  cairo_move_to(context, 16, 28);
  cairo_set_source_rgb(context, 1, 1, 1);
  cairo_show_text(context, text.c_str());
  cairo_select_font_face(context, "DejaVu Sans", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
  cairo_set_font_size(context, 11.0);
  cairo_text_extents(context, note.c_str(), &extents);
  outlinedText(context, viewport.width - extents.x_advance - 8, viewport.height - 8, note);
  cairo_restore(context);
}

}  // namespace ombrine
