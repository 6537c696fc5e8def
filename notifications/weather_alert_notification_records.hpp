#pragma once
// What the weather alert notifications remember between passes, and its file form.
//
// A weather alert has no stable identifier from its provider, so an alert is known by its
// `WeatherAlertNotificationKey` (event and sender). A `WeatherAlertNotificationRecord` says an
// alert was announced; a `WeatherAlertNotificationAttempt` is a notification on its way, reserved
// in the state before its request reaches the notification center
// (notifications/weather_alert_notification_state.hpp has the rules).
//
// The state file is one JSON object with sorted keys: "latestSnapshotDate" (seconds since
// 2001-01-01T00:00:00Z, or absent), "pendingAttempts" (array), "recordValues" (array of
// strings, each a record in its string form) and, when there are any, "withdrawnAttempts". A record's string form is
// "weather-alert-v2:" followed by the standard base64 of its JSON with sorted keys, every key present (null when
// absent). The older form "<event>_<senderName>_<end>" (end in seconds since 1970) still reads
// as a record; any other string is kept as it is and never read as a record.
//
// All functions are pure and reentrant.

#include <compare>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "core/values/date.hpp"
#include "core/values/uuid.hpp"

namespace ombrine {

struct WeatherAlertNotificationKey {
  std::string event;
  std::string senderName;
  auto operator<=>(const WeatherAlertNotificationKey&) const = default;
  bool operator==(const WeatherAlertNotificationKey&) const = default;
};

struct WeatherAlertNotificationOccurrence {
  WeatherAlertNotificationKey key;
  std::optional<Date> endDate;
  bool operator==(const WeatherAlertNotificationOccurrence&) const = default;
};

struct WeatherAlertNotificationRecord {
  std::string event;
  std::string senderName;
  std::optional<Date> endDate;
  std::optional<Date> firstObservedAbsentDate;
  std::optional<std::string> scheduledNotificationIdentifier;

  WeatherAlertNotificationKey key() const { return {event, senderName}; }
  bool operator==(const WeatherAlertNotificationRecord&) const = default;
};

struct WeatherAlertNotificationCoverage {
  WeatherAlertNotificationKey key;
  std::string recordNotificationIdentifier;
  auto operator<=>(const WeatherAlertNotificationCoverage&) const = default;
  bool operator==(const WeatherAlertNotificationCoverage&) const = default;
};

// Ordered by strength: a stronger invalidation replaces a weaker one, never the reverse.
enum class WeatherAlertNotificationAttemptInvalidation { pendingOnly, pendingAndDelivered };

struct WeatherAlertNotificationAttempt {
  static constexpr std::string_view kNotificationIdentifierPrefix = "weather-alert-notification-v2:";

  Uuid identifier;
  WeatherAlertNotificationKey primaryKey;
  std::set<WeatherAlertNotificationCoverage> coveredRecords;
  std::set<WeatherAlertNotificationKey> insertedKeys;
  std::optional<WeatherAlertNotificationAttemptInvalidation> invalidation;
  // When the attempt was reserved (wall clock); nothing in files written before it was kept.
  // The age after which an attempt that a dead process left behind is settled counts from it.
  std::optional<Date> reservedDate;

  // "weather-alert-notification-v2:" and the identifier in lower case.
  std::string notificationIdentifier() const;
  bool operator==(const WeatherAlertNotificationAttempt&) const = default;
};

struct WeatherAlertNotificationPersistedState {
  std::set<std::string> recordValues;
  std::optional<Date> latestSnapshotDate;
  std::vector<WeatherAlertNotificationAttempt> pendingAttempts;
  // Attempts that confirmation ended without keeping their request: the pass removed it, and
  // whether the user saw it first is settled later by what the notification center holds.
  // Written as "withdrawnAttempts" only when not empty.
  std::vector<WeatherAlertNotificationAttempt> withdrawnAttempts;
  bool operator==(const WeatherAlertNotificationPersistedState&) const = default;
};

inline constexpr std::string_view kWeatherAlertRecordPrefix = "weather-alert-v2:";

// A record in its string form. Raises EncodingError for a non-finite date.
std::string encodeWeatherAlertRecord(const WeatherAlertNotificationRecord& record);
// The record a string stands for, in either form; nothing for any other string.
std::optional<WeatherAlertNotificationRecord> decodeWeatherAlertRecord(std::string_view value);
// True for the older "<event>_<senderName>_<end>" form.
bool isLegacyWeatherAlertRecord(std::string_view value);

// The state file. Decoding raises DecodingError naming what is wrong.
std::string encodeWeatherAlertNotificationState(const WeatherAlertNotificationPersistedState& state);
WeatherAlertNotificationPersistedState decodeWeatherAlertNotificationState(std::string_view json);

}  // namespace ombrine
