#include "web/land_lines.hpp"

#include <gtest/gtest.h>

#include "core/values/geo.hpp"
#include "core/values/value_json.hpp"

namespace ombrine::web {
namespace {

CoastTileIndex::Segment segment(double lat0, double lon0, double lat1, double lon1) {
  return {mapPointForCoordinate(lat0, lon0), mapPointForCoordinate(lat1, lon1)};
}

// One tile (lat 10..11, lon 20..21) holding a chain of three segments and one lone segment.
CoastTileIndex sampleIndex() {
  CoastTileIndex::LoadedIndex loaded;
  loaded.tileSizeDegrees = 1.0;
  loaded.allSegments = {segment(10.1, 20.1, 10.2, 20.2), segment(10.2, 20.2, 10.2001, 20.2001),
                        segment(10.2001, 20.2001, 10.5, 20.5), segment(10.8, 20.8, 10.9, 20.9)};
  loaded.tileSegmentRanges = {{{100, 200}, {0, 4}}};
  return CoastTileIndex(std::move(loaded));
}

TEST(LandLines, ChainsSegmentsThinsByZoomAndKeepsToTheBox) {
  const CoastTileIndex index = sampleIndex();
  struct Case {
    LandBox box;
    int zoom;
    std::size_t lines;
    std::size_t firstLinePoints;
  };
  const Case cases[] = {
      {{19, 9, 22, 12}, 18, 2, 4},  // every point at full zoom
      {{19, 9, 22, 12}, 6, 2, 3},   // the 15 m step vanishes, the line's end stays
      {{-10, -10, 0, 0}, 6, 0, 0},  // nothing in the box
  };
  for (const auto& c : cases) {
    const auto document = parseJson(landLinesGeoJson(index, c.box, c.zoom));
    const auto& lines = document.at("geometry").at("coordinates").as_array();
    ASSERT_EQ(lines.size(), c.lines) << c.zoom;
    if (c.lines == 0) continue;
    EXPECT_EQ(lines[0].as_array().size(), c.firstLinePoints) << c.zoom;
    const auto& last = lines[0].as_array().back().as_array();
    EXPECT_NEAR(last[0].to_number<double>(), 20.5, 1e-3);
    EXPECT_NEAR(last[1].to_number<double>(), 10.5, 1e-3);
  }
}

TEST(LandLines, RefusesBadBoxesAndZooms) {
  const CoastTileIndex index = sampleIndex();
  EXPECT_THROW(landLinesGeoJson(index, {10, 0, 5, 1}, 3), std::invalid_argument);
  EXPECT_THROW(landLinesGeoJson(index, {0, 0, 1, 1}, 19), std::invalid_argument);
  EXPECT_THROW(landLinesGeoJson(index, {0, 0, 1, std::nan("")}, 3), std::invalid_argument);
}

}  // namespace
}  // namespace ombrine::web
