#include "notifications/weather_alert_notification_records.hpp"

#include <gtest/gtest.h>

#include "core/values/errors.hpp"
#include "platform/key_value_store_json.hpp"

namespace ombrine {
namespace {

TEST(WeatherAlertNotificationRecordsTest, RecordStringForms) {
  WeatherAlertNotificationRecord full{"Gale_warning", "FMI", Date{100.5}, Date{200.0},
                                      std::string("weather-alert-notification-v2:x")};
  const std::string encoded = encodeWeatherAlertRecord(full);
  ASSERT_TRUE(encoded.starts_with("weather-alert-v2:"));
  // Sorted keys, every key present even when absent.
  WeatherAlertNotificationRecord bare{"Fog", "S", std::nullopt, std::nullopt, std::nullopt};
  EXPECT_EQ(
      decodeBase64(encodeWeatherAlertRecord(bare).substr(17)),
      R"({"endDate":null,"event":"Fog","firstObservedAbsentDate":null,"scheduledNotificationIdentifier":null,"senderName":"S"})");

  struct Row {
    std::string value;
    std::optional<WeatherAlertNotificationRecord> expected;
    bool legacy;
  };
  const Row rows[] = {
      // clang-format off
      {encoded, full, false},  // an event with "_" survives the new form
      {"Wind warning_NWS_1700000000", WeatherAlertNotificationRecord{"Wind warning", "NWS", Date::fromUnix(1700000000), std::nullopt, std::nullopt},
       true},
      {"Fog_NWS_1700000000.5", WeatherAlertNotificationRecord{"Fog", "NWS", Date::fromUnix(1700000000.5), std::nullopt, std::nullopt}, true},
      {"Fog_NWS_-5", WeatherAlertNotificationRecord{"Fog", "NWS", Date::fromUnix(-5), std::nullopt, std::nullopt}, true},
      {"Gale_warning_FMI_1700000000", std::nullopt, false},  // four pieces: not the older form
      {"Fog_NWS_", std::nullopt, false},
      {"Fog_NWS_17e8", std::nullopt, false},  // a decimal number only
      {"Fog_NWS_1.2.3", std::nullopt, false},
      {"weather-alert-v2:!!!", std::nullopt, false},
      {"weather-alert-v2:" + encodeBase64("[1]"), std::nullopt, false},
      {"weather-alert-v2:" + encodeBase64(R"({"event":"x"})"), std::nullopt, false},  // no sender
      {"something else", std::nullopt, false},
      // clang-format on
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.value);
    EXPECT_EQ(decodeWeatherAlertRecord(row.value), row.expected);
    EXPECT_EQ(isLegacyWeatherAlertRecord(row.value), row.legacy);
  }
}

TEST(WeatherAlertNotificationRecordsTest, StateFile) {
  WeatherAlertNotificationPersistedState state;
  state.recordValues = {"junk", encodeWeatherAlertRecord({"Fog", "S", Date{5}, std::nullopt, "id"})};
  state.latestSnapshotDate = Date{700000000.25};
  WeatherAlertNotificationAttempt attempt;
  attempt.identifier = *Uuid::parse("E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
  attempt.primaryKey = {"Fog", "S"};
  attempt.insertedKeys = {{"Fog", "S"}, {"Gale", "S"}};
  attempt.coveredRecords = {{{"Rain", "S"}, "old"}};
  attempt.invalidation = WeatherAlertNotificationAttemptInvalidation::pendingOnly;
  attempt.reservedDate = Date{700000000};
  state.pendingAttempts = {attempt};
  state.withdrawnAttempts = {attempt};
  EXPECT_EQ(attempt.notificationIdentifier(), "weather-alert-notification-v2:e621e1f8-c36c-495a-93fc-0c247a3e6e5f");
  const std::string text = encodeWeatherAlertNotificationState(state);
  EXPECT_TRUE(text.starts_with(R"({"latestSnapshotDate":700000000.25,"pendingAttempts":[{"coveredRecords":)")) << text;
  EXPECT_EQ(decodeWeatherAlertNotificationState(text), state);

  const std::string older =
      R"({"recordValues":["a_b_1"],"pendingAttempts":[{"identifier":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F",
    "primaryKey":{"event":"a","senderName":"b"},"insertedKeys":[],"coveredRecords":[],"isInvalidated":true}]})";
  const auto decoded = decodeWeatherAlertNotificationState(older);
  ASSERT_EQ(decoded.pendingAttempts.size(), 1u);
  EXPECT_EQ(decoded.pendingAttempts[0].invalidation, WeatherAlertNotificationAttemptInvalidation::pendingAndDelivered);
  const std::string keyed =
      R"({"recordValues":[],"pendingAttempts":[{"identifier":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F",
    "primaryKey":{"event":"a","senderName":"b"},"invalidation":{"pendingOnly":{}}}]})";
  EXPECT_EQ(decodeWeatherAlertNotificationState(keyed).pendingAttempts.at(0).invalidation,
            WeatherAlertNotificationAttemptInvalidation::pendingOnly);
  EXPECT_FALSE(decoded.latestSnapshotDate);

  const char* corrupt[] = {
      "",
      "garbage",
      "[]",
      R"({"pendingAttempts":[]})",
      R"({"recordValues":[1],"pendingAttempts":[]})",
      R"({"recordValues":[],"pendingAttempts":[{"identifier":"nope"}]})",
      R"({"recordValues":[],"pendingAttempts":[{"identifier":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","primaryKey":{"event":"a","senderName":"b"},"invalidation":"later"}]})"};
  for (const char* text : corrupt) {
    EXPECT_THROW(decodeWeatherAlertNotificationState(text), DecodingError) << text;
  }
}

}  // namespace
}  // namespace ombrine
