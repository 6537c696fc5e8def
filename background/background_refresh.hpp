#pragma once
// The hourly background refresh: one pass fetches the weather for the place the user is at,
// runs the rain and snow notifications and then the weather alert notifications, stores the
// record as the latest weather for the widgets, and asks to be woken again 60 minutes later.
//
// One request, "com.quillfernhollowarts.weather.precipitation", stands for all background work.
// A pass always ends with either a new request or a deliberate cancel, so the chain of wake-ups
// survives a failed fetch and an expired pass. The setting "isSendingNotifications" of the
// shared defaults (true when missing) switches all of it on or off.
//
// Context: `launch`, `scheduleRefresh` and `isSendingNotifications` on any thread. The pass runs
// on the executor given (a strand: its serial context), where it awaits the fetch and runs the
// notification steps, which block briefly on files. The scheduler's expiry arrives on another
// thread; `BackgroundRefreshCompletion` makes exactly one of the pass and the expiry report.

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "core/record/one_call_weather.hpp"
#include "core/values/location.hpp"
#include "persistence/weather_cache.hpp"
#include "platform/async/task.hpp"
#include "platform/background_scheduler.hpp"
#include "platform/clock.hpp"

namespace ombrine {

class KeyValueStore;

// The weather of the place a pass looked at.
struct RefreshedPlace {
  std::string name;
  Location location;
  std::optional<Region> region;
  TimeZone timeZone;
  OneCallWeather weather;
};

// What a pass does, step by step, with the process's services.
class BackgroundRefreshWork {
 public:
  virtual ~BackgroundRefreshWork() = default;
  // Decides the location, fetches its weather with the stored provider preference and no tides
  // while naming it. Raises the fetch's errors and CancellationError.
  virtual Task<RefreshedPlace> fetch() = 0;
  // The rain and snow rules over the record. Raises CancellationError when `isCancelled` says so,
  // and anything else on failure.
  virtual void evaluatePrecipitation(const RefreshedPlace& place, const std::function<bool()>& isCancelled) = 0;
  // The weather alert pass over the record's alerts.
  virtual void notifyWeatherAlerts(const RefreshedPlace& place) = 0;
  // Stores the latest weather for the widgets.
  virtual Task<void> storeLatest(CachedWeather cachedWeather) = 0;
};

// Owned by a pass and its expiration handler together: the task hears of its end exactly once.
class BackgroundRefreshCompletion {
 public:
  explicit BackgroundRefreshCompletion(std::shared_ptr<BackgroundTask> task) : task_(std::move(task)) {}
  // Reports `success` to the task unless a report was made already. True when this call made it.
  bool complete(bool success);
  bool hasCompleted() const;
  // Set by the expiration handler; read as "the pass was cancelled".
  std::atomic<bool> cancelled{false};

 private:
  mutable std::mutex lock_;
  bool hasCompleted_ = false;
  std::shared_ptr<BackgroundTask> task_;
};

class BackgroundRefresh {
 public:
  static constexpr std::string_view kTaskIdentifier = "com.quillfernhollowarts.weather.precipitation";
  static constexpr std::string_view kSettingKey = "isSendingNotifications";
  static constexpr int kRefreshDelayMinutes = 60;

  struct Dependencies {
    BackgroundScheduler& scheduler;
    KeyValueStore& sharedDefaults;
    Clock& clock;
    // The pass's serial context.
    Executor executor;
    BackgroundRefreshWork& work;
    // The daily backup of the synced store, taken at launch (its failure is the callee's to log).
    std::function<void()> backup;
    // How long a minute of the refresh delays lasts: a real minute, shorter in tests.
    std::chrono::milliseconds minute{std::chrono::minutes(1)};
  };

  explicit BackgroundRefresh(Dependencies dependencies);

  // At the start of the process: the daily backup, and the launch handler registered for the
  // task identifier. Returns true.
  bool launch();

  // Cancels the standing request and, when notifications are on, submits one for `minutes`
  // from now. A failed submission prints "scheduleRefresh(in:)" and the error.
  void scheduleRefresh(int minutes);

  // The launch handler: starts a pass for `task` (or, with notifications off, cancels the
  // request and completes the task at once) and returns.
  void handleLaunch(std::shared_ptr<BackgroundTask> task);

  // "isSendingNotifications" of the shared defaults; true when missing.
  bool isSendingNotifications() const;

  // The end of every pass: a new request (or, with notifications off or `reschedule` false, a
  // cancel), then the task hears `success` and not cancelled, once.
  void finish(bool reschedule, BackgroundRefreshCompletion& completion, bool success);

 private:
  Task<void> pass(std::shared_ptr<BackgroundRefreshCompletion> completion);

  Dependencies deps_;
};

}  // namespace ombrine
