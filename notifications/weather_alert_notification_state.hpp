#pragma once
// The rules that make a weather alert notification go out once: pure functions over the
// persisted state (notifications/weather_alert_notification_records.hpp). The pass
// (notifications/weather_alert_notifier.hpp) runs each one inside a store transaction.
//
// The protocol: `plan` reserves a new attempt in the state (its records inserted) before the
// request exists, the pass adds the request with a 5-second trigger, then `confirm` (or, when
// the center refused it, `rollBack`). A pass with a newer snapshot that no longer sees an
// attempt's alerts invalidates the attempt, so a request still inside its 5 seconds is removed.
//
// Choices of this implementation where the rules leave room:
// - An attempt whose request is not kept (invalidated, or notifications switched off) leaves
//   `pendingAttempts` at confirmation for `withdrawnAttempts`, and `settleAbandonedAttempts`
//   resolves it by what the notification center holds once no request with its identifier is
//   pending: delivered means the user saw it (its records stay), gone means the user never did
//   (its records are undone, so the alert is announced when it is live again).
// - An attempt that a dead process left behind (never confirmed nor rolled back) is settled the
//   same way once it is `kAbandonedAttemptExpiry` old. Ten minutes is far beyond the milliseconds between reserving and
//   adding, and well under the hour between background passes, so an alert silenced by a crash is announced on the next
//   pass, once.
// - An attempt only inserts records for keys without one; it never takes over another record,
//   so the `coveredRecords` it writes are empty. `rollBack` still restores the coverage that a
//   state written elsewhere may hold.

#include <chrono>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "notifications/weather_alert_notification_records.hpp"

namespace ombrine {

struct WeatherAlertNotificationPlan {
  WeatherAlertNotificationPersistedState persistedState;
  std::set<std::string> pendingNotificationIdentifiersToCancel;
  std::set<std::string> deliveredNotificationIdentifiersToRemove;
  std::optional<WeatherAlertNotificationAttempt> schedulingAttempt;
  bool operator==(const WeatherAlertNotificationPlan&) const = default;
};

struct WeatherAlertNotificationAttemptCompletion {
  WeatherAlertNotificationPersistedState persistedState;
  bool shouldKeepScheduledRequest = false;
  bool shouldRemoveDeliveredNotification = false;
};

struct WeatherAlertNotificationSettlement {
  WeatherAlertNotificationPersistedState persistedState;
  // Delivered notifications of settled attempts that were to be removed everywhere.
  std::set<std::string> deliveredNotificationIdentifiersToRemove;
};

struct WeatherAlertNotificationState {
  // A record is kept this long after its alert was last seen, and until its end has passed.
  static constexpr double kRetentionSeconds = 259'200;
  static constexpr std::chrono::seconds kTriggerDelay{5};
  static constexpr double kAbandonedAttemptExpirySeconds = 600;

  struct Reservation {
    WeatherAlertNotificationPersistedState persistedState;
    std::optional<WeatherAlertNotificationAttempt> attempt;
  };

  // `occurrences` in announcement order (the first new one is the attempt's primary key);
  // `snapshotDate` is the time of the snapshot and serves as "now"; `clearsAll`: no alert may
  // stand (notifications are off).
  static WeatherAlertNotificationPlan plan(const WeatherAlertNotificationPersistedState& state,
                                           const std::vector<WeatherAlertNotificationOccurrence>& occurrences,
                                           Date snapshotDate, const Uuid& attemptIdentifier, bool clearsAll);
  static WeatherAlertNotificationAttemptCompletion confirm(const WeatherAlertNotificationPersistedState& state,
                                                           const Uuid& attemptIdentifier, bool isEnabled);
  static WeatherAlertNotificationPersistedState rollBack(const WeatherAlertNotificationPersistedState& state,
                                                         const Uuid& attemptIdentifier);
  // Resolves withdrawn attempts, and pending attempts older than the expiry at `now`, whose request is not
  // in `pendingRequestIdentifiers`: kept as told when in `deliveredIdentifiers`, else rolled
  // back. An attempt from an older file without a reservation date gets `now` as one.
  static WeatherAlertNotificationSettlement settleAbandonedAttempts(
      const WeatherAlertNotificationPersistedState& state, Date now,
      const std::set<std::string>& pendingRequestIdentifiers, const std::set<std::string>& deliveredIdentifiers);
};

}  // namespace ombrine
