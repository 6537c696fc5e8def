#include "trips/current_place_record.hpp"

#include <fmt/format.h>

#include <stdexcept>

#include "core/record/weather_derived.hpp"
#include "core/values/errors.hpp"
#include "platform/errors.hpp"
#include "platform/log.hpp"

namespace ombrine {

namespace {

std::optional<CachedWeather> cachedRecord(const CurrentPlaceQuery& query, WeatherCache& latest,
                                          FavoriteWeatherCache& favorites) {
  std::optional<CachedWeather> best;
  auto consider = [&](const std::optional<CachedWeather>& candidate) {
    if (!candidate || candidate->location.distance(query.coordinate) >= kLatestWeatherMergeRadius) return;
    if (!best || best->weather.current.dt < candidate->weather.current.dt) best = candidate;
  };
  consider(latest.latestCachedWeather());
  if (query.home) {
    const FavoriteWeather stored = favorites.weather();
    if (auto found = stored.find(query.home->id); found != stored.end()) consider(found->second);
  }
  return best;
}

}  // namespace

Task<CachedWeather> currentPlaceRecord(CurrentPlaceQuery query, WeatherCache& latest, FavoriteWeatherCache& favorites,
                                       TripWeatherFetcher fetcher, Clock& clock) {
  const Date now = Date::fromSystem(clock.now());
  std::optional<CachedWeather> cached = cachedRecord(query, latest, favorites);
  if (!query.shouldFetch || (cached && isFreshCachedRecord(cached->weather, now))) {
    if (!cached) throw std::runtime_error(fmt::format("nothing cached for {}; run without --no-fetch", query.name));
    co_return *cached;
  }
  std::exception_ptr failure;
  try {
    GeoDetails details;
    try {
      details = fetcher.name(query.coordinate);
    } catch (const DomainError&) {
      details = GeoDetails{query.name, Region::unknown(), query.timeZone};
    }
    details.name = query.name;
    const std::optional<Region> region =
        details.region == Region::unknown() ? query.region : std::optional(details.region);
    OneCallWeather weather = co_await fetcher.fetchOneCall(query.coordinate, details, query.provider);
    CachedWeather fetched{query.name, query.coordinate, region, std::move(weather)};
    try {
      co_await latest.storeLatest(fetched);
    } catch (const FileError& error) {
      logf("The weather cache could not be written: {}", error.what());
    }
    if (query.home) {
      FavoriteWeather stored = favorites.weather();
      stored[query.home->id] = fetched;
      favorites.setWeather(std::move(stored));
    }
    co_return fetched;
  } catch (...) {
    failure = std::current_exception();
  }
  rethrowIfCancellation(failure);
  if (!cached) std::rethrow_exception(failure);
  try {
    std::rethrow_exception(failure);
  } catch (const std::exception& error) {
    logDetail("The forecast for {} could not be refreshed ({}); showing the cached one", query.name, error.what());
  }
  co_return *cached;
}

}  // namespace ombrine
