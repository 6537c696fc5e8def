#pragma once
// The failures of the forecast pipeline and its providers.

#include <stdexcept>

#include "platform/errors.hpp"

namespace ombrine {

// A provider's answer could not be used. HTTP 429 is always `exceededApiLimit`.
class NetworkError : public std::runtime_error {
 public:
  enum Case { exceededApiLimit, invalidURL, invalidResponse };
  explicit NetworkError(Case which);
  Case which() const noexcept { return which_; }

 private:
  Case which_;
};

// Bytes that do not form the expected record: bad JSON, a missing required key, a value of the
// wrong type. `what()` names where in the document the problem is and what it is.
class DecodingError : public std::runtime_error {
  using runtime_error::runtime_error;
};

// The domain and code of a provider request that failed for any reason other than those above.
inline constexpr const char* kRequestErrorDomain = "Request";
inline constexpr int kRequestErrorCode = 5001;
// The domain and code raised when a coordinate cannot be named.
inline constexpr const char* kNoResultErrorDomain = "No result";
inline constexpr int kNoResultErrorCode = 6000;

}  // namespace ombrine
