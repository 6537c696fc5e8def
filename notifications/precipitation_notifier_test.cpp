#include "notifications/precipitation_notifier.hpp"

#include <gtest/gtest.h>

#include "notifications/weather_alert_test_support.hpp"
#include "platform/errors.hpp"
#include "platform/linux/desktop_notification_center.hpp"
#include "platform/testing/fake_clock.hpp"
#include "platform/testing/in_memory_key_value_store.hpp"

namespace ombrine {
namespace {

using namespace std::chrono_literals;
using Action = PrecipitationPlan::Action;

const Date kNow = Date::fromUnix(1'750'000'020.0);

// One minute per character from `startOffset` minutes after now: '.' dry, 'r' rain, 's' snow,
// 'u' wet of no stated kind.
std::vector<OneCallWeather::Minutely> minutes(std::string_view pattern, int startOffset = 0) {
  std::vector<OneCallWeather::Minutely> out;
  for (std::size_t i = 0; i < pattern.size(); ++i) {
    OneCallWeather::Minutely minute;
    minute.dt = kNow + 60.0 * (startOffset + static_cast<int>(i));
    const char c = pattern[i];
    minute.precipitation = Precipitation::millimeters(c == '.' ? 0.0 : 0.8);
    if (c == 'r') minute.type = PrecipitationKind::rain;
    if (c == 's') minute.type = PrecipitationKind::snow;
    out.push_back(minute);
  }
  return out;
}

std::string dry(std::size_t n) { return std::string(n, '.'); }
std::string wet(std::size_t n, char c = 'r') { return std::string(n, c); }

struct Hour {
  double pop;
  double rain;
  double snow;
};

OneCallWeather weatherWith(std::optional<std::vector<OneCallWeather::Minutely>> minutely,
                           std::vector<Hour> hours = {}) {
  OneCallWeather weather;
  weather.minutely = std::move(minutely);
  for (const auto& hour : hours) {
    OneCallWeather::Hourly entry;
    entry.pop = hour.pop;
    if (hour.rain >= 0) entry.rain = OneCallWeather::Rain{Precipitation::millimeters(hour.rain)};
    if (hour.snow >= 0) entry.snow = OneCallWeather::Snow{Precipitation::millimeters(hour.snow)};
    weather.hourly.push_back(entry);
  }
  return weather;
}

TEST(PrecipitationRules, DecideFromMinutesHoursAndState) {
  const std::vector<Hour> dryHours{{0.1, 0, -1}, {0.2, 0, -1}, {0.0, -1, -1}};
  const std::vector<Hour> wetHours{{0.45, 1.2, -1}, {0.6, -1, 0.4}, {0.9, 2.0, 0}};
  struct Row {
    const char* name;
    int state;
    OneCallWeather weather;
    Action action;
    std::string subtitle;
    std::string body;
  };
  const Row rows[] = {
      {"no minutes", 0, weatherWith(std::nullopt), Action::clear, "", ""},
      {"empty minutes", 1, weatherWith(std::vector<OneCallWeather::Minutely>{}), Action::clear, "", ""},
      {"rain only after the first hour", 0, weatherWith(minutes(dry(60) + wet(30))), Action::clear, "", ""},
      {"dry hour resets an announced end", 2, weatherWith(minutes(dry(60))), Action::clear, "", ""},
      {"rain in minute 59 only", 0, weatherWith(minutes(dry(59) + "r"), dryHours), Action::announce, "Rain Expected",
       "Precipitation is expected in 59 minutes and will likely end within the hour."},
      {"future start, end known", 0, weatherWith(minutes(dry(10) + wet(30) + dry(20))), Action::announce,
       "Rain Expected", "Precipitation is expected in 10 minutes and should end 30 minutes later."},
      {"present start, end known", 0, weatherWith(minutes(wet(5) + dry(55))), Action::announce, "Rain Expected",
       "Precipitation is expected now and should end in 5 minutes."},
      {"a gap inside the rain: the end is after the last wet minute", 0,
       weatherWith(minutes(wet(3) + dry(7) + wet(5) + dry(45))), Action::announce, "Rain Expected",
       "Precipitation is expected now and should end in 15 minutes."},
      {"through the hour, dry hours after", 0, weatherWith(minutes(wet(60)), dryHours), Action::announce,
       "Rain Expected", "Precipitation is expected now and will likely end within the hour."},
      {"through the hour, first hour pop 0.44", 0,
       weatherWith(minutes(wet(60)), {{0.44, 3, -1}, {0.9, 3, -1}, {0.9, 3, -1}}), Action::announce, "Rain Expected",
       "Precipitation is expected now and will likely end within the hour."},
      {"through the hour, three wet hours", 0, weatherWith(minutes(dry(2) + wet(58)), wetHours), Action::announce,
       "Rain Expected", "Precipitation is expected in 2 minutes and likely won't end for a while."},
      {"pop 0.9 without amounts is dry", 0, weatherWith(minutes(wet(60)), {{0.9, -1, -1}, {0.9, 0, 0}}),
       Action::announce, "Rain Expected", "Precipitation is expected now and will likely end within the hour."},
      {"one wet hour then a dry one", 0, weatherWith(minutes(wet(60)), {{0.5, 1, -1}, {0.1, 0, -1}, {0.9, 1, -1}}),
       Action::announce, "Rain Expected",
       "Precipitation is expected now and will likely end within the next couple of hours."},
      {"two hours given, both wet: all of them", 0, weatherWith(minutes(wet(60)), {{0.5, 1, -1}, {0.5, -1, 1}}),
       Action::announce, "Rain Expected", "Precipitation is expected now and likely won't end for a while."},
      {"snow", 0, weatherWith(minutes(dry(20) + wet(10, 's') + dry(30))), Action::announce, "Snow Expected",
       "Precipitation is expected in 20 minutes and should end 10 minutes later."},
      {"no stated kind is rain", 0, weatherWith(minutes(wet(4, 'u') + dry(56))), Action::announce, "Rain Expected",
       "Precipitation is expected now and should end in 4 minutes."},
      {"series from the past: past rain only", 0, weatherWith(minutes(wet(10) + dry(60), -10)), Action::nothing, "",
       ""},
      {"series from the past: raining on", 0, weatherWith(minutes(wet(15) + dry(55), -10)), Action::announce,
       "Rain Expected", "Precipitation is expected now and should end in 5 minutes."},
      {"start announced, end announced next", 1, weatherWith(minutes(wet(15) + dry(45))), Action::announce,
       "Rain Expected", "Precipitation should end in 15 minutes."},
      {"start announced, dry gap first", 1, weatherWith(minutes(dry(5) + wet(10) + dry(45))), Action::announce,
       "Rain Expected", "Precipitation is expected in 5 minutes and should end 15 minutes later."},
      {"start announced, rain in the last 20 minutes", 1, weatherWith(minutes(wet(30) + dry(20) + wet(1) + dry(9))),
       Action::nothing, "", ""},
      {"end announced, rain back within the hour", 2, weatherWith(minutes(dry(30) + wet(10) + dry(20))),
       Action::nothing, "", ""},
  };
  const PrecipitationWording english(icu::Locale("en_US"));
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const PrecipitationPlan plan = planPrecipitationNotification(row.weather, row.state, kNow, english);
    EXPECT_EQ(plan.action, row.action);
    if (row.action != Action::announce) continue;
    EXPECT_EQ(plan.content.title, "Precipitation Alert");
    EXPECT_EQ(plan.content.subtitle, row.subtitle);
    EXPECT_EQ(plan.content.body, row.body);
    EXPECT_TRUE(plan.content.defaultSound);
    EXPECT_EQ(plan.nextState, row.state + 1);
  }
}

TEST(PrecipitationRules, WordsInTheUsersLanguage) {
  struct Row {
    const char* locale;
    int state;
    std::string pattern;
    std::string subtitle;
    std::string body;
  };
  const Row rows[] = {
      {"en_GB", 0, dry(90) + wet(1), "", ""},
      {"en_GB", 0, dry(1) + wet(2) + dry(57), "Rain Expected",
       "Precipitation is expected in 1 minute and should end 2 minutes later."},
      {"de_DE", 0, dry(10) + wet(30, 's') + dry(20), "Schnee erwartet",
       "Niederschlag wird in 10 Minuten erwartet und sollte 30 Minuten später enden."},
      {"de_DE", 0, wet(2) + dry(58), "Regen erwartet",
       "Niederschlag wird jetzt erwartet und sollte in 2 Minuten enden."},
      // One wet minute has no last wet minute after it: the end is not known.
      {"de_DE", 0, dry(1) + wet(1) + dry(58), "Regen erwartet",
       "Niederschlag wird in 1 Minute erwartet und endet wahrscheinlich innerhalb der nächsten Stunde."},
      {"de_DE", 1, wet(15) + dry(45), "Regen erwartet", "Niederschlag sollte in 15 Minuten enden."},
      {"de_DE", 0, wet(60), "Regen erwartet",
       "Niederschlag wird jetzt erwartet und endet wahrscheinlich innerhalb der nächsten Stunde."},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.locale + std::string(" ") + row.body);
    const PrecipitationWording wording{icu::Locale(row.locale)};
    const auto plan = planPrecipitationNotification(weatherWith(minutes(row.pattern)), row.state, kNow, wording);
    if (row.body.empty()) {
      EXPECT_EQ(plan.action, Action::clear);
      continue;
    }
    EXPECT_EQ(plan.content.subtitle, row.subtitle);
    EXPECT_EQ(plan.content.body, row.body);
  }
  EXPECT_EQ(PrecipitationWording(icu::Locale("de_DE")).text("Precipitation Alert"), "Niederschlagswarnung");
  EXPECT_EQ(PrecipitationWording(icu::Locale("de_DE")).relativeTime(2 * 3600 + 59 * 60), "in 2 Stunden");
}

TEST(PrecipitationRules, StoredStateOfAnotherKindOrRangeReadsAsZero) {
  const std::pair<std::optional<StoreValue>, int> rows[] = {
      {std::nullopt, 0},
      {StoreValue{std::int64_t{1}}, 1},
      {StoreValue{std::int64_t{2}}, 2},
      {StoreValue{std::int64_t{3}}, 0},
      {StoreValue{std::int64_t{-1}}, 0},
      {StoreValue{std::string("1")}, 0},
      {StoreValue{true}, 0},
  };
  for (const auto& [stored, expected] : rows) {
    InMemoryKeyValueStore defaults;
    if (stored) defaults.setValue(PrecipitationNotificationRules::kStateKey, *stored);
    EXPECT_EQ(readPrecipitationNotificationState(defaults), expected);
  }
}

// The real spool center, refusing requests while `refuse` is set.
class RefusingCenter final : public NotificationCenter {
 public:
  explicit RefusingCenter(DesktopNotificationCenter& real) : real_(real) {}
  bool refuse = false;
  void add(const NotificationRequest& request) override {
    if (refuse) throw NotificationCenterError("not authorised");
    real_.add(request);
  }
  void removePendingNotificationRequests(const std::set<std::string>& ids) override {
    real_.removePendingNotificationRequests(ids);
  }
  void removeDeliveredNotifications(const std::set<std::string>& ids) override {
    real_.removeDeliveredNotifications(ids);
  }
  std::vector<NotificationEntry> pendingNotificationRequests() override { return real_.pendingNotificationRequests(); }
  std::vector<NotificationEntry> deliveredNotifications() override { return real_.deliveredNotifications(); }
  void deliverDueRequests() override { real_.deliverDueRequests(); }
  std::optional<std::chrono::system_clock::time_point> nextTriggerDate() override { return real_.nextTriggerDate(); }

 private:
  DesktopNotificationCenter& real_;
};

TEST(PrecipitationNotifier, StateAcrossPasses) {
  testing_support::TempFolder folder;
  FakeClock clock{kNow.toSystem()};
  DesktopNotificationCenter spool{clock, folder.path() / "spool", DesktopNotifier(std::nullopt)};
  RefusingCenter center{spool};
  InMemoryKeyValueStore defaults;
  PrecipitationNotifier notifier({defaults, center, clock, icu::Locale("en_US")});
  // Each pass sees a fresh series starting at its own now.
  auto pass = [&](std::string_view pattern) {
    OneCallWeather weather;
    weather.minutely = minutes(pattern, 0);
    for (auto& minute : *weather.minutely) minute.dt = Date::fromSystem(clock.now()) + (minute.dt - kNow);
    return notifier.evaluatePrecipitationNotification(weather);
  };
  struct Step {
    const char* name;
    std::string pattern;
    bool refuse;
    int state;
    std::size_t shown;  // "Precipitation" entries in the spool, pending or delivered
    std::string body;
  };
  const Step steps[] = {
      {"refused start: state stays", dry(10) + wet(30) + dry(20), true, 0, 0, ""},
      {"start", dry(10) + wet(30) + dry(20), false, 1, 1,
       "Precipitation is expected in 10 minutes and should end 30 minutes later."},
      {"still raining to the horizon: quiet", wet(60), false, 1, 1, ""},
      {"end", wet(12) + dry(48), false, 2, 1, "Precipitation should end in 12 minutes."},
      {"rain back within the hour: quiet", dry(20) + wet(5) + dry(35), false, 2, 1, ""},
      {"dry hour: cleared", dry(60), false, 0, 0, ""},
      {"next shower", wet(3) + dry(57), false, 1, 1, "Precipitation is expected now and should end in 3 minutes."},
  };
  for (const auto& step : steps) {
    SCOPED_TRACE(step.name);
    center.refuse = step.refuse;
    const auto outcome = pass(step.pattern);
    EXPECT_EQ(outcome.refused, step.refuse);
    EXPECT_EQ(readPrecipitationNotificationState(defaults), step.state);
    EXPECT_EQ(outcome.request ? outcome.request->content.body : "", step.body);
    if (outcome.request) EXPECT_EQ(outcome.request->delay, 5s);
    clock.advance(10min);
    const auto all = [&] {
      auto entries = spool.pendingNotificationRequests();
      for (auto& delivered : spool.deliveredNotifications()) entries.push_back(delivered);
      return entries;
    }();
    EXPECT_EQ(all.size(), step.shown);
    for (const auto& entry : all) EXPECT_EQ(entry.identifier, "Precipitation");
  }
}

TEST(PrecipitationNotifier, CancellationLeavesTheState) {
  testing_support::TempFolder folder;
  FakeClock clock{kNow.toSystem()};
  DesktopNotificationCenter spool{clock, folder.path() / "spool", DesktopNotifier(std::nullopt)};
  InMemoryKeyValueStore defaults;
  PrecipitationNotifier notifier({defaults, spool, clock, icu::Locale("en_US")});
  int asked = 0;
  // Cancelled at the first check, and at the check just before the request is added.
  for (int cancelAt : {1, 2}) {
    asked = 0;
    EXPECT_THROW(notifier.evaluatePrecipitationNotification(weatherWith(minutes(wet(5) + dry(55))),
                                                            [&] { return ++asked >= cancelAt; }),
                 CancellationError);
    EXPECT_EQ(asked, cancelAt);
    EXPECT_EQ(readPrecipitationNotificationState(defaults), 0);
    EXPECT_TRUE(spool.pendingNotificationRequests().empty());
  }
}

}  // namespace
}  // namespace ombrine
