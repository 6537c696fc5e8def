#include "app/failure_text.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <thread>

#include "app/progress_line.hpp"
#include "core/fetch/content_view.hpp"
#include "core/values/errors.hpp"
#include "platform/errors.hpp"
#include "platform/http_client.hpp"
#include "platform/log.hpp"
#include "tides/tide_service.hpp"

namespace ombrine::app {

namespace {

std::string oneLine(std::string text) {
  std::replace(text.begin(), text.end(), '\n', ' ');
  return text;
}

std::string describe(const HttpError& failure) {
  switch (failure.which()) {
    case HttpError::timedOut: return "the service did not answer in time";
    case HttpError::cannotConnect: return "could not connect to the service (offline?)";
    case HttpError::truncated: return "the connection to the service broke off mid-answer";
    case HttpError::tooManyRedirects: return "the service redirected too often";
    case HttpError::other: break;
  }
  return "the request to the service failed";
}

// "; try again in N s" when the failure carries the service's wait.
std::string tryAgainText(const std::exception_ptr& error, std::string_view separator) {
  const auto wait = serverRetryAfter(error);
  return wait ? std::string(separator) + "try again in " + waitText(*wait) : std::string();
}

}  // namespace

std::string waitText(std::chrono::duration<double> wait) {
  const double seconds = std::max(0.0, std::ceil(wait.count()));
  if (seconds < 120) return fmt::format("{:.0f} s", seconds);
  if (seconds < 2 * 3600) return fmt::format("{:.0f} min", std::ceil(seconds / 60));
  return fmt::format("{:.0f} h", std::ceil(seconds / 3600));
}

void waitBeforeRetry(const std::exception_ptr& failure, std::chrono::duration<double> wait, bool verbose) {
  std::string service = "the weather service";
  try {
    std::rethrow_exception(failure);
  } catch (const ProviderStatusError& error) {
    service = error.service();
  } catch (...) {
  }
  const std::string line = fmt::format("{} asked to wait {}; trying again", service, waitText(wait));
  if (verbose) logf("ombrine: {}", line);
  ProgressLine progress(!verbose);
  progress.show(line);
  std::this_thread::sleep_for(std::chrono::duration_cast<std::chrono::milliseconds>(wait));
}

std::string failureText(const std::exception_ptr& error, std::string_view service) noexcept {
  try {
    try {
      std::rethrow_exception(error);
    } catch (const NetworkError& failure) {
      switch (failure.which()) {
        case NetworkError::exceededApiLimit:
          return oneLine(std::string(kAPILimitSorryTitle) + " " + std::string(kAPILimitSorryMessage)) +
                 tryAgainText(error, " (") + (failure.retryAfter() ? ")" : "");
        case NetworkError::invalidURL: return std::string(service) + " cannot be asked about this place";
        case NetworkError::invalidResponse: return std::string(service) + " sent an answer that could not be read";
      }
    } catch (const TideServiceError& failure) {
      return failure.which() == TideServiceError::invalidURL ? "the tide service cannot be asked about this place"
                                                             : "the tide service sent an answer that could not be used";
    } catch (const DecodingError&) {
      return "the service sent an answer that could not be read";
    } catch (const HttpError& failure) {
      return describe(failure);
    } catch (const ProviderStatusError& failure) {
      const std::string what =
          failure.status() ? std::string(service) + " is not answering (HTTP " + std::to_string(*failure.status()) + ")"
                           : oneLine(failure.detail());
      return what + tryAgainText(error, "; ");
    } catch (const DomainError& failure) {
      if (failure.domain() == kRequestErrorDomain) {
        return failure.detail().empty() ? std::string(service) + " request failed" : oneLine(failure.detail());
      }
      if (failure.domain() == kNoResultErrorDomain) {
        return failure.detail().empty() ? "no place is known there" : oneLine(failure.detail());
      }
      return failure.detail().empty() ? oneLine(failure.what()) : oneLine(failure.detail());
    } catch (const CancellationError&) {
      return "cancelled";
    } catch (const std::exception& failure) {
      return oneLine(failure.what());
    }
  } catch (...) {
  }
  return "failed";
}

}  // namespace ombrine::app
