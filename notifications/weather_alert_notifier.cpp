#include "notifications/weather_alert_notifier.hpp"

#include <unicode/dtptngen.h>
#include <unicode/smpdtfmt.h>
#include <unicode/timezone.h>

#include <algorithm>
#include <memory>

#include <fmt/format.h>

#include "persistence/settings_store.hpp"
#include "platform/errors.hpp"
#include "platform/key_value_store.hpp"
#include "platform/log.hpp"

namespace ombrine {

namespace {

int severityRank(const std::optional<WeatherSeverity>& severity) {
  switch (severity.value_or(WeatherSeverity::unknown)) {
    case WeatherSeverity::extreme: return 0;
    case WeatherSeverity::severe: return 1;
    case WeatherSeverity::moderate: return 2;
    case WeatherSeverity::minor: return 3;
    case WeatherSeverity::unknown: return 4;
  }
  return 4;
}

std::string titleFor(const std::optional<WeatherSeverity>& severity) {
  switch (severity.value_or(WeatherSeverity::unknown)) {
    case WeatherSeverity::extreme: return "Extreme Weather Alert";
    case WeatherSeverity::severe: return "Severe Weather Alert";
    case WeatherSeverity::moderate: return "Moderate Weather Alert";
    case WeatherSeverity::minor: return "Minor Weather Alert";
    case WeatherSeverity::unknown: return "Weather Alert";
  }
  return "Weather Alert";
}

}  // namespace

std::string formatWeatherAlertDate(Date date, const TimeZone& zone, const icu::Locale& locale) {
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<icu::DateTimePatternGenerator> generator(
      icu::DateTimePatternGenerator::createInstance(locale, status));
  if (U_FAILURE(status)) return {};
  const icu::UnicodeString pattern = generator->getBestPattern(u"MMMdjmm", status);
  icu::SimpleDateFormat format(pattern, locale, status);
  if (U_FAILURE(status)) return {};
  format.adoptTimeZone(icu::TimeZone::createTimeZone(icu::UnicodeString::fromUTF8(zone.identifier())));
  icu::UnicodeString text;
  format.format(date.unixSeconds() * 1000.0, text);
  std::string out;
  text.toUTF8String(out);
  return out;
}

namespace {

std::string errorText(const std::exception_ptr& error) {
  try {
    std::rethrow_exception(error);
  } catch (const std::exception& failure) {
    return failure.what();
  } catch (...) {
    return "unknown error";
  }
}

std::set<std::string> identifiersOf(const std::vector<NotificationEntry>& entries) {
  std::set<std::string> identifiers;
  for (const auto& entry : entries) identifiers.insert(entry.identifier);
  return identifiers;
}

}  // namespace

bool weatherAlertNotificationsEnabled(const KeyValueStore& sharedDefaults, const KeyValueStore& cloud) {
  return sharedDefaults.boolValue("isSendingNotifications").value_or(true) && !readSettings(cloud).hideWeatherAlerts;
}

NotificationContent weatherAlertNotificationContent(const std::vector<OneCallWeather::Alert>& alerts,
                                                    const TimeZone& zone, const icu::Locale& locale) {
  NotificationContent content;
  if (alerts.empty()) return content;
  const auto& first = alerts.front();
  const std::size_t rest = alerts.size() - 1;
  content.title = titleFor(first.severity);
  content.body = rest == 0 ? fmt::format("{} ({})", first.event, first.senderName)
                           : fmt::format("{} and {} more ({})", first.event, rest, first.senderName);
  content.body += "\nFrom " + formatWeatherAlertDate(first.start, zone, locale);
  if (first.end) content.body += "\nEnding " + formatWeatherAlertDate(*first.end, zone, locale);
  content.defaultSound = true;
  return content;
}

WeatherAlertNotifier::WeatherAlertNotifier(Dependencies dependencies) : deps_(std::move(dependencies)) {}

void WeatherAlertNotifier::rollBack(const Uuid& identifier) {
  try {
    deps_.store->transaction([&](WeatherAlertNotificationPersistedState& state) {
      state = WeatherAlertNotificationState::rollBack(state, identifier);
    });
  } catch (...) {
    logf("Error rolling back weather alert notification state: {}", errorText(std::current_exception()));
  }
}

WeatherAlertPassOutcome WeatherAlertNotifier::notifyWeatherAlerts(const std::vector<OneCallWeather::Alert>& alerts,
                                                                  const TimeZone& zone) {
  WeatherAlertPassOutcome outcome;
  const Date now = Date::fromSystem(deps_.clock.now());
  std::vector<OneCallWeather::Alert> live;
  for (const auto& alert : alerts) {
    if (!alert.end || *alert.end > now) live.push_back(alert);
  }
  std::stable_sort(live.begin(), live.end(), [](const auto& a, const auto& b) {
    const int ra = severityRank(a.severity), rb = severityRank(b.severity);
    if (ra != rb) return ra < rb;
    return a.start < b.start;
  });
  std::vector<WeatherAlertNotificationOccurrence> occurrences;
  occurrences.reserve(live.size());
  for (const auto& alert : live) occurrences.push_back({{alert.event, alert.senderName}, alert.end});

  if (deps_.store == nullptr) {
    logLine("Weather alert notification store is unavailable");
    outcome.failed = true;
    return outcome;
  }

  // What the center holds decides the fate of attempts a dead process left behind.
  std::set<std::string> pending, delivered;
  try {
    pending = identifiersOf(deps_.center.pendingNotificationRequests());
    delivered = identifiersOf(deps_.center.deliveredNotifications());
  } catch (const NotificationCenterError& error) {
    logf("Error updating weather alert notification state: {}", error.what());
    outcome.failed = true;
    return outcome;
  }

  const Uuid attemptIdentifier = Uuid::random();
  const bool clearsAll = !deps_.isEnabled();
  WeatherAlertNotificationPlan plan;
  std::set<std::string> settledToRemove;
  try {
    plan = deps_.store->transaction([&](WeatherAlertNotificationPersistedState& state) {
      auto settlement = WeatherAlertNotificationState::settleAbandonedAttempts(state, now, pending, delivered);
      settledToRemove = std::move(settlement.deliveredNotificationIdentifiersToRemove);
      auto planned = WeatherAlertNotificationState::plan(settlement.persistedState, occurrences, now, attemptIdentifier,
                                                         clearsAll);
      state = planned.persistedState;
      return planned;
    });
  } catch (...) {
    logf("Error updating weather alert notification state: {}", errorText(std::current_exception()));
    outcome.failed = true;
    return outcome;
  }
  if (plan.schedulingAttempt) reach(WeatherAlertPassStep::reserved);

  if (!plan.pendingNotificationIdentifiersToCancel.empty()) {
    deps_.center.removePendingNotificationRequests(plan.pendingNotificationIdentifiersToCancel);
  }
  plan.deliveredNotificationIdentifiersToRemove.insert(settledToRemove.begin(), settledToRemove.end());
  if (!plan.deliveredNotificationIdentifiersToRemove.empty()) {
    deps_.center.removeDeliveredNotifications(plan.deliveredNotificationIdentifiersToRemove);
  }
  if (!plan.schedulingAttempt) return outcome;
  const WeatherAlertNotificationAttempt& attempt = *plan.schedulingAttempt;

  std::vector<OneCallWeather::Alert> announced;
  for (const auto& alert : live) {
    const WeatherAlertNotificationKey key{alert.event, alert.senderName};
    const bool already = std::any_of(announced.begin(), announced.end(), [&](const auto& a) {
      return a.event == key.event && a.senderName == key.senderName;
    });
    if (already || !attempt.insertedKeys.contains(key)) continue;
    announced.push_back(alert);
    outcome.announcedKeys.push_back(key);
  }
  NotificationRequest request;
  request.identifier = attempt.notificationIdentifier();
  request.content = weatherAlertNotificationContent(announced, zone, deps_.locale);
  request.delay = WeatherAlertNotificationState::kTriggerDelay;
  try {
    deps_.center.add(request);
  } catch (const CancellationError&) {
    rollBack(attempt.identifier);
    throw;
  } catch (...) {
    const auto error = std::current_exception();
    if (isCancellation(error)) {
      rollBack(attempt.identifier);
      throw CancellationError();
    }
    logf("Error sending weather alert notification: {}", errorText(error));
    rollBack(attempt.identifier);
    outcome.failed = true;
    outcome.announcedKeys.clear();
    return outcome;
  }
  reach(WeatherAlertPassStep::added);

  const std::set<std::string> identifiers{request.identifier};
  WeatherAlertNotificationAttemptCompletion completion;
  try {
    reach(WeatherAlertPassStep::confirming);
    const bool isEnabled = deps_.isEnabled();
    completion = deps_.store->transaction([&](WeatherAlertNotificationPersistedState& state) {
      auto confirmed = WeatherAlertNotificationState::confirm(state, attempt.identifier, isEnabled);
      state = confirmed.persistedState;
      return confirmed;
    });
  } catch (...) {
    logf("Error confirming weather alert notification state: {}", errorText(std::current_exception()));
    deps_.center.removePendingNotificationRequests(identifiers);
    deps_.center.removeDeliveredNotifications(identifiers);
    outcome.failed = true;
    outcome.announcedKeys.clear();
    return outcome;
  }
  reach(WeatherAlertPassStep::confirmed);
  if (!completion.shouldKeepScheduledRequest) {
    deps_.center.removePendingNotificationRequests(identifiers);
    outcome.announcedKeys.clear();
  }
  if (completion.shouldRemoveDeliveredNotification) deps_.center.removeDeliveredNotifications(identifiers);
  if (completion.shouldKeepScheduledRequest) outcome.request = request;
  return outcome;
}

}  // namespace ombrine
