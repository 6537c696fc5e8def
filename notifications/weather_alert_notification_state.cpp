#include "notifications/weather_alert_notification_state.hpp"

#include <algorithm>
#include <map>

namespace ombrine {

namespace {

using Invalidation = WeatherAlertNotificationAttemptInvalidation;
using State = WeatherAlertNotificationPersistedState;
using Key = WeatherAlertNotificationKey;

bool isValid(const WeatherAlertNotificationAttempt& attempt) { return !attempt.invalidation; }

std::set<Key> keysOf(const WeatherAlertNotificationAttempt& attempt) {
  std::set<Key> keys = attempt.insertedKeys;
  keys.insert(attempt.primaryKey);
  for (const auto& coverage : attempt.coveredRecords) keys.insert(coverage.key);
  return keys;
}

std::vector<WeatherAlertNotificationAttempt>::const_iterator findOnly(const State& state, const Uuid& identifier) {
  const auto count = std::count_if(state.pendingAttempts.begin(), state.pendingAttempts.end(),
                                   [&](const auto& attempt) { return attempt.identifier == identifier; });
  if (count != 1) return state.pendingAttempts.end();
  return std::find_if(state.pendingAttempts.begin(), state.pendingAttempts.end(),
                      [&](const auto& attempt) { return attempt.identifier == identifier; });
}

// Undoes what `attempt` did to the records: the records it inserted go, the records it covered
// get their identifier back. Only records still carrying the attempt's identifier are touched,
// so a record rewritten since then stays as it is.
void undoRecords(State& state, const WeatherAlertNotificationAttempt& attempt) {
  const std::string identifier = attempt.notificationIdentifier();
  std::map<Key, std::string> restore;
  for (const auto& coverage : attempt.coveredRecords) restore[coverage.key] = coverage.recordNotificationIdentifier;
  std::set<std::string> next;
  for (const auto& value : state.recordValues) {
    auto record = decodeWeatherAlertRecord(value);
    if (!record || record->scheduledNotificationIdentifier != identifier) {
      next.insert(value);
      continue;
    }
    if (auto it = restore.find(record->key()); it != restore.end()) {
      record->scheduledNotificationIdentifier = it->second;
      if (it->second.empty()) record->scheduledNotificationIdentifier.reset();
      next.insert(encodeWeatherAlertRecord(*record));
    } else if (!attempt.insertedKeys.contains(record->key())) {
      next.insert(value);
    }
  }
  state.recordValues = std::move(next);
}

void eraseAttempt(State& state, const Uuid& identifier) {
  std::erase_if(state.pendingAttempts, [&](const auto& attempt) { return attempt.identifier == identifier; });
}

}  // namespace

WeatherAlertNotificationPlan WeatherAlertNotificationState::plan(
    const State& state, const std::vector<WeatherAlertNotificationOccurrence>& occurrences, Date snapshotDate,
    const Uuid& attemptIdentifier, bool clearsAll) {
  WeatherAlertNotificationPlan result;
  result.persistedState = state;
  State& next = result.persistedState;

  if (state.latestSnapshotDate && snapshotDate < *state.latestSnapshotDate) {
    if (!clearsAll) return result;
    for (auto& attempt : next.pendingAttempts) {
      attempt.invalidation = Invalidation::pendingAndDelivered;
      result.pendingNotificationIdentifiersToCancel.insert(attempt.notificationIdentifier());
      result.deliveredNotificationIdentifiersToRemove.insert(attempt.notificationIdentifier());
    }
    for (const auto& value : state.recordValues) {
      const auto record = decodeWeatherAlertRecord(value);
      if (!record || !record->scheduledNotificationIdentifier || record->scheduledNotificationIdentifier->empty()) {
        continue;
      }
      result.pendingNotificationIdentifiersToCancel.insert(*record->scheduledNotificationIdentifier);
      result.deliveredNotificationIdentifiersToRemove.insert(*record->scheduledNotificationIdentifier);
    }
    return result;
  }

  // The first occurrence of a key stands for it (two alerts can share event and sender).
  std::map<Key, std::optional<Date>> live;
  std::vector<const WeatherAlertNotificationOccurrence*> ordered;
  for (const auto& occurrence : occurrences) {
    if (live.emplace(occurrence.key, occurrence.endDate).second) ordered.push_back(&occurrence);
  }

  const Date now = snapshotDate;
  std::set<std::string> values;
  std::set<Key> recorded;
  for (const auto& value : state.recordValues) {
    auto record = decodeWeatherAlertRecord(value);
    if (!record) {
      values.insert(value);
      continue;
    }
    const WeatherAlertNotificationRecord before = *record;
    if (auto it = live.find(record->key()); it != live.end()) {
      record->endDate = it->second;
      record->firstObservedAbsentDate.reset();
    } else if (!record->firstObservedAbsentDate) {
      record->firstObservedAbsentDate = snapshotDate;
    }
    const bool expired = record->firstObservedAbsentDate &&
                         !(*record->firstObservedAbsentDate + kRetentionSeconds > now) &&
                         (!record->endDate || !(*record->endDate > now));
    if (expired) {
      if (record->scheduledNotificationIdentifier && !record->scheduledNotificationIdentifier->empty()) {
        result.pendingNotificationIdentifiersToCancel.insert(*record->scheduledNotificationIdentifier);
        result.deliveredNotificationIdentifiersToRemove.insert(*record->scheduledNotificationIdentifier);
      }
      continue;
    }
    recorded.insert(record->key());
    // Older strings become records of the current form on their first update.
    if (*record == before && !isLegacyWeatherAlertRecord(value)) {
      values.insert(value);
    } else {
      values.insert(encodeWeatherAlertRecord(*record));
    }
  }
  next.recordValues = std::move(values);
  next.latestSnapshotDate = state.latestSnapshotDate ? std::max(*state.latestSnapshotDate, snapshotDate) : snapshotDate;

  std::set<Key> covered;
  for (auto& attempt : next.pendingAttempts) {
    std::optional<Invalidation> invalidation;
    if (clearsAll) {
      invalidation = Invalidation::pendingAndDelivered;
    } else {
      const auto keys = keysOf(attempt);
      const bool anyLive = std::any_of(keys.begin(), keys.end(), [&](const Key& key) { return live.contains(key); });
      if (!anyLive) invalidation = Invalidation::pendingOnly;
    }
    if (invalidation) attempt.invalidation = std::max(attempt.invalidation.value_or(*invalidation), *invalidation);
    if (attempt.invalidation) {
      result.pendingNotificationIdentifiersToCancel.insert(attempt.notificationIdentifier());
      if (*attempt.invalidation == Invalidation::pendingAndDelivered) {
        result.deliveredNotificationIdentifiersToRemove.insert(attempt.notificationIdentifier());
      }
    }
    if (isValid(attempt)) {
      const auto keys = keysOf(attempt);
      covered.insert(keys.begin(), keys.end());
    }
  }
  if (clearsAll) return result;

  std::vector<const WeatherAlertNotificationOccurrence*> fresh;
  for (const auto* occurrence : ordered) {
    if (!recorded.contains(occurrence->key) && !covered.contains(occurrence->key)) fresh.push_back(occurrence);
  }
  if (fresh.empty()) return result;

  WeatherAlertNotificationAttempt attempt;
  attempt.identifier = attemptIdentifier;
  attempt.primaryKey = fresh.front()->key;
  attempt.reservedDate = snapshotDate;
  const std::string identifier = attempt.notificationIdentifier();
  for (const auto* occurrence : fresh) {
    attempt.insertedKeys.insert(occurrence->key);
    WeatherAlertNotificationRecord record;
    record.event = occurrence->key.event;
    record.senderName = occurrence->key.senderName;
    record.endDate = occurrence->endDate;
    record.scheduledNotificationIdentifier = identifier;
    next.recordValues.insert(encodeWeatherAlertRecord(record));
  }
  next.pendingAttempts.push_back(attempt);
  result.schedulingAttempt = std::move(attempt);
  return result;
}

WeatherAlertNotificationAttemptCompletion WeatherAlertNotificationState::confirm(const State& state,
                                                                                 const Uuid& attemptIdentifier,
                                                                                 bool isEnabled) {
  WeatherAlertNotificationAttemptCompletion completion;
  completion.persistedState = state;
  const auto found = findOnly(state, attemptIdentifier);
  if (found == state.pendingAttempts.end()) return completion;
  const auto& attempt = *found;
  completion.shouldKeepScheduledRequest = !attempt.invalidation && isEnabled;
  completion.shouldRemoveDeliveredNotification =
      attempt.invalidation == Invalidation::pendingAndDelivered || !isEnabled;
  eraseAttempt(completion.persistedState, attemptIdentifier);
  if (!completion.shouldKeepScheduledRequest) completion.persistedState.withdrawnAttempts.push_back(attempt);
  return completion;
}

State WeatherAlertNotificationState::rollBack(const State& state, const Uuid& attemptIdentifier) {
  const auto found = findOnly(state, attemptIdentifier);
  if (found == state.pendingAttempts.end()) return state;
  State next = state;
  undoRecords(next, *found);
  eraseAttempt(next, attemptIdentifier);
  return next;
}

WeatherAlertNotificationSettlement WeatherAlertNotificationState::settleAbandonedAttempts(
    const State& state, Date now, const std::set<std::string>& pendingRequestIdentifiers,
    const std::set<std::string>& deliveredIdentifiers) {
  WeatherAlertNotificationSettlement result;
  result.persistedState = state;
  State& next = result.persistedState;
  std::vector<WeatherAlertNotificationAttempt> settled;
  for (auto& attempt : next.pendingAttempts) {
    if (!attempt.reservedDate) attempt.reservedDate = now;
    const bool abandoned = !(*attempt.reservedDate + kAbandonedAttemptExpirySeconds > now);
    if (abandoned && !pendingRequestIdentifiers.contains(attempt.notificationIdentifier())) settled.push_back(attempt);
  }
  std::erase_if(next.withdrawnAttempts, [&](const WeatherAlertNotificationAttempt& attempt) {
    if (pendingRequestIdentifiers.contains(attempt.notificationIdentifier())) return false;
    settled.push_back(attempt);
    return true;
  });
  for (const auto& attempt : settled) {
    const std::string identifier = attempt.notificationIdentifier();
    if (deliveredIdentifiers.contains(identifier)) {
      if (attempt.invalidation == Invalidation::pendingAndDelivered) {
        result.deliveredNotificationIdentifiersToRemove.insert(identifier);
      }
    } else {
      undoRecords(next, attempt);
    }
    eraseAttempt(next, attempt.identifier);
  }
  return result;
}

}  // namespace ombrine
