#include "core/values/errors.hpp"

namespace ombrine {

namespace {
const char* describe(NetworkError::Case which) {
  switch (which) {
    case NetworkError::exceededApiLimit: return "NetworkError.exceededApiLimit";
    case NetworkError::invalidURL: return "NetworkError.invalidURL";
    case NetworkError::invalidResponse: return "NetworkError.invalidResponse";
  }
  return "NetworkError";
}
}  // namespace

NetworkError::NetworkError(Case which, std::optional<RetryDelay> retryAfter)
    : std::runtime_error(describe(which)), which_(which), retryAfter_(retryAfter) {}

ProviderStatusError::ProviderStatusError(std::string service, std::optional<int> status,
                                         std::optional<RetryDelay> retryAfter, std::string detail)
    : DomainError(kRequestErrorDomain, kRequestErrorCode, std::move(detail)),
      service_(std::move(service)),
      status_(status),
      retryAfter_(retryAfter) {}

std::optional<RetryDelay> serverRetryAfter(const std::exception_ptr& failure) noexcept {
  if (!failure) return std::nullopt;
  try {
    std::rethrow_exception(failure);
  } catch (const NetworkError& error) {
    return error.retryAfter();
  } catch (const ProviderStatusError& error) {
    return error.retryAfter();
  } catch (...) {
  }
  return std::nullopt;
}

}  // namespace ombrine
