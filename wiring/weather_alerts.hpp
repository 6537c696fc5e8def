#pragma once
// The weather alert pass wired to the process's services: the Foreca warnings of a place, the
// alert state of the container and the desktop notification center.
//
// Context: call from a command's thread, never from the runtime's threads (the pass blocks on
// file locks, and the forecast is fetched with runBlocking).

#include <chrono>
#include <memory>
#include <optional>

#include "core/record/one_call_weather.hpp"
#include "core/values/location.hpp"
#include "notifications/weather_alert_notifier.hpp"
#include "wiring/services.hpp"

namespace ombrine {

class KeyValueStore;

// The forecast of a place from Foreca (whose client carries the warnings), through the one
// fetch path, without tides. Raises as NetworkManager::fetchOneCall does.
OneCallWeather fetchWeatherAlerts(Services& services, const Location& location, const GeoDetails& details);

// The store of the container; nothing when its folder cannot be created (the pass then says the
// store is unavailable). Legacy values come from "sentWarningIds" in `sharedDefaults`, which must
// outlive the store.
std::unique_ptr<WeatherAlertNotificationStore> openWeatherAlertStore(const KeyValueStore& sharedDefaults);

// One pass over `weather.alerts` with the user's settings from `sharedDefaults` and `cloud`.
WeatherAlertPassOutcome notifyWeatherAlertsOnce(Services& services, WeatherAlertNotificationStore* store,
                                                const KeyValueStore& sharedDefaults, const KeyValueStore& cloud,
                                                const OneCallWeather& weather, const TimeZone& zone);

// Stays alive until every pending request due within `limit` has been delivered (by this process
// or another one), so that a short-lived command delivers what it added. Returns how many
// requests this process saw delivered.
std::size_t deliverNotificationsDueWithin(Services& services, std::chrono::milliseconds limit);

}  // namespace ombrine
