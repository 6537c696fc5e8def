#include "trips/trip_timeline.hpp"

#include <gtest/gtest.h>

#include <cmath>

#include "trips/trip_calendar.hpp"
#include "trips/trips_test_support.hpp"

namespace ombrine {
namespace {

using namespace trips_testing;

TripLocation place(const char* name, const char* zoneName) {
  return TripLocation{name, std::nullopt, "airplane", Location(0.0, 0.0), zone(zoneName)};
}

Trip allDay(int n, const char* zoneName, CivilDay first, CivilDay last) {
  const TripCalendar destination(zone(zoneName));
  return Trip{idNumber(n), place("There", zoneName),
              TripDates{.from = destination.date(first), .to = destination.date(last, WallTime{23, 59, 59})}};
}

Trip timed(int n, Date from, Date to, const char* zoneName = "Europe/Madrid") {
  return Trip{idNumber(n), place("There", zoneName),
              TripDates{.from = from, .to = to, .hasTimes = true, .hasArrivalTime = true}};
}

// Daily rows as a provider delivers them: one per local day at local noon, `count` days from `first`.
std::vector<OneCallWeather::Daily> dailyRows(const char* zoneName, CivilDay first, int count) {
  const TripCalendar calendar(zone(zoneName));
  std::vector<OneCallWeather::Daily> rows;
  Date noon = calendar.date(first, WallTime{12, 0, 0});
  for (int i = 0; i < count; ++i) {
    OneCallWeather::Daily row;
    row.dt = noon;
    row.temp.max = Temperature::celsius(20.0 + i);
    rows.push_back(row);
    noon = calendar.addingDays(noon, 1);
  }
  return rows;
}

std::vector<CivilDay> daysOf(const std::vector<OneCallWeather::Daily>& rows, const char* zoneName) {
  const TripCalendar calendar(zone(zoneName));
  std::vector<CivilDay> days;
  for (const auto& row : rows) days.push_back(calendar.day(row.dt));
  return days;
}

TEST(TripTimelineTest, LayoutSkipsEmptyForecastsWithoutLeavingAGap) {
  const auto rows = dailyRows("Europe/Madrid", {2027, 5, 1}, 3);
  const Trip a = allDay(1, "Europe/Madrid", {2027, 5, 1}, {2027, 5, 2});
  const Trip b = allDay(2, "Europe/Madrid", {2027, 5, 3}, {2027, 5, 3});
  const Trip c = allDay(3, "Europe/Madrid", {2027, 5, 9}, {2027, 5, 9});
  const TripTimelineLayout layout =
      timelineLayout({TripForecast{{rows[0], rows[1]}, a}, TripForecast{{}, c}, TripForecast{{rows[2]}, b}});
  ASSERT_EQ(layout.segments.size(), 2u);
  EXPECT_EQ(layout.segments[0].startIndex, 0);
  EXPECT_EQ(layout.segments[1].startIndex, 2);
  EXPECT_EQ(layout.segments[1].forecast.trip, b);
  ASSERT_EQ(layout.days.size(), 3u);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(layout.days[i].index, i);
    EXPECT_EQ(layout.days[i].day, rows[i]);
  }
  EXPECT_EQ(timelineLayout({}), TripTimelineLayout{});

  // Forecasts compare their trips field by field through the canonical JSON.
  Trip renamed = a;
  renamed.destination.displayName = "Home of the in-laws";
  EXPECT_FALSE((TripForecast{{rows[0]}, a} == TripForecast{{rows[0]}, renamed}));
  EXPECT_TRUE((TripForecast{{rows[0]}, a} == TripForecast{{rows[0]}, a}));
  Trip broken = a;
  broken.dates.to = Date::fromReference(NAN);
  Trip alsoBroken = b;
  alsoBroken.dates.from = Date::fromReference(INFINITY);
  EXPECT_TRUE((TripForecast{{}, broken} == TripForecast{{}, alsoBroken}));
}

TEST(TripTimelineTest, ForecastDaysAreTheTripsOwnDaysInTheDestinationsZone) {
  struct Row {
    const char* why;
    Trip trip;
    const char* zone;  // of the forecast rows
    CivilDay firstRow;
    std::vector<CivilDay> expected;
  };
  const Row rows[] = {
      {"all-day trip in Auckland",
       allDay(1, "Pacific/Auckland", {2027, 4, 3}, {2027, 4, 5}),
       "Pacific/Auckland",
       {2027, 4, 1},
       {{2027, 4, 3}, {2027, 4, 4}, {2027, 4, 5}}},
      {"across the date line: Kiritimati (UTC+14) days",
       allDay(2, "Pacific/Kiritimati", {2027, 1, 1}, {2027, 1, 2}),
       "Pacific/Kiritimati",
       {2026, 12, 30},
       {{2027, 1, 1}, {2027, 1, 2}}},
      {"Pago Pago (UTC-11), same wall-clock dates",
       allDay(3, "Pacific/Pago_Pago", {2027, 1, 1}, {2027, 1, 2}),
       "Pacific/Pago_Pago",
       {2026, 12, 30},
       {{2027, 1, 1}, {2027, 1, 2}}},
      {"over the spring-forward night in Madrid",
       allDay(4, "Europe/Madrid", {2027, 3, 27}, {2027, 3, 29}),
       "Europe/Madrid",
       {2027, 3, 26},
       {{2027, 3, 27}, {2027, 3, 28}, {2027, 3, 29}}},
      {"timed trip: arrival evening, departure morning touch both days",
       timed(5, at("America/New_York", {2027, 11, 6}, {21, 0, 0}), at("America/New_York", {2027, 11, 8}, {7, 0, 0}),
             "America/New_York"),
       "America/New_York",
       {2027, 11, 5},
       {{2027, 11, 6}, {2027, 11, 7}, {2027, 11, 8}}},
      {"a trip beyond the forecast's range gets no days",
       allDay(6, "Europe/Madrid", {2028, 6, 1}, {2028, 6, 9}),
       "Europe/Madrid",
       {2027, 6, 1},
       {}},
      {"a trip in the past gets no days",
       allDay(7, "Europe/Madrid", {2020, 6, 1}, {2020, 6, 9}),
       "Europe/Madrid",
       {2027, 6, 1},
       {}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.why);
    const auto days = tripForecastDays(row.trip, dailyRows(row.zone, row.firstRow, 8));
    const auto got = daysOf(days, row.zone);
    EXPECT_EQ(got, row.expected);
  }
}

TEST(TripTimelineTest, ScheduleIsHalfOpenAndTouchingTripsNeedNoHome) {
  const Date t0 = at("Europe/Madrid", {2027, 5, 1}, {10, 0, 0});
  const Trip first = timed(1, t0, t0 + 86400.0);
  const Trip second = timed(2, t0 + 86400.0, t0 + 3 * 86400.0);  // starts as the first ends
  const Trip later = timed(3, t0 + 5 * 86400.0, t0 + 6 * 86400.0);
  const TripHourlySchedule touching{{first, second}};
  const TripHourlySchedule withGap{{first, later}};
  struct Row {
    const char* why;
    const TripHourlySchedule* schedule;
    Date date;
    int active;  // id number, 0 for none
    bool ended;
    bool home;
  };
  const Row rows[] = {
      {"before any trip", &touching, t0 - 1.0, 0, false, true},
      {"at the first trip's start", &touching, t0, 1, false, true},
      {"at the hand-over the second is active", &touching, t0 + 86400.0, 2, false, true},
      {"at the last trip's exact end it is over", &touching, t0 + 3 * 86400.0, 0, true, true},
      {"during the first of two touching trips no gap remains before the end", &touching, t0 + 10.0, 1, false, true},
      {"just before the end of the first, with a gap after it", &withGap, t0 + 86399.0, 1, false, true},
      {"between trips the user is home", &withGap, t0 + 2 * 86400.0, 0, true, true},
      {"no trips", nullptr, t0, 0, false, false},
  };
  const TripHourlySchedule none{};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.why);
    const TripHourlySchedule& schedule = row.schedule ? *row.schedule : none;
    const Trip* active = schedule.activeTrip(row.date);
    EXPECT_EQ(active ? active->id : Uuid{}, row.active ? idNumber(row.active) : Uuid{});
    EXPECT_EQ(schedule.hasEnded(row.date), row.ended);
    EXPECT_EQ(schedule.needsHomeRoute(row.date), row.home);
  }
  EXPECT_EQ(touching.activeTrip(t0 - 3600.0), nullptr);
}

OneCallWeather::Hourly hour(Date dt, double celsius, std::optional<SunStateChange> sun = std::nullopt) {
  OneCallWeather::Hourly row;
  row.dt = dt;
  row.temp = Temperature::celsius(celsius);
  row.sunStateChange = sun;
  return row;
}

HourlyForecastRoute route(int n, Date start, int hours, double celsius) {
  HourlyForecastRoute result;
  result.location.id = idNumber(n);
  result.location.name = "route " + std::to_string(n);
  for (int i = 0; i < hours; ++i) result.hourly.push_back(hour(start + 3600.0 * i, celsius + i));
  return result;
}

TEST(TripTimelineTest, PointTakesTheHourThatHoldsTheDate) {
  const Date t0 = Date::fromReference(800000000.0);
  HourlyForecastRoute r = route(1, t0, 3, 10.0);
  // A sunrise 20 minutes into the second hour.
  r.hourly.insert(r.hourly.begin() + 2, hour(t0 + 3600.0 + 1200.0, 99.0, SunStateChange{SunStateChange::Rise{}}));
  struct Row {
    const char* why;
    Date date;
    std::optional<double> celsius;
    bool exactRow;
  };
  const Row rows[] = {
      {"before the first row", t0 - 1.0, std::nullopt, false},
      {"on a real hour", t0, 10.0, true},
      {"inside an hour", t0 + 1800.0, 10.0, false},
      {"on the sunrise row: the values of its hour", t0 + 3600.0 + 1200.0, 11.0, false},
      {"after the sunrise, same hour", t0 + 3600.0 + 3000.0, 11.0, false},
      {"last row, 3599 s later", t0 + 7200.0 + 3599.0, 12.0, false},
      {"last row, 3600 s later: nothing", t0 + 7200.0 + 3600.0, std::nullopt, false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.why);
    const auto point = r.point(row.date);
    ASSERT_EQ(point.has_value(), row.celsius.has_value());
    if (!point) continue;
    EXPECT_EQ(point->weather.temp, Temperature::celsius(*row.celsius));
    EXPECT_EQ(point->weather.dt, row.date);
    EXPECT_FALSE(point->weather.sunStateChange);
    EXPECT_EQ(point->location, r.location);
  }
  // A route that is only a sun event still covers its hour with its own values.
  HourlyForecastRoute lone;
  lone.hourly.push_back(hour(t0, 5.0, SunStateChange{SunStateChange::Set{}}));
  ASSERT_TRUE(lone.point(t0 + 60.0));
  EXPECT_EQ(lone.point(t0 + 60.0)->weather.temp, Temperature::celsius(5.0));
}

TEST(TripTimelineTest, TimelineDatesAddBoundariesInsideTheHoursOnly) {
  const Date t0 = Date::fromReference(800000000.0);
  const std::vector<Date> hours = {t0, t0 + 3600.0, t0 + 7200.0};
  const Trip inside = timed(1, t0 + 1800.0, t0 + 7200.0);         // end equals the last hour
  const Trip outside = timed(2, t0 - 3600.0, t0 + 7200.0 + 1.0);  // both ends outside
  EXPECT_EQ(timelineDates(hours, {inside, outside}), (std::vector<Date>{t0, t0 + 1800.0, t0 + 3600.0, t0 + 7200.0}));
  EXPECT_EQ(timelineDates({}, {inside}), std::vector<Date>{});
}

TEST(TripTimelineTest, SnapshotTakesTheTripRouteThenHomeThenTheCurrentPlace) {
  const Date t0 = Date::fromReference(800000000.0);
  // Here: 12 hours from t0. A trip from hour 2 to hour 5, another from hour 8 to hour 9 whose
  // route ends after one row (at hour 8), then home.
  const Trip first = timed(1, t0 + 2 * 3600.0, t0 + 5 * 3600.0);
  const Trip second = timed(2, t0 + 8 * 3600.0, t0 + 9 * 3600.0 + 1800.0);
  std::unordered_map<Uuid, HourlyForecastRoute> routes;
  routes[first.id] = route(11, t0, 12, 100.0);
  routes[second.id] = route(12, t0 + 8 * 3600.0, 1, 200.0);
  const HourlyTripForecastSnapshot result =
      snapshot(route(10, t0, 12, 0.0), route(13, t0, 12, 300.0), TripHourlySchedule{{first, second}}, routes);
  std::vector<std::pair<double, int>> got;  // (hours after t0, route number)
  for (const auto& point : result.timeline) {
    got.emplace_back((point.weather.dt - t0) / 3600.0, point.location.id.bytes[15]);
  }
  const std::vector<std::pair<double, int>> expected = {
      {0, 10},   {1, 10}, {2, 11}, {3, 11}, {4, 11},  // the first trip's route from its start
      {5, 13},   {6, 13}, {7, 13},                    // at its exact end the user is home
      {8, 12},                                        // the second trip's only row
      {9, 10},    // its route is an hour old and the trip still runs: the current place stands
      {9.5, 13},  // the end boundary is a point of its own
      {10, 13},  {11, 13}};
  EXPECT_EQ(got, expected);
  // A boundary without any route leaves the date out rather than inventing weather.
  const HourlyTripForecastSnapshot sparse = snapshot(route(10, t0, 2, 0.0), std::nullopt, TripHourlySchedule{}, {});
  EXPECT_EQ(sparse.timeline.size(), 2u);
}

}  // namespace
}  // namespace ombrine
