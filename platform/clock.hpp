#pragma once
// Time as the program sees it. No code reads std::chrono clocks directly: it asks a Clock, so
// tests can drive time with FakeClock (platform/testing/fake_clock.hpp).

#include <chrono>

#include "platform/async/task.hpp"

namespace ombrine {

class Clock {
 public:
  using WallTime = std::chrono::system_clock::time_point;
  using Uptime = std::chrono::steady_clock::time_point;
  using Duration = std::chrono::steady_clock::duration;

  virtual ~Clock() = default;

  // Wall-clock time (may jump).
  virtual WallTime now() const = 0;
  // Continuous time for deadlines, intervals and debouncing (never jumps back).
  virtual Uptime uptime() const = 0;
  // Suspends the calling coroutine until `duration` of continuous time has passed; resumes on
  // the caller's executor. A zero or negative duration still yields once. Raises
  // CancellationError when the awaiting task is cancelled (promptly, not at the deadline).
  virtual Task<void> sleep(Duration duration) = 0;
};

}  // namespace ombrine
