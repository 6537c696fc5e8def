// The weather alert pass: 20 live alerts into an empty state (cold: one reservation, one request
// in the spool, one confirmation, each an fsynced file replacement) and into a state that has
// them all (warm: one locked read, nothing written). And the size of the state file after a
// year of daily alerts, which the 72-hour retention keeps bounded.

#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <cstring>
#include <filesystem>

#include "bench/bench_support.hpp"
#include "notifications/weather_alert_notification_state.hpp"
#include "notifications/weather_alert_notifier.hpp"
#include "platform/linux/desktop_notification_center.hpp"
#include "platform/testing/fake_clock.hpp"

namespace ombrine {
namespace {

namespace fs = std::filesystem;

std::vector<OneCallWeather::Alert> twentyAlerts(Date now) {
  std::vector<OneCallWeather::Alert> alerts;
  for (int i = 0; i < 20; ++i) {
    OneCallWeather::Alert alert;
    alert.event = "Warning " + std::to_string(i);
    alert.senderName = i % 2 ? "Meteorological Institute" : "Weather Service";
    alert.start = now - 600.0 * i;
    alert.end = now + 3600.0 * (i + 1);
    alert.severity = static_cast<WeatherSeverity>(i % 5);
    alerts.push_back(alert);
  }
  return alerts;
}

struct PassFixture {
  fs::path root;
  FakeClock clock;
  DesktopNotificationCenter center;
  WeatherAlertNotificationStore store;
  WeatherAlertNotifier notifier;

  explicit PassFixture(fs::path folder)
      : root(std::move(folder)),
        center(clock, root / "spool", DesktopNotifier(std::nullopt)),
        store(root / "state", [] { return std::set<std::string>{}; }),
        notifier({&store, center, clock, [] { return true; }, icu::Locale("en_US"), nullptr}) {}
};

fs::path freshFolder() {
  std::string pattern = (fs::temp_directory_path() / "ombrine-alerts-bench-XXXXXX").string();
  return ::mkdtemp(pattern.data());
}

void BM_PassCold20Alerts(benchmark::State& state) {
  std::unique_ptr<PassFixture> fixture;
  std::vector<fs::path> folders;
  bench::timed(
      state,
      [&] {
        const auto outcome = fixture->notifier.notifyWeatherAlerts(twentyAlerts(Date::fromSystem(fixture->clock.now())),
                                                                   TimeZone::gmt());
        if (outcome.announcedKeys.size() != 20) state.SkipWithError("not announced");
      },
      [&] {
        folders.push_back(freshFolder());
        fixture = std::make_unique<PassFixture>(folders.back());
      });
  fixture.reset();
  for (const auto& folder : folders) fs::remove_all(folder);
}
BENCHMARK(BM_PassCold20Alerts)->Unit(benchmark::kMicrosecond)->Iterations(200);

void BM_PassWarm20Alerts(benchmark::State& state) {
  const fs::path folder = freshFolder();
  PassFixture fixture(folder);
  const auto alerts = twentyAlerts(Date::fromSystem(fixture.clock.now()));
  fixture.notifier.notifyWeatherAlerts(alerts, TimeZone::gmt());
  bench::timed(
      state,
      [&] {
        const auto outcome = fixture.notifier.notifyWeatherAlerts(alerts, TimeZone::gmt());
        if (outcome.request) state.SkipWithError("announced twice");
      },
      [] {});
  fs::remove_all(folder);
}
BENCHMARK(BM_PassWarm20Alerts)->Unit(benchmark::kMicrosecond)->Iterations(2000);

// A year of passes every 6 hours, with three new alerts each day that last 18 hours.
void BM_StateFileAfterAYearOfDailyAlerts(benchmark::State& state) {
  std::size_t bytes = 0, records = 0;
  for (auto _ : state) {
    WeatherAlertNotificationPersistedState persisted;
    const Date start{800'000'000};
    int attempt = 0;
    for (int day = 0; day < 365; ++day) {
      for (int quarter = 0; quarter < 4; ++quarter) {
        const Date now = start + day * 86400.0 + quarter * 21600.0;
        std::vector<WeatherAlertNotificationOccurrence> live;
        for (int d = std::max(0, day - 1); d <= day; ++d) {
          for (int k = 0; k < 3; ++k) {
            const Date end = start + d * 86400.0 + 18 * 3600.0;
            if (end > now) live.push_back({{"Daily warning " + std::to_string(d * 3 + k), "Weather Service"}, end});
          }
        }
        Uuid id;
        ++attempt;
        std::memcpy(id.bytes.data(), &attempt, sizeof attempt);
        auto plan = WeatherAlertNotificationState::plan(persisted, live, now, id, false);
        persisted = plan.persistedState;
        if (plan.schedulingAttempt)
          persisted = WeatherAlertNotificationState::confirm(persisted, id, true).persistedState;
      }
    }
    bytes = encodeWeatherAlertNotificationState(persisted).size();
    records = persisted.recordValues.size();
  }
  state.counters["state_bytes"] = static_cast<double>(bytes);
  state.counters["records"] = static_cast<double>(records);
}
BENCHMARK(BM_StateFileAfterAYearOfDailyAlerts)->Unit(benchmark::kMillisecond)->Iterations(1);

}  // namespace
}  // namespace ombrine

BENCHMARK_MAIN();
