// Exactly once under crashes: passes run in forked processes, some killed with SIGKILL at a step
// of the protocol or at a random moment (inside a file write as likely as anywhere), over feeds
// whose alerts flap and whose snapshots arrive out of order. At the end every alert of the final
// feed has been delivered exactly once, and no alert more than once.
//
// OMBRINE_CRASH_SCHEDULES sets the number of schedules (default: a few, to stay within seconds).

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <map>
#include <random>
#include <sstream>
#include <thread>

#include "notifications/weather_alert_notifier.hpp"
#include "notifications/weather_alert_test_support.hpp"
#include "platform/linux/desktop_notification_center.hpp"
#include "platform/testing/fake_clock.hpp"
#include "platform/testing/forked_child.hpp"

namespace ombrine {
namespace {

using namespace std::chrono_literals;
using testing_support::alert;
using testing_support::TempFolder;

const std::vector<WeatherAlertNotificationKey> kKeys = {{"Gale", "FMI"}, {"Gale", "SMHI"}, {"Fog", "FMI"},
                                                        {"Heat", "NWS"}, {"Snow", "NWS"},  {"Ice", "DWD"}};

enum class Kill { none, atReserved, atAdded, atConfirming, atConfirmed, randomMoment };

struct PassPlan {
  std::int64_t at;          // seconds since 1970: the pass's clock and snapshot
  std::vector<int> alerts;  // indices into kKeys, in feed order
  Kill kill = Kill::none;
  int randomDelayMicros = 0;
};

// One pass in this process, as a forked child runs it. Records which keys each reserved
// notification stands for, before its request can exist.
void runPass(const std::filesystem::path& root, const PassPlan& plan) {
  FakeClock clock{std::chrono::system_clock::time_point(std::chrono::seconds(plan.at))};
  DesktopNotificationCenter center(clock, root / "spool", DesktopNotifier(std::nullopt));
  WeatherAlertNotificationStore store(root / "state", [] { return std::set<std::string>{}; });
  std::vector<OneCallWeather::Alert> alerts;
  const Date now = Date::fromUnix(static_cast<double>(plan.at));
  for (int index : plan.alerts) {
    alerts.push_back(alert(kKeys[index].event, kKeys[index].senderName, now - 60, now + 20 * 3600.0));
  }
  const auto killAt = [&](Kill kill) {
    if (plan.kill == kill) ::raise(SIGKILL);
  };
  std::optional<std::string> reservedIdentifier;
  WeatherAlertNotifier notifier({&store, center, clock, [] { return true; }, icu::Locale("en_US"),
                                 [&](WeatherAlertPassStep step) {
                                   if (step == WeatherAlertPassStep::reserved) {
                                     const auto state = store.read();
                                     const auto& attempt = state->pendingAttempts.back();
                                     std::string line = attempt.notificationIdentifier();
                                     for (const auto& key : attempt.insertedKeys)
                                       line += "\t" + key.event + "/" + key.senderName;
                                     line += "\n";
                                     const int fd =
                                         ::open((root / "journal").c_str(), O_WRONLY | O_APPEND | O_CREAT, 0600);
                                     [[maybe_unused]] auto written = ::write(fd, line.data(), line.size());
                                     ::close(fd);
                                     killAt(Kill::atReserved);
                                   }
                                   if (step == WeatherAlertPassStep::added) killAt(Kill::atAdded);
                                   if (step == WeatherAlertPassStep::confirming) killAt(Kill::atConfirming);
                                   if (step == WeatherAlertPassStep::confirmed) killAt(Kill::atConfirmed);
                                 }});
  notifier.notifyWeatherAlerts(alerts, TimeZone::gmt());
}

struct Tally {
  int duplicates = 0;
  int losses = 0;
  std::string detail;
};

Tally tally(const std::filesystem::path& root, const std::vector<int>& finalAlerts) {
  // The newest journal line of an identifier is the one that stands (only one exists: each
  // identifier is a new UUID).
  std::map<std::string, std::vector<std::string>> keysOf;
  std::ifstream journal(root / "journal");
  for (std::string line; std::getline(journal, line);) {
    std::istringstream fields(line);
    std::string identifier, key;
    std::getline(fields, identifier, '\t');
    while (std::getline(fields, key, '\t')) keysOf[identifier].push_back(key);
  }
  FakeClock clock{std::chrono::system_clock::time_point(std::chrono::hours(24 * 365 * 60))};
  DesktopNotificationCenter center(clock, root / "spool", DesktopNotifier(std::nullopt));
  std::map<std::string, int> told;
  for (const auto& entry : center.deliveredNotifications()) {
    for (const auto& key : keysOf[entry.identifier]) ++told[key];
  }
  Tally result;
  for (const auto& [key, count] : told) {
    if (count > 1) {
      ++result.duplicates;
      result.detail += key + " told " + std::to_string(count) + " times; ";
    }
  }
  for (int index : finalAlerts) {
    const std::string key = kKeys[index].event + "/" + kKeys[index].senderName;
    if (told[key] == 0) {
      ++result.losses;
      result.detail += key + " never told; ";
    }
  }
  return result;
}

std::vector<int> randomFeed(std::mt19937& random) {
  std::vector<int> feed;
  for (int i = 0; i < static_cast<int>(kKeys.size()); ++i) {
    if (random() % 2) feed.push_back(i);
  }
  std::shuffle(feed.begin(), feed.end(), random);
  return feed;
}

TEST(WeatherAlertCrashTest, ExactlyOnceUnderKillsFlappingAndReorderedFeeds) {
  const char* configured = std::getenv("OMBRINE_CRASH_SCHEDULES");
  const int schedules = configured ? std::atoi(configured) : 4;
  int kills = 0, passes = 0, duplicates = 0, losses = 0;
  for (int schedule = 0; schedule < schedules; ++schedule) {
    const auto seed = static_cast<std::uint32_t>(schedule * 7919 + 17);
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    TempFolder folder;
    std::vector<PassPlan> plans;
    std::int64_t clock = 1'750'000'000;
    for (int i = 0; i < 24; ++i) {
      clock += 1 + static_cast<std::int64_t>(random() % 240);
      PassPlan plan{clock, randomFeed(random)};
      // A snapshot from up to five minutes back arrives late.
      if (random() % 5 == 0) plan.at -= static_cast<std::int64_t>(random() % 300);
      plan.kill = static_cast<Kill>(random() % 6);
      // A pass takes some tens of milliseconds: the kill lands anywhere in it, mid-write included.
      plan.randomDelayMicros = static_cast<int>(random() % 30000);
      plans.push_back(plan);
    }
    const std::vector<int> finalFeed = randomFeed(random);
    // Quiet end: the final feed, no kills, long enough apart for abandoned attempts to settle.
    for (int i = 1; i <= 3; ++i) plans.push_back(PassPlan{clock + i * 700, finalFeed});

    // Children are forked in groups of two or three, released together, so passes race.
    for (std::size_t i = 0; i < plans.size();) {
      const std::size_t group = i < 24 ? std::min<std::size_t>(1 + random() % 3, 24 - i) : 1;
      std::vector<ForkedChild> children;
      for (std::size_t j = i; j < i + group; ++j) {
        const PassPlan plan = plans[j];
        const auto root = folder.path();
        children.emplace_back([plan, root] {
          std::freopen("/dev/null", "w", stderr);
          runPass(root, plan);
        });
      }
      for (auto& child : children) child.release();
      for (std::size_t j = i; j < i + group; ++j) {
        auto& child = children[j - i];
        if (plans[j].kill == Kill::randomMoment) {
          std::this_thread::sleep_for(std::chrono::microseconds(plans[j].randomDelayMicros));
          child.kill();
        }
        const int status = child.wait(10s);
        ASSERT_NE(status, ForkedChild::kHung);
        if (status != 0) ++kills;
        ++passes;
      }
      i += group;
    }
    const Tally result = tally(folder.path(), finalFeed);
    duplicates += result.duplicates;
    losses += result.losses;
    EXPECT_EQ(result.duplicates, 0) << result.detail;
    EXPECT_EQ(result.losses, 0) << result.detail;
  }
  std::printf("crash harness: %d schedules, %d passes, %d killed: %d duplicates, %d losses\n", schedules, passes, kills,
              duplicates, losses);
}

}  // namespace
}  // namespace ombrine
