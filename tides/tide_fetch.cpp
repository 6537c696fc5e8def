#include "tides/tide_fetch.hpp"

#include <memory>

#include "platform/coroutines.hpp"
#include "platform/errors.hpp"
#include "platform/log.hpp"

namespace ombrine {

namespace {

Task<void> fetchTides(TideService& service, double latitude, double longitude, std::string region,
                      std::shared_ptr<std::optional<TideData>> out) {
  try {
    *out = co_await service.tideData(latitude, longitude, std::move(region));
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

Task<void> fetchForecast(Task<OneCallWeather> forecast, std::shared_ptr<std::optional<OneCallWeather>> out) {
  *out = co_await std::move(forecast);
}

}  // namespace

Task<OneCallWeather> withTideData(TideService* service, Location location, std::string region,
                                  Task<OneCallWeather> forecast) {
  if (service == nullptr) co_return co_await std::move(forecast);
  auto tides = std::make_shared<std::optional<TideData>>();
  auto weather = std::make_shared<std::optional<OneCallWeather>>();
  auto forecastTask = std::make_shared<Task<OneCallWeather>>(std::move(forecast));
  auto body = [service, location, region, tides, weather, forecastTask](TaskGroup& group) -> Task<void> {
    group.spawn(fetchTides(*service, location.latitude(), location.longitude(), region, tides));
    co_await fetchForecast(std::move(*forecastTask), weather);
  };
  co_await withTaskGroup(body);
  OneCallWeather record = std::move(**weather);
  if (!record.isPlaceholder) record.tideData = std::move(*tides);
  co_return record;
}

}  // namespace ombrine
