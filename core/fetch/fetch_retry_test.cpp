#include "core/fetch/fetch_retry.hpp"

#include <gtest/gtest.h>

#include "core/values/errors.hpp"
#include "platform/http_client.hpp"

namespace ombrine {
namespace {

using namespace std::chrono_literals;

std::exception_ptr answered(int status, std::optional<RetryDelay> retryAfter) {
  if (status == 429) return std::make_exception_ptr(NetworkError(NetworkError::exceededApiLimit, retryAfter));
  return std::make_exception_ptr(ProviderStatusError("Foreca", status, retryAfter, "Foreca current: HTTP 503"));
}

TEST(FetchRetryTest, OneMoreAttemptOnlyWhenTheServiceNamedAWaitThatFits) {
  struct Row {
    const char* why;
    std::exception_ptr failure;
    std::optional<RetryDelay> timeLeft;
    std::optional<RetryDelay> wait;
  };
  const Row rows[] = {
      {"503 with a short wait, no limit", answered(503, 1s), std::nullopt, 1s},
      {"a wait of 0 is an attempt at once", answered(502, 0s), std::nullopt, 0s},
      {"the cap itself still fits", answered(503, 30s), std::nullopt, 30s},
      {"over the cap", answered(503, 31s), std::nullopt, std::nullopt},
      {"fits in what is left of the limit", answered(503, 2s), 5s, 2s},
      {"a limit allows more than the cap", answered(503, 45s), 60s, 45s},
      {"a wait that uses up the limit leaves no time to ask", answered(503, 5s), 5s, std::nullopt},
      {"longer than what is left", answered(503, 8s), 5s, std::nullopt},
      {"no wait named: no retry", answered(503, std::nullopt), std::nullopt, std::nullopt},
      {"429 waits for the minimum interval, whatever it says", answered(429, 1s), std::nullopt, std::nullopt},
      {"a plain request failure (transport) carries no wait",
       std::make_exception_ptr(DomainError(kRequestErrorDomain, kRequestErrorCode, "timed out")), std::nullopt,
       std::nullopt},
      {"a transport error", std::make_exception_ptr(HttpError(HttpError::timedOut)), std::nullopt, std::nullopt},
      {"an undecodable answer", std::make_exception_ptr(DecodingError("bad")), std::nullopt, std::nullopt},
      {"too little data", std::make_exception_ptr(NetworkError(NetworkError::invalidResponse)), std::nullopt,
       std::nullopt},
      {"a cancellation", std::make_exception_ptr(CancellationError()), std::nullopt, std::nullopt},
      {"nothing failed", nullptr, std::nullopt, std::nullopt},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.why);
    EXPECT_EQ(retryWaitAfter(row.failure, row.timeLeft), row.wait);
  }
}

TEST(FetchRetryTest, TheWaitTravelsWithTheTypedErrors) {
  const auto status = answered(503, 7s);
  EXPECT_EQ(serverRetryAfter(status), RetryDelay(7s));
  EXPECT_EQ(serverRetryAfter(answered(429, 120s)), RetryDelay(120s));
  try {
    std::rethrow_exception(status);
  } catch (const DomainError& error) {  // every catch of the request failure still takes it
    EXPECT_EQ(error.domain(), kRequestErrorDomain);
    EXPECT_EQ(error.code(), kRequestErrorCode);
  }
  EXPECT_FALSE(serverRetryAfter(std::make_exception_ptr(DomainError(kRequestErrorDomain, kRequestErrorCode))));
}

}  // namespace
}  // namespace ombrine
