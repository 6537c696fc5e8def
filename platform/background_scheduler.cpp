#include "platform/background_scheduler.hpp"

namespace ombrine {

void BackgroundTask::setExpirationHandler(std::function<void()> handler) {
  MutexLock lock(mutex_);
  if (!expired_) {
    expirationHandler_ = std::move(handler);
    return;
  }
  lock.unlock();
  if (handler) handler();
}

void BackgroundTask::setTaskCompleted(bool success) {
  std::function<void()> dropped;
  {
    MutexLock lock(mutex_);
    ++completionCount_;
    if (result_) return;
    result_ = success;
    // Nothing is left to expire; the handler's captures go now, outside the lock.
    dropped = std::move(expirationHandler_);
  }
  completed_.notify_all();
}

void BackgroundTask::expire() {
  std::function<void()> handler;
  {
    MutexLock lock(mutex_);
    if (expired_) return;
    expired_ = true;
    handler = std::move(expirationHandler_);
  }
  if (handler) handler();
}

std::optional<bool> BackgroundTask::waitForCompletion(std::chrono::steady_clock::duration timeout) {
  MutexLock lock(mutex_);
  lock.waitFor(completed_, timeout, [&]() REQUIRES(mutex_) { return result_.has_value(); });
  return result_;
}

std::optional<bool> BackgroundTask::result() const {
  MutexLock lock(mutex_);
  return result_;
}

int BackgroundTask::completionCount() const {
  MutexLock lock(mutex_);
  return completionCount_;
}

bool BackgroundTask::expired() const {
  MutexLock lock(mutex_);
  return expired_;
}

}  // namespace ombrine
