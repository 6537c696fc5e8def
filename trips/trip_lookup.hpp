#pragma once
// Which trip a user means: the one rule behind every command that takes a trip.
//
// A query that is a UUID names the trip with that id. Otherwise it matches the trips whose
// shown name or place name equals it (ignoring case), else, for four characters or more, the
// trips whose id starts with it. Several matches: the only one that is not over yet, else the
// query is ambiguous. An empty query means the trip under way today, else the next one to start.
//
// Raises NoSuchTrip when nothing matches and AmbiguousTrip (listing the ids) when the query
// names several trips that are not over.

#include <stdexcept>
#include <string_view>
#include <vector>

#include "core/values/date.hpp"
#include "trips/trip.hpp"
#include "trips/trip_calendar.hpp"

namespace ombrine {

class NoSuchTrip : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class AmbiguousTrip : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

Trip findTrip(const std::vector<Trip>& trips, std::string_view query, Date today, const TripCalendar& calendar);

}  // namespace ombrine
