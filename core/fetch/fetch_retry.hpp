#pragma once
// Whether a failed forecast fetch is worth one more attempt, and after how long.

#include <chrono>
#include <exception>
#include <optional>

#include "platform/retry_after.hpp"

namespace ombrine {

// The longest wait a caller without a time limit of its own keeps before its one more attempt.
inline constexpr std::chrono::seconds kLongestRetryWait{30};

// The wait before one more attempt (a forced fetch) after a fetch failed with `failure`, or
// nothing when no attempt should follow. Only a service that answered with a status other than
// 200 and 429 and named a wait ("Retry-After", a ProviderStatusError) is asked again, and only
// when the wait leaves time for the attempt: shorter than `timeLeft` (what remains of the
// caller's own limit), or at most kLongestRetryWait when the caller has none. Never after HTTP
// 429 (the API limit keeps the provider unasked for the minimum interval), a transport failure,
// an answer that could not be decoded, or a cancellation. Pure; thread-safe.
std::optional<RetryDelay> retryWaitAfter(const std::exception_ptr& failure,
                                         std::optional<RetryDelay> timeLeft) noexcept;

}  // namespace ombrine
