#pragma once
// Which place's forecast stands on a day or at an hour while the user travels.
//
// Daily: each trip contributes the days of its own forecast that lie in the trip
// (`tripForecastDays`), and `timelineLayout` strings the trips' days into one run with running
// indices. Hourly: a schedule of trips says which trip is in force at an instant (half-open:
// from `dates.from` up to, not including, `dates.to`), each trip has a route of hourly rows, and
// the snapshot's timeline takes every hour of the current place plus every trip boundary in that
// span, each from the active trip's route, else the home route once the user is back, else the
// current place's route. An instant no route covers is left out, never invented.
//
// Everything here is pure and reentrant; nothing raises unless stated.

#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "core/record/one_call_weather.hpp"
#include "core/values/date.hpp"
#include "core/values/location.hpp"
#include "core/values/time_zone.hpp"
#include "core/values/uuid.hpp"
#include "trips/trip.hpp"

namespace ombrine {

// The days of one trip's forecast.
//
// Equality: same `weather` rows and the same trip, where trips compare by their JSON with sorted
// keys (encodeTripSortedKeys), so every field of the trip counts, present and future; two trips
// that both fail to encode count as equal.
struct TripForecast {
  std::vector<OneCallWeather::Daily> weather;
  Trip trip;

  bool operator==(const TripForecast& other) const;
};

struct TripTimelineDay {
  OneCallWeather::Daily day;
  int index = 0;  // place in the whole timeline
  bool operator==(const TripTimelineDay&) const = default;
};

struct TripTimelineSegment {
  TripForecast forecast;
  int startIndex = 0;
  std::vector<TripTimelineDay> days;
  bool operator==(const TripTimelineSegment&) const = default;
};

struct TripTimelineLayout {
  std::vector<TripTimelineSegment> segments;
  std::vector<TripTimelineDay> days;  // every segment's days, in order
  bool operator==(const TripTimelineLayout&) const = default;
};

// One segment per forecast with days, in the given order; a forecast without days takes no
// index, so its neighbours' days run on without a gap.
TripTimelineLayout timelineLayout(const std::vector<TripForecast>& forecasts);

// The rows of `daily` whose day lies in `trip` by the trip's day rule, read in the destination's
// zone: all-day trips by their occupied days, timed trips by any overlap with the day. Rows keep
// their order. Requires the ICU zone data.
std::vector<OneCallWeather::Daily> tripForecastDays(const Trip& trip, const std::vector<OneCallWeather::Daily>& daily);

// -- Hourly ------------------------------------------------------------------------------------

struct HourlyForecastLocation {
  Uuid id;
  std::string name;
  std::string symbolName;
  TimeZone timeZone;
  std::optional<Region> region;
  std::optional<std::string> destinationName;
  bool operator==(const HourlyForecastLocation&) const = default;
};

struct HourlyForecastPoint {
  OneCallWeather::Hourly weather;
  HourlyForecastLocation location;
  bool operator==(const HourlyForecastPoint&) const = default;
};

struct HourlyForecastRoute {
  std::vector<OneCallWeather::Hourly> hourly;  // ascending `dt`
  HourlyForecastLocation location;

  // The weather of the hour that holds `date`: the last row at or before it, if `date` lies less
  // than 3600 s after that row. A synthetic sunrise or sunset row is not an hour of its own: a
  // date in it takes the values of the real hour it lies in. A date on a real row's `dt` yields
  // that row; any other date a copy of its hour's row with `dt` = `date` and no sun event.
  std::optional<HourlyForecastPoint> point(Date date) const;

  bool operator==(const HourlyForecastRoute&) const = default;
};

struct TripHourlySchedule {
  std::vector<Trip> trips;

  // The first trip, in schedule order, with `from` <= date < `to`.
  const Trip* activeTrip(Date date) const;
  // No trip is active and some trip has ended at or before `date`.
  bool hasEnded(Date date) const;
  // Whether the home forecast is needed from `date` on: the user is back, or some trip that has
  // not ended by `date` hands over to no other trip at its end.
  bool needsHomeRoute(Date date) const;

  bool operator==(const TripHourlySchedule&) const = default;
};

// `hours` with every trip start and end that lies from the first to the last hour (both
// included), without duplicates, ascending. Empty without hours.
std::vector<Date> timelineDates(const std::vector<Date>& hours, const std::vector<Trip>& trips);

struct HourlyTripForecastSnapshot {
  HourlyForecastRoute currentRoute;
  std::optional<HourlyForecastRoute> home;
  TripHourlySchedule schedule;
  std::unordered_map<Uuid, HourlyForecastRoute> routes;  // by trip id
  std::vector<HourlyForecastPoint> timeline;

  bool operator==(const HourlyTripForecastSnapshot&) const = default;
};

// The snapshot with its timeline built over the real hours of `currentRoute` (synthetic sun rows
// are not hours) and the trip boundaries among them.
HourlyTripForecastSnapshot snapshot(HourlyForecastRoute currentRoute, std::optional<HourlyForecastRoute> home,
                                    TripHourlySchedule schedule, std::unordered_map<Uuid, HourlyForecastRoute> routes);

}  // namespace ombrine
