#pragma once
// The real clock: system_clock for wall time, steady_clock for continuous time, Asio timers for
// sleeping. Stateless and thread-safe; one instance can serve the whole process.

#include "platform/clock.hpp"

namespace ombrine {

class SystemClock final : public Clock {
 public:
  WallTime now() const override;
  Uptime uptime() const override;
  Task<void> sleep(Duration duration) override;
};

}  // namespace ombrine
