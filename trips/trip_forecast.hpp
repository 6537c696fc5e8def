#pragma once
// Loading the forecasts of trips: look in the trip cache, fetch what is missing or stale through
// the same pipeline as a single place, store the results, and cut each trip's days out of its
// record.
//
// A trip's cache identifier is its `id`. Every fetch carries the stamp of the moment it was
// requested (TripCacheRequest), so a fetch that was requested before the trip was removed can
// never bring it back, and two processes fetching at once converge on one record.

#include <exception>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "core/record/one_call_weather.hpp"
#include "core/values/location.hpp"
#include "core/values/weather_data_source.hpp"
#include "persistence/trip_cache_store.hpp"
#include "persistence/weather_cache.hpp"
#include "platform/async/task.hpp"
#include "platform/clock.hpp"
#include "trips/trip.hpp"
#include "trips/trip_timeline.hpp"

namespace ombrine {

// What trip forecasts need of the forecast pipeline. The composition root plugs in the
// process's geocoder and `fetchOneCall`, so providers, regions and pipeline rules are those of
// a single place. `name` may raise (a place nobody can name); `fetchOneCall` raises the
// provider errors and CancellationError.
struct TripWeatherFetcher {
  std::function<GeoDetails(const Location&)> name;
  std::function<Task<OneCallWeather>(Location, GeoDetails, WeatherDataSource)> fetchOneCall;
};

// The refresh key of trip forecasts: a load runs again when it changes.
struct TripForecastRefreshID {
  bool shouldFetch = true;
  WeatherDataSource requestedProvider = WeatherDataSource::dynamic;
  bool operator==(const TripForecastRefreshID&) const = default;
};

// The outcome for one trip.
struct LoadedTripForecast {
  TripForecast forecast;                  // the days of the record that lie in the trip
  std::optional<TripCacheEntry> entry;    // the record they come from, if any
  bool fetched = false;                   // the record was fetched by this load
  std::optional<std::string> fetchError;  // why a fetch failed; a cached record still stands
  std::exception_ptr fetchFailure;        // the same failure, typed, for its reader to word
  std::optional<std::string> storeError;  // fetched, shown, but not written to the cache
  bool operator==(const LoadedTripForecast&) const = default;
};

// Loads the forecasts of `trips`, in their order. A trip is fetched (when `key.shouldFetch`)
// unless it has ended or the cache holds a fresh record (isFreshCachedRecord) for its
// destination and provider; fetches of different trips run at once, and all results are stored
// in one `store`. A failed fetch or store is reported in its trip's result, never raised: stale
// beats empty. Raises CancellationError only.
Task<std::vector<LoadedTripForecast>> loadTripForecasts(std::vector<Trip> trips, WeatherCache& cache,
                                                        TripWeatherFetcher fetcher, TripForecastRefreshID key,
                                                        Clock& clock);

}  // namespace ombrine
