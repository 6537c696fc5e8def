#include "platform/retry_after.hpp"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>

#include "platform/http_freshness.hpp"

namespace ombrine {

namespace {

std::string_view trimmed(std::string_view text) {
  auto space = [](char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; };
  while (!text.empty() && space(text.front())) text.remove_prefix(1);
  while (!text.empty() && space(text.back())) text.remove_suffix(1);
  return text;
}

}  // namespace

std::optional<RetryDelay> retryAfterDelay(std::string_view value, std::chrono::system_clock::time_point now) {
  const std::string_view text = trimmed(value);
  if (text.empty()) return std::nullopt;
  double seconds = 0.0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, seconds);
  if (error == std::errc() && stop == end) {
    if (!std::isfinite(seconds)) return std::nullopt;
    return RetryDelay(std::max(seconds, 0.0));
  }
  const auto date = parseHttpDate(text);
  if (!date) return std::nullopt;
  const double nowSeconds = std::chrono::duration<double>(now.time_since_epoch()).count();
  return RetryDelay(std::max(*date - nowSeconds, 0.0));
}

std::optional<RetryDelay> retryAfterDelay(const HttpResponse& response, std::chrono::system_clock::time_point now) {
  const auto header = response.header("Retry-After");
  if (!header) return std::nullopt;
  return retryAfterDelay(*header, now);
}

}  // namespace ombrine
