#include "trips/trip_rules.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "trips/trips_test_support.hpp"

namespace ombrine {
namespace {

using namespace trips_testing;

TripLocation place(const char* name, const char* zoneName, double latitude, double longitude) {
  return TripLocation{name, std::nullopt, "airplane", Location(latitude, longitude), zone(zoneName)};
}

const TripLocation kAuckland = place("Auckland", "Pacific/Auckland", -36.8485, 174.7633);
const TripLocation kWellington = place("Wellington", "Pacific/Auckland", -41.2866, 174.7756);
const TripLocation kKiritimati = place("Kiritimati", "Pacific/Kiritimati", 1.8721, -157.4278);
const TripLocation kPagoPago = place("Pago Pago", "Pacific/Pago_Pago", -14.2756, -170.7020);
const TripLocation kMadrid = place("Madrid", "Europe/Madrid", 40.4168, -3.7038);
const TripLocation kPorto = place("Porto", "Europe/Lisbon", 41.1579, -8.6291);
const Location kLisbonHome(38.7223, -9.1393);

// An all-day trip as the shortcut stores it: midnight of the first day and 23:59:59 of the last,
// both in the destination's zone.
Trip allDay(int n, const TripLocation& where, CivilDay first, CivilDay last) {
  const TripCalendar destination(where.timeZone);
  return Trip{idNumber(n), where,
              TripDates{.from = destination.date(first), .to = destination.date(last, WallTime{23, 59, 59})}};
}

Trip timed(int n, const TripLocation& where, Date from, Date to) {
  return Trip{idNumber(n), where, TripDates{.from = from, .to = to, .hasTimes = true, .hasArrivalTime = true}};
}

TEST(TripRulesTest, AllDayTripKeepsItsWallClockDaysOnEveryDevice) {
  // Stored by a device in Lisbon; read on devices around the world, across both date lines.
  const Trip trip = allDay(1, kAuckland, {2027, 3, 30}, {2027, 4, 6});  // NZ daylight time ends Apr 4
  const char* devices[] = {"Europe/Lisbon",      "America/New_York",  "Pacific/Auckland", "Pacific/Honolulu",
                           "Pacific/Kiritimati", "Pacific/Pago_Pago", "Asia/Kolkata"};
  for (const char* device : devices) {
    SCOPED_TRACE(device);
    const TripCalendar calendar(zone(device));
    const std::optional<TripInterval> interval = occupiedInterval(trip, calendar);
    ASSERT_TRUE(interval);
    EXPECT_EQ(interval->start, at(device, {2027, 3, 30}));
    EXPECT_EQ(interval->end, at(device, {2027, 4, 6}));
    EXPECT_EQ(calendar.day(localEndDay(trip, calendar)), (CivilDay{2027, 4, 6}));
    EXPECT_TRUE(tripContainsDay(trip, at(device, {2027, 3, 30}, {9, 0, 0}), calendar));
    EXPECT_TRUE(tripContainsDay(trip, at(device, {2027, 4, 6}, {23, 0, 0}), calendar));
    EXPECT_FALSE(tripContainsDay(trip, at(device, {2027, 3, 29}, {23, 0, 0}), calendar));
    EXPECT_FALSE(tripContainsDay(trip, at(device, {2027, 4, 7}, {0, 30, 0}), calendar));
  }
}

TEST(TripRulesTest, TimedTripDaysAreTheDestinationsDays) {
  const TripCalendar lisbon(zone("Europe/Lisbon"));
  struct Row {
    const char* why;
    Trip trip;
    CivilDay first, last;
  };
  const Row rows[] = {
      {"arrival late evening in Auckland is the next day in Lisbon's numbering",
       timed(1, kAuckland, at("Pacific/Auckland", {2027, 5, 10}, {22, 0, 0}),
             at("Pacific/Auckland", {2027, 5, 12}, {9, 0, 0})),
       {2027, 5, 10},
       {2027, 5, 12}},
      {"ending exactly at midnight does not occupy the next day",
       timed(2, kMadrid, at("Europe/Madrid", {2027, 5, 10}, {8, 0, 0}), at("Europe/Madrid", {2027, 5, 12})),
       {2027, 5, 10},
       {2027, 5, 11}},
      {"east of the date line: Kiritimati is a day ahead of Pago Pago",
       timed(3, kKiritimati, at("Pacific/Kiritimati", {2027, 1, 1}, {1, 0, 0}),
             at("Pacific/Kiritimati", {2027, 1, 1}, {23, 0, 0})),
       {2027, 1, 1},
       {2027, 1, 1}},
      {"west of the date line",
       timed(4, kPagoPago, at("Pacific/Pago_Pago", {2026, 12, 31}, {1, 0, 0}),
             at("Pacific/Pago_Pago", {2027, 1, 2}, {23, 0, 0})),
       {2026, 12, 31},
       {2027, 1, 2}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.why);
    const std::optional<TripInterval> interval = occupiedInterval(row.trip, lisbon);
    ASSERT_TRUE(interval);
    EXPECT_EQ(lisbon.day(interval->start), row.first);
    EXPECT_EQ(lisbon.day(interval->end), row.last);
    EXPECT_EQ(interval->start, lisbon.date(row.first));
    EXPECT_EQ(lisbon.timeOfDay(localEndDay(row.trip, lisbon)), (WallTime{23, 59, 59}));
  }
}

TEST(TripRulesTest, EndMomentHonoursInferredReturnAndExclusiveEnd) {
  const Date from = Date::fromReference(1000.0);
  const Date to = Date::fromReference(5000.0);
  const Date home = Date::fromReference(9000.0);
  struct Row {
    const char* why;
    TripDates dates;
    Date end;
  };
  const Row rows[] = {
      {"all-day ends at to", {.from = from, .to = to}, to},
      {"all-day ignores the exclusive flag", {.from = from, .to = to, .hasExclusiveEnd = true}, to},
      {"timed inclusive", {.from = from, .to = to, .hasTimes = true}, to},
      {"timed exclusive", {.from = from, .to = to, .hasTimes = true, .hasExclusiveEnd = true}, to - 0.001},
      {"return time counts only when the end is inferred",
       {.from = from, .to = to, .hasTimes = true, .returnHomeAt = home, .hasExclusiveEnd = true},
       to - 0.001},
      {"inferred end from the return time",
       {.from = from, .to = to, .hasTimes = true, .infersEndTime = true, .returnHomeAt = home, .hasExclusiveEnd = true},
       home - 0.001},
      {"inferred end without a return time falls back to to",
       {.from = from, .to = to, .hasTimes = true, .infersEndTime = true},
       to},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.why);
    EXPECT_EQ(endMoment(Trip{idNumber(1), kMadrid, row.dates}), row.end);
  }
}

TEST(TripRulesTest, ConflictsBetweenTrips) {
  const TripCalendar lisbon(zone("Europe/Lisbon"));
  const Date noon10 = at("Europe/Madrid", {2027, 6, 10}, {12, 0, 0});
  const Date noon12 = at("Europe/Madrid", {2027, 6, 12}, {12, 0, 0});
  const Date noon14 = at("Europe/Madrid", {2027, 6, 14}, {12, 0, 0});
  struct Row {
    const char* why;
    Trip a, b;
    bool conflict;
  };
  const Row rows[] = {
      {"timed trips touching at one moment", timed(1, kMadrid, noon10, noon12), timed(2, kPorto, noon12, noon14),
       false},
      {"timed trips overlapping by a second", timed(1, kMadrid, noon10, noon12 + 1.0), timed(2, kPorto, noon12, noon14),
       true},
      {"all-day trips sharing a day", allDay(1, kMadrid, {2027, 6, 10}, {2027, 6, 12}),
       allDay(2, kPorto, {2027, 6, 12}, {2027, 6, 14}), true},
      {"all-day trips on consecutive days", allDay(1, kMadrid, {2027, 6, 10}, {2027, 6, 11}),
       allDay(2, kPorto, {2027, 6, 12}, {2027, 6, 14}), false},
      {"timed trip arriving on the last day of an all-day trip", allDay(1, kMadrid, {2027, 6, 10}, {2027, 6, 12}),
       timed(2, kPorto, noon12 + 7200.0, noon14), true},
      {"timed trip ending at midnight before an all-day trip",
       timed(1, kPorto, noon10, at("Europe/Lisbon", {2027, 6, 12})), allDay(2, kMadrid, {2027, 6, 12}, {2027, 6, 13}),
       false},
      {"all-day trips on the same calendar date across the date line",
       allDay(1, kKiritimati, {2027, 1, 1}, {2027, 1, 1}), allDay(2, kPagoPago, {2027, 1, 1}, {2027, 1, 1}), true},
      {"a trip that ends before it starts conflicts with nothing", timed(1, kMadrid, noon14, noon10),
       timed(2, kPorto, noon10, noon14), false},
      {"timed trips with inferred end use the return time",
       Trip{idNumber(1), kMadrid,
            TripDates{
                .from = noon10, .to = noon10 + 60.0, .hasTimes = true, .infersEndTime = true, .returnHomeAt = noon14}},
       timed(2, kPorto, noon12, noon14), true},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.why);
    EXPECT_EQ(conflicts(row.a, row.b, lisbon), row.conflict);
    EXPECT_EQ(conflicts(row.b, row.a, lisbon), row.conflict);
  }
}

TEST(TripRulesTest, StateCountsWholeDaysFromToday) {
  const TripCalendar lisbon(zone("Europe/Lisbon"));
  const Trip trip = allDay(1, kMadrid, {2027, 3, 26}, {2027, 3, 30});  // Europe springs forward Mar 28
  struct Row {
    CivilDay today;
    WallTime time;
    TripState state;
  };
  const Row rows[] = {
      {{2027, 3, 20}, {23, 0, 0}, {TripStateValue::upcoming, 6}},
      {{2027, 3, 25}, {0, 0, 0}, {TripStateValue::upcoming, 1}},
      {{2027, 3, 26}, {8, 0, 0}, {TripStateValue::active, 4}},
      {{2027, 3, 29}, {23, 59, 0}, {TripStateValue::active, 1}},
      {{2027, 3, 30}, {12, 0, 0}, {TripStateValue::active, 0}},
      {{2027, 3, 31}, {0, 0, 0}, {TripStateValue::active, 0}},  // the last day's 23:59:59 is not a whole day back
      {{2027, 4, 1}, {10, 0, 0}, {TripStateValue::past, 1}},
      {{2027, 4, 11}, {10, 0, 0}, {TripStateValue::past, 11}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(testing::Message() << row.today.month << "-" << row.today.day);
    EXPECT_EQ(tripState(trip, lisbon.date(row.today, row.time), lisbon), row.state);
  }
}

TEST(TripRulesTest, ConnectedNextTrip) {
  const Date d1 = at("Pacific/Auckland", {2027, 2, 1}, {9, 0, 0});
  const Date d5 = at("Pacific/Auckland", {2027, 2, 5}, {9, 0, 0});
  const Trip auckland = timed(1, kAuckland, d1, d5);
  struct Row {
    const char* why;
    Trip next;
    std::optional<Location> home;
    bool returnsHome;
    bool connected;
  };
  const Row rows[] = {
      {"far from home, near each other, next day", timed(2, kWellington, d5 + 86'400.0, d5 + 3 * 86'400.0), kLisbonHome,
       false, true},
      {"gap just over a day", timed(2, kWellington, d5 + 86'401.0, d5 + 3 * 86'400.0), kLisbonHome, false, false},
      {"no home known", timed(2, kWellington, d5 + 3600.0, d5 + 3 * 86'400.0), std::nullopt, false, false},
      {"user returns home in between", timed(2, kWellington, d5 + 3600.0, d5 + 3 * 86'400.0), kLisbonHome, true, false},
      {"the next place is near home", timed(2, kPorto, d5 + 3600.0, d5 + 3 * 86'400.0), kLisbonHome, false, false},
      {"home is near the destinations", timed(2, kWellington, d5 + 3600.0, d5 + 3 * 86'400.0), Location(-38.0, 175.0),
       false, false},
      {"next trip arrives before this one ends, whatever the distances",
       timed(2, kPorto, d5 - 3600.0, d5 + 3 * 86'400.0), std::nullopt, false, true},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.why);
    Trip first = auckland;
    first.dates.returnsHomeBetweenTrips = row.returnsHome;
    const Trip earlier = timed(3, kMadrid, d1 - 10 * 86'400.0, d1 - 9 * 86'400.0);
    const Trip later = timed(4, kWellington, d5 + 20 * 86'400.0, d5 + 21 * 86'400.0);
    const std::vector<Trip> trips{later, row.next, earlier, first};
    const std::optional<Trip> next = nextConnectedTrip(first, trips, row.home);
    EXPECT_EQ(next.has_value(), row.connected);
    if (next) {
      EXPECT_EQ(next->id, idNumber(2));
      EXPECT_EQ(continuationLabel(*next), "Continues to " + row.next.destination.name);
    }
  }
}

TEST(TripRulesTest, NormalizedTripsFixInferredEnds) {
  const TripCalendar lisbon(zone("Europe/Lisbon"));
  const Date d1 = at("Pacific/Auckland", {2027, 2, 1}, {9, 0, 0});
  const Date d5 = at("Pacific/Auckland", {2027, 2, 5}, {9, 0, 0});
  const Date d6 = d5 + 86'400.0;
  Trip inferred{idNumber(1), kAuckland,
                TripDates{.from = d1,
                          .to = d1 + 60.0,
                          .hasTimes = true,
                          .hasArrivalTime = true,
                          .infersEndTime = true,
                          .returnHomeAt = d5,
                          .returnHomeTimeZone = zone("Europe/Lisbon"),
                          .returnsHomeBetweenTrips = false,
                          .hasExclusiveEnd = true}};
  const Trip plainTimed = timed(2, kWellington, d6, d6 + 86'400.0);
  const Trip allDayNext = allDay(3, kWellington, {2027, 2, 5}, {2027, 2, 8});
  struct Row {
    const char* why;
    std::vector<Trip> trips;
    Date expectedTo;
  };
  const Row rows[] = {
      {"alone: the return time becomes the end", {inferred}, d5},
      {"connected timed next trip: its exact start", {inferred, plainTimed}, d6},
      {"connected all-day next trip: the earlier of its first day and the return",
       {inferred, allDayNext},
       std::min(localStartDay(allDayNext, lisbon), d5)},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.why);
    const std::vector<Trip> normalized = normalizedTrips(row.trips, kLisbonHome, lisbon);
    ASSERT_EQ(normalized.size(), row.trips.size());
    const TripDates& dates = normalized[0].dates;
    EXPECT_EQ(dates.from, d1);
    EXPECT_EQ(dates.to, row.expectedTo);
    EXPECT_TRUE(dates.hasTimes && dates.hasArrivalTime && dates.hasExclusiveEnd);
    EXPECT_FALSE(dates.infersEndTime || dates.returnsHomeBetweenTrips);
    EXPECT_FALSE(dates.returnHomeAt || dates.returnHomeTimeZone);
    for (size_t i = 1; i < row.trips.size(); ++i) EXPECT_EQ(normalized[i], row.trips[i]);
  }
}

// The destination exactly `metres` north of home along the meridian, nudged to the first
// latitude whose distance is not below `metres`.
Location northOf(const Location& home, double metres) {
  double latitude = home.latitude() + metres / 6'371'009.0 * 180.0 / M_PI;
  while (home.distance(Location(latitude, home.longitude())) < metres) latitude = std::nextafter(latitude, 90.0);
  while (home.distance(Location(std::nextafter(latitude, -90.0), home.longitude())) >= metres) {
    latitude = std::nextafter(latitude, -90.0);
  }
  return Location(latitude, home.longitude());
}

TEST(TripRulesTest, NewTripValidationInOrder) {
  const TripCalendar lisbon(zone("Europe/Lisbon"));
  const Date now = at("Europe/Lisbon", {2027, 3, 10}, {14, 0, 0});
  const Trip booked = allDay(9, kMadrid, {2027, 3, 20}, {2027, 3, 22});
  const std::vector<Trip> existing{booked};
  TripLocation justFar = kPorto;
  justFar.location = northOf(kLisbonHome, 50'000.0);
  TripLocation justNear = kPorto;
  justNear.location = Location(std::nextafter(justFar.location.latitude(), -90.0), kLisbonHome.longitude());
  TripLocation named = kMadrid;
  named.displayName = "Work";
  const std::vector<Trip> existingNamed{Trip{idNumber(9), named, booked.dates}};
  struct Row {
    const char* why;
    std::optional<Location> home;
    std::optional<TripLocation> destination;
    Date start;
    std::optional<Date> end;
    const std::vector<Trip>* trips;
    std::string message;  // empty: accepted
  };
  const Row rows[] = {
      {"no home", std::nullopt, kAuckland, now, std::nullopt, &existing, kNoHomeLocationMessage},
      {"no destination", kLisbonHome, std::nullopt, now, std::nullopt, &existing, kNoDestinationLocationMessage},
      {"yesterday", kLisbonHome, kAuckland, now - 86'400.0, std::nullopt, &existing, kStartsInPastMessage},
      {"today at 23:00 counts as today", kLisbonHome, kAuckland, at("Europe/Lisbon", {2027, 3, 10}, {23, 0, 0}),
       std::nullopt, &existing, ""},
      {"end earlier on the same day passes", kLisbonHome, kAuckland, now, now - 3600.0, &existing, ""},
      {"end the day before", kLisbonHome, kAuckland, now + 86'400.0, now, &existing, kEndBeforeStartMessage},
      {"just under the minimum distance", kLisbonHome, justNear, now, std::nullopt, &existing,
       "Trips must be at least 31 miles away from home."},
      {"exactly the minimum distance", kLisbonHome, justFar, now, std::nullopt, &existing, ""},
      {"covers the booked trip", kLisbonHome, kAuckland, at("Europe/Lisbon", {2027, 3, 19}),
       at("Europe/Lisbon", {2027, 3, 23}), &existing,
       "These dates overlap with your trip to \u2068Madrid\u2069 from 20–22 Mar 2027."},
      {"starts on the booked trip's last day", kLisbonHome, kAuckland, at("Europe/Lisbon", {2027, 3, 22}),
       at("Europe/Lisbon", {2027, 3, 25}), &existing,
       "This start date clashes with your trip to \u2068Madrid\u2069 from 20–22 Mar 2027."},
      {"ends on the booked trip's first day, shown by its own name", kLisbonHome, kAuckland,
       at("Europe/Lisbon", {2027, 3, 18}), at("Europe/Lisbon", {2027, 3, 20}), &existingNamed,
       "This end date clashes with your trip to \u2068Work\u2069 from 20–22 Mar 2027."},
      {"ends the day before the booked trip", kLisbonHome, kAuckland, at("Europe/Lisbon", {2027, 3, 18}),
       at("Europe/Lisbon", {2027, 3, 19}), &existing, ""},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.why);
    const NewTripRequest request{row.destination, row.start, row.end};
    try {
      const Trip trip = validateNewTrip(request, row.home, *row.trips, now, lisbon, idNumber(1), "en_GB");
      EXPECT_EQ(row.message, "");
      EXPECT_FALSE(trip.dates.hasTimes || trip.dates.hasArrivalTime || trip.dates.infersEndTime);
      EXPECT_FALSE(trip.dates.returnHomeAt || trip.dates.returnHomeTimeZone);
      // Stored in the destination's zone, read back in the device's as the requested days.
      const std::optional<TripInterval> interval = occupiedInterval(trip, lisbon);
      ASSERT_TRUE(interval);
      EXPECT_EQ(interval->start, lisbon.startOfDay(row.start));
      EXPECT_EQ(interval->end, lisbon.startOfDay(std::max(row.end.value_or(row.start), row.start)));
    } catch (const TripRejectedError& error) {
      EXPECT_EQ(std::string(error.what()), row.message);
    }
  }
}

TEST(TripRulesTest, NewTimedTripValidationInOrder) {
  const TripCalendar lisbon(zone("Europe/Lisbon"));
  // 2027-03-27 20:00 in Lisbon is already the 28th at 09:00 in Auckland.
  const Date now = at("Europe/Lisbon", {2027, 3, 27}, {20, 0, 0});
  const Trip booked =
      timed(9, kMadrid, at("Europe/Madrid", {2027, 4, 2}, {10, 0, 0}), at("Europe/Madrid", {2027, 4, 3}, {18, 0, 0}));
  const std::vector<Trip> existing{booked};
  TripLocation nearHome = kPorto;
  nearHome.location = northOf(kLisbonHome, 20'000.0);
  using Moment = std::pair<CivilDay, WallTime>;
  struct Row {
    const char* why;
    std::optional<Location> home;
    std::optional<TripLocation> destination;
    Moment arrival;
    std::optional<Moment> departure;
    std::string message;  // empty: accepted
    bool infers = false;
  };
  const Row rows[] = {
      {"no home", std::nullopt, kMadrid, {{2027, 4, 1}, {9, 0}}, std::nullopt, kNoHomeLocationMessage},
      {"no destination",
       kLisbonHome,
       std::nullopt,
       {{2027, 4, 1}, {9, 0}},
       std::nullopt,
       kNoDestinationLocationMessage},
      // Madrid springs forward on 2027-03-28 from 02:00 to 03:00.
      {"arrival in the skipped hour",
       kLisbonHome,
       kMadrid,
       {{2027, 3, 28}, {2, 30}},
       std::nullopt,
       kTimeUnavailableAtDestinationMessage},
      {"departure in the skipped hour",
       kLisbonHome,
       kMadrid,
       {{2027, 3, 27}, {23, 0}},
       Moment{{2027, 3, 28}, {2, 0}},
       kTimeUnavailableAtDestinationMessage},
      {"the hour after the gap exists", kLisbonHome, kMadrid, {{2027, 3, 28}, {3, 0}}, std::nullopt, "", true},
      {"the destination's today, though the device's is a day behind",
       kLisbonHome,
       kAuckland,
       {{2027, 3, 28}, {8, 0}},
       std::nullopt,
       "",
       true},
      {"the destination's yesterday",
       kLisbonHome,
       kAuckland,
       {{2027, 3, 27}, {23, 0}},
       std::nullopt,
       kStartsInPastMessage},
      {"departure equal to arrival",
       kLisbonHome,
       kMadrid,
       {{2027, 4, 1}, {9, 0}},
       Moment{{2027, 4, 1}, {9, 0}},
       kReturnBeforeArrivalMessage},
      {"a one-minute trip passes", kLisbonHome, kMadrid, {{2027, 4, 1}, {9, 0}}, Moment{{2027, 4, 1}, {9, 1}}, ""},
      {"Porto is far enough from home", kLisbonHome, kPorto, {{2027, 4, 1}, {9, 0}}, std::nullopt, "", true},
      {"too near home",
       kLisbonHome,
       nearHome,
       {{2027, 4, 1}, {9, 0}},
       std::nullopt,
       "Trips must be at least 31 miles away from home."},
      {"arrives as the booked trip leaves: no conflict",
       kLisbonHome,
       kAuckland,
       {{2027, 4, 4}, {4, 0}},
       Moment{{2027, 4, 6}, {9, 0}},
       ""},
      {"overlaps the booked trip by a minute",
       kLisbonHome,
       kAuckland,
       {{2027, 4, 4}, {3, 59}},
       Moment{{2027, 4, 6}, {9, 0}},
       "These times overlap with your trip to \u2068Madrid\u2069 from "},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.why);
    const NewTimedTripRequest request{row.destination, row.arrival.first, row.arrival.second, row.departure};
    try {
      const Trip trip = validateNewTimedTrip(request, row.home, existing, now, lisbon, idNumber(1), "en_GB");
      EXPECT_EQ(row.message, "");
      EXPECT_TRUE(trip.dates.hasTimes && trip.dates.hasArrivalTime);
      EXPECT_EQ(trip.dates.infersEndTime, row.infers);
      EXPECT_EQ(trip.dates.hasExclusiveEnd, row.infers);
      // Read back on the destination's clock, the times are those entered.
      const TripCalendar local(row.destination->timeZone);
      EXPECT_EQ(local.day(trip.dates.from), row.arrival.first);
      EXPECT_EQ(local.timeOfDay(trip.dates.from), row.arrival.second);
      if (row.infers) {
        // Without a departure the trip covers the rest of its arrival day.
        EXPECT_EQ(trip.dates.to, local.date(local.day(local.addingDays(trip.dates.from, 1))));
        EXPECT_EQ(local.day(endMoment(trip)), row.arrival.first);
      }
    } catch (const TripRejectedError& error) {
      ASSERT_FALSE(row.message.empty()) << error.what();
      EXPECT_TRUE(std::string(error.what()).starts_with(row.message)) << error.what();
    }
  }
  // Auckland falls back on 2027-04-04 at 03:00: 02:30 happens twice, and the first one counts.
  const NewTimedTripRequest twice{kAuckland, {2027, 4, 4}, {2, 30}, std::nullopt};
  EXPECT_EQ(validateNewTimedTrip(twice, kLisbonHome, {}, now, lisbon, idNumber(1)).dates.from,
            Date::fromUnix(1806759000.0));  // 2027-04-03 13:30 UTC, still daylight time
}

TEST(TripRulesTest, AuclandTripFromLisbonIsStoredAsAucklandMidnight) {
  const TripCalendar lisbon(zone("Europe/Lisbon"));
  const Date now = at("Europe/Lisbon", {2027, 3, 10}, {14, 0, 0});
  const NewTripRequest request{kAuckland, at("Europe/Lisbon", {2027, 4, 2}, {10, 0, 0}),
                               at("Europe/Lisbon", {2027, 4, 5})};
  const Trip trip = validateNewTrip(request, kLisbonHome, {}, now, lisbon, idNumber(1), "en_GB");
  EXPECT_EQ(trip.dates.from, at("Pacific/Auckland", {2027, 4, 2}));
  EXPECT_EQ(trip.dates.to, at("Pacific/Auckland", {2027, 4, 5}, {23, 59, 59}));
}

TEST(TripRulesTest, ConflictTextsAndDistanceFormats) {
  const Trip oneDay = allDay(1, kMadrid, {2027, 7, 4}, {2027, 7, 4});
  const Trip timedTrip = timed(2, kAuckland, at("Pacific/Auckland", {2027, 7, 4}, {9, 30, 0}),
                               at("Pacific/Auckland", {2027, 7, 6}, {18, 0, 0}));
  EXPECT_EQ(formatConflictDates(oneDay, TripConflictKind::dates, "en_GB"), "4 Jul 2027");
  EXPECT_EQ(formatConflictDates(timedTrip, TripConflictKind::times, "en_GB"),
            "Sunday, 4 Jul, 09:30\u2009–\u2009Tuesday, 6 Jul, 18:00");
  EXPECT_EQ(conflictMessage(TripConflictKind::times, "Auckland", "x"),
            "These times overlap with your trip to \u2068Auckland\u2069 from x.");
  EXPECT_EQ(formatMinimumTripDistance("en_US"), "31 miles");
  EXPECT_EQ(formatMinimumTripDistance("de_DE"), "50 Kilometer");
}

}  // namespace
}  // namespace ombrine
