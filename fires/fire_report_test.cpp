#include "fires/fire_report.hpp"

#include <gtest/gtest.h>

namespace ombrine {
namespace {

const Date kNow = Date::fromUnix(1784894400.0);  // 2026-07-24T12:00:00Z

TEST(FireReport, BearingsDistancesAndTheDateLine) {
  struct Case {
    double degrees;
    const char* name;
  };
  const Case bearings[] = {{0, "N"},     {11.2, "N"},  {11.3, "NNE"}, {90, "E"},
                           {200, "SSW"}, {348.8, "N"}, {-90, "W"},    {720, "N"}};
  for (const auto& c : bearings) EXPECT_EQ(fireBearingName(c.degrees), c.name) << c.degrees;

  FireMapData data;
  FireIncident east;
  east.id = "east";
  east.coordinate = {-17, -179.9};  // just across the date line from the centre
  FireIncident far;
  far.id = "far";
  far.coordinate = {-17, 170};
  data.incidents = {far, east};
  FirePerimeter ring;
  ring.id = "ring";
  ring.polygons.push_back({{{-17.2, 179.95}, {-17.2, -179.95}, {-17.3, -179.95}, {-17.2, 179.95}}, {}});
  data.perimeters = {ring};
  const auto list = fireListAround(data, FireCoordinate{-17, 179.9}, 100);
  ASSERT_EQ(list.incidents.size(), 1u);
  EXPECT_EQ(list.incidents[0].incident->id, "east");
  EXPECT_NEAR(list.incidents[0].distanceKilometres, 21.3, 0.1);
  EXPECT_EQ(fireBearingName(list.incidents[0].bearingDegrees), "E");
  ASSERT_EQ(list.perimeters.size(), 1u);
  EXPECT_EQ(fireBearingName(list.perimeters[0].bearingDegrees), "SSE");  // its nearest vertex
}

TEST(FireReport, ServiceStates) {
  FireServiceReport complete{.service = "NIFC incidents", .isComplete = true, .recordCount = 3};
  FireServiceReport snapshot{.service = "x",
                             .hasCompleteSnapshot = true,
                             .snapshotFetchedAt = kNow - 300,
                             .failureReason = FireFetchFailureReason::transient(),
                             .failure = "Fire service returned HTTP 503",
                             .recordCount = 2};
  FireServiceReport cooling{.service = "x",
                            .failureReason = FireFetchFailureReason::rateLimited(65),
                            .cooldownUntil = kNow + 65,
                            .failure = "Fire service returned HTTP 429"};
  FireServiceReport failed{.service = "x", .failureReason = FireFetchFailureReason::permanent(), .failure = "gone"};
  FireServiceReport notAsked{.service = "x", .asked = false, .isComplete = true};
  struct Case {
    const FireServiceReport& report;
    const char* text;
  };
  const Case cases[] = {
      {complete, "complete (3)"},
      {snapshot, "from a snapshot 5 min old (2), transient: Fire service returned HTTP 503"},
      {cooling, "cooling down until 12:01:05 UTC, rateLimited: Fire service returned HTTP 429"},
      {failed, "failed, permanent: gone"},
      {notAsked, "not asked (outside its area)"},
  };
  const ScreenWords english(icu::Locale("en_US"));
  for (const auto& c : cases) EXPECT_EQ(fireServiceStateText(c.report, kNow, english), c.text);
}

}  // namespace
}  // namespace ombrine
