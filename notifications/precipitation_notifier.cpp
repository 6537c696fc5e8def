#include "notifications/precipitation_notifier.hpp"

#include <algorithm>
#include <cmath>
#include <vector>

#include "platform/errors.hpp"
#include "platform/key_value_store.hpp"
#include "platform/log.hpp"

namespace ombrine {

namespace {

using Rules = PrecipitationNotificationRules;
using Minute = OneCallWeather::Minutely;

bool wet(const Minute& minute) { return minute.precipitation.measurement > 0.0; }

// Whole minutes from `from` to `to`, truncated toward zero as a calendar difference is.
long wholeMinutes(Date from, Date to) { return static_cast<long>(std::trunc((to - from) / 60.0)); }

// The minutes from now on, and in them the first wet one and the last wet one after it.
struct Span {
  std::vector<Minute> future;
  std::optional<std::size_t> first;
  std::optional<std::size_t> last;
};

Span spanOf(const std::vector<Minute>& minutely, Date now) {
  Span span;
  for (const auto& minute : minutely) {
    if (minute.dt >= now) span.future.push_back(minute);
  }
  for (std::size_t i = 0; i < span.future.size(); ++i) {
    if (wet(span.future[i])) {
      span.first = i;
      break;
    }
  }
  if (!span.first) return span;
  for (std::size_t i = span.future.size(); i-- > 0;) {
    if (span.future[i].dt > span.future[*span.first].dt && wet(span.future[i])) {
      span.last = i;
      break;
    }
  }
  return span;
}

// How many of the first hourly entries, in order, are likely wet.
std::size_t wetHoursAhead(const std::vector<OneCallWeather::Hourly>& hourly, std::size_t& lookedAt) {
  lookedAt = std::min(hourly.size(), Rules::kHourlyLookAhead);
  std::size_t count = 0;
  for (std::size_t i = 0; i < lookedAt; ++i) {
    const auto& hour = hourly[i];
    const bool amount = (hour.rain && hour.rain->rainVolume.measurement > 0.0) ||
                        (hour.snow && hour.snow->snowVolume.measurement > 0.0);
    if (hour.pop < Rules::kHourlyThreshold || !amount) break;
    ++count;
  }
  return count;
}

NotificationContent contentFor(const Minute& first, std::string body, const PrecipitationWording& wording) {
  NotificationContent content;
  content.title = wording.text("Precipitation Alert");
  content.subtitle = wording.format("{} Expected", wording.kindName(first.type));
  content.body = std::move(body);
  content.defaultSound = true;
  return content;
}

PrecipitationPlan starting(const OneCallWeather& weather, const Span& span, Date now,
                           const PrecipitationWording& wording) {
  const Minute& first = span.future[*span.first];
  const long startMinutes = wholeMinutes(now, first.dt);
  const bool present = startMinutes < 1;
  const std::string relativeStart = wording.relativeTime(first.dt - now);
  std::string body;
  if (span.last && *span.last + 1 < span.future.size()) {
    const Date end = span.future[*span.last + 1].dt;
    const long endMinutes = wholeMinutes(present ? now : first.dt, end);
    body = present ? wording.format("Precipitation is expected now and should end in {}.", wording.minutes(endMinutes))
                   : wording.format("Precipitation is expected {} and should end {} later.", relativeStart,
                                    wording.minutes(endMinutes));
  } else {
    std::size_t lookedAt = 0;
    const std::size_t wetHours = wetHoursAhead(weather.hourly, lookedAt);
    if (wetHours > 0 && wetHours == lookedAt) {
      body = present ? wording.text("Precipitation is expected now and likely won't end for a while.")
                     : wording.format("Precipitation is expected {} and likely won't end for a while.", relativeStart);
    } else if (wetHours > 0) {
      body = present
                 ? wording.text("Precipitation is expected now and will likely end within the next couple of hours.")
                 : wording.format("Precipitation is expected {} and will likely end within the next couple of hours.",
                                  relativeStart);
    } else {
      body = present
                 ? wording.text("Precipitation is expected now and will likely end within the hour.")
                 : wording.format("Precipitation is expected {} and will likely end within the hour.", relativeStart);
    }
  }
  return {PrecipitationPlan::Action::announce, contentFor(first, std::move(body), wording), 1};
}

PrecipitationPlan ending(const Span& span, Date now, const PrecipitationWording& wording) {
  const auto& future = span.future;
  const std::size_t tail = std::min(future.size(), Rules::kDryTail);
  // It may still rain past the horizon: say nothing yet.
  if (std::any_of(future.end() - static_cast<long>(tail), future.end(),
                  [](const Minute& minute) { return minute.precipitation.measurement != 0.0; })) {
    return {};
  }
  if (!span.first || !span.last) return {};
  const Minute& first = future[*span.first];
  // The dry tail guarantees a minute after `last`.
  const Date end = future[*span.last + 1].dt;
  const long endMinutes = wholeMinutes(now, end);
  const long startMinutes = wholeMinutes(now, first.dt);
  std::string body;
  if (startMinutes < 1) {
    body = wording.format("Precipitation should end {}.", wording.relativeTime(end - now));
  } else {
    // A dry gap comes first; it does not reset the state.
    body = wording.format("Precipitation is expected {} and should end {} later.", wording.relativeTime(first.dt - now),
                          wording.minutes(endMinutes));
  }
  return {PrecipitationPlan::Action::announce, contentFor(first, std::move(body), wording), 2};
}

void checkCancellation(const std::function<bool()>& isCancelled) {
  if (isCancelled && isCancelled()) throw CancellationError();
}

}  // namespace

bool hasUpcomingPrecipitation(const OneCallWeather& weather) {
  if (!weather.minutely || weather.minutely->empty()) return false;
  const auto& minutes = *weather.minutely;
  const auto window = minutes.begin() + static_cast<long>(std::min(minutes.size(), Rules::kSoonWindow));
  return std::any_of(minutes.begin(), window, wet);
}

int readPrecipitationNotificationState(const KeyValueStore& sharedDefaults) {
  const auto stored = sharedDefaults.value(Rules::kStateKey);
  if (!stored) return 0;
  const auto* integer = std::get_if<std::int64_t>(&stored->value);
  if (!integer || *integer < 0 || *integer > 2) return 0;
  return static_cast<int>(*integer);
}

PrecipitationPlan planPrecipitationNotification(const OneCallWeather& weather, int state, Date now,
                                                const PrecipitationWording& wording) {
  if (!hasUpcomingPrecipitation(weather)) return {PrecipitationPlan::Action::clear, {}, 0};
  if (state == 2) return {};
  const Span span = spanOf(*weather.minutely, now);
  if (state == 1) return ending(span, now, wording);
  if (!span.first) return {};
  return starting(weather, span, now, wording);
}

PrecipitationNotifier::PrecipitationNotifier(Dependencies dependencies) : deps_(std::move(dependencies)) {}

PrecipitationPassOutcome PrecipitationNotifier::evaluatePrecipitationNotification(
    const OneCallWeather& weather, const std::function<bool()>& isCancelled) {
  checkCancellation(isCancelled);
  PrecipitationPassOutcome outcome;
  const int state = readPrecipitationNotificationState(deps_.sharedDefaults);
  const PrecipitationWording wording(deps_.locale);
  outcome.plan = planPrecipitationNotification(weather, state, Date::fromSystem(deps_.clock.now()), wording);
  outcome.state = state;
  switch (outcome.plan.action) {
    case PrecipitationPlan::Action::clear: {
      const std::set<std::string> identifiers{std::string(Rules::kIdentifier)};
      deps_.center.removePendingNotificationRequests(identifiers);
      deps_.center.removeDeliveredNotifications(identifiers);
      // Only a stored value other than 0 needs writing; this keeps dry passes from rewriting the
      // shared defaults every hour.
      const auto stored = deps_.sharedDefaults.value(Rules::kStateKey);
      if (!stored || *stored != StoreValue{std::int64_t{0}}) {
        deps_.sharedDefaults.setValue(Rules::kStateKey, StoreValue{std::int64_t{0}});
      }
      outcome.state = 0;
      break;
    }
    case PrecipitationPlan::Action::nothing: break;
    case PrecipitationPlan::Action::announce:
      outcome.request = schedulePrecipitationNotification(outcome.plan.content, outcome.plan.nextState, isCancelled);
      outcome.refused = !outcome.request;
      if (outcome.request) outcome.state = outcome.plan.nextState;
      break;
  }
  return outcome;
}

std::optional<NotificationRequest> PrecipitationNotifier::schedulePrecipitationNotification(
    const NotificationContent& content, int state, const std::function<bool()>& isCancelled) {
  NotificationRequest request{std::string(Rules::kIdentifier), content,
                              std::chrono::duration_cast<std::chrono::milliseconds>(Rules::kTriggerDelay)};
  checkCancellation(isCancelled);
  try {
    deps_.center.add(request);
  } catch (const CancellationError&) {
    throw CancellationError();
  } catch (const std::exception& error) {
    logf("schedulePrecipitationNotification(content:state:) {}", error.what());
    return std::nullopt;
  }
  deps_.sharedDefaults.setValue(Rules::kStateKey, StoreValue{std::int64_t{state}});
  return request;
}

}  // namespace ombrine
