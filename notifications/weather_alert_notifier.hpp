#pragma once
// The weather alert notification pass: announces each live alert once, across passes, processes
// and crashes (the rules are in notifications/weather_alert_notification_state.hpp).
//
// `notifyWeatherAlerts` keeps the alerts whose end has not passed, orders them by severity
// (extreme first, a missing severity as unknown) and then by start, plans under the store's lock,
// removes what the plan cancels, adds one request with a 5-second trigger for the new alerts, and
// confirms under the lock (or rolls back when the center refused it). Before planning it settles
// attempts that a dead process left behind, from what the notification center holds.
//
// Failures never escape, except cancellation: each is one of the lines "Weather alert
// notification store is unavailable", "Error updating weather alert notification state: ...",
// "Error sending weather alert notification: ...", "Error confirming weather alert notification
// state: ..." or "Error rolling back weather alert notification state: ..." on stderr, and the
// outcome says the pass failed.
//
// Context: synchronous and blocking (file locks, the notification center); any thread. One
// notifier may run passes on several threads at once; they order themselves through the store.

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <unicode/locid.h>

#include "core/record/one_call_weather.hpp"
#include "core/values/time_zone.hpp"
#include "notifications/weather_alert_notification_state.hpp"
#include "notifications/weather_alert_notification_store.hpp"
#include "platform/clock.hpp"
#include "platform/notification_center.hpp"

namespace ombrine {

class KeyValueStore;

// The steps of a pass, for observers (tests that stop a process at each one).
enum class WeatherAlertPassStep { reserved, added, confirming, confirmed };

struct WeatherAlertPassOutcome {
  // The request added in this pass (identifier and content), when one was.
  std::optional<NotificationRequest> request;
  // The alerts the request announces, the primary one first.
  std::vector<WeatherAlertNotificationKey> announcedKeys;
  bool failed = false;
};

// True unless notifications are switched off ("isSendingNotifications" in the shared defaults,
// missing counts as true) or the user hides weather alerts ("hideWeatherAlerts" of the
// settings in `cloud`).
bool weatherAlertNotificationsEnabled(const KeyValueStore& sharedDefaults, const KeyValueStore& cloud);

// A date as the notification shows it: hour (with an abbreviated AM/PM where the locale uses
// one), minute, day and abbreviated month, on the clock of `zone`.
std::string formatWeatherAlertDate(Date date, const TimeZone& zone, const icu::Locale& locale);

// The notification for `alerts` (the new ones, in order): the first one's words, and how many
// more. Dates in `zone`, in the words of `locale`.
NotificationContent weatherAlertNotificationContent(const std::vector<OneCallWeather::Alert>& alerts,
                                                    const TimeZone& zone, const icu::Locale& locale);

class WeatherAlertNotifier {
 public:
  struct Dependencies {
    // Nothing when the container cannot be had.
    WeatherAlertNotificationStore* store = nullptr;
    NotificationCenter& center;
    Clock& clock;
    // Read at planning and again at confirmation.
    std::function<bool()> isEnabled;
    icu::Locale locale;
    // Called as the pass reaches each step (tests only).
    std::function<void(WeatherAlertPassStep)> observer;
  };

  explicit WeatherAlertNotifier(Dependencies dependencies);

  // One pass over the alerts of the current snapshot of a place whose time zone is `zone`.
  // Raises CancellationError only.
  WeatherAlertPassOutcome notifyWeatherAlerts(const std::vector<OneCallWeather::Alert>& alerts, const TimeZone& zone);

 private:
  void reach(WeatherAlertPassStep step) const {
    if (deps_.observer) deps_.observer(step);
  }
  void rollBack(const Uuid& identifier);

  Dependencies deps_;
};

}  // namespace ombrine
