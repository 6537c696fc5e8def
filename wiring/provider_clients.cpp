#include "wiring/provider_clients.hpp"

#include "core/errors.hpp"
#include "providers/foreca/foreca_client.hpp"
#include "providers/openweather/openweather_client.hpp"
#include "providers/system/system_weather_client.hpp"

namespace ombrine {

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
    SystemWeatherClient client = systemWeatherClient(http_, endpoints_, credentials_, clock_, languageCode_);
    co_return co_await client.fetch(request.location, request.region, request.timeZone,
                                    std::move(request.freshCachedRecord));
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
