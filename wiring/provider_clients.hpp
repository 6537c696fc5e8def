#pragma once
// The forecast clients of this program behind the fetch pipeline: maps a provider path to its
// client and nothing more (the choice of path is NetworkManager's alone).
//
// Every path has its client: Foreca, OpenWeather, the system weather service (REST, developer
// token) and the Bureau of Meteorology merged with the system weather record. A client without
// its credentials raises DomainError("Request", 5001) naming the ways to configure them, a
// failure the pipeline treats like any other (so `dynamic` falls back to Foreca where the
// dispatch rules say so). Runs on the caller's executor.

#include <string>

#include "core/fetch/credentials.hpp"
#include "core/fetch/fetch_dependencies.hpp"
#include "core/fetch/service_endpoints.hpp"
#include "platform/clock.hpp"
#include "platform/http_client.hpp"

namespace ombrine {

class ProviderClients final : public ForecastProviders {
 public:
  // Every reference must outlive the object.
  ProviderClients(HttpClient& http, const ServiceEndpoints& endpoints, const Credentials& credentials, Clock& clock,
                  std::string languageCode);

  Task<OneCallWeather> fetch(ProviderPath path, ProviderRequest request) override;

 private:
  HttpClient& http_;
  const ServiceEndpoints& endpoints_;
  const Credentials& credentials_;
  Clock& clock_;
  std::string languageCode_;
};

}  // namespace ombrine
