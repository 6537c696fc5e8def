#include "trips/trip_lookup.hpp"

#include <gtest/gtest.h>

namespace ombrine {
namespace {

Uuid idNumber(int n) {
  Uuid id;
  id.bytes[0] = 0xab;
  id.bytes[15] = static_cast<std::uint8_t>(n);
  return id;
}

Trip trip(int n, const char* name, int firstDay, int lastDay) {
  const TimeZone zone = *TimeZone::named("Europe/Rome");
  const TripCalendar calendar(zone);
  TripLocation where{name, std::nullopt, "airplane", Location(41.9, 12.5), zone};
  return Trip{
      idNumber(n), where,
      TripDates{.from = calendar.date({2027, 5, firstDay}), .to = calendar.date({2027, 5, lastDay}, {23, 59, 59})}};
}

TEST(TripLookupTest, OneRuleForEveryCommand) {
  const TripCalendar calendar(*TimeZone::named("Europe/Rome"));
  const Date today = calendar.date({2027, 5, 10}, {12, 0, 0});
  const std::vector<Trip> trips = {trip(3, "Rome", 20, 22), trip(1, "Rome", 1, 3), trip(2, "Oslo", 9, 12),
                                   trip(4, "Paris", 25, 26), trip(5, "Paris", 27, 28)};
  enum Outcome { found, none, ambiguous };
  struct Row {
    const char* why;
    std::string query;
    Outcome outcome;
    int id = 0;
  };
  const Row rows[] = {
      {"empty: the trip under way", "", found, 2},
      {"by name, ignoring case; the past Rome trip is passed over", "rOmE", found, 3},
      {"both Paris trips are still ahead", "paris", ambiguous},
      {"a full id", idNumber(4).text(), found, 4},
      {"an unknown full id", idNumber(9).text(), none},
      {"an id prefix of four characters or more", idNumber(5).text().substr(0, 4), ambiguous},
      {"a prefix shorter than four never matches ids", "ab", none},
      {"no such place", "Lima", none},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.why);
    try {
      const Trip chosen = findTrip(trips, row.query, today, calendar);
      EXPECT_EQ(row.outcome, found);
      EXPECT_EQ(chosen.id, idNumber(row.id));
    } catch (const NoSuchTrip&) {
      EXPECT_EQ(row.outcome, none);
    } catch (const AmbiguousTrip&) {
      EXPECT_EQ(row.outcome, ambiguous);
    }
  }
  const std::vector<Trip> past = {trip(1, "Rome", 1, 3)};
  EXPECT_THROW(findTrip(past, "", today, calendar), NoSuchTrip) << "nothing current or upcoming";
}

}  // namespace
}  // namespace ombrine
