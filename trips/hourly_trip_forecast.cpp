#include "trips/hourly_trip_forecast.hpp"

#include <algorithm>
#include <exception>
#include <memory>
#include <unordered_set>

#include "platform/async/coroutines.hpp"
#include "platform/errors.hpp"
#include "trips/trip_calendar.hpp"
#include "trips/trip_rules.hpp"

namespace ombrine {

namespace {

// One place to fetch: what the pipeline is asked for and what came back.
struct PlaceFetch {
  Location location;
  std::string shownName;
  TimeZone fallbackZone;
  WeatherDataSource provider = WeatherDataSource::dynamic;
  std::optional<CachedWeather> weather;
  std::optional<std::string> error;
};

// The pipeline's details of the place, under the user's name for it; a place the geocoder
// cannot name keeps its own zone and an unknown region.
GeoDetails detailsOf(const PlaceFetch& place, const TripWeatherFetcher& fetcher) {
  try {
    GeoDetails details = fetcher.name(place.location);
    details.name = place.shownName;
    return details;
  } catch (const std::exception&) {
    rethrowIfCancellation(std::current_exception());
    return GeoDetails{place.shownName, Region::unknown(), place.fallbackZone};
  }
}

Task<void> fetchPlace(std::shared_ptr<PlaceFetch> place, TripWeatherFetcher fetcher) {
  try {
    GeoDetails details = detailsOf(*place, fetcher);
    const std::optional<Region> region =
        details.region == Region::unknown() ? std::nullopt : std::optional<Region>(details.region);
    Location location = place->location;
    const WeatherDataSource provider = place->provider;
    OneCallWeather weather = co_await fetcher.fetchOneCall(location, std::move(details), provider);
    place->weather = CachedWeather{place->shownName, location, region, std::move(weather)};
  } catch (const std::exception& error) {
    rethrowIfCancellation(std::current_exception());
    place->error = error.what();
  }
}

std::string failure(const std::string& place, const std::string& why) { return place + ": " + why; }

// A trip's route while it loads.
struct TripLoad {
  Trip trip;
  TripCacheRequest request;
  std::optional<CachedWeather> weather;
  std::shared_ptr<PlaceFetch> fetch;
};

HourlyForecastLocation tripRouteLocation(const Trip& trip, const CachedWeather& weather) {
  return HourlyForecastLocation{
      trip.id,        trip.destination.shownName(), trip.destination.symbolName, trip.destination.timeZone,
      weather.region, trip.destination.name};
}

HourlyForecastLocation homeRouteLocation(const FavoriteLocation& home, const CachedWeather& weather) {
  return HourlyForecastLocation{home.id,
                                home.shownName(),
                                kHomeRouteSymbol,
                                home.timeZone ? *home.timeZone : weather.weather.timeZone,
                                home.region ? home.region : weather.region,
                                std::nullopt};
}

}  // namespace

std::vector<Trip> tripsInWindow(const TripHourlySchedule& schedule, Date first, Date last) {
  std::vector<Trip> result;
  std::unordered_set<Uuid> seen;
  for (const Trip& trip : schedule.trips) {
    // In force at some instant of [first, last]: the half-open [from, to) meets the window.
    const bool overlaps = trip.dates.from <= last && trip.dates.to > first && trip.dates.from < trip.dates.to;
    if (overlaps && seen.insert(trip.id).second) result.push_back(trip);
  }
  return result;
}

Task<HourlyTripLoad> loadHourlyTripForecast(HourlyTripRefreshID key, HourlyForecastLocation currentPlace,
                                            WeatherCache& tripCache, FavoriteWeatherCache& favorites,
                                            TripWeatherFetcher fetcher, Clock& clock) {
  const Date now = Date::fromSystem(clock.now());
  HourlyTripLoad result;
  std::vector<Date> hours;
  for (const OneCallWeather::Hourly& row : key.hourly) {
    if (!row.sunStateChange) hours.push_back(row.dt);
  }
  HourlyForecastRoute currentRoute{key.hourly, std::move(currentPlace)};
  if (hours.empty()) {
    result.snapshot = snapshot(std::move(currentRoute), std::nullopt, key.schedule, {});
    co_return result;
  }
  const auto [first, last] = std::minmax_element(hours.begin(), hours.end());

  std::vector<Task<void>> work;
  std::vector<TripLoad> trips;
  for (Trip& trip : tripsInWindow(key.schedule, *first, *last)) {
    TripLoad load{std::move(trip), {}, std::nullopt, nullptr};
    const Location& location = load.trip.destination.location;
    // The stamp is taken now, when the request is made, not when a fetch ends.
    load.request = TripCacheRequest{load.trip.id, location, key.requestedProvider,
                                    TripCacheOperationOrder::begin(Date::fromSystem(clock.now()))};
    if (auto entry = tripCache.cachedWeather(load.trip.id, location, true, key.requestedProvider)) {
      load.weather = std::move(entry->cachedWeather);
    }
    const bool fresh = load.weather && isFreshCachedRecord(load.weather->weather, now);
    if (key.loadsForecasts && !fresh) {
      load.fetch = std::make_shared<PlaceFetch>(PlaceFetch{location, load.trip.destination.shownName(),
                                                           load.trip.destination.timeZone, key.requestedProvider,
                                                           std::nullopt, std::nullopt});
      work.push_back(fetchPlace(load.fetch, fetcher));
    }
    trips.push_back(std::move(load));
  }

  std::optional<CachedWeather> homeWeather;
  std::shared_ptr<PlaceFetch> homeFetch;
  const bool wantsHome = key.home && key.schedule.needsHomeRoute(*first);
  if (wantsHome) {
    const FavoriteWeather stored = favorites.weather();
    if (auto found = stored.find(key.home->id);
        found != stored.end() && found->second.location.distance(key.home->location) < kLatestWeatherMergeRadius) {
      homeWeather = found->second;
    }
    const bool fresh = homeWeather && isFreshCachedRecord(homeWeather->weather, now);
    if (key.loadsForecasts && !fresh) {
      const TimeZone zone = key.home->timeZone ? *key.home->timeZone : TimeZone::gmt();
      homeFetch = std::make_shared<PlaceFetch>(PlaceFetch{key.home->location, key.home->shownName(), zone,
                                                          key.requestedProvider, std::nullopt, std::nullopt});
      work.push_back(fetchPlace(homeFetch, fetcher));
    }
  }
  co_await whenAll(std::move(work));

  std::vector<TripCacheWrite> writes;
  for (TripLoad& load : trips) {
    if (!load.fetch) continue;
    ++result.fetches;
    if (load.fetch->error) result.errors.push_back(failure(load.trip.destination.shownName(), *load.fetch->error));
    if (!load.fetch->weather) continue;
    writes.push_back(TripCacheWrite{load.request.cacheID, *load.fetch->weather, load.request.requestedProvider,
                                    load.request.operationOrder});
  }
  std::optional<std::string> storeError;
  if (!writes.empty()) {
    std::vector<TripCacheWrite> batch = writes;
    try {
      co_await tripCache.store(std::move(batch));
    } catch (const std::exception& error) {
      rethrowIfCancellation(std::current_exception());
      storeError = error.what();
    }
  }
  for (TripLoad& load : trips) {
    if (!load.fetch || !load.fetch->weather) continue;
    if (storeError) {
      result.errors.push_back(failure(load.trip.destination.shownName(), "not saved: " + *storeError));
      result.unpersisted.push_back(UnpersistedRouteWeather{load.request.cacheID, load.request.location,
                                                           load.request.requestedProvider, *load.fetch->weather});
      load.weather = load.fetch->weather;
      continue;
    }
    // What the merge kept: a fresher observation from another process may beat this fetch, and
    // a removal stamped after the request leaves nothing.
    auto entry = tripCache.cachedWeather(load.trip.id, load.request.location, true, key.requestedProvider);
    load.weather = entry ? std::optional<CachedWeather>(std::move(entry->cachedWeather)) : std::nullopt;
  }

  std::unordered_map<Uuid, HourlyForecastRoute> routes;
  for (TripLoad& load : trips) {
    if (!load.weather) continue;
    routes.emplace(load.trip.id,
                   HourlyForecastRoute{load.weather->weather.hourly, tripRouteLocation(load.trip, *load.weather)});
    result.routes.push_back(
        LoadedHourlyRoute{load.request, HourlyTripLoadedWeather{std::move(*load.weather), key.requestedProvider}});
  }

  std::optional<HourlyForecastRoute> homeRoute;
  if (homeFetch) {
    ++result.fetches;
    if (homeFetch->error) result.errors.push_back(failure(key.home->shownName(), *homeFetch->error));
    if (homeFetch->weather) {
      homeWeather = homeFetch->weather;
      FavoriteWeather stored = favorites.weather();
      stored[key.home->id] = *homeWeather;
      favorites.setWeather(std::move(stored));
    }
  }
  if (homeWeather) {
    homeRoute = HourlyForecastRoute{homeWeather->weather.hourly, homeRouteLocation(*key.home, *homeWeather)};
    result.home = HourlyTripLoadedWeather{std::move(*homeWeather), key.requestedProvider};
  }
  result.snapshot = snapshot(std::move(currentRoute), std::move(homeRoute), key.schedule, std::move(routes));
  co_return result;
}

std::optional<TripRowWeatherSnapshot> tripRowWeather(const Trip& trip, const CachedWeather& cached, Date now) {
  const std::vector<OneCallWeather::Daily> days = tripForecastDays(trip, cached.weather.daily);
  const TripCalendar destination(trip.destination.timeZone);
  const CivilDay today = destination.day(now);
  // Days are in date order; the first one not before today is today's when the trip is under way.
  const auto day = std::find_if(days.begin(), days.end(),
                                [&](const OneCallWeather::Daily& row) { return destination.day(row.dt) >= today; });
  if (day == days.end()) return std::nullopt;
  const Date noon = destination.date(destination.day(day->dt), WallTime{12, 0, 0});
  OneCallWeather seen;
  seen.timeZone = trip.destination.timeZone;
  seen.current.dt = noon;
  seen.current.sunrise = day->sunrise;
  seen.current.sunset = day->sunset;
  seen.current.temp = day->temp.max;
  seen.current.feelsLike = day->feelsLike.day;
  seen.current.clouds = static_cast<int>(day->clouds.value_or(0.0));
  seen.current.weather = day->weather;
  return TripRowWeatherSnapshot{day->temp.max, weatherState(seen, noon)};
}

}  // namespace ombrine
