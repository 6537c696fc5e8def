#pragma once
// One-shot background wake-ups: the program submits a request to be woken no earlier than a
// date, under an identifier; at most one request stands per identifier. When the request is
// due, the scheduler launches the handler registered for the identifier with a task; the handler
// must report the task's completion exactly once, and the scheduler may signal expiry (the pass
// ran out of time) through the task's expiration handler, from another thread.
//
// The Linux implementation (platform/linux/file_background_scheduler.hpp) keeps the standing
// request in a file of the container, honoured by `ombrine daemon` and a systemd user timer.
//
// Context: every member may be called from any thread and from several processes at once.

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>

#include "platform/thread_annotations.hpp"

namespace ombrine {

struct BackgroundTaskRequest {
  std::string identifier;
  // Nothing: as soon as the scheduler likes.
  std::optional<std::chrono::system_clock::time_point> earliestBeginDate;
  bool operator==(const BackgroundTaskRequest&) const = default;
};

// Raised by `submit` when the request cannot be kept.
class BackgroundSchedulerError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// One launch of a registered handler. Shared by the scheduler (which waits for its completion
// and may expire it) and the handler (which completes it). Thread-safe.
class BackgroundTask {
 public:
  explicit BackgroundTask(std::string identifier) : identifier_(std::move(identifier)) {}

  const std::string& identifier() const noexcept { return identifier_; }

  // The handler the scheduler calls when the task runs out of time. Replaces an earlier one;
  // when the task has already expired it is called at once.
  void setExpirationHandler(std::function<void()> handler);
  // Reports the end of the pass. The system expects exactly one call; every call is counted
  // (`completionCount`), and only the first one's result is kept.
  void setTaskCompleted(bool success);

  // -- the scheduler's side --
  // Calls the expiration handler (once, on the calling thread, outside the task's lock).
  void expire();
  // Waits up to `timeout` for the completion; its result, or nothing.
  std::optional<bool> waitForCompletion(std::chrono::steady_clock::duration timeout);
  std::optional<bool> result() const;
  int completionCount() const;
  bool expired() const;

 private:
  std::string identifier_;
  mutable Mutex mutex_;
  std::condition_variable completed_;
  std::function<void()> expirationHandler_ GUARDED_BY(mutex_);
  bool expired_ GUARDED_BY(mutex_) = false;
  std::optional<bool> result_ GUARDED_BY(mutex_);
  int completionCount_ GUARDED_BY(mutex_) = 0;
};

class BackgroundScheduler {
 public:
  using LaunchHandler = std::function<void(std::shared_ptr<BackgroundTask>)>;

  virtual ~BackgroundScheduler() = default;

  // The handler launched for due requests of `identifier`, in this process. It must return
  // promptly and run the pass elsewhere. False when the identifier already has one.
  virtual bool registerForTask(const std::string& identifier, LaunchHandler handler) = 0;
  // Makes `request` the standing request of its identifier, replacing an earlier one. Durable
  // when it returns. Raises BackgroundSchedulerError.
  virtual void submit(const BackgroundTaskRequest& request) = 0;
  // Withdraws the standing request of `identifier`, if any. Never raises (a failure is logged).
  virtual void cancel(const std::string& identifier) = 0;
  // The standing request of `identifier`, or nothing.
  virtual std::optional<BackgroundTaskRequest> pendingRequest(const std::string& identifier) = 0;
};

}  // namespace ombrine
