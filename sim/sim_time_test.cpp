#include "sim/sim_time.hpp"

#include <gtest/gtest.h>

namespace ombrine::sim {
namespace {

using namespace std::chrono;

Instant at(const char* text) { return *parseUtc(text); }

TEST(SimTimeTest, OffsetFollowsLongitudeUpToTheDateLine) {
  struct Row {
    double longitude;
    int hours;
  };
  const Row rows[] = {
      {0.0, 0},   {7.4, 0},   {7.5, 1},  // halfway rounds away from zero
      {-7.5, -1}, {24.94, 2}, {-74.0, -5}, {179.9, 12}, {180.0, 12}, {-179.9, -12}, {-180.0, -12},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.longitude);
    EXPECT_EQ(longitudeUtcOffset(row.longitude), hours(row.hours));
  }
}

TEST(SimTimeTest, FormatsLocalMinutesAndDays) {
  const Instant instant = at("2026-01-15T23:30:59Z");
  EXPECT_EQ(formatLocalMinute(instant, hours(0)), "2026-01-15T23:30Z");
  EXPECT_EQ(formatLocalMinute(instant, hours(2)), "2026-01-16T01:30+02:00");
  EXPECT_EQ(formatLocalMinute(instant, hours(-12)), "2026-01-15T11:30-12:00");
  EXPECT_EQ(formatLocalMinute(instant, minutes(-330)), "2026-01-15T18:00-05:30");
  EXPECT_EQ(formatDay(localDay(instant, hours(12))), "2026-01-16");
  EXPECT_EQ(formatDay(localDay(instant, hours(-12))), "2026-01-15");
  EXPECT_EQ(startOfLocalDay(localDay(instant, hours(2)), hours(2)), at("2026-01-15T22:00:00Z"));
  EXPECT_EQ(formatUtc(instant), "2026-01-15T23:30:59Z");
  EXPECT_EQ(formatUtc(instant, true), "2026-01-15T23:30:59.000Z");
}

TEST(SimTimeTest, ParsesOnlyWellFormedUtcTimes) {
  EXPECT_EQ(parseUtc("2024-02-29T12:00Z"), at("2024-02-29T12:00:00Z"));
  for (const char* bad : {"2025-02-29T12:00:00Z", "2026-01-15T24:00:00Z", "2026-01-15 12:00:00Z", "2026-01-15T12:00:00",
                          "2026-01-15T12:00:00+01:00", "2026-1-15T12:00:00Z", "", "2026-01-15T12:0a:00Z"}) {
    SCOPED_TRACE(bad);
    EXPECT_FALSE(parseUtc(bad));
  }
}

}  // namespace
}  // namespace ombrine::sim
