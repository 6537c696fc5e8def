#include "providers/common/provider_request.hpp"

#include "core/values/errors.hpp"
#include "platform/errors.hpp"
#include "platform/log.hpp"
#include "platform/retry_after.hpp"

namespace ombrine {

Task<std::string> fetchProviderAnswer(HttpClient& http, const Clock& clock, HttpRequest request, std::string service,
                                      std::string name, std::string loggedUrl) {
  HttpResponse response;
  try {
    response = co_await http.send(request);
  } catch (const HttpError& error) {
    logDetail("{} {} request failed: {} ({})", service, name, error.what(), loggedUrl);
    throw DomainError(kRequestErrorDomain, kRequestErrorCode, service + " " + name + ": " + error.what());
  }
  if (response.status == 200) co_return std::move(response.body);
  const auto retryAfter = retryAfterDelay(response, clock.now());
  const std::string asked = retryAfter ? fmt::format(", Retry-After {:g} s", retryAfter->count()) : "";
  if (response.status == 429) {
    logDetail("{} {} request hit the API limit (HTTP 429{}) ({})", service, name, asked, loggedUrl);
    throw NetworkError(NetworkError::exceededApiLimit, retryAfter);
  }
  logDetail("{} {} request failed: HTTP {}{} ({})", service, name, response.status, asked, loggedUrl);
  throw ProviderStatusError(service, response.status, retryAfter,
                            service + " " + name + ": HTTP " + std::to_string(response.status));
}

}  // namespace ombrine
