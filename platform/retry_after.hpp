#pragma once
// The "Retry-After" header of an HTTP answer: how long the server asks a client to wait before
// it asks again. Pure functions; thread-safe.

#include <chrono>
#include <optional>
#include <string_view>

#include "platform/http_client.hpp"

namespace ombrine {

using RetryDelay = std::chrono::duration<double>;

// The wait a "Retry-After" value asks for, counted from `now`: a finite number of seconds
// (integer or decimal; a negative one counts as 0), or an HTTP date in any of its three forms
// (the time until it; 0 when it is past). Whitespace around the value is ignored. Nothing for an
// empty or unreadable value.
std::optional<RetryDelay> retryAfterDelay(std::string_view value, std::chrono::system_clock::time_point now);

// The same for the first "Retry-After" header of `response`; nothing without one.
std::optional<RetryDelay> retryAfterDelay(const HttpResponse& response, std::chrono::system_clock::time_point now);

}  // namespace ombrine
