#pragma once
// Runs an asynchronous operation against a deadline on the continuous clock.
//
//   AsyncDeadlineCoordinator<Response> coordinator(clock);
//   auto response = co_await coordinator.run(operation, 30s);
//
// `run` starts two tasks on the caller's executor (made serial when it is not): one awaits
// `operation()`, the other sleeps on `Clock::sleep` until the deadline, measured from the call
// on `Clock::uptime`. Whichever ends first decides: `run` returns the operation's value, or
// raises the operation's error (a cancellation as CancellationError), or raises
// AsyncDeadlineError{exceeded}. Both tasks are then cancelled and the loser's outcome is dropped.
// `run` does not wait for the loser: a deadline holds even for an operation that ignores
// cancellation, so `operation` must own what it uses (capture by value or shared pointer), as
// it may still be unwinding after `run` returned. If the caller is cancelled, both tasks are
// cancelled and `run` raises CancellationError at once.
//
// The caller is resumed exactly once whatever order the outcomes, the deadline and the
// cancellation arrive in (see ResolveOnce). One `run` per coordinator; a second raises
// std::logic_error. The clock must outlive the tasks.

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>

#include "platform/async/coroutines.hpp"
#include "platform/async/resolve_once.hpp"
#include "platform/clock.hpp"
#include "platform/errors.hpp"
#include "platform/thread_annotations.hpp"

namespace ombrine {

class AsyncDeadlineError : public std::runtime_error {
 public:
  enum Case { exceeded };
  explicit AsyncDeadlineError(Case which);
  Case which() const noexcept { return which_; }

 private:
  Case which_;
};

template <class T>
class AsyncDeadlineCoordinator {
 public:
  using Operation = std::function<Task<T>()>;

  explicit AsyncDeadlineCoordinator(Clock& clock) : clock_(clock), state_(std::make_shared<State>()) {}

  Task<T> run(Operation operation, Clock::Duration deadline);

 private:
  struct State {
    Mutex lock;
    ResolveOnce<T> resolution GUARDED_BY(lock);  // continuation, pendingResult, isResolved
    SpawnedTask operationTask GUARDED_BY(lock);
    SpawnedTask deadlineTask GUARDED_BY(lock);
    bool hasRun GUARDED_BY(lock) = false;

    void resolve(Outcome<T> outcome) {
      typename ResolveOnce<T>::Delivery delivery;
      SpawnedTask operation;
      SpawnedTask deadline;
      {
        MutexLock guard(lock);
        if (resolution.isResolved()) return;
        delivery = resolution.resolve(std::move(outcome));
        operation = operationTask;
        deadline = deadlineTask;
      }
      operation.cancel();
      deadline.cancel();
      std::move(delivery)();
    }

    void startTasks(const Executor& executor, Clock& clock, Clock::Uptime due, Operation operation,
                    const std::shared_ptr<State>& self);
  };

  static Task<void> awaitOperation(std::shared_ptr<State> state, Operation operation);
  static Task<void> awaitDeadline(std::shared_ptr<State> state, Clock& clock, Clock::Uptime due);

  Clock& clock_;
  std::shared_ptr<State> state_;
};

template <class T>
Task<T> AsyncDeadlineCoordinator<T>::run(Operation operation, Clock::Duration deadline) {
  auto state = state_;
  {
    MutexLock guard(state->lock);
    if (state->hasRun) throw std::logic_error("AsyncDeadlineCoordinator::run called twice");
    state->hasRun = true;
  }
  auto executor = co_await asio::this_coro::executor;
  Clock* clock = &clock_;
  const auto due = clock->uptime() + deadline;
  std::function<void(Continuation<T>)> install =
      [state, executor, clock, due, operation = std::move(operation)](Continuation<T> continuation) mutable {
        typename ResolveOnce<T>::Delivery early;
        bool resolved = false;
        {
          MutexLock guard(state->lock);
          early = state->resolution.install(std::move(continuation));
          resolved = state->resolution.isResolved();
        }
        std::move(early)();
        if (!resolved) state->startTasks(executor, *clock, due, std::move(operation), state);
      };
  std::function<void()> onCancel = [state] {
    state->resolve(Outcome<T>::failure(std::make_exception_ptr(CancellationError())));
  };
  co_return co_await suspend<T>(std::move(install), std::move(onCancel));
}

template <class T>
void AsyncDeadlineCoordinator<T>::State::startTasks(const Executor& executor, Clock& clock, Clock::Uptime due,
                                                    Operation operation, const std::shared_ptr<State>& self) {
  auto operationSide = SpawnedTask::prepare(executor);
  auto deadlineSide = SpawnedTask::prepare(executor);
  bool resolved = false;
  {
    MutexLock guard(lock);
    resolved = resolution.isResolved();
    operationTask = operationSide;
    deadlineTask = deadlineSide;
  }
  // Resolved while they were being made (the caller was cancelled): they start cancelled.
  if (resolved) {
    operationSide.cancel();
    deadlineSide.cancel();
  }
  auto ignore = [](std::exception_ptr) {};
  operationSide.start(awaitOperation(self, std::move(operation)), ignore);
  deadlineSide.start(awaitDeadline(self, clock, due), ignore);
}

template <class T>
Task<void> AsyncDeadlineCoordinator<T>::awaitOperation(std::shared_ptr<State> state, Operation operation) {
  std::optional<Outcome<T>> outcome;
  try {
    if constexpr (std::is_void_v<T>) {
      co_await operation();
      outcome = Outcome<T>::success();
    } else {
      auto value = co_await operation();
      outcome = Outcome<T>::success(std::move(value));
    }
  } catch (...) {
    outcome = Outcome<T>::failure(asCancellationError(std::current_exception()));
  }
  state->resolve(std::move(*outcome));
}

template <class T>
Task<void> AsyncDeadlineCoordinator<T>::awaitDeadline(std::shared_ptr<State> state, Clock& clock, Clock::Uptime due) {
  std::exception_ptr error;
  try {
    co_await clock.sleep(due - clock.uptime());
  } catch (...) {
    error = std::current_exception();
  }
  // Cancelled because the run was resolved: nothing left to say.
  if (isCancellation(error)) co_return;
  if (error) {
    state->resolve(Outcome<T>::failure(error));
    co_return;
  }
  state->resolve(Outcome<T>::failure(std::make_exception_ptr(AsyncDeadlineError(AsyncDeadlineError::exceeded))));
}

// run() on a fresh coordinator.
template <class T>
Task<T> withDeadline(Clock& clock, Clock::Duration deadline,
                     typename AsyncDeadlineCoordinator<T>::Operation operation) {
  AsyncDeadlineCoordinator<T> coordinator(clock);
  co_return co_await coordinator.run(std::move(operation), deadline);
}

}  // namespace ombrine
