#pragma once
// Rain and snow notifications: from the minute-by-minute precipitation of a fresh forecast, tell
// the user once that rain or snow is about to start (and how long it lasts), and once more when
// it is about to end.
//
// One integer of state is kept between passes, "precipitationNotificationState" in the shared
// defaults: 0 idle, 1 the start was announced, 2 the end was announced. Missing, of another kind
// or out of range it reads as 0. It goes 0 -> 1 on the notice of the start, 1 -> 2 on the notice
// of the end, and back to 0 from either when the first 60 minutes are dry (2 holds until then,
// even if rain comes back within the hour). The notification identifier is "Precipitation": a
// new request replaces the earlier one.
//
// Context: synchronous and blocking (the defaults file, the notification center's spool); one
// pass at a time, which the background refresh arranges. The defaults key is not locked.

#include <chrono>
#include <functional>
#include <optional>
#include <string>

#include "core/record/one_call_weather.hpp"
#include "core/values/date.hpp"
#include "notifications/precipitation_wording.hpp"
#include "platform/clock.hpp"
#include "platform/notification_center.hpp"

namespace ombrine {

class KeyValueStore;

struct PrecipitationNotificationRules {
  static constexpr std::string_view kStateKey = "precipitationNotificationState";
  static constexpr std::string_view kIdentifier = "Precipitation";
  // Minutes of `minutely` that say whether precipitation is coming.
  static constexpr std::size_t kSoonWindow = 60;
  // The dry tail of the remaining minutes needed before the end is announced.
  static constexpr std::size_t kDryTail = 20;
  // Hourly entries looked at when the minutes do not show the end, and their threshold.
  static constexpr std::size_t kHourlyLookAhead = 3;
  static constexpr double kHourlyThreshold = 0.45;
  static constexpr std::chrono::seconds kTriggerDelay{5};
};

// False when `minutely` is absent or empty; otherwise whether any of its first 60 entries has an
// amount above 0 (entries before now count too).
bool hasUpcomingPrecipitation(const OneCallWeather& weather);

// The state as stored: 0, 1 or 2.
int readPrecipitationNotificationState(const KeyValueStore& sharedDefaults);

// What one pass does, decided from the forecast, the stored state and the time alone.
struct PrecipitationPlan {
  enum class Action {
    clear,     // the hour is dry: remove "Precipitation" (pending and delivered), state 0
    nothing,   // nothing to say this pass
    announce,  // add `content` and, once the center accepts it, store `nextState`
  };
  Action action = Action::nothing;
  NotificationContent content;
  int nextState = 0;
  bool operator==(const PrecipitationPlan&) const = default;
};

PrecipitationPlan planPrecipitationNotification(const OneCallWeather& weather, int state, Date now,
                                                const PrecipitationWording& wording);

struct PrecipitationPassOutcome {
  PrecipitationPlan plan;
  // The request added, when the center accepted one.
  std::optional<NotificationRequest> request;
  // The plan announced something and the center refused it; the state stayed.
  bool refused = false;
  int state = 0;  // after the pass
};

class PrecipitationNotifier {
 public:
  struct Dependencies {
    KeyValueStore& sharedDefaults;
    NotificationCenter& center;
    Clock& clock;
    icu::Locale locale;
  };

  explicit PrecipitationNotifier(Dependencies dependencies);

  // One pass over `weather`. `isCancelled` is asked before anything is read and again just
  // before the request is added; when it says yes, CancellationError is raised and the state
  // stays. A refused request prints "schedulePrecipitationNotification(content:state:)" and the
  // error on stderr and leaves the state, so that the next pass tries again. Raises
  // CancellationError, and FileError when the state cannot be written.
  PrecipitationPassOutcome evaluatePrecipitationNotification(const OneCallWeather& weather,
                                                             const std::function<bool()>& isCancelled = {});

  // Adds the "Precipitation" request with `content` after 5 seconds and stores `state` once the
  // center took it. Returns the request, or nothing when it was refused (logged as above).
  std::optional<NotificationRequest> schedulePrecipitationNotification(const NotificationContent& content, int state,
                                                                       const std::function<bool()>& isCancelled = {});

 private:
  Dependencies deps_;
};

}  // namespace ombrine
