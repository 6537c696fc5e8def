#pragma once
// The hourly forecast of where the user will be: the current place's hours, handed over to each
// trip's destination while the trip is in force and to home once the user is back.
//
// Loading follows the daily loader (trips/trip_forecast.hpp): a trip's weather lives in the trip
// cache under the trip's id; the home's weather lives in the favourite weather cache under the
// home's id. A record is fetched only when the load may fetch and the cached record is missing
// or stale (isFreshCachedRecord); each trip fetch carries the stamp of the moment it was
// requested, and all trip results are stored in one `store`. A result that could not be stored
// still makes its route (stale beats empty). A route with no weather at all is left out, and
// the timeline falls through to the next source for its hours.

#include <optional>
#include <string>
#include <vector>

#include "core/record/one_call_weather.hpp"
#include "core/record/weather_derived.hpp"
#include "core/values/location.hpp"
#include "core/values/measurements.hpp"
#include "core/values/weather_data_source.hpp"
#include "persistence/favorite_location.hpp"
#include "persistence/favorite_weather_cache.hpp"
#include "persistence/trip_cache_store.hpp"
#include "persistence/weather_cache.hpp"
#include "platform/async/task.hpp"
#include "platform/clock.hpp"
#include "trips/trip.hpp"
#include "trips/trip_forecast.hpp"
#include "trips/trip_timeline.hpp"

namespace ombrine {

// The weather one route was built from, and the provider it was asked of.
struct HourlyTripLoadedWeather {
  CachedWeather weather;
  WeatherDataSource requestedProvider = WeatherDataSource::dynamic;
  bool operator==(const HourlyTripLoadedWeather&) const = default;
};

// One trip's route as loaded: the request it was looked up (and perhaps fetched) with.
struct LoadedHourlyRoute {
  TripCacheRequest request;
  HourlyTripLoadedWeather weather;
  bool operator==(const LoadedHourlyRoute&) const = default;
};

// A fetched result kept for the screen that could not be written to the trip cache.
struct UnpersistedRouteWeather {
  Uuid cacheID;
  Location requestedLocation;
  WeatherDataSource requestedProvider = WeatherDataSource::dynamic;
  CachedWeather cachedWeather;
  bool operator==(const UnpersistedRouteWeather&) const = default;
};

// The refresh key of the hourly view: a load runs again when any field changes.
// `hourly` are the rows of the place on screen (at `weatherLocation`); `loadsForecasts` false
// means cached records only.
struct HourlyTripRefreshID {
  TripHourlySchedule schedule;
  std::optional<FavoriteLocation> home;
  Location weatherLocation;
  WeatherDataSource requestedProvider = WeatherDataSource::dynamic;
  std::vector<OneCallWeather::Hourly> hourly;
  bool loadsForecasts = true;
  bool operator==(const HourlyTripRefreshID&) const = default;
};

// Everything one load produced: the snapshot to show and where its routes came from.
struct HourlyTripLoad {
  HourlyTripForecastSnapshot snapshot;
  std::vector<LoadedHourlyRoute> routes;        // trip routes in schedule order
  std::optional<HourlyTripLoadedWeather> home;  // the home route's weather, when it was needed and had
  std::vector<UnpersistedRouteWeather> unpersisted;
  int fetches = 0;                  // records fetched by this load (trips and home)
  std::vector<std::string> errors;  // "<place>: <why>" per failed fetch or store; never raised
  bool operator==(const HourlyTripLoad&) const = default;
};

// The symbol of the home route's location.
inline constexpr const char* kHomeRouteSymbol = "house";

// The trips of `schedule` in force at some instant from `first` to `last` (both included), in
// schedule order, each once.
std::vector<Trip> tripsInWindow(const TripHourlySchedule& schedule, Date first, Date last);

// Builds the hourly snapshot for `key`: the current route is `key.hourly` at `currentPlace`;
// one route per trip in force somewhere in the window of its real hours (synthetic sun rows are
// not hours); the home route only when the schedule needs it from the first hour
// (`needsHomeRoute`) and `key.home` is set. Home weather counts only when it lies within
// 2,000 m of the home (a moved home's old record is missing); the home route's zone is the
// home's own, else its record's. Fetched home weather is written back to `favorites`.
// Trip routes are located by trip id with the destination's shown name, symbol, zone and name,
// and the region of their record.
//
// Any thread; the caller's executor runs the fetches at once. Fetch and store failures go to
// `errors`; raises CancellationError only (nothing is stored after a cancellation).
Task<HourlyTripLoad> loadHourlyTripForecast(HourlyTripRefreshID key, HourlyForecastLocation currentPlace,
                                            WeatherCache& tripCache, FavoriteWeatherCache& favorites,
                                            TripWeatherFetcher fetcher, Clock& clock);

// What a trip's row in the list shows: a day's high and the theme of that day's condition.
struct TripRowWeatherSnapshot {
  Temperature temperature;
  WeatherState weatherState = WeatherState::placeholder;
  bool operator==(const TripRowWeatherSnapshot&) const = default;
};

// The row weather of `trip` from its cached record at `now`. The day is the trip's day in force
// now (in the destination's zone), else the trip's first day still to come that the record
// holds; a trip whose remaining days the record does not reach shows nothing rather than old
// weather. The state is weatherState of that day's condition, feels-like day temperature,
// clouds and sun times, seen at the day's local noon (so a row never shows a night theme).
// Requires the ICU zone data. Pure.
std::optional<TripRowWeatherSnapshot> tripRowWeather(const Trip& trip, const CachedWeather& cached, Date now);

}  // namespace ombrine
