#include "notifications/weather_alert_notification_records.hpp"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>

#include "core/values/errors.hpp"
#include "core/values/value_json.hpp"
#include "platform/key_value_store_json.hpp"

namespace ombrine {

namespace json = boost::json;

namespace {

void writeOptionalDate(JsonWriter& writer, std::string_view key, const std::optional<Date>& date) {
  writer.key(key);
  if (date) {
    writer.number(date->timeIntervalSinceReferenceDate);
  } else {
    writer.null();
  }
}

void writeKey(JsonWriter& writer, const WeatherAlertNotificationKey& key) {
  writer.beginObject();
  writer.key("event");
  writer.string(key.event);
  writer.key("senderName");
  writer.string(key.senderName);
  writer.endObject();
}

WeatherAlertNotificationKey readKey(const json::value& value, const JsonPath& path) {
  JsonObjectReader reader(value, path);
  WeatherAlertNotificationKey key;
  reader.read("event", key.event);
  reader.read("senderName", key.senderName);
  return key;
}

// "-12", "1700000000", "1700000000.25": what the older form wrote for an end date.
std::optional<double> decimalSeconds(std::string_view text) {
  if (text.empty()) return std::nullopt;
  std::size_t digits = 0;
  std::size_t dots = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (std::isdigit(static_cast<unsigned char>(c))) {
      ++digits;
    } else if (c == '.') {
      ++dots;
    } else if (!(c == '-' && i == 0)) {
      return std::nullopt;
    }
  }
  if (digits == 0 || dots > 1) return std::nullopt;
  double value = 0.0;
  const char* begin = text.data();
  const char* end = text.data() + text.size();
  const auto [ptr, error] = std::from_chars(begin, end, value);
  if (error != std::errc() || ptr != end || !std::isfinite(value)) return std::nullopt;
  return value;
}

WeatherAlertNotificationAttempt readAttempt(const json::value& value, const JsonPath& path) {
  JsonObjectReader reader(value, path);
  WeatherAlertNotificationAttempt attempt;
  reader.read("identifier", attempt.identifier);
  {
    const json::value* primary = reader.find("primaryKey");
    const JsonPath child = path.key("primaryKey");
    if (!primary) child.fail("missing key");
    attempt.primaryKey = readKey(*primary, child);
  }
  if (const json::value* covered = reader.find("coveredRecords")) {
    const JsonPath child = path.key("coveredRecords");
    const json::array& array = jsonArray(*covered, child);
    for (std::size_t i = 0; i < array.size(); ++i) {
      const JsonPath element = child.index(i);
      JsonObjectReader coverage(array[i], element);
      WeatherAlertNotificationCoverage entry;
      const json::value* key = coverage.find("key");
      const JsonPath keyPath = element.key("key");
      if (!key) keyPath.fail("missing key");
      entry.key = readKey(*key, keyPath);
      coverage.read("recordNotificationIdentifier", entry.recordNotificationIdentifier);
      attempt.coveredRecords.insert(std::move(entry));
    }
  }
  if (const json::value* inserted = reader.find("insertedKeys")) {
    const JsonPath child = path.key("insertedKeys");
    const json::array& array = jsonArray(*inserted, child);
    for (std::size_t i = 0; i < array.size(); ++i) {
      const JsonPath element = child.index(i);
      attempt.insertedKeys.insert(readKey(array[i], element));
    }
  }
  // The case name as text, or keyed as an object with an empty payload ({"pendingOnly": {}}).
  std::optional<std::string> invalidation;
  const json::value* invalidationValue = reader.find("invalidation");
  if (invalidationValue && invalidationValue->is_object() && invalidationValue->as_object().size() == 1) {
    invalidation = std::string(invalidationValue->as_object().begin()->key());
  } else {
    reader.readOptional("invalidation", invalidation);
  }
  if (invalidation) {
    if (*invalidation == "pendingOnly") {
      attempt.invalidation = WeatherAlertNotificationAttemptInvalidation::pendingOnly;
    } else if (*invalidation == "pendingAndDelivered") {
      attempt.invalidation = WeatherAlertNotificationAttemptInvalidation::pendingAndDelivered;
    } else {
      const JsonPath child = path.key("invalidation");
      child.fail("unknown invalidation");
    }
  }
  std::optional<bool> isInvalidated;
  reader.readOptional("isInvalidated", isInvalidated);
  if (!attempt.invalidation && isInvalidated.value_or(false)) {
    attempt.invalidation = WeatherAlertNotificationAttemptInvalidation::pendingAndDelivered;
  }
  reader.readOptional("reservedDate", attempt.reservedDate);
  return attempt;
}

void writeAttempt(JsonWriter& writer, const WeatherAlertNotificationAttempt& attempt) {
  writer.beginObject();
  writer.key("coveredRecords");
  writer.beginArray();
  for (const auto& coverage : attempt.coveredRecords) {
    writer.beginObject();
    writer.key("key");
    writeKey(writer, coverage.key);
    writer.key("recordNotificationIdentifier");
    writer.string(coverage.recordNotificationIdentifier);
    writer.endObject();
  }
  writer.endArray();
  writer.key("identifier");
  writer.string(attempt.identifier.text());
  writer.key("insertedKeys");
  writer.beginArray();
  for (const auto& key : attempt.insertedKeys) writeKey(writer, key);
  writer.endArray();
  if (attempt.invalidation) {
    writer.key("invalidation");
    writer.string(*attempt.invalidation == WeatherAlertNotificationAttemptInvalidation::pendingOnly
                      ? "pendingOnly"
                      : "pendingAndDelivered");
  }
  writer.key("notificationIdentifier");
  writer.string(attempt.notificationIdentifier());
  writer.key("primaryKey");
  writeKey(writer, attempt.primaryKey);
  if (attempt.reservedDate) writeOptionalDate(writer, "reservedDate", attempt.reservedDate);
  writer.endObject();
}

}  // namespace

std::string WeatherAlertNotificationAttempt::notificationIdentifier() const {
  std::string text = identifier.text();
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
  return std::string(kNotificationIdentifierPrefix) + text;
}

std::string encodeWeatherAlertRecord(const WeatherAlertNotificationRecord& record) {
  std::string text;
  JsonWriter writer(text);
  writer.beginObject();
  writeOptionalDate(writer, "endDate", record.endDate);
  writer.key("event");
  writer.string(record.event);
  writeOptionalDate(writer, "firstObservedAbsentDate", record.firstObservedAbsentDate);
  writer.key("scheduledNotificationIdentifier");
  if (record.scheduledNotificationIdentifier) {
    writer.string(*record.scheduledNotificationIdentifier);
  } else {
    writer.null();
  }
  writer.key("senderName");
  writer.string(record.senderName);
  writer.endObject();
  return std::string(kWeatherAlertRecordPrefix) + encodeBase64(text);
}

bool isLegacyWeatherAlertRecord(std::string_view value) {
  if (value.starts_with(kWeatherAlertRecordPrefix)) return false;
  const auto first = value.find('_');
  if (first == std::string_view::npos) return false;
  const auto second = value.find('_', first + 1);
  if (second == std::string_view::npos || value.find('_', second + 1) != std::string_view::npos) return false;
  return decimalSeconds(value.substr(second + 1)).has_value();
}

std::optional<WeatherAlertNotificationRecord> decodeWeatherAlertRecord(std::string_view value) {
  if (value.starts_with(kWeatherAlertRecordPrefix)) {
    try {
      const std::string text = decodeBase64(value.substr(kWeatherAlertRecordPrefix.size()));
      const json::value document = parseJson(text);
      const JsonPath root;
      JsonObjectReader reader(document, root);
      WeatherAlertNotificationRecord record;
      reader.read("event", record.event);
      reader.read("senderName", record.senderName);
      reader.readOptional("endDate", record.endDate);
      reader.readOptional("firstObservedAbsentDate", record.firstObservedAbsentDate);
      reader.readOptional("scheduledNotificationIdentifier", record.scheduledNotificationIdentifier);
      return record;
    } catch (const std::exception&) {
      return std::nullopt;
    }
  }
  if (!isLegacyWeatherAlertRecord(value)) return std::nullopt;
  const auto first = value.find('_');
  const auto second = value.find('_', first + 1);
  WeatherAlertNotificationRecord record;
  record.event = std::string(value.substr(0, first));
  record.senderName = std::string(value.substr(first + 1, second - first - 1));
  record.endDate = Date::fromUnix(*decimalSeconds(value.substr(second + 1)));
  return record;
}

std::string encodeWeatherAlertNotificationState(const WeatherAlertNotificationPersistedState& state) {
  std::string text;
  JsonWriter writer(text);
  writer.beginObject();
  if (state.latestSnapshotDate) writeOptionalDate(writer, "latestSnapshotDate", state.latestSnapshotDate);
  writer.key("pendingAttempts");
  writer.beginArray();
  for (const auto& attempt : state.pendingAttempts) writeAttempt(writer, attempt);
  writer.endArray();
  writer.key("recordValues");
  writer.beginArray();
  for (const auto& value : state.recordValues) writer.string(value);
  writer.endArray();
  if (!state.withdrawnAttempts.empty()) {
    writer.key("withdrawnAttempts");
    writer.beginArray();
    for (const auto& attempt : state.withdrawnAttempts) writeAttempt(writer, attempt);
    writer.endArray();
  }
  writer.endObject();
  return text;
}

WeatherAlertNotificationPersistedState decodeWeatherAlertNotificationState(std::string_view json) {
  const json::value document = parseJson(json);
  const JsonPath root;
  JsonObjectReader reader(document, root);
  WeatherAlertNotificationPersistedState state;
  std::vector<std::string> values;
  reader.read("recordValues", values);
  state.recordValues.insert(values.begin(), values.end());
  reader.readOptional("latestSnapshotDate", state.latestSnapshotDate);
  const auto readAttempts = [&](std::string_view key, std::vector<WeatherAlertNotificationAttempt>& out) {
    const json::value* attempts = reader.find(key);
    if (!attempts) return false;
    const JsonPath child = root.key(key);
    const json::array& array = jsonArray(*attempts, child);
    for (std::size_t i = 0; i < array.size(); ++i) out.push_back(readAttempt(array[i], child.index(i)));
    return true;
  };
  if (!readAttempts("pendingAttempts", state.pendingAttempts)) root.key("pendingAttempts").fail("missing key");
  readAttempts("withdrawnAttempts", state.withdrawnAttempts);
  return state;
}

}  // namespace ombrine
