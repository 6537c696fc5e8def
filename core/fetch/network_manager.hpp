#pragma once
// Turns a place and a data source into one OneCallWeather.
//
// The only place that chooses a forecast service: by source and region
// (core/fetch/provider_dispatch.hpp); with no source given the stored preference is used. `dynamic` in the
// system-weather regions tries system weather and falls back to Foreca on any failure but cancellation. When tides are
// asked for and a tide fetcher is plugged in, the tide task runs concurrently with the forecast as a child task and is
// always awaited before returning; its data is set on a record that is not a placeholder, and its failure (other than
// cancellation) leaves the record as the provider gave it. With a cache plugged in, its newest record reaches the
// provider's cache short-cut when it is fresh.
//
// One instance per process, shared by reference. `fetchOneCall` may run on any executor, several
// at once. Raises what the providers raise (NetworkError, DomainError) and CancellationError for
// a cancellation at any step.

#include <optional>

#include "core/fetch/fetch_dependencies.hpp"
#include "core/fetch/provider_settings.hpp"
#include "platform/clock.hpp"

namespace ombrine {

// What the composition root may plug into NetworkManager.
struct NetworkManagerPlugins {
  // Null: no tide service is built in, and no tide task starts.
  TideFetcher* tides = nullptr;
  // Null: the providers' cache short-cut never applies.
  LatestWeatherStore* cache = nullptr;
};

class NetworkManager {
 public:
  using Plugins = NetworkManagerPlugins;

  // Request time-out of the shared session; provider clients may set their own per request.
  static constexpr double kTimeoutIntervalForRequest = 45.0;

  // `clock` decides whether the cached record is fresh.
  NetworkManager(ForecastProviders& providers, ProviderSettings& settings, Clock& clock, Plugins plugins = {});

  Task<OneCallWeather> fetchOneCall(Location location, Region region, TimeZone timeZone,
                                    std::optional<WeatherDataSource> source, bool includeTides);

 private:
  Task<OneCallWeather> fetchFromProvider(Location location, Region region, TimeZone timeZone, WeatherDataSource source);

  std::optional<OneCallWeather> freshCachedRecord() const;

  ForecastProviders& providers_;
  ProviderSettings& settings_;
  Clock& clock_;
  Plugins plugins_;
};

}  // namespace ombrine
