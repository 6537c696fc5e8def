#include "history/solar_events.hpp"

#include <gtest/gtest.h>

#include <cmath>

#include "history/civil_date.hpp"

namespace ombrine {
namespace {

Date utcDay(int year, int month, int day) { return utcMidnight(daysFromCivil(CivilDate{year, month, day})); }

struct Place {
  const char* name;
  double latitude;
  double longitude;
};

TEST(SolarEventsTest, PolarStatesAndTheirDaylightState) {
  using R = SolarEventCalculationResult;
  struct Row {
    const char* why;
    Place place;
    CivilDate day;
    SunDaylightState state;
    bool officialEvents;
  };
  const Row rows[] = {
      // clang-format off
      {"Tromsø at midsummer: the sun never sets", {"Tromsø", 69.6492, 18.9553}, {2026, 6, 21}, SunDaylightState::polarDay, false},
      {"Tromsø at midwinter: it never rises", {"Tromsø", 69.6492, 18.9553}, {2026, 12, 21}, SunDaylightState::polarNight, false},
      {"the south pole's summer is in December", {"McMurdo", -77.85, 166.67}, {2026, 12, 21}, SunDaylightState::polarDay, false},
      {"Munich in winter is an ordinary day", {"Munich", 48.137, 11.575}, {2026, 12, 21}, SunDaylightState::normal, true},
      {"the equator at an equinox", {"Quito", -0.18, -78.47}, {2026, 3, 20}, SunDaylightState::normal, true},
      // clang-format on
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    const Solar solar(utcMidnight(daysFromCivil(row.day)), Location(row.place.latitude, row.place.longitude));
    EXPECT_EQ(solar.daylightState, row.state);
    EXPECT_EQ(solar.sunrise.has_value(), row.officialEvents);
    EXPECT_EQ(solar.sunset.has_value(), row.officialEvents);
  }
  // The state table itself, including the mixed cases.
  const R event = R::event(Date{});
  EXPECT_EQ(daylightStateOf(event, R::sunAlwaysAboveHorizon()), SunDaylightState::normal);
  EXPECT_EQ(daylightStateOf(R::sunAlwaysBelowHorizon(), event), SunDaylightState::normal);
  EXPECT_EQ(daylightStateOf(R::sunAlwaysAboveHorizon(), R::sunAlwaysBelowHorizon()), SunDaylightState::unavailable);
  EXPECT_EQ(daylightStateOf(R::unavailable(), R::unavailable()), SunDaylightState::unavailable);
}

TEST(SolarEventsTest, TwilightsWidenAroundTheOfficialPair) {
  const Solar solar(utcDay(2026, 9, 1), Location(48.137, 11.575));
  ASSERT_TRUE(solar.astronomicalSunrise && solar.nauticalSunrise && solar.civilSunrise && solar.sunrise);
  EXPECT_LT(*solar.astronomicalSunrise, *solar.nauticalSunrise);
  EXPECT_LT(*solar.nauticalSunrise, *solar.civilSunrise);
  EXPECT_LT(*solar.civilSunrise, *solar.sunrise);
  EXPECT_LT(*solar.sunset, *solar.civilSunset);
  EXPECT_LT(*solar.civilSunset, *solar.nauticalSunset);
  EXPECT_LT(*solar.nauticalSunset, *solar.astronomicalSunset);
  // At midsummer in Berlin the sun sinks only 14° below the horizon: astronomical twilight lasts
  // all night, nautical twilight still ends, and the official pair exists.
  const Solar june(utcDay(2026, 6, 21), Location(52.52, 13.40));
  EXPECT_TRUE(june.sunrise && june.sunset && june.nauticalSunrise && june.nauticalSunset);
  EXPECT_FALSE(june.astronomicalSunrise || june.astronomicalSunset);
  EXPECT_EQ(june.daylightState, SunDaylightState::normal);
}

TEST(SolarEventsTest, DayShiftByLongitude) {
  struct Row {
    const char* why;
    double longitude;
    SolarEventKind kind;
    int expectedOffset;
  };
  const Row rows[] = {
      {"longitude 0: a rise stays on its day", 0.0, SolarEventKind::rise, 0},
      {"longitude 0: a set stays on its day", 0.0, SolarEventKind::set, 0},
      {"far east: sunrise's UT lies in the previous UTC day", 174.8, SolarEventKind::rise, -1},
      {"far east: sunset is on the day", 174.8, SolarEventKind::set, 0},
      {"far west: sunset's UT lies in the next UTC day", -157.4, SolarEventKind::set, 1},
      {"far west: sunrise is on the day", -157.4, SolarEventKind::rise, 0},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    const Date day = utcDay(2026, 4, 10);
    const auto time = solarEventTime(row.kind, day, SolarZenith::official, Location(10.0, row.longitude));
    ASSERT_TRUE(std::holds_alternative<SolarEventTime>(time));
    EXPECT_EQ(std::get<SolarEventTime>(time).dayOffset, row.expectedOffset);
    const auto instant = calculate(row.kind, day, SolarZenith::official, Location(10.0, row.longitude)).instant();
    ASSERT_TRUE(instant);
    EXPECT_EQ(utcDayNumber(*instant), utcDayNumber(day) + row.expectedOffset);
  }
  // Longitude 0 never shifts, on any day of a year.
  for (int n = 0; n < 365; ++n) {
    const Date day = utcDay(2026, 1, 1) + n * 86400.0;
    for (const auto kind : {SolarEventKind::rise, SolarEventKind::set}) {
      const auto instant = calculate(kind, day, SolarZenith::official, Location(30.0, 0.0)).instant();
      ASSERT_TRUE(instant);
      ASSERT_EQ(utcDayNumber(*instant), utcDayNumber(day)) << "day " << n;
    }
  }
}

TEST(SolarEventsTest, SecondsAreTruncated) {
  // Look for events whose exact second has a fraction of .9 or more: each must keep the whole
  // second below it, never the one above.
  int checked = 0;
  for (int n = 0; n < 365 && checked < 5; ++n) {
    const Date day = utcDay(2026, 1, 1) + n * 86400.0;
    const Location place(45.0, 7.3);
    const auto time = solarEventTime(SolarEventKind::rise, day, SolarZenith::official, place);
    const auto& event = std::get<SolarEventTime>(time);
    const double exactSeconds = event.hours * 3600.0;
    const double hour = std::floor(event.hours);
    const double minutes = (event.hours - hour) * 60.0;
    const double fraction = (minutes - std::floor(minutes)) * 60.0;
    if (fraction - std::floor(fraction) < 0.9) continue;
    ++checked;
    const Date instant = *calculate(SolarEventKind::rise, day, SolarZenith::official, place).instant();
    const double secondsIntoDay = instant - utcMidnight(utcDayNumber(instant));
    EXPECT_EQ(secondsIntoDay, std::floor(exactSeconds)) << "day " << n;
    EXPECT_LT(secondsIntoDay, exactSeconds);
  }
  EXPECT_EQ(checked, 5);
}

TEST(SolarEventsTest, TheUtcDayOfTheInstantIsTheDayAsked) {
  // Any instant of a UTC day gives that day's events: the day number ignores the time of day.
  const Location place(52.52, 13.40);
  const auto midnight = calculate(SolarEventKind::rise, utcDay(2026, 5, 5), SolarZenith::official, place);
  const auto evening = calculate(SolarEventKind::rise, utcDay(2026, 5, 5) + 86399.0, SolarZenith::official, place);
  EXPECT_EQ(midnight, evening);
  // A leap day has its own day number: 29 February and 1 March differ by about two minutes.
  const auto leap = calculate(SolarEventKind::rise, utcDay(2024, 2, 29), SolarZenith::official, place).instant();
  const auto march = calculate(SolarEventKind::rise, utcDay(2024, 3, 1), SolarZenith::official, place).instant();
  ASSERT_TRUE(leap && march);
  EXPECT_NEAR(*march - *leap, 86400.0 - 2 * 60.0, 60.0);
  // Non-finite input is unavailable, not a crash.
  EXPECT_EQ(calculate(SolarEventKind::set, Date{NAN}, SolarZenith::official, place),
            SolarEventCalculationResult::unavailable());
}

}  // namespace
}  // namespace ombrine
