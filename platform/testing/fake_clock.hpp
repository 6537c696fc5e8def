#pragma once
// A Clock for tests: time stands still until the test moves it.
//
// `now()` and `uptime()` change only through `advance` (both move) and `setNow` (wall time
// only, like a user changing the system time: continuous time and sleepers are unaffected).
// `sleep(d)` registers a sleeper due at uptime() + d; `advance` wakes every sleeper whose due
// time has been reached, in due-time order (equal times in registration order), each resumed
// on its own executor, so sleepers on one serial executor run in that order. A sleeper
// registered after `advance` returned counts from the new time. A zero or negative sleep only
// yields. Cancelling a sleeping task removes its sleeper and raises CancellationError at once.
// Destroying the clock wakes the remaining sleepers with CancellationError, and a sleep that
// starts afterwards (through a task still holding the clock's shared state) is cancelled at once.
//
// Thread-safe: tests call `advance` from their own thread while tasks sleep on a pool.

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <memory>

#include "platform/clock.hpp"

namespace ombrine {

class FakeClock final : public Clock {
 public:
  // 2024-01-01T00:00:00Z; uptime starts at one hour.
  FakeClock();
  explicit FakeClock(WallTime start);
  FakeClock(const FakeClock&) = delete;
  FakeClock& operator=(const FakeClock&) = delete;
  ~FakeClock() override;

  WallTime now() const override;
  Uptime uptime() const override;
  Task<void> sleep(Duration duration) override;

  // Moves both clocks forward and wakes the sleepers that are due. Raises std::invalid_argument
  // for a negative duration.
  void advance(Duration duration);
  void setNow(WallTime now);

  // Sleepers registered and not yet woken or cancelled.
  std::size_t pendingSleepers() const;
  // Blocks the calling (test) thread until at least `count` sleepers are pending, or until
  // `timeout` of real time has passed; returns whether the count was reached.
  bool waitForSleepers(std::size_t count, std::chrono::milliseconds timeout = std::chrono::seconds(10)) const;

  struct State;

 private:
  std::shared_ptr<State> state_;
};

}  // namespace ombrine
