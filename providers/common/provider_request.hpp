#pragma once
// The one GET every forecast client sends for a sub-request, with the failure rules the fetch
// pipeline expects of all of them.
//
// Raises NetworkError::exceededApiLimit for HTTP 429, ProviderStatusError (a DomainError
// "Request", 5001) for any other status than 200, both with the wait the service asked for
// ("Retry-After", read against `clock`) when it named one; DomainError("Request", 5001) for a
// transport failure (HttpError); CancellationError when the caller is cancelled. Each failure is
// logged as one detail line (-v) "<service> <name> request ...: <cause> (<loggedUrl>)"; pass a
// URL with any secret already replaced. Runs on the caller's executor.

#include <string>
#include <string_view>

#include "platform/async/task.hpp"
#include "platform/clock.hpp"
#include "platform/http_client.hpp"

namespace ombrine {

Task<std::string> fetchProviderAnswer(HttpClient& http, const Clock& clock, HttpRequest request, std::string service,
                                      std::string name, std::string loggedUrl);

}  // namespace ombrine
