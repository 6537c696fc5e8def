#include "core/fetch/network_manager.hpp"

#include <memory>

#include "core/values/errors.hpp"
#include "platform/async/coroutines.hpp"
#include "platform/log.hpp"

namespace ombrine {

namespace {

// The tide child: its failure is logged and leaves the forecast without tides; a cancellation
// ends it as cancelled.
Task<void> fetchTides(TideFetcher& tides, Location location, Region region,
                      std::shared_ptr<TideFetcher::Tides> result) {
  try {
    *result = co_await tides.tideData(location, std::move(region));
  } catch (...) {
    const auto error = std::current_exception();
    rethrowIfCancellation(error);
    try {
      std::rethrow_exception(error);
    } catch (const std::exception& failure) {
      logDetail("Tide fetch failed: {}", failure.what());
    }
  }
}

}  // namespace

NetworkManager::NetworkManager(ForecastProviders& providers, ProviderSettings& settings, Clock& clock, Plugins plugins)
    : providers_(providers), settings_(settings), clock_(clock), plugins_(plugins) {}

std::optional<OneCallWeather> NetworkManager::freshCachedRecord() const {
  if (!plugins_.cache) return std::nullopt;
  auto latest = plugins_.cache->latest();
  if (!latest || !plugins_.cache->isFresh(latest->weather, Date::fromSystem(clock_.now()))) return std::nullopt;
  return std::move(latest->weather);
}

Task<OneCallWeather> NetworkManager::fetchFromProvider(Location location, Region region, TimeZone timeZone,
                                                       WeatherDataSource source) {
  const ProviderPath path = providerPath(source, region);
  ProviderRequest request{location, region, timeZone, freshCachedRecord()};
  if (path != ProviderPath::systemWeatherFallingBackToForeca) {
    co_return co_await providers_.fetch(path, std::move(request));
  }
  std::exception_ptr systemFailure;
  try {
    ProviderRequest systemRequest = request;
    co_return co_await providers_.fetch(ProviderPath::systemWeather, std::move(systemRequest));
  } catch (...) {
    systemFailure = std::current_exception();
  }
  rethrowIfCancellation(systemFailure);
  co_await throwIfCancelled();
  co_return co_await providers_.fetch(ProviderPath::foreca, std::move(request));
}

Task<OneCallWeather> NetworkManager::fetchOneCall(Location location, Region region, TimeZone timeZone,
                                                  std::optional<WeatherDataSource> source, bool includeTides) {
  co_await throwIfCancelled();
  const WeatherDataSource chosen = source ? *source : settings_.dataSource();
  if (!includeTides || !plugins_.tides) {
    co_return co_await fetchFromProvider(location, region, timeZone, chosen);
  }

  auto tideResult = std::make_shared<TideFetcher::Tides>();
  auto weather = std::make_shared<std::optional<OneCallWeather>>();
  auto body = [this, location, region, timeZone, chosen, tideResult, weather](TaskGroup& group) -> Task<void> {
    group.spawn(fetchTides(*plugins_.tides, location, region, tideResult));
    *weather = co_await fetchFromProvider(location, region, timeZone, chosen);
  };
  co_await withTaskGroup(body);
  OneCallWeather record = std::move(**weather);
  if (!record.isPlaceholder && *tideResult) record.tideData = std::move(*tideResult);
  co_return record;
}

}  // namespace ombrine
