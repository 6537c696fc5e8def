#pragma once
// Spaces the starts of tile requests at least `interval` apart, so that a burst (a cold
// 13-frame loop asks for about a hundred tiles) stays below the tile network's rate limit.
//
// Thread-safe: the next free slot is taken under a lock, which is released before sleeping.

#include <chrono>
#include <mutex>

#include "platform/async/task.hpp"
#include "platform/clock.hpp"

namespace ombrine {

class TileRequestPacer {
 public:
  // Ten requests a second: what the public tile networks tolerate from one client.
  static constexpr std::chrono::milliseconds kDefaultInterval{100};

  // `clock` must outlive the pacer.
  explicit TileRequestPacer(Clock& clock, Clock::Duration interval = kDefaultInterval)
      : clock_(clock), interval_(interval) {}

  // Resumes (on the caller's executor) when the caller's slot has come. Raises
  // CancellationError when the caller is cancelled while waiting.
  Task<void> wait();

 private:
  Clock& clock_;
  const Clock::Duration interval_;
  std::mutex lock_;
  Clock::Uptime next_{};
};

}  // namespace ombrine
