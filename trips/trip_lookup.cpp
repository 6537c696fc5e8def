#include "trips/trip_lookup.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <string>

#include "core/values/uuid.hpp"
#include "trips/trip_rules.hpp"

namespace ombrine {

namespace {

std::string lowered(std::string_view text) {
  std::string out(text);
  std::transform(out.begin(), out.end(), out.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return out;
}

std::vector<Trip> byStart(std::vector<Trip> trips) {
  std::stable_sort(trips.begin(), trips.end(),
                   [](const Trip& a, const Trip& b) { return a.dates.from < b.dates.from; });
  return trips;
}

}  // namespace

Trip findTrip(const std::vector<Trip>& trips, std::string_view query, Date today, const TripCalendar& calendar) {
  const std::vector<Trip> ordered = byStart(trips);
  auto isOver = [&](const Trip& trip) { return tripState(trip, today, calendar).value == TripStateValue::past; };
  if (query.empty()) {
    for (const TripStateValue wanted : {TripStateValue::active, TripStateValue::upcoming}) {
      for (const Trip& trip : ordered) {
        if (tripState(trip, today, calendar).value == wanted) return trip;
      }
    }
    throw NoSuchTrip("there is no current or upcoming trip; name one (see ombrine trips list)");
  }
  if (const std::optional<Uuid> id = Uuid::parse(std::string(query))) {
    for (const Trip& trip : ordered) {
      if (trip.id == *id) return trip;
    }
    throw NoSuchTrip(fmt::format("no trip has the id {}", id->text()));
  }
  const std::string wanted = lowered(query);
  std::vector<Trip> matches;
  for (const Trip& trip : ordered) {
    if (lowered(trip.destination.shownName()) == wanted || lowered(trip.destination.name) == wanted) {
      matches.push_back(trip);
    }
  }
  if (matches.empty() && wanted.size() >= 4) {
    for (const Trip& trip : ordered) {
      if (lowered(trip.id.text()).starts_with(wanted)) matches.push_back(trip);
    }
  }
  if (matches.empty()) throw NoSuchTrip(fmt::format("no trip matches \"{}\" (see ombrine trips list)", query));
  if (matches.size() == 1) return matches.front();
  std::vector<Trip> notOver;
  std::copy_if(matches.begin(), matches.end(), std::back_inserter(notOver), [&](const Trip& t) { return !isOver(t); });
  if (notOver.size() == 1) return notOver.front();
  std::string ids;
  for (const Trip& trip : notOver.empty() ? matches : notOver) ids += " " + trip.id.text();
  throw AmbiguousTrip(fmt::format("\"{}\" names {} trips; give one id:{}", query,
                                  notOver.empty() ? matches.size() : notOver.size(), ids));
}

}  // namespace ombrine
