#include "platform/testing/fake_clock.hpp"

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

#include "platform/async/coroutines.hpp"
#include "platform/errors.hpp"

namespace ombrine {

namespace {

using namespace std::chrono_literals;

// Due time first, then registration order.
using SleeperKey = std::pair<Clock::Uptime, std::uint64_t>;

struct SleepRequest {
  bool cancelled = false;
  std::optional<SleeperKey> key;
};

Outcome<void> cancelled() { return Outcome<void>::failure(std::make_exception_ptr(CancellationError())); }

// 2024-01-01T00:00:00Z.
constexpr auto kDefaultStart = std::chrono::sys_seconds(std::chrono::seconds(1704067200));

}  // namespace

struct FakeClock::State {
  mutable std::mutex lock;
  mutable std::condition_variable sleepersChanged;
  WallTime now;
  Uptime uptime = Uptime(1h);
  std::uint64_t nextSleeper = 0;
  std::map<SleeperKey, Continuation<void>> sleepers;
  // Set by the clock's destruction: nothing would ever wake a sleeper registered afterwards (a
  // task that reaches its sleep late, while the test tears down), so such a sleep is cancelled
  // at once instead of leaking the task.
  bool closed = false;
};

FakeClock::FakeClock() : FakeClock(WallTime(kDefaultStart)) {}

FakeClock::FakeClock(WallTime start) : state_(std::make_shared<State>()) { state_->now = start; }

FakeClock::~FakeClock() {
  std::map<SleeperKey, Continuation<void>> remaining;
  {
    std::lock_guard guard(state_->lock);
    state_->closed = true;
    remaining.swap(state_->sleepers);
  }
  for (auto& [key, continuation] : remaining) continuation.resume(cancelled());
}

Clock::WallTime FakeClock::now() const {
  std::lock_guard guard(state_->lock);
  return state_->now;
}

Clock::Uptime FakeClock::uptime() const {
  std::lock_guard guard(state_->lock);
  return state_->uptime;
}

Task<void> FakeClock::sleep(Duration duration) {
  if (duration <= Duration::zero()) {
    auto cancelledFirst = std::make_shared<std::atomic<bool>>(false);
    std::function<void(Continuation<void>)> install = [cancelledFirst](Continuation<void> continuation) {
      continuation.resume(cancelledFirst->load() ? cancelled() : Outcome<void>::success());
    };
    std::function<void()> onCancel = [cancelledFirst] { cancelledFirst->store(true); };
    co_await suspend<void>(std::move(install), std::move(onCancel));
    co_return;
  }
  auto state = state_;
  auto request = std::make_shared<SleepRequest>();
  std::function<void(Continuation<void>)> install = [state, request, duration](Continuation<void> continuation) {
    {
      std::lock_guard guard(state->lock);
      if (!request->cancelled && !state->closed) {
        SleeperKey key{state->uptime + duration, state->nextSleeper++};
        request->key = key;
        state->sleepers.emplace(key, std::move(continuation));
      }
    }
    state->sleepersChanged.notify_all();
    if (continuation) continuation.resume(cancelled());
  };
  std::function<void()> onCancel = [state, request] {
    Continuation<void> continuation;
    {
      std::lock_guard guard(state->lock);
      request->cancelled = true;
      if (request->key) {
        auto found = state->sleepers.find(*request->key);
        if (found != state->sleepers.end()) {
          continuation = std::move(found->second);
          state->sleepers.erase(found);
        }
      }
    }
    if (continuation) continuation.resume(cancelled());
  };
  co_await suspend<void>(std::move(install), std::move(onCancel));
}

void FakeClock::advance(Duration duration) {
  if (duration < Duration::zero()) throw std::invalid_argument("FakeClock::advance: negative");
  std::vector<Continuation<void>> due;
  {
    std::lock_guard guard(state_->lock);
    state_->uptime += duration;
    state_->now += std::chrono::duration_cast<WallTime::duration>(duration);
    auto& sleepers = state_->sleepers;
    while (!sleepers.empty() && sleepers.begin()->first.first <= state_->uptime) {
      due.push_back(std::move(sleepers.begin()->second));
      sleepers.erase(sleepers.begin());
    }
  }
  for (auto& continuation : due) continuation.resume(Outcome<void>::success());
}

void FakeClock::setNow(WallTime now) {
  std::lock_guard guard(state_->lock);
  state_->now = now;
}

std::size_t FakeClock::pendingSleepers() const {
  std::lock_guard guard(state_->lock);
  return state_->sleepers.size();
}

bool FakeClock::waitForSleepers(std::size_t count, std::chrono::milliseconds timeout) const {
  std::unique_lock guard(state_->lock);
  return state_->sleepersChanged.wait_for(guard, timeout, [&] { return state_->sleepers.size() >= count; });
}

}  // namespace ombrine
