#include "core/fetch/fetch_retry.hpp"

#include "core/values/errors.hpp"

namespace ombrine {

std::optional<RetryDelay> retryWaitAfter(const std::exception_ptr& failure,
                                         std::optional<RetryDelay> timeLeft) noexcept {
  if (!failure || isCancellation(failure)) return std::nullopt;
  std::optional<RetryDelay> wait;
  try {
    std::rethrow_exception(failure);
  } catch (const ProviderStatusError& error) {
    wait = error.retryAfter();
  } catch (...) {
    return std::nullopt;
  }
  if (!wait) return std::nullopt;
  if (timeLeft ? *wait >= *timeLeft : *wait > kLongestRetryWait) return std::nullopt;
  return wait;
}

}  // namespace ombrine
