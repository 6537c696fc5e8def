#pragma once
// The exactly-once hand-over of an outcome to a suspended caller, shared by
// AsyncDeadlineCoordinator and CancellableCallbackCoordinator.
//
// `resolve` and `install` may come in either order, from any threads: the first `resolve` wins
// and later ones are dropped; an outcome that arrives before the continuation is installed is
// kept and delivered when it is installed. Either way the caller is resumed exactly once.
//
// Not synchronised by itself: every member is called under the owning coordinator's lock, and
// the returned Delivery is run after that lock is released, so that no continuation (and no
// user code it leads to) ever runs under the lock.

#include <optional>
#include <utility>

#include "platform/async/coroutines.hpp"

namespace ombrine {

template <class T>
class ResolveOnce {
 public:
  // A resumption taken out under the lock, to run after it. Empty when there is nothing to do.
  class Delivery {
   public:
    Delivery() = default;
    void operator()() && {
      if (continuation_) continuation_.resume(std::move(*outcome_));
    }

   private:
    friend class ResolveOnce;
    Delivery(Continuation<T> continuation, Outcome<T> outcome)
        : continuation_(std::move(continuation)), outcome_(std::move(outcome)) {}
    Continuation<T> continuation_;
    std::optional<Outcome<T>> outcome_;
  };

  bool isResolved() const noexcept { return isResolved_; }

  // The first call resolves: it takes the installed continuation out, or keeps `outcome` as
  // the pending result. Later calls do nothing.
  [[nodiscard]] Delivery resolve(Outcome<T> outcome) {
    if (isResolved_) return {};
    isResolved_ = true;
    if (!continuation_) {
      pendingResult_.emplace(std::move(outcome));
      return {};
    }
    return Delivery(std::exchange(continuation_, Continuation<T>()), std::move(outcome));
  }

  // Installs the caller's continuation; a pending result is delivered at once and cleared.
  // Precondition: called once.
  [[nodiscard]] Delivery install(Continuation<T> continuation) {
    if (pendingResult_) {
      auto outcome = std::move(*pendingResult_);
      pendingResult_.reset();
      return Delivery(std::move(continuation), std::move(outcome));
    }
    continuation_ = std::move(continuation);
    return {};
  }

 private:
  Continuation<T> continuation_;
  std::optional<Outcome<T>> pendingResult_;
  bool isResolved_ = false;
};

}  // namespace ombrine
