#pragma once
// A clock whose wall time stands still at a chosen instant, for reproducible simulator answers
// (`ombrine-sim --now`, recorded test data). Continuous time and sleeping are real, so latency
// and time-outs still behave. Thread-safe.

#include "platform/linux/system_clock.hpp"

namespace ombrine::sim {

class PinnedClock final : public Clock {
 public:
  explicit PinnedClock(WallTime now) : now_(now) {}

  WallTime now() const override { return now_; }
  Uptime uptime() const override { return real_.uptime(); }
  Task<void> sleep(Duration duration) override { return real_.sleep(duration); }

 private:
  WallTime now_;
  SystemClock real_;
};

}  // namespace ombrine::sim
