#include "providers/common/provider_request.hpp"

#include "core/errors.hpp"
#include "platform/errors.hpp"
#include "platform/log.hpp"

namespace ombrine {

Task<std::string> fetchProviderAnswer(HttpClient& http, HttpRequest request, std::string service, std::string name,
                                      std::string loggedUrl) {
  HttpResponse response;
  try {
    response = co_await http.send(request);
  } catch (const HttpError& error) {
    logf("{} {} request failed: {} ({})", service, name, error.what(), loggedUrl);
    throw DomainError(kRequestErrorDomain, kRequestErrorCode, service + " " + name + ": " + error.what());
  }
  if (response.status == 429) {
    logf("{} {} request hit the API limit (HTTP 429) ({})", service, name, loggedUrl);
    throw NetworkError(NetworkError::exceededApiLimit);
  }
  if (response.status != 200) {
    logf("{} {} request failed: HTTP {} ({})", service, name, response.status, loggedUrl);
    throw DomainError(kRequestErrorDomain, kRequestErrorCode,
                      service + " " + name + ": HTTP " + std::to_string(response.status));
  }
  co_return std::move(response.body);
}

}  // namespace ombrine
