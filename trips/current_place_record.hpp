#pragma once
// The forecast of the place the user is at, for the hourly trip view: the one cache-then-fetch
// decision for it.
//
// The newest record cached for the place (the latest-weather record when it lies within
// kLatestWeatherMergeRadius, and the home's saved record when the place is the home) stands when
// it is fresh (isFreshCachedRecord) or when fetching is off. Otherwise the place is fetched
// through `fetcher`, kept as the latest record (and as the home's saved record), and returned; a
// failed fetch falls back on the cached record, logged, and is raised only when nothing is
// cached. Raises std::runtime_error when fetching is off and nothing is cached, and
// CancellationError. Runs on the caller's executor; the caches must outlive the call.

#include <optional>
#include <string>

#include "core/values/location.hpp"
#include "persistence/favorite_location.hpp"
#include "persistence/favorite_weather_cache.hpp"
#include "persistence/weather_cache.hpp"
#include "platform/async/task.hpp"
#include "platform/clock.hpp"
#include "trips/trip_forecast.hpp"

namespace ombrine {

struct CurrentPlaceQuery {
  std::string name;
  Location coordinate;
  TimeZone timeZone;
  std::optional<Region> region;
  std::optional<FavoriteLocation> home;  // set when the place is the home
  WeatherDataSource provider = WeatherDataSource::dynamic;
  bool shouldFetch = true;
};

Task<CachedWeather> currentPlaceRecord(CurrentPlaceQuery query, WeatherCache& latest, FavoriteWeatherCache& favorites,
                                       TripWeatherFetcher fetcher, Clock& clock);

}  // namespace ombrine
