#include "core/values/location.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <unordered_set>

#include "core/values/time_zone.hpp"

namespace ombrine {
namespace {

TEST(LocationTest, EqualityAndHashUseOnlyTheCoordinate) {
  const Location base(60.17, 24.94);
  struct Row {
    const char* why;
    Location other;
    bool equal;
  };
  const Row rows[] = {
      {"other altitude, accuracy and time", Location(60.17, 24.94, 1200.0, 5.0, 3.0, Date{1000.0}), true},
      {"latitude differs in the last bit", Location(std::nextafter(60.17, 90.0), 24.94), false},
      {"longitude differs", Location(60.17, 24.95), false},
      {"latitude and longitude swapped", Location(24.94, 60.17), false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    EXPECT_EQ(base == row.other, row.equal);
    if (row.equal) EXPECT_EQ(std::hash<Location>{}(base), std::hash<Location>{}(row.other));
  }

  // On the equator and the prime meridian the sign of zero must not split one place in two.
  const Location zero(0.0, 0.0);
  const Location negativeZero(-0.0, -0.0, 10.0, 1.0, 1.0, Date{});
  EXPECT_EQ(zero, negativeZero);
  EXPECT_EQ(std::hash<Location>{}(zero), std::hash<Location>{}(negativeZero));
  std::unordered_set<Location> places = {zero, negativeZero, base, Location(60.17, 24.94, 5, 5, 5, Date{})};
  EXPECT_EQ(places.size(), 2u);
}

TEST(LocationTest, DistanceIsGreatCircle) {
  const Location helsinki(60.1699, 24.9384);
  const Location tallinn(59.4370, 24.7536);
  EXPECT_NEAR(helsinki.distance(tallinn), 82'000.0, 1'000.0);
  EXPECT_DOUBLE_EQ(helsinki.distance(helsinki), 0.0);
  // Across the date line the short way round, not around the globe.
  EXPECT_NEAR(Location(0, 179.5).distance(Location(0, -179.5)), 111'195.0, 100.0);
}

TEST(TimeZoneTest, NamedFixedAndUnknownZones) {
  const Date winter = Date::fromUnix(1704067200.0);  // 2024-01-01T00:00:00Z
  const Date summer = Date::fromUnix(1719792000.0);  // 2024-07-01T00:00:00Z

  const auto helsinki = TimeZone::named("Europe/Helsinki");
  ASSERT_TRUE(helsinki);
  EXPECT_EQ(helsinki->identifier(), "Europe/Helsinki");
  EXPECT_EQ(helsinki->secondsFromGMT(winter), 2 * 3600);
  EXPECT_EQ(helsinki->secondsFromGMT(summer), 3 * 3600);

  const auto kolkata = TimeZone::fixedOffset(5 * 3600 + 30 * 60);
  ASSERT_TRUE(kolkata);
  EXPECT_EQ(kolkata->identifier(), "GMT+0530");
  EXPECT_EQ(kolkata->secondsFromGMT(summer), 19800);
  EXPECT_EQ(TimeZone::fixedOffset(-3600)->identifier(), "GMT-0100");
  EXPECT_EQ(TimeZone::fixedOffset(0)->identifier(), "GMT");
  EXPECT_EQ(TimeZone::fixedOffset(18 * 3600)->secondsFromGMT(winter), 18 * 3600);
  EXPECT_FALSE(TimeZone::fixedOffset(18 * 3600 + 1));
  EXPECT_FALSE(TimeZone::fixedOffset(-18 * 3600 - 1));

  EXPECT_FALSE(TimeZone::named("Mars/Olympus_Mons"));
  EXPECT_FALSE(TimeZone::named(""));
  EXPECT_EQ(TimeZone::gmt().secondsFromGMT(summer), 0);
  EXPECT_EQ(TimeZone::named("Europe/Helsinki"), helsinki);
  EXPECT_NE(TimeZone::named("Europe/Tallinn"), helsinki);
}

}  // namespace
}  // namespace ombrine
