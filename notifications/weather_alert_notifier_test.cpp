#include "notifications/weather_alert_notifier.hpp"

#include <gtest/gtest.h>

#include "notifications/weather_alert_test_support.hpp"
#include "platform/atomic_file.hpp"
#include "platform/linux/desktop_notification_center.hpp"
#include "platform/testing/fake_clock.hpp"

namespace ombrine {
namespace {

using namespace std::chrono_literals;
using testing_support::alert;
using testing_support::TempFolder;

// The real spool center, refusing the next `refusals` requests as the system can.
class RefusingCenter final : public NotificationCenter {
 public:
  explicit RefusingCenter(DesktopNotificationCenter& real) : real_(real) {}
  int refusals = 0;
  void add(const NotificationRequest& request) override {
    if (refusals > 0) {
      --refusals;
      throw NotificationCenterError("not authorised");
    }
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

struct Fixture {
  TempFolder folder;
  FakeClock clock{std::chrono::system_clock::time_point(std::chrono::seconds(1'750'000'000))};
  DesktopNotificationCenter spool{clock, folder.path() / "spool", DesktopNotifier(std::nullopt)};
  RefusingCenter center{spool};
  WeatherAlertNotificationStore store{folder.path() / "state", [] { return std::set<std::string>{}; }};
  bool enabled = true;
  std::function<void(WeatherAlertPassStep)> observer;
  WeatherAlertNotifier notifier{{&store, center, clock, [this] { return enabled; }, icu::Locale("en_US"),
                                 [this](WeatherAlertPassStep step) {
                                   if (observer) observer(step);
                                 }}};

  Date now() const { return Date::fromSystem(clock.now()); }
  std::vector<NotificationEntry> deliveredAfterTrigger() {
    clock.advance(5s);
    return spool.deliveredNotifications();
  }
};

TEST(WeatherAlertNotifierTest, AnnouncesLiveAlertsOnceInOrder) {
  Fixture f;
  const Date now = f.now();
  const std::vector<OneCallWeather::Alert> alerts = {
      alert("Fog", "FMI", now - 100, now + 3600, WeatherSeverity::minor),
      alert("Ended", "FMI", now - 7200, now - 1, WeatherSeverity::extreme),  // over: never told
      alert("Gale", "FMI", now + 600, std::nullopt, WeatherSeverity::severe),
      alert("Storm", "FMI", now + 60, now + 7200, WeatherSeverity::severe),
  };
  testing::internal::CaptureStderr();
  const auto first = f.notifier.notifyWeatherAlerts(alerts, *TimeZone::named("Europe/Helsinki"));
  testing::internal::GetCapturedStderr();
  ASSERT_TRUE(first.request);
  EXPECT_EQ(first.request->delay, 5s);
  // Severe before minor, earlier start first among equals.
  EXPECT_EQ(first.announcedKeys,
            (std::vector<WeatherAlertNotificationKey>{{"Storm", "FMI"}, {"Gale", "FMI"}, {"Fog", "FMI"}}));
  EXPECT_EQ(first.request->content.title, "Severe Weather Alert");
  EXPECT_EQ(first.request->content.body,
            "Storm and 2 more (FMI)\nFrom Jun 15, 6:07\u202fPM\nEnding Jun 15, 8:06\u202fPM");
  EXPECT_EQ(f.spool.pendingNotificationRequests().size(), 1u);

  f.clock.advance(1h);
  const auto second = f.notifier.notifyWeatherAlerts(alerts, TimeZone::gmt());
  EXPECT_FALSE(second.request);
  ASSERT_EQ(f.spool.deliveredNotifications().size(), 1u);
  EXPECT_EQ(f.spool.deliveredNotifications()[0].identifier, first.request->identifier);
  EXPECT_TRUE(f.store.read()->pendingAttempts.empty());
}

TEST(WeatherAlertNotifierTest, Content) {
  const Date start = Date::fromUnix(1'750'000'000);  // 2025-06-15T15:06:40Z
  struct Row {
    std::vector<OneCallWeather::Alert> alerts;
    const char* zone;
    const char* title;
    const char* body;
  };
  const Row rows[] = {
      {{alert("Gale", "FMI", start, start + 3600, WeatherSeverity::extreme)},
       "UTC",
       "Extreme Weather Alert",
       "Gale (FMI)\nFrom Jun 15, 3:06\u202fPM\nEnding Jun 15, 4:06\u202fPM"},
      {{alert("Gale", "FMI", start, std::nullopt, std::nullopt)},
       "UTC",
       "Weather Alert",
       "Gale (FMI)\nFrom Jun 15, 3:06\u202fPM"},
      {{alert("Gale", "FMI", start, std::nullopt, WeatherSeverity::minor), alert("Fog", "X", start, std::nullopt)},
       "UTC",
       "Minor Weather Alert",
       "Gale and 1 more (FMI)\nFrom Jun 15, 3:06\u202fPM"},
      // The place's own clock, across the date line.
      {{alert("Heat", "BoM", start + 9 * 3600, std::nullopt, WeatherSeverity::moderate)},
       "Pacific/Kiritimati",
       "Moderate Weather Alert",
       "Heat (BoM)\nFrom Jun 16, 2:06\u202fPM"},
  };
  for (const auto& row : rows) {
    const auto content = weatherAlertNotificationContent(row.alerts, *TimeZone::named(row.zone), icu::Locale("en_US"));
    EXPECT_EQ(content.title, row.title);
    EXPECT_EQ(content.body, row.body);
    EXPECT_TRUE(content.defaultSound);
  }
}

TEST(WeatherAlertNotifierTest, FailuresAndSwitches) {
  const auto gale = [](Date now) { return std::vector{alert("Gale", "FMI", now, std::nullopt)}; };
  {
    SCOPED_TRACE("a garbage state: nothing is sent and the file stays");
    Fixture f;
    writeFileAtomically(f.store.stateFileURL(), "garbage");
    testing::internal::CaptureStderr();
    const auto outcome = f.notifier.notifyWeatherAlerts(gale(f.now()), TimeZone::gmt());
    const std::string err = testing::internal::GetCapturedStderr();
    EXPECT_TRUE(outcome.failed);
    EXPECT_NE(err.find("Error updating weather alert notification state: "), std::string::npos) << err;
    EXPECT_EQ(*readFileIfExists(f.store.stateFileURL()), "garbage");
    EXPECT_TRUE(f.spool.pendingNotificationRequests().empty());
  }
  {
    SCOPED_TRACE("a refused request: announced on the next pass");
    Fixture f;
    f.center.refusals = 1;
    testing::internal::CaptureStderr();
    EXPECT_FALSE(f.notifier.notifyWeatherAlerts(gale(f.now()), TimeZone::gmt()).request);
    const std::string err = testing::internal::GetCapturedStderr();
    EXPECT_NE(err.find("Error sending weather alert notification: not authorised"), std::string::npos) << err;
    EXPECT_TRUE(f.notifier.notifyWeatherAlerts(gale(f.now()), TimeZone::gmt()).request);
  }
  {
    SCOPED_TRACE("switched off between reservation and confirmation: the request is removed");
    Fixture f;
    f.observer = [&](WeatherAlertPassStep step) {
      if (step == WeatherAlertPassStep::added) f.enabled = false;
    };
    testing::internal::CaptureStderr();
    EXPECT_FALSE(f.notifier.notifyWeatherAlerts(gale(f.now()), TimeZone::gmt()).request);
    EXPECT_TRUE(f.deliveredAfterTrigger().empty());
    testing::internal::GetCapturedStderr();
    EXPECT_TRUE(f.store.read()->pendingAttempts.empty());
    // Switched on again, the alert that was never shown is announced.
    f.observer = nullptr;
    f.enabled = true;
    EXPECT_TRUE(f.notifier.notifyWeatherAlerts(gale(f.now()), TimeZone::gmt()).request);
  }
  {
    SCOPED_TRACE("no store");
    TempFolder folder;
    FakeClock clock;
    DesktopNotificationCenter spool{clock, folder.path(), DesktopNotifier(std::nullopt)};
    WeatherAlertNotifier notifier({nullptr, spool, clock, [] { return true; }, icu::Locale("en_US"), nullptr});
    testing::internal::CaptureStderr();
    EXPECT_TRUE(notifier.notifyWeatherAlerts(gale(Date::fromSystem(clock.now())), TimeZone::gmt()).failed);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Weather alert notification store is unavailable\n");
  }
  {
    SCOPED_TRACE("legacy values of the shared defaults seed a new state");
    Fixture f;
    WeatherAlertNotificationStore legacy{f.folder.path() / "legacy",
                                         [] { return std::set<std::string>{"Gale_FMI_1"}; }};
    WeatherAlertNotifier notifier({&legacy, f.center, f.clock, [] { return true; }, icu::Locale("en_US"), nullptr});
    EXPECT_FALSE(notifier.notifyWeatherAlerts(gale(f.now()), TimeZone::gmt()).request);
  }
}

}  // namespace
}  // namespace ombrine
