#include "wiring/provider_clients.hpp"

#include "core/values/errors.hpp"
#include "providers/bom/bom_client.hpp"
#include "providers/foreca/foreca_client.hpp"
#include "providers/openweather/openweather_client.hpp"
#include "providers/system/system_weather_client.hpp"

namespace ombrine {

namespace {

Task<OneCallWeather> fetchSystemWeather(HttpClient& http, const ServiceEndpoints& endpoints,
                                        const Credentials& credentials, Clock& clock, std::string languageCode,
                                        ProviderRequest request) {
  SystemWeatherClient client = systemWeatherClient(http, endpoints, credentials, clock, std::move(languageCode));
  co_return co_await client.fetch(request.location, request.region, request.timeZone,
                                  std::move(request.freshCachedRecord));
}

Task<OneCallWeather> fetchBureau(HttpClient& http, const ServiceEndpoints& endpoints, Clock& clock,
                                 ProviderRequest request) {
  BureauClient client(http, endpoints, clock);
  co_return co_await client.fetch(request.location, request.timeZone);
}

}  // namespace

ProviderClients::ProviderClients(HttpClient& http, const ServiceEndpoints& endpoints, const Credentials& credentials,
                                 Clock& clock, std::string languageCode)
    : http_(http),
      endpoints_(endpoints),
      credentials_(credentials),
      clock_(clock),
      languageCode_(std::move(languageCode)) {}

Task<OneCallWeather> ProviderClients::fetch(ProviderPath path, ProviderRequest request) {
  if (path == ProviderPath::openWeather) {
    co_return co_await fetchOpenWeatherForecast(http_, endpoints_, credentials_, clock_, languageCode_,
                                                request.location, request.timeZone);
  }
  if (path == ProviderPath::systemWeather) {
    co_return co_await fetchSystemWeather(http_, endpoints_, credentials_, clock_, languageCode_, std::move(request));
  }
  if (path == ProviderPath::bureauOfMeteorologyMerged) {
    // The system weather half keeps its cache short-cut: it takes only a record of its own
    // source, never a cached merged one.
    ProviderRequest systemRequest = request;
    Task<OneCallWeather> bureau = fetchBureau(http_, endpoints_, clock_, request);
    Task<OneCallWeather> system =
        fetchSystemWeather(http_, endpoints_, credentials_, clock_, languageCode_, std::move(systemRequest));
    co_return co_await fetchBureauMerged(std::move(bureau), std::move(system));
  }
  if (path != ProviderPath::foreca) {
    throw DomainError(kRequestErrorDomain, kRequestErrorCode,
                      std::string(providerPathName(path)) + " is not available in this build");
  }
  GeoDetails details{"", request.region, request.timeZone};
  co_return co_await fetchForecaForecast(http_, endpoints_, credentials_, clock_, languageCode_, request.location,
                                         std::move(details), false, std::move(request.freshCachedRecord));
}

}  // namespace ombrine
