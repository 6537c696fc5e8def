#include "wiring/background_work.hpp"

#include "core/values/errors.hpp"
#include "core/values/unit_rules.hpp"
#include "persistence/favorite_store.hpp"
#include "persistence/weather_cache.hpp"
#include "platform/async/coroutines.hpp"
#include "wiring/geocode_namer.hpp"
#include "wiring/weather_alerts.hpp"

namespace ombrine {

namespace {

Task<void> fetchInto(NetworkManager& network, Location location, Region region, TimeZone zone,
                     std::shared_ptr<std::optional<OneCallWeather>> out) {
  auto fetching = network.fetchOneCall(location, std::move(region), std::move(zone), std::nullopt, false);
  *out = co_await std::move(fetching);
}

// The name is a nicety: when the coordinate cannot be named, the pass goes on without it.
Task<void> nameInto(GeocodeNamer& namer, Location location, std::shared_ptr<std::optional<GeoDetails>> out) {
  try {
    auto naming = namer.name(location);
    *out = co_await std::move(naming);
  } catch (...) {
    rethrowIfCancellation(std::current_exception());
  }
}

}  // namespace

LookedAtPlace placeToLookAt(Services& services) {
  if (const auto device = services.locationProvider().currentLocation()) {
    LookedAtPlace place{Location(device->latitude, device->longitude), device->name, std::nullopt, std::nullopt,
                        device->source};
    if (device->region) place.region = Region{*device->region};
    if (device->timeZone) place.timeZone = TimeZone::named(*device->timeZone);
    return place;
  }
  if (const auto home = services.home().home()) {
    return LookedAtPlace{home->location, home->shownName(), home->region, home->timeZone, "home"};
  }
  throw DomainError(kNoResultErrorDomain, kNoResultErrorCode,
                    "no place to look at: set a home place (ombrine places home PLACE), OMBRINE_LOCATION or " +
                        FileLocationProvider::defaultLocationFile().string());
}

PrecipitationPassOutcome notifyPrecipitationOnce(Services& services, const OneCallWeather& weather,
                                                 const std::function<bool()>& isCancelled) {
  PrecipitationNotifier notifier(
      {services.sharedDefaults(), services.notificationCenter(), services.clock(), currentLocale()});
  return notifier.evaluatePrecipitationNotification(weather, isCancelled);
}

Task<RefreshedPlace> ServicesRefreshWork::fetch() {
  const LookedAtPlace place = placeToLookAt(services_);
  auto weather = std::make_shared<std::optional<OneCallWeather>>();
  auto details = std::make_shared<std::optional<GeoDetails>>();
  NetworkManager& network = services_.network();
  GeocodeNamer& namer = services_.namer();
  if (place.region && place.timeZone) {
    // Both are known: the forecast and the name are fetched side by side.
    auto group = [&](TaskGroup& children) -> Task<void> {
      children.spawn(fetchInto(network, place.location, *place.region, *place.timeZone, weather));
      children.spawn(nameInto(namer, place.location, details));
      co_return;
    };
    co_await withTaskGroup(group);
  } else {
    // The provider's choice needs the region: name first.
    auto naming = namer.name(place.location);
    *details = co_await std::move(naming);
    auto fetching = fetchInto(network, place.location, (*details)->region, (*details)->timeZone, weather);
    co_await std::move(fetching);
  }
  RefreshedPlace refreshed;
  refreshed.location = place.location;
  refreshed.weather = std::move(**weather);
  refreshed.name = place.name ? *place.name : *details ? (*details)->name : std::string();
  refreshed.region = place.region ? place.region : *details ? std::optional<Region>((*details)->region) : std::nullopt;
  refreshed.timeZone = place.timeZone ? *place.timeZone : *details ? (*details)->timeZone : refreshed.weather.timeZone;
  co_return refreshed;
}

void ServicesRefreshWork::evaluatePrecipitation(const RefreshedPlace& place, const std::function<bool()>& isCancelled) {
  notifyPrecipitationOnce(services_, place.weather, isCancelled);
}

void ServicesRefreshWork::notifyWeatherAlerts(const RefreshedPlace& place) {
  const auto store = openWeatherAlertStore(services_.sharedDefaults());
  notifyWeatherAlertsOnce(services_, store.get(), services_.sharedDefaults(), services_.syncedStore(), place.weather,
                          place.timeZone);
}

Task<void> ServicesRefreshWork::storeLatest(CachedWeather cachedWeather) {
  PlacedWeather placed{std::move(cachedWeather.name), cachedWeather.location, std::move(cachedWeather.region),
                       std::move(cachedWeather.weather)};
  auto storing = services_.latestWeather().storeLatest(std::move(placed));
  co_await std::move(storing);
}

}  // namespace ombrine
