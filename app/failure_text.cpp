#include "app/failure_text.hpp"

#include <algorithm>

#include "core/content_view.hpp"
#include "core/errors.hpp"
#include "platform/errors.hpp"
#include "platform/http_client.hpp"
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

}  // namespace

std::string failureText(const std::exception_ptr& error, std::string_view service) noexcept {
  try {
    try {
      std::rethrow_exception(error);
    } catch (const NetworkError& failure) {
      switch (failure.which()) {
        case NetworkError::exceededApiLimit:
          return oneLine(std::string(kAPILimitSorryTitle) + " " + std::string(kAPILimitSorryMessage));
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
    } catch (const DomainError& failure) {
      if (failure.domain() == kRequestErrorDomain) {
        if (failure.detail().starts_with("HTTP ")) {
          return std::string(service) + " is not answering (" + failure.detail() + ")";
        }
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
