#include "history/daily_sun_times.hpp"

#include <gtest/gtest.h>

#include "history/zoned_calendar.hpp"

namespace ombrine {
namespace {

TimeZone zone(const char* identifier) {
  auto named = TimeZone::named(identifier);
  if (!named) throw std::runtime_error(std::string("no zone ") + identifier);
  return *named;
}

const DailySunTimes& entryOf(const std::vector<DailySunTimes>& days, const TimeZone& timeZone, CivilDate day) {
  auto calendar = ZonedCalendar::make(timeZone);
  for (const auto& entry : days) {
    if (calendar->localTime(entry.date)->date == day) return entry;
  }
  throw std::runtime_error("no entry for the day");
}

TEST(DailySunTimesTest, OneEntryPerLocalDay) {
  struct Row {
    const char* why;
    int year;
    const char* zone;
    size_t entries;
  };
  const Row rows[] = {
      {"an ordinary year", 2026, "Europe/Berlin", 365},
      {"a leap year", 2024, "Europe/Berlin", 366},
      {"a century that is no leap year", 2100, "Europe/Berlin", 365},
      {"a fourth century that is one", 2000, "America/New_York", 366},
      {"a local date the zone skipped has no entry", 2011, "Pacific/Apia", 364},
      {"a zone whose clocks change at midnight", 2026, "America/Havana", 365},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    const TimeZone timeZone = zone(row.zone);
    const auto days = dailySunTimes(row.year, Location(40.0, 10.0), timeZone);
    ASSERT_EQ(days.size(), row.entries);
    // Distinct local days in order, each entry starting at its day's first instant.
    auto calendar = ZonedCalendar::make(timeZone);
    std::int64_t previous = daysFromCivil(CivilDate{row.year, 1, 1}) - 1;
    for (size_t i = 0; i < days.size(); ++i) {
      const auto local = calendar->localTime(days[i].date);
      ASSERT_TRUE(local);
      EXPECT_GT(daysFromCivil(local->date), previous) << "entry " << i;
      previous = daysFromCivil(local->date);
      EXPECT_TRUE(local->hour == 0 || (local->hour == 1 && local->minute == 0)) << "entry " << i;
    }
    EXPECT_EQ(previous, daysFromCivil(CivilDate{row.year, 12, 31}));
  }
}

TEST(DailySunTimesTest, TwentyThreeAndTwentyFiveHourDays) {
  const TimeZone berlin = zone("Europe/Berlin");
  const auto days = dailySunTimes(2026, Location(52.52, 13.40), berlin);
  struct Row {
    const char* why;
    CivilDate day;
    double length;
  };
  const Row rows[] = {
      {"spring forward: a 23-hour day", {2026, 3, 29}, 23 * 3600.0},
      {"fall back: a 25-hour day", {2026, 10, 25}, 25 * 3600.0},
      {"an ordinary day", {2026, 7, 1}, 24 * 3600.0},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    const auto& entry = entryOf(days, berlin, row.day);
    const auto& next = entryOf(days, berlin, civilFromDays(daysFromCivil(row.day) + 1));
    EXPECT_EQ(next.date - entry.date, row.length);
    // Clock seconds read the wall clock, not the time since midnight.
    ASSERT_TRUE(entry.sunrise && entry.sunriseClockSeconds);
    auto calendar = ZonedCalendar::make(berlin);
    const auto local = calendar->localTime(*entry.sunrise);
    EXPECT_EQ(*entry.sunriseClockSeconds, local->hour * 3600.0 + local->minute * 60.0 + local->second);
    EXPECT_GT(*entry.sunriseClockSeconds, 4 * 3600.0);
    EXPECT_LT(*entry.sunriseClockSeconds, 8 * 3600.0);
  }
}

TEST(DailySunTimesTest, PolarDayAndNightInTromso) {
  const TimeZone oslo = zone("Europe/Oslo");
  const auto days = dailySunTimes(2026, Location(69.6492, 18.9553), oslo);
  struct Row {
    const char* why;
    CivilDate day;
    SunDaylightState state;
    std::optional<double> duration;
  };
  const Row rows[] = {
      {"midnight sun", {2026, 6, 21}, SunDaylightState::polarDay, 86400.0},
      {"polar night", {2026, 12, 21}, SunDaylightState::polarNight, 0.0},
      {"an equinox day has both events", {2026, 3, 20}, SunDaylightState::normal, std::nullopt},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    const auto& entry = entryOf(days, oslo, row.day);
    EXPECT_EQ(entry.daylightState, row.state);
    if (row.state != SunDaylightState::normal) {
      EXPECT_FALSE(entry.sunrise || entry.sunset || entry.sunriseClockSeconds || entry.sunsetClockSeconds);
      EXPECT_EQ(entry.daylightDuration, row.duration);
    } else {
      ASSERT_TRUE(entry.daylightDuration);
      EXPECT_NEAR(*entry.daylightDuration, 12.3 * 3600, 0.5 * 3600);
    }
  }
  // Days at the edge of a polar season may have one event only: normal, with no duration.
  for (const auto& entry : days) {
    if (entry.daylightState == SunDaylightState::normal && (!entry.sunrise || !entry.sunset)) {
      EXPECT_FALSE(entry.daylightDuration);
    }
  }
}

TEST(DailySunTimesTest, EventsAreAlignedWithTheLocalDay) {
  struct Row {
    const char* why;
    const char* zone;
    Location place;
  };
  const Row rows[] = {
      {"UTC+14 west of the date line: the sunrise instant lands on the next local day first", "Pacific/Kiritimati",
       Location(1.87, -157.4)},
      {"far east: sunrise's UT lies on the previous UTC date", "Pacific/Auckland", Location(-36.85, 174.76)},
      {"far west", "Pacific/Pago_Pago", Location(-14.28, -170.70)},
      {"longitude 0", "Europe/London", Location(51.48, 0.0)},
      {"a zone far from its longitude", "Asia/Kashgar", Location(39.47, 75.99)},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    const TimeZone timeZone = zone(row.zone);
    const auto days = dailySunTimes(2026, row.place, timeZone);
    ASSERT_EQ(days.size(), 365u);
    auto calendar = ZonedCalendar::make(timeZone);
    for (const auto& entry : days) {
      const CivilDate day = calendar->localTime(entry.date)->date;
      ASSERT_TRUE(entry.sunrise && entry.sunset);
      EXPECT_EQ(calendar->localTime(*entry.sunrise)->date, day);
      ASSERT_TRUE(entry.sunriseClockSeconds && entry.sunsetClockSeconds && entry.daylightDuration);
      EXPECT_GE(*entry.sunriseClockSeconds, 0.0);
      EXPECT_LT(*entry.sunriseClockSeconds, 86400.0);
      EXPECT_GE(*entry.daylightDuration, 0.0);
      EXPECT_LE(*entry.daylightDuration, 86400.0);
    }
  }
  // The single-day form agrees with the year's list.
  const TimeZone kiritimati = zone("Pacific/Kiritimati");
  const auto year = dailySunTimes(2026, Location(1.87, -157.4), kiritimati);
  EXPECT_EQ(dailySunTimes(CivilDate{2026, 5, 17}, Location(1.87, -157.4), kiritimati), year[136]);
}

TEST(DailySunTimesTest, DaylightDurationFolding) {
  const Date t0 = Date::fromUnix(0);
  struct Row {
    const char* why;
    SunDaylightState state;
    std::optional<Date> rise;
    std::optional<Date> set;
    std::optional<double> expected;
  };
  const Row rows[] = {
      {"plain day", SunDaylightState::normal, t0, t0 + 3600.0, 3600.0},
      {"sunset before sunrise on the clock wraps forward", SunDaylightState::normal, t0, t0 - 3600.0, 82800.0},
      {"over a day folds back", SunDaylightState::normal, t0, t0 + 2 * 86400.0 + 60.0, 60.0},
      {"exactly a day stays a day", SunDaylightState::normal, t0, t0 + 86400.0, 86400.0},
      {"one event missing", SunDaylightState::normal, t0, std::nullopt, std::nullopt},
      {"polar day", SunDaylightState::polarDay, std::nullopt, std::nullopt, 86400.0},
      {"polar night", SunDaylightState::polarNight, std::nullopt, std::nullopt, 0.0},
      {"unavailable", SunDaylightState::unavailable, t0, t0 + 60.0, std::nullopt},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    EXPECT_EQ(daylightDuration(row.state, row.rise, row.set), row.expected);
  }
}

}  // namespace
}  // namespace ombrine
