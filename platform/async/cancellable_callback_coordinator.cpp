#include "platform/async/cancellable_callback_coordinator.hpp"

#include "platform/log.hpp"

namespace ombrine::detail {

void CallbackCoordinatorCore::setCancelRequestLocked(std::function<void()> cancelRequest) {
  cancelRequest_ = std::move(cancelRequest);
}

bool CallbackCoordinatorCore::requestCancellationLocked(std::function<void()>& toCall) {
  if (cancellationRequested_) return false;
  cancellationRequested_ = true;
  // Not started yet: markStartedLocked makes the call once `start` has returned.
  if (hasStarted_ && !didCancelRequest_) {
    didCancelRequest_ = true;
    toCall = cancelRequest_;
  }
  return true;
}

void CallbackCoordinatorCore::markStartedLocked(std::function<void()>& toCall) {
  hasStarted_ = true;
  if (cancellationRequested_ && !didCancelRequest_) {
    didCancelRequest_ = true;
    toCall = cancelRequest_;
  }
}

void CallbackCoordinatorCore::callCancelRequest(const std::function<void()>& cancelRequest) noexcept {
  if (!cancelRequest) return;
  try {
    cancelRequest();
  } catch (const std::exception& e) {
    logf("Cancelling a request failed: {}", e.what());
  } catch (...) {
    logf("Cancelling a request failed");
  }
}

}  // namespace ombrine::detail
