#include "wiring/weather_alerts.hpp"

#include <filesystem>
#include <thread>

#include "core/values/unit_rules.hpp"
#include "platform/key_value_store.hpp"

namespace ombrine {

OneCallWeather fetchWeatherAlerts(Services& services, const Location& location, const GeoDetails& details) {
  auto task =
      services.network().fetchOneCall(location, details.region, details.timeZone, WeatherDataSource::foreca, false);
  return services.runtime().runBlocking(std::move(task));
}

std::unique_ptr<WeatherAlertNotificationStore> openWeatherAlertStore(const KeyValueStore& sharedDefaults) {
  const auto folder = WeatherAlertNotificationStore::defaultFolder();
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  if (error) return nullptr;
  return std::make_unique<WeatherAlertNotificationStore>(
      folder, WeatherAlertNotificationStore::legacyRecordValuesFrom(sharedDefaults));
}

WeatherAlertPassOutcome notifyWeatherAlertsOnce(Services& services, WeatherAlertNotificationStore* store,
                                                const KeyValueStore& sharedDefaults, const KeyValueStore& cloud,
                                                const OneCallWeather& weather, const TimeZone& zone) {
  WeatherAlertNotifier notifier({store, services.notificationCenter(), services.clock(),
                                 [&] { return weatherAlertNotificationsEnabled(sharedDefaults, cloud); },
                                 currentLocale(), nullptr});
  static const std::vector<OneCallWeather::Alert> kNone;
  return notifier.notifyWeatherAlerts(weather.alerts ? *weather.alerts : kNone, zone);
}

std::size_t deliverNotificationsDueWithin(Services& services, std::chrono::milliseconds limit) {
  NotificationCenter& center = services.notificationCenter();
  const auto deadline = services.clock().now() + limit;
  const auto before = center.deliveredNotifications().size();
  while (true) {
    const auto next = center.nextTriggerDate();
    if (!next || *next > deadline) break;
    const auto now = services.clock().now();
    if (*next > now) std::this_thread::sleep_for(*next - now + std::chrono::milliseconds(5));
    center.deliverDueRequests();
  }
  const auto after = center.deliveredNotifications().size();
  return after > before ? after - before : 0;
}

}  // namespace ombrine
