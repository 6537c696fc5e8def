#include "web/land_lines.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "core/values/geo.hpp"

namespace ombrine::web {

namespace {

// One pixel of a 256-pixel tile at `zoom`, in map points: points closer than this to the last
// kept one add nothing visible.
double pixelInMapPoints(int zoom) { return kMapWorldSize / (256.0 * std::ldexp(1.0, zoom)); }

// Decimals of a degree that still move a point by a pixel at `zoom`.
int decimalsFor(int zoom) { return zoom < 6 ? 2 : zoom < 10 ? 3 : 4; }

class LineWriter {
 public:
  LineWriter(std::string& out, double tolerance, int decimals)
      : out_(out), tolerance_(tolerance), decimals_(decimals) {}

  void add(const CoastTileIndex::Segment& segment) {
    if (!open_ || !(segment.start == last_)) {
      finish();
      begin(segment.start);
    }
    last_ = segment.end;
    if (std::hypot(segment.end.x - kept_.x, segment.end.y - kept_.y) >= tolerance_) point(segment.end);
  }
  void finish() {
    if (!open_) return;
    if (!(kept_ == last_)) point(last_);
    out_ += ']';
    open_ = false;
  }

 private:
  void begin(MapPoint start) {
    if (any_) out_ += ',';
    any_ = true;
    open_ = true;
    out_ += '[';
    first_ = true;
    point(start);
    last_ = start;
  }
  void point(MapPoint at) {
    const MapCoordinate coordinate = coordinateForMapPoint(at);
    if (!first_) out_ += ',';
    first_ = false;
    fmt::format_to(std::back_inserter(out_), "[{:.{}f},{:.{}f}]", coordinate.longitude, decimals_, coordinate.latitude,
                   decimals_);
    kept_ = at;
  }

  std::string& out_;
  double tolerance_;
  int decimals_;
  bool any_ = false, open_ = false, first_ = true;
  MapPoint last_, kept_;
};

}  // namespace

std::string landLinesGeoJson(const CoastTileIndex& index, LandBox box, int zoom) {
  const bool finite =
      std::isfinite(box.west) && std::isfinite(box.east) && std::isfinite(box.south) && std::isfinite(box.north);
  if (!finite || box.west >= box.east || box.south >= box.north) {
    throw std::invalid_argument("bbox must be WEST,SOUTH,EAST,NORTH with west < east and south < north");
  }
  if (zoom < 0 || zoom > 18) throw std::invalid_argument("zoom must be 0 to 18");
  const double size = index.tileSizeDegrees();
  const auto clampIndex = [size](double degrees, double offset, double span) {
    return static_cast<std::int32_t>(std::floor((std::clamp(degrees, -offset, span - offset) + offset) / size));
  };
  const std::int32_t southIndex = clampIndex(box.south, 90, 180), northIndex = clampIndex(box.north, 90, 180);
  const std::int32_t westIndex = clampIndex(box.west, 180, 360), eastIndex = clampIndex(box.east, 180, 360);

  std::string out =
      R"({"type":"Feature","properties":{"source":"Natural Earth"},"geometry":{"type":"MultiLineString","coordinates":[)";
  LineWriter lines(out, pixelInMapPoints(zoom), decimalsFor(zoom));
  const auto segments = index.allSegments();
  for (std::int32_t latitude = southIndex; latitude <= northIndex; ++latitude) {
    for (std::int32_t longitude = westIndex; longitude <= eastIndex; ++longitude) {
      const auto range = index.segmentRange({latitude, longitude});
      if (!range) continue;
      for (auto i = range->begin; i < range->end; ++i) lines.add(segments[i]);
      lines.finish();
    }
  }
  lines.finish();
  out += "]}}";
  return out;
}

}  // namespace ombrine::web
