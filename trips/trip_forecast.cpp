#include "trips/trip_forecast.hpp"

#include <exception>
#include <memory>

#include "core/values/errors.hpp"
#include "platform/async/coroutines.hpp"
#include "platform/errors.hpp"

namespace ombrine {

namespace {

// The place as the pipeline names it; a place the geocoder cannot name keeps the trip's own
// name and zone, and an unknown region.
GeoDetails detailsOf(const Trip& trip, const TripWeatherFetcher& fetcher) {
  try {
    GeoDetails details = fetcher.name(trip.destination.location);
    details.name = trip.destination.shownName();
    return details;
  } catch (const CancellationError&) {
    throw;
  } catch (const std::exception&) {
    return GeoDetails{trip.destination.shownName(), Region::unknown(), trip.destination.timeZone};
  }
}

struct Fetch {
  TripCacheRequest request;
  std::optional<CachedWeather> weather;
  std::optional<std::string> error;
  std::exception_ptr failure;
};

Task<void> fetchOne(std::shared_ptr<Fetch> fetch, Trip trip, TripWeatherFetcher fetcher) {
  try {
    GeoDetails details = detailsOf(trip, fetcher);
    Location location = trip.destination.location;
    const WeatherDataSource provider = fetch->request.requestedProvider;
    const std::optional<Region> region =
        details.region == Region::unknown() ? std::nullopt : std::optional<Region>(details.region);
    std::string name = details.name;
    OneCallWeather weather = co_await fetcher.fetchOneCall(location, std::move(details), provider);
    fetch->weather = CachedWeather{std::move(name), location, region, std::move(weather)};
  } catch (const std::exception& error) {
    rethrowIfCancellation(std::current_exception());
    fetch->error = error.what();
    fetch->failure = std::current_exception();
  }
}

}  // namespace

Task<std::vector<LoadedTripForecast>> loadTripForecasts(std::vector<Trip> trips, WeatherCache& cache,
                                                        TripWeatherFetcher fetcher, TripForecastRefreshID key,
                                                        Clock& clock) {
  const Date now = Date::fromSystem(clock.now());
  std::vector<LoadedTripForecast> results(trips.size());
  std::vector<std::shared_ptr<Fetch>> fetches(trips.size());
  std::vector<Task<void>> work;
  for (std::size_t i = 0; i < trips.size(); ++i) {
    const Trip& trip = trips[i];
    results[i].forecast.trip = trip;
    results[i].entry = cache.cachedWeather(trip.id, trip.destination.location, true, key.requestedProvider);
    const bool fresh = results[i].entry && isFreshCachedRecord(results[i].entry->cachedWeather.weather, now);
    const bool ended = trip.dates.to <= now;
    if (!key.shouldFetch || fresh || ended) continue;
    auto fetch = std::make_shared<Fetch>();
    // The stamp is taken now, when the fetch is asked for, not when it ends.
    fetch->request = TripCacheRequest{trip.id, trip.destination.location, key.requestedProvider,
                                      TripCacheOperationOrder::begin(Date::fromSystem(clock.now()))};
    fetches[i] = fetch;
    work.push_back(fetchOne(fetch, trip, fetcher));
  }
  co_await whenAll(std::move(work));

  std::vector<TripCacheWrite> writes;
  for (std::size_t i = 0; i < trips.size(); ++i) {
    const auto& fetch = fetches[i];
    if (!fetch) continue;
    results[i].fetchError = fetch->error;
    results[i].fetchFailure = fetch->failure;
    if (!fetch->weather) continue;
    results[i].fetched = true;
    writes.push_back(TripCacheWrite{fetch->request.cacheID, *fetch->weather, fetch->request.requestedProvider,
                                    fetch->request.operationOrder});
  }
  std::optional<std::string> storeError;
  if (!writes.empty()) {
    try {
      co_await cache.store(std::move(writes));
    } catch (const std::exception& error) {
      rethrowIfCancellation(std::current_exception());
      storeError = error.what();
    }
  }
  for (std::size_t i = 0; i < trips.size(); ++i) {
    const Trip& trip = trips[i];
    LoadedTripForecast& result = results[i];
    if (result.fetched) {
      result.storeError = storeError;
      // What the merge kept: a fresher observation from another process may beat this fetch.
      result.entry = cache.cachedWeather(trip.id, trip.destination.location, true, key.requestedProvider);
    }
    if (result.entry) result.forecast.weather = tripForecastDays(trip, result.entry->cachedWeather.weather.daily);
  }
  co_return results;
}

}  // namespace ombrine
