#include "storms/storm_overlay_plan.hpp"

#include <gtest/gtest.h>

#include "core/values/value_json.hpp"
#include "storms/storm_time.hpp"

namespace ombrine {
namespace {

using Role = StormOverlayRole;

boost::urls::url url(const char* text) { return boost::urls::url(text); }

TEST(StormOverlayPlanTest, OneDownloadPerDistinctURL) {
  Storm jtwc;
  jtwc.id = "WP0126";
  jtwc.coneURL = jtwc.trackURL = jtwc.historyURL = url("https://j/wp0126.kmz");
  Storm nhc;
  nhc.id = "AL052026";
  nhc.coneURL = url("https://n/cone.kmz");
  nhc.trackURL = url("https://n/track.kmz");
  nhc.historyURL = url("https://n/best.kmz");
  Storm partial;
  partial.trackURL = url("https://n/track.kmz");
  partial.historyURL = url("https://n/track.kmz");
  struct Row {
    const char* why;
    Storm storm;
    std::vector<StormOverlayResourcePlan> plans;
  };
  const Row rows[] = {
      {"JTWC: one file, every role", jtwc, {{url("https://j/wp0126.kmz"), {Role::cone, Role::track, Role::history}}}},
      {"NHC: three files",
       nhc,
       {{url("https://n/cone.kmz"), {Role::cone}},
        {url("https://n/track.kmz"), {Role::track}},
        {url("https://n/best.kmz"), {Role::history}}}},
      {"no cone: no plan for it", partial, {{url("https://n/track.kmz"), {Role::track, Role::history}}}},
      {"no files at all", Storm{}, {}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    EXPECT_EQ(resourcePlans(StormOverlayRevisionID::revision(row.storm)), row.plans);
  }
  Storm later = nhc;
  later.forecastIssuance = utcDate(2026, 9, 1, 0, 0);
  EXPECT_NE(StormOverlayRevisionID::revision(later), StormOverlayRevisionID::revision(nhc));
}

TEST(StormOverlayPlanTest, ForecastHours) {
  const std::pair<std::optional<std::string>, std::optional<long long>> rows[] = {
      {"CURRENT", 0},        {"current position", 0},      {"24", 24}, {"TAU 120", 120}, {"+12h", 12},
      {"now", std::nullopt}, {std::nullopt, std::nullopt},
  };
  for (const auto& [text, hour] : rows) EXPECT_EQ(forecastHourNumber(text), hour) << text.value_or("(none)");
}

KMLCircleFeature point(double lat, double lon, std::optional<std::string> hour = std::nullopt,
                       std::optional<Date> time = std::nullopt) {
  KMLCircleFeature c;
  c.coordinate = {lat, lon};
  c.forecastHour = std::move(hour);
  c.time = time;
  return c;
}

TEST(StormOverlayPlanTest, BridgeJoinsTheLatestPastToTheFirstForecast) {
  const auto t = [](int hour) { return utcDate(2026, 9, 1, hour, 0); };
  struct Row {
    const char* why;
    std::vector<KMLCircleFeature> history;
    std::vector<KMLCircleFeature> forecast;
    std::optional<std::pair<KMLCoordinate, KMLCoordinate>> joined;
  };
  const Row rows[] = {
      {"latest past by time, lowest hour first",
       {point(10, 130, {}, t(6)), point(10.5, 130, {}, t(0))},
       {point(12, 129, "24"), point(11, 129.5, "current")},
       std::pair{KMLCoordinate{10, 130}, KMLCoordinate{11, 129.5}}},
      {"across the date line",
       {point(20, 179.8, {}, t(0))},
       {point(20.5, -179.9, "0", t(6))},
       std::pair{KMLCoordinate{20, 179.8}, KMLCoordinate{20.5, -179.9}}},
      {"points that already meet", {point(10, 130)}, {point(10, 130.001, "0")}, std::nullopt},
      {"too far apart to be one system", {point(10, 130)}, {point(20, 130, "0")}, std::nullopt},
      {"past later than forecast", {point(10, 130, {}, t(12))}, {point(11, 130, "0", t(6))}, std::nullopt},
      {"no past track", {}, {point(11, 130, "0")}, std::nullopt},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    const auto joined = bridge(row.history, row.forecast);
    ASSERT_EQ(joined.has_value(), row.joined.has_value());
    if (joined) {
      EXPECT_EQ(joined->historyPoint.coordinate, row.joined->first);
      EXPECT_EQ(joined->forecastPoint.coordinate, row.joined->second);
    }
  }
}

TEST(StormOverlayPlanTest, CirclesAreStyledByIntensity) {
  const std::pair<std::optional<std::string>, const char*> rows[] = {
      {"HU5", "#ff6060"}, {"hu3", "#ffc140"}, {"HU", "#ffffcc"}, {"HU9", "#ff6060"},       {"TS", "#00faf4"},
      {"TD", "#5ebaff"},  {"PTC", "#5ebaff"}, {"LO", "#c0c0c0"}, {std::nullopt, "#c0c0c0"}};
  for (const auto& [tag, color] : rows) {
    KMLCircleFeature circle = point(1, 2);
    circle.intensityTag = tag;
    const auto styled = overlays({KMLOverlayFeature(circle)});
    ASSERT_EQ(styled.size(), 1u);
    EXPECT_EQ(std::get<StyledCircle>(styled[0]).color, color) << tag.value_or("(none)");
  }
}

TEST(StormOverlayPlanTest, TracksStayContinuousAcrossTheDateLine) {
  const std::vector<KMLCoordinate> east = {{10, 178}, {11, 179.5}, {12, -179.5}, {13, -178}};
  EXPECT_EQ(continuousAcrossDateLine(east),
            (std::vector<KMLCoordinate>{{10, 178}, {11, 179.5}, {12, 180.5}, {13, 182}}));
  const std::vector<KMLCoordinate> west = {{10, -179}, {11, 179}};
  EXPECT_EQ(continuousAcrossDateLine(west), (std::vector<KMLCoordinate>{{10, -179}, {11, -181}}));
}

TEST(StormOverlayPlanTest, OneFileServingTrackAndHistorySplitsItsPoints) {
  StormOverlay overlay;
  const std::vector<KMLOverlayFeature> features = {
      KMLPolygon{{{1, 1}, {2, 2}, {1, 2}}}, KMLOverlayFeature(point(9, 131)), KMLOverlayFeature(point(10, 130.5)),
      KMLOverlayFeature(point(12, 129, "24")), KMLOverlayFeature(point(11, 130, "0"))};
  addOverlayFeatures(overlay, {Role::cone, Role::track, Role::history}, features);
  EXPECT_EQ(overlay.cone.size(), 1u);
  ASSERT_EQ(overlay.historyPoints.size(), 2u);
  ASSERT_EQ(overlay.forecastPoints.size(), 2u);
  EXPECT_EQ(overlay.forecastPoints[0].forecastHour, "0");  // by forecast hour
  ASSERT_TRUE(overlay.trackBridge);
  EXPECT_EQ(overlay.trackBridge->historyPoint.coordinate, (KMLCoordinate{10, 130.5}));

  Storm storm;
  storm.id = "WP0126";
  const auto geojson = parseJson(stormOverlayGeoJson(storm, overlay));
  const auto& list = geojson.at("features").as_array();
  EXPECT_EQ(list.size(), 1u + 3u + 2u);  // cone; history, track, bridge lines; two forecast points
  EXPECT_EQ(list[0].at("geometry").at("type").as_string(), "Polygon");
}

}  // namespace
}  // namespace ombrine
