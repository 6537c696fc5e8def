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
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include "platform/clock.hpp"
#include "platform/coroutines.hpp"

namespace ombrine {

// Keeps an observer registered while it lives. Move-only; destroying or resetting it removes
// the observer (a notification already in flight on another thread may still arrive).
class Observation {
 public:
  Observation() = default;
  explicit Observation(std::function<void()> end) : end_(std::move(end)) {}
  Observation(Observation&& other) noexcept : end_(std::exchange(other.end_, nullptr)) {}
  Observation& operator=(Observation&& other) noexcept;
  Observation(const Observation&) = delete;
  Observation& operator=(const Observation&) = delete;
  ~Observation() { reset(); }

  void reset() noexcept;

 private:
  std::function<void()> end_;
};

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
      std::lock_guard guard(state_->lock);
      pending = std::exchange(state_->pending, SpawnedTask());
      ++state_->generation;
    }
    pending.cancel();
  }

  T item() const {
    std::lock_guard guard(state_->lock);
    return state_->item;
  }

  T debounced() const {
    std::lock_guard guard(state_->lock);
    return state_->debounced;
  }

  void setItem(T value) {
    auto settleTask = SpawnedTask::prepare(main_);
    SpawnedTask previous;
    std::vector<Observer> observers;
    std::uint64_t generation = 0;
    {
      std::lock_guard guard(state_->lock);
      state_->item = value;
      generation = ++state_->generation;
      previous = std::exchange(state_->pending, settleTask);
      observers = State::snapshot(state_->itemObservers);
    }
    previous.cancel();
    const auto due = clock_.uptime() + interval_;
    auto onSettled = [](std::exception_ptr error) {
      if (error && !isCancellation(error)) detail::logDebounceFailure(error);
    };
    settleTask.start(settle(state_, clock_, due, generation), onSettled);
    for (auto& observer : observers) observer(value);
  }

  [[nodiscard]] Observation observeItem(Observer observer) {
    return observe(&State::itemObservers, std::move(observer));
  }
  [[nodiscard]] Observation observeDebounced(Observer observer) {
    return observe(&State::debouncedObservers, std::move(observer));
  }

 private:
  using Observers = std::map<std::uint64_t, Observer>;

  struct State {
    explicit State(const T& initial) : item(initial), debounced(initial) {}

    static std::vector<Observer> snapshot(const Observers& observers) {
      std::vector<Observer> copy;
      copy.reserve(observers.size());
      for (const auto& [id, observer] : observers) copy.push_back(observer);
      return copy;
    }

    mutable std::mutex lock;
    T item;
    T debounced;
    // Moves with every write; a settle for an older write does nothing.
    std::uint64_t generation = 0;
    SpawnedTask pending;
    std::uint64_t nextObserver = 0;
    Observers itemObservers;
    Observers debouncedObservers;
  };

  Observation observe(Observers State::*list, Observer observer) {
    std::uint64_t id = 0;
    {
      std::lock_guard guard(state_->lock);
      id = state_->nextObserver++;
      ((*state_).*list).emplace(id, std::move(observer));
    }
    std::weak_ptr<State> weak = state_;
    return Observation([weak, list, id] {
      if (auto state = weak.lock()) {
        std::lock_guard guard(state->lock);
        ((*state).*list).erase(id);
      }
    });
  }

  static Task<void> settle(std::weak_ptr<State> weak, Clock& clock, Clock::Uptime due,
                           std::uint64_t generation) {
    co_await clock.sleep(due - clock.uptime());
    auto state = weak.lock();
    if (!state) co_return;
    std::vector<Observer> observers;
    std::optional<T> value;
    {
      std::lock_guard guard(state->lock);
      if (state->generation == generation) {
        state->debounced = state->item;
        state->pending = SpawnedTask();
        value = state->debounced;
        observers = State::snapshot(state->debouncedObservers);
      }
    }
    if (!value) co_return;
    for (auto& observer : observers) observer(*value);
  }

  Clock& clock_;
  const Clock::Duration interval_;
  const Executor main_;
  std::shared_ptr<State> state_;
};

}  // namespace ombrine
