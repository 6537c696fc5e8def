#pragma once
// The failures of the forecast pipeline and its providers.

#include <optional>
#include <stdexcept>
#include <string>

#include "platform/errors.hpp"
#include "platform/retry_after.hpp"

namespace ombrine {

// A provider's answer could not be used. HTTP 429 is always `exceededApiLimit`; it keeps the
// wait the service asked for ("Retry-After"), when it named one.
class NetworkError : public std::runtime_error {
 public:
  enum Case { exceededApiLimit, invalidURL, invalidResponse };
  explicit NetworkError(Case which, std::optional<RetryDelay> retryAfter = std::nullopt);
  Case which() const noexcept { return which_; }
  std::optional<RetryDelay> retryAfter() const noexcept { return retryAfter_; }

 private:
  Case which_;
  std::optional<RetryDelay> retryAfter_;
};

// Bytes that do not form the expected record: bad JSON, a missing required key, a value of the
// wrong type. `what()` names where in the document the problem is and what it is.
class DecodingError : public std::runtime_error {
  using runtime_error::runtime_error;
};

// The domain and code of a provider request that failed for any reason other than those above.
inline constexpr const char* kRequestErrorDomain = "Request";
inline constexpr int kRequestErrorCode = 5001;

// The "Request" 5001 failure of a provider request that got an answer other than 200 and 429 (or
// of several such requests together): a DomainError like any other request failure, which also
// keeps who answered, the HTTP status (none when several requests failed together) and the wait
// the service asked for ("Retry-After"), when it named one.
class ProviderStatusError : public DomainError {
 public:
  ProviderStatusError(std::string service, std::optional<int> status, std::optional<RetryDelay> retryAfter,
                      std::string detail);
  const std::string& service() const noexcept { return service_; }
  std::optional<int> status() const noexcept { return status_; }
  std::optional<RetryDelay> retryAfter() const noexcept { return retryAfter_; }

 private:
  std::string service_;
  std::optional<int> status_;
  std::optional<RetryDelay> retryAfter_;
};

// The wait a failed provider request was told to keep: the "Retry-After" of a NetworkError or a
// ProviderStatusError; nothing for any other failure (and for a null `failure`).
std::optional<RetryDelay> serverRetryAfter(const std::exception_ptr& failure) noexcept;
// The domain and code raised when a coordinate cannot be named.
inline constexpr const char* kNoResultErrorDomain = "No result";
inline constexpr int kNoResultErrorCode = 6000;

}  // namespace ombrine
