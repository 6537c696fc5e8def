#include "core/network_manager.hpp"

#include <memory>

#include "core/errors.hpp"
#include "platform/coroutines.hpp"
#include "platform/log.hpp"

namespace ombrine {

namespace {

// The tide child: its failure is logged and leaves the forecast without tides; a cancellation
// ends it as cancelled.
Task<void> fetchTides(TideFetcher& tides, Location location,
                      std::shared_ptr<TideFetcher::Tides> result) {
  try {
    *result = co_await tides.tideData(location);
  } catch (...) {
    const auto error = std::current_exception();
    rethrowIfCancellation(error);
    try {
      std::rethrow_exception(error);
    } catch (const std::exception& failure) {
      logf("Tide fetch failed: {}", failure.what());
    }
  }
}

}  // namespace

NetworkManager::NetworkManager(ForecastProviders& providers, ProviderSettings& settings, TideFetcher* tides)
    : providers_(providers), settings_(settings), tides_(tides) {}

Task<OneCallWeather> NetworkManager::fetchFromProvider(Location location, Region region, TimeZone timeZone,
                                                       WeatherDataSource source) {
  const ProviderPath path = providerPath(source, region);
  if (path != ProviderPath::systemWeatherFallingBackToForeca) {
    co_return co_await providers_.fetch(path, location, region, timeZone);
  }
  std::exception_ptr systemFailure;
  try {
    co_return co_await providers_.fetch(ProviderPath::systemWeather, location, region, timeZone);
  } catch (...) {
    systemFailure = std::current_exception();
  }
  rethrowIfCancellation(systemFailure);
  co_await throwIfCancelled();
  co_return co_await providers_.fetch(ProviderPath::foreca, location, region, timeZone);
}

Task<OneCallWeather> NetworkManager::fetchOneCall(Location location, Region region, TimeZone timeZone,
                                                  std::optional<WeatherDataSource> source, bool includeTides) {
  co_await throwIfCancelled();
  const WeatherDataSource chosen = source ? *source : settings_.dataSource();
  if (!includeTides || !tides_) {
    co_return co_await fetchFromProvider(location, region, timeZone, chosen);
  }

  auto tideResult = std::make_shared<TideFetcher::Tides>();
  auto weather = std::make_shared<std::optional<OneCallWeather>>();
  auto body = [this, location, region, timeZone, chosen, tideResult, weather](TaskGroup& group) -> Task<void> {
    group.spawn(fetchTides(*tides_, location, tideResult));
    *weather = co_await fetchFromProvider(location, region, timeZone, chosen);
  };
  co_await withTaskGroup(body);
  OneCallWeather record = std::move(**weather);
  if (!record.isPlaceholder && *tideResult) record.tideData = std::move(*tideResult);
  co_return record;
}

}  // namespace ombrine
