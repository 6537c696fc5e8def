#pragma once
// Joins a callback-style request (start it, get called back, maybe cancel it) with a coroutine.
//
//   CancellableCallbackCoordinator<Placemark> coordinator;
//   auto start = [&geocoder, point](auto completion) { geocoder.lookUp(point, completion); };
//   auto cancel = [&geocoder] { geocoder.cancelLookUp(); };
//   auto placemark = co_await coordinator.run(start, cancel);
//
// `run` calls `start` once with a Completion and returns what the completion delivers: a value,
// or an exception (Asio's operation_aborted becomes CancellationError). The completion may be
// called from any thread, synchronously inside `start`, late, or more than once: only the first
// call counts, and a call after the coordinator is gone does nothing (it holds it weakly).
//
// Cancellation, by the caller's task being cancelled or by `cancel()` from any thread: `run`
// raises CancellationError at once without waiting for the completion, and `cancel` (the
// request's own cancel operation) is called exactly once if `start` was called, and always after
// `start` has returned, whichever order the two take. Cancelled before the work started, `run`
// does not call `start` at all.
//
// No user code (`start`, `cancel`, the caller's continuation) runs under the coordinator's lock.
// `run` resumes its caller on the caller's executor. One `run` per coordinator; a second raises
// std::logic_error.

#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <type_traits>
#include <variant>

#include "platform/async/coroutines.hpp"
#include "platform/async/resolve_once.hpp"
#include "platform/errors.hpp"
#include "platform/thread_annotations.hpp"

namespace ombrine {

namespace detail {

// The part of the coordinator's state that does not depend on the result type: the lock and the
// flags that make the cancel request run exactly once. `...Locked` members are called under
// `lock`; the cancel request they return is called after it is released.
class CallbackCoordinatorCore {
 public:
  Mutex lock;

  void setCancelRequestLocked(std::function<void()> cancelRequest) REQUIRES(lock);
  bool cancellationRequestedLocked() const noexcept REQUIRES(lock) { return cancellationRequested_; }
  // The first request of cancellation; false for later ones. `toCall` receives the cancel
  // request when the work has started.
  bool requestCancellationLocked(std::function<void()>& toCall) REQUIRES(lock);
  // After `start` returned: `toCall` receives the cancel request when a cancellation came first.
  void markStartedLocked(std::function<void()>& toCall) REQUIRES(lock);

  // Calls a cancel request taken out above; a failure of it is logged, not raised.
  static void callCancelRequest(const std::function<void()>& cancelRequest) noexcept;

 private:
  std::function<void()> cancelRequest_ GUARDED_BY(lock);
  bool hasStarted_ GUARDED_BY(lock) = false;
  bool cancellationRequested_ GUARDED_BY(lock) = false;
  bool didCancelRequest_ GUARDED_BY(lock) = false;
};

}  // namespace detail

template <class T>
class CancellableCallbackCoordinator {
  struct State;

 public:
  // Delivers the request's outcome. Cheap to copy; thread-safe.
  class Completion {
   public:
    using Value = std::conditional_t<std::is_void_v<T>, std::monostate, T>;

    void operator()(Value value) const requires(!std::is_void_v<T>) { deliver(Outcome<T>::success(std::move(value))); }
    void operator()() const requires(std::is_void_v<T>) { deliver(Outcome<T>::success()); }
    // Precondition: `error` is not null.
    void operator()(std::exception_ptr error) const {
      if (!error) error = std::make_exception_ptr(std::invalid_argument("completion without error"));
      deliver(Outcome<T>::failure(asCancellationError(error)));
    }

   private:
    friend class CancellableCallbackCoordinator;
    explicit Completion(std::weak_ptr<State> state) : state_(std::move(state)) {}
    void deliver(Outcome<T> outcome) const {
      if (auto state = state_.lock()) state->resolve(std::move(outcome));
    }
    std::weak_ptr<State> state_;
  };

  using Start = std::function<void(Completion)>;
  using Cancel = std::function<void()>;

  CancellableCallbackCoordinator() : state_(std::make_shared<State>()) {}

  Task<T> run(Start start, Cancel cancel);

  // Cancels the run from any thread, before or during it; later calls do nothing.
  void cancel() { state_->cancel(); }

 private:
  struct State : detail::CallbackCoordinatorCore {
    ResolveOnce<T> resolution GUARDED_BY(lock);  // continuation, pendingResult, isResolved
    bool hasRun GUARDED_BY(lock) = false;

    void resolve(Outcome<T> outcome) {
      typename ResolveOnce<T>::Delivery delivery;
      {
        MutexLock guard(lock);
        delivery = resolution.resolve(std::move(outcome));
      }
      std::move(delivery)();
    }

    void cancel() {
      std::function<void()> cancelRequest;
      typename ResolveOnce<T>::Delivery delivery;
      {
        MutexLock guard(lock);
        if (!requestCancellationLocked(cancelRequest)) return;
        delivery = resolution.resolve(Outcome<T>::failure(std::make_exception_ptr(CancellationError())));
      }
      callCancelRequest(cancelRequest);
      std::move(delivery)();
    }

    // Steps 1 and 2 of a run, with the caller's continuation.
    void begin(Continuation<T> continuation, const Start& start, const std::shared_ptr<State>& self) {
      typename ResolveOnce<T>::Delivery early;
      bool startWork = false;
      {
        MutexLock guard(lock);
        early = resolution.install(std::move(continuation));
        startWork = !resolution.isResolved() && !cancellationRequestedLocked();
      }
      std::move(early)();
      if (!startWork) return;
      Completion completion{std::weak_ptr<State>(self)};
      try {
        start(completion);
      } catch (...) {
        resolve(Outcome<T>::failure(asCancellationError(std::current_exception())));
        return;
      }
      std::function<void()> cancelRequest;
      {
        MutexLock guard(lock);
        markStartedLocked(cancelRequest);
      }
      callCancelRequest(cancelRequest);
    }
  };

  std::shared_ptr<State> state_;
};

template <class T>
Task<T> CancellableCallbackCoordinator<T>::run(Start start, Cancel cancel) {
  auto state = state_;
  {
    MutexLock guard(state->lock);
    if (state->hasRun) throw std::logic_error("CancellableCallbackCoordinator::run called twice");
    state->hasRun = true;
    state->setCancelRequestLocked(std::move(cancel));
  }
  std::function<void(Continuation<T>)> install = [state, start = std::move(start)](Continuation<T> c) {
    state->begin(std::move(c), start, state);
  };
  std::function<void()> onCancel = [state] { state->cancel(); };
  co_return co_await suspend<T>(std::move(install), std::move(onCancel));
}

}  // namespace ombrine
