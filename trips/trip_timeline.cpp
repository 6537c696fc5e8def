#include "trips/trip_timeline.hpp"

#include <algorithm>

#include "core/values/value_json.hpp"
#include "trips/trip_calendar.hpp"
#include "trips/trip_rules.hpp"

namespace ombrine {

namespace {

// The canonical text of a trip, or nothing when it has none (a non-finite date).
std::optional<std::string> canonicalText(const Trip& trip) {
  try {
    return encodeTripSortedKeys(trip);
  } catch (const EncodingError&) {
    return std::nullopt;
  }
}

}  // namespace

bool TripForecast::operator==(const TripForecast& other) const {
  return weather == other.weather && canonicalText(trip) == canonicalText(other.trip);
}

TripTimelineLayout timelineLayout(const std::vector<TripForecast>& forecasts) {
  TripTimelineLayout layout;
  int index = 0;
  for (const TripForecast& forecast : forecasts) {
    if (forecast.weather.empty()) continue;
    TripTimelineSegment segment{forecast, index, {}};
    segment.days.reserve(forecast.weather.size());
    for (const OneCallWeather::Daily& day : forecast.weather) segment.days.push_back(TripTimelineDay{day, index++});
    layout.days.insert(layout.days.end(), segment.days.begin(), segment.days.end());
    layout.segments.push_back(std::move(segment));
  }
  return layout;
}

std::vector<OneCallWeather::Daily> tripForecastDays(const Trip& trip, const std::vector<OneCallWeather::Daily>& daily) {
  const TripCalendar calendar(trip.destination.timeZone);
  std::vector<OneCallWeather::Daily> days;
  for (const OneCallWeather::Daily& day : daily) {
    if (tripContainsDay(trip, day.dt, calendar)) days.push_back(day);
  }
  return days;
}

std::optional<HourlyForecastPoint> HourlyForecastRoute::point(Date date) const {
  auto after = std::upper_bound(hourly.begin(), hourly.end(), date,
                                [](Date value, const OneCallWeather::Hourly& row) { return value < row.dt; });
  if (after == hourly.begin()) return std::nullopt;
  auto row = std::prev(after);
  if (date - row->dt >= 3600.0) return std::nullopt;
  if (!row->sunStateChange && date == row->dt) return HourlyForecastPoint{*row, location};
  // A sun event row marks a moment inside a real hour: the values are that hour's, when the
  // route has it.
  auto hour = row;
  for (auto it = row; it->sunStateChange && it != hourly.begin();) {
    --it;
    if (date - it->dt >= 3600.0) break;
    if (!it->sunStateChange) hour = it;
  }
  OneCallWeather::Hourly weather = *hour;
  weather.dt = date;
  weather.sunStateChange.reset();
  return HourlyForecastPoint{std::move(weather), location};
}

const Trip* TripHourlySchedule::activeTrip(Date date) const {
  for (const Trip& trip : trips) {
    if (trip.dates.from <= date && date < trip.dates.to) return &trip;
  }
  return nullptr;
}

bool TripHourlySchedule::hasEnded(Date date) const {
  if (activeTrip(date) != nullptr) return false;
  return std::any_of(trips.begin(), trips.end(), [date](const Trip& trip) { return trip.dates.to <= date; });
}

bool TripHourlySchedule::needsHomeRoute(Date date) const {
  if (hasEnded(date)) return true;
  // A trip that hands over straight to the next one leaves no gap at its end.
  return std::any_of(trips.begin(), trips.end(),
                     [&](const Trip& trip) { return trip.dates.to >= date && activeTrip(trip.dates.to) == nullptr; });
}

std::vector<Date> timelineDates(const std::vector<Date>& hours, const std::vector<Trip>& trips) {
  if (hours.empty()) return {};
  const auto [first, last] = std::minmax_element(hours.begin(), hours.end());
  std::vector<Date> dates = hours;
  for (const Trip& trip : trips) {
    for (Date boundary : {trip.dates.from, trip.dates.to}) {
      if (*first <= boundary && boundary <= *last) dates.push_back(boundary);
    }
  }
  std::sort(dates.begin(), dates.end());
  dates.erase(std::unique(dates.begin(), dates.end()), dates.end());
  return dates;
}

HourlyTripForecastSnapshot snapshot(HourlyForecastRoute currentRoute, std::optional<HourlyForecastRoute> home,
                                    TripHourlySchedule schedule, std::unordered_map<Uuid, HourlyForecastRoute> routes) {
  HourlyTripForecastSnapshot result{
      std::move(currentRoute), std::move(home), std::move(schedule), std::move(routes), {}};
  std::vector<Date> hours;
  for (const OneCallWeather::Hourly& row : result.currentRoute.hourly) {
    if (!row.sunStateChange) hours.push_back(row.dt);
  }
  for (Date date : timelineDates(hours, result.schedule.trips)) {
    std::optional<HourlyForecastPoint> point;
    if (const Trip* active = result.schedule.activeTrip(date)) {
      if (auto route = result.routes.find(active->id); route != result.routes.end()) point = route->second.point(date);
    }
    if (!point && result.home && result.schedule.hasEnded(date)) point = result.home->point(date);
    if (!point) point = result.currentRoute.point(date);
    if (point) result.timeline.push_back(std::move(*point));
  }
  return result;
}

}  // namespace ombrine
