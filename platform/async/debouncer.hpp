#pragma once
// A value written often (`item`) and the same value once writing has paused (`debounced`).
//
// Every `setItem` restarts a quiet interval on the continuous clock; when `interval` passes with
// no further write, `debounced` takes the latest item, on the main executor, and its observers
// are notified there. A burst of writes therefore yields one debounced value: the last. Writes
// are notified to `item` observers at once, on the writing thread, after the value is stored.
// `debounced` starts equal to the initial item.
//
// `setItem` and the getters are thread-safe. Construct and destroy the debouncer on the main
// executor (a strand standing for the main context): a settle in progress there then never
// overlaps destruction, and a pending one is cancelled by it. The clock must outlive the
// debouncer's pending settle. A failing `debounced` observer is logged; it stops the
// notification of the observers after it for that value.

#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include "platform/async/coroutines.hpp"
#include "platform/async/observer_list.hpp"
#include "platform/clock.hpp"
#include "platform/thread_annotations.hpp"

namespace ombrine {

namespace detail {
// Logs the failure of a debounced notification ("Debouncer observer failed: ...").
void logDebounceFailure(std::exception_ptr error) noexcept;
}  // namespace detail

template <class T>
class Debouncer {
 public:
  using Observer = std::function<void(const T&)>;

  Debouncer(T initial, Clock::Duration interval, Clock& clock, Executor mainExecutor)
      : clock_(clock),
        interval_(interval),
        main_(serialExecutor(mainExecutor)),
        state_(std::make_shared<State>(initial)) {}
  Debouncer(const Debouncer&) = delete;
  Debouncer& operator=(const Debouncer&) = delete;

  ~Debouncer() {
    SpawnedTask pending;
    {
      MutexLock guard(state_->lock);
      pending = std::exchange(state_->pending, SpawnedTask());
      ++state_->generation;
    }
    pending.cancel();
  }

  T item() const {
    MutexLock guard(state_->lock);
    return state_->item;
  }

  T debounced() const {
    MutexLock guard(state_->lock);
    return state_->debounced;
  }

  void setItem(T value) {
    auto settleTask = SpawnedTask::prepare(main_);
    SpawnedTask previous;
    std::uint64_t generation = 0;
    {
      MutexLock guard(state_->lock);
      state_->item = value;
      generation = ++state_->generation;
      previous = std::exchange(state_->pending, settleTask);
    }
    previous.cancel();
    const auto due = clock_.uptime() + interval_;
    auto onSettled = [](std::exception_ptr error) {
      if (error && !isCancellation(error)) detail::logDebounceFailure(error);
    };
    settleTask.start(settle(state_, clock_, due, generation), onSettled);
    state_->itemObservers.notify(value);
  }

  [[nodiscard]] Subscription observeItem(Observer observer) { return state_->itemObservers.add(std::move(observer)); }
  [[nodiscard]] Subscription observeDebounced(Observer observer) {
    return state_->debouncedObservers.add(std::move(observer));
  }

 private:
  struct State {
    explicit State(const T& initial) : item(initial), debounced(initial) {}

    mutable Mutex lock;
    T item GUARDED_BY(lock);
    T debounced GUARDED_BY(lock);
    // Moves with every write; a settle for an older write does nothing.
    std::uint64_t generation GUARDED_BY(lock) = 0;
    SpawnedTask pending GUARDED_BY(lock);
    ObserverList<Observer> itemObservers;
    ObserverList<Observer> debouncedObservers;
  };

  static Task<void> settle(std::weak_ptr<State> weak, Clock& clock, Clock::Uptime due, std::uint64_t generation) {
    co_await clock.sleep(due - clock.uptime());
    auto state = weak.lock();
    if (!state) co_return;
    std::optional<T> value;
    {
      MutexLock guard(state->lock);
      if (state->generation == generation) {
        state->debounced = state->item;
        state->pending = SpawnedTask();
        value = state->debounced;
      }
    }
    if (!value) co_return;
    state->debouncedObservers.notify(*value);
  }

  Clock& clock_;
  const Clock::Duration interval_;
  const Executor main_;
  std::shared_ptr<State> state_;
};

}  // namespace ombrine
