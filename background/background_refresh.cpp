#include "background/background_refresh.hpp"

#include "platform/async/coroutines.hpp"
#include "platform/errors.hpp"
#include "platform/exception_message.hpp"
#include "platform/key_value_store.hpp"
#include "platform/log.hpp"

namespace ombrine {

namespace {

const std::string& identifier() {
  static const std::string value(BackgroundRefresh::kTaskIdentifier);
  return value;
}

std::string describe(const std::exception_ptr& error) { return exceptionMessage(error); }

}  // namespace

bool BackgroundRefreshCompletion::complete(bool success) {
  std::lock_guard guard(lock_);
  if (hasCompleted_) return false;
  hasCompleted_ = true;
  task_->setTaskCompleted(success);
  return true;
}

bool BackgroundRefreshCompletion::hasCompleted() const {
  std::lock_guard guard(lock_);
  return hasCompleted_;
}

BackgroundRefresh::BackgroundRefresh(Dependencies dependencies) : deps_(std::move(dependencies)) {}

bool BackgroundRefresh::isSendingNotifications() const {
  return deps_.sharedDefaults.boolValue(kSettingKey).value_or(true);
}

bool BackgroundRefresh::launch() {
  if (deps_.backup) deps_.backup();
  deps_.scheduler.registerForTask(identifier(),
                                  [this](std::shared_ptr<BackgroundTask> task) { handleLaunch(std::move(task)); });
  return true;
}

void BackgroundRefresh::scheduleRefresh(int minutes) {
  // Whether or not anything follows, so that at most one request stands.
  deps_.scheduler.cancel(identifier());
  if (!isSendingNotifications()) return;
  BackgroundTaskRequest request{identifier(), deps_.clock.now() + minutes * deps_.minute};
  try {
    deps_.scheduler.submit(request);
  } catch (const std::exception& error) {
    logf("scheduleRefresh(in:) {}", error.what());
  }
}

void BackgroundRefresh::handleLaunch(std::shared_ptr<BackgroundTask> task) {
  auto completion = std::make_shared<BackgroundRefreshCompletion>(task);
  if (!isSendingNotifications()) {
    deps_.scheduler.cancel(identifier());
    completion->complete(true);
    return;
  }
  SpawnedTask running = SpawnedTask::prepare(deps_.executor);
  // Weak: the task keeps its handler, and the completion keeps the task.
  std::weak_ptr<BackgroundRefreshCompletion> weakCompletion = completion;
  task->setExpirationHandler([running, weakCompletion] {
    if (auto owner = weakCompletion.lock()) owner->cancelled = true;
    running.cancel();
  });
  running.start(pass(completion), [this, completion](std::exception_ptr error) {
    // The pass finishes itself; anything that escaped it still ends the task, once.
    if (error && !completion->hasCompleted()) {
      if (!isCancellation(error)) logf("Background refresh failed: {}", describe(error));
      finish(true, *completion, false);
    }
  });
}

Task<void> BackgroundRefresh::pass(std::shared_ptr<BackgroundRefreshCompletion> completion) {
  auto isCancelled = [completion] { return completion->cancelled.load(); };
  std::optional<RefreshedPlace> place;
  try {
    place = co_await deps_.work.fetch();
  } catch (...) {
    const auto error = std::current_exception();
    if (!isCancellation(error)) logf("Background refresh fetch failed: {}", describe(error));
  }
  if (!place || isCancelled()) {
    finish(true, *completion, false);
    co_return;
  }
  bool cancelled = false;
  if (isSendingNotifications()) {
    try {
      deps_.work.evaluatePrecipitation(*place, isCancelled);
      if (isCancelled()) throw CancellationError();
      deps_.work.notifyWeatherAlerts(*place);
    } catch (...) {
      const auto error = std::current_exception();
      cancelled = isCancellation(error);
      // Any other failure ends the notification step only.
      if (!cancelled) logf("Background refresh notifications failed: {}", describe(error));
    }
  }
  if (cancelled || isCancelled()) {
    finish(true, *completion, false);
    co_return;
  }
  CachedWeather cached{place->name, place->location, place->region, std::move(place->weather)};
  bool stored = true;
  try {
    co_await deps_.work.storeLatest(std::move(cached));
  } catch (...) {
    const auto error = std::current_exception();
    if (!isCancellation(error)) logf("Background refresh could not store the weather: {}", describe(error));
    stored = !isCancellation(error);
  }
  finish(true, *completion, stored);
}

void BackgroundRefresh::finish(bool reschedule, BackgroundRefreshCompletion& completion, bool success) {
  if (!isSendingNotifications() || !reschedule) {
    deps_.scheduler.cancel(identifier());
  } else {
    scheduleRefresh(kRefreshDelayMinutes);
  }
  const bool result = success && !completion.cancelled.load();
  completion.complete(result);
}

}  // namespace ombrine
