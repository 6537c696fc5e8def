#include "wiring/services.hpp"

#include <unicode/locid.h>

#include "core/errors.hpp"
#include "core/geo_naming.hpp"
#include "core/provider_dispatch.hpp"
#include "core/unit_rules.hpp"
#include "persistence/geocode_cache.hpp"
#include "places/offline_geocoder.hpp"
#include "platform/linux/curl_http_client.hpp"
#include "platform/log.hpp"
#include "providers/foreca/foreca_client.hpp"
#include "sim/sim_server.hpp"

namespace ombrine {

namespace {

// The simulator checks that a token is sent, never which one.
constexpr const char* kSimulatorToken = "simulator-token";

}  // namespace

Services::Services(ServicesOptions options) {
  if (options.embeddedSimulator) {
    sim::SimServer::Options simOptions;
    simOptions.seed = options.simulatorSeed;
    simOptions.clock = &clock_;
    simulator_ = std::make_unique<sim::SimServer>(simOptions);
  }
  runtime_ = std::make_unique<Runtime>(2);
  http_ = std::make_unique<CurlHttpClient>();
  endpoints_ = simulator_ ? ServiceEndpoints::simulator(simulator_->baseUrl()) : ServiceEndpoints::fromEnvironment();
  credentials_ = Credentials::load();
  if (simulator_ && !credentials_.forecaToken) credentials_.forecaToken = Secret(kSimulatorToken);
  geocoder_ = std::make_unique<OfflineGeocoder>();
  languageCode_ = options.languageCode.empty() ? currentLocale().getLanguage() : options.languageCode;
  if (languageCode_.empty()) languageCode_ = "en";
}

Services::~Services() {
  // The HTTP client first: it completes its outstanding transfers on the runtime's executors.
  http_.reset();
  runtime_.reset();
  simulator_.reset();
}

std::optional<std::string> Services::simulatorUrl() const {
  if (!simulator_) return std::nullopt;
  return simulator_->baseUrl();
}

GeoDetails Services::name(const Location& location) const {
  const std::function<GeoDetails(const Location&)> geocode = [this](const Location& place) {
    return geoDetailsOfFirst(geocoder_->reverseGeocode(place));
  };
  return GeocodeCache::cachedOrGeocoded(GeocodeCache::defaultDirectory(), location, geocode);
}

Task<OneCallWeather> Services::fetchOneCall(Location location, GeoDetails details, WeatherDataSource source) {
  ProviderPath path = providerPath(source, details.region);
  if (path == ProviderPath::systemWeatherFallingBackToForeca) {
    // The system weather service is not part of this build: that is a failure of it, and its
    // failures fall back to Foreca.
    logLine("System weather is not available in this build; using Foreca");
    path = ProviderPath::foreca;
  }
  if (path != ProviderPath::foreca) {
    throw DomainError(kRequestErrorDomain, kRequestErrorCode,
                      std::string(providerPathName(path)) + " is not available in this build");
  }
  co_return co_await fetchForecaForecast(*http_, endpoints_, credentials_, clock_, languageCode_, location,
                                         details);
}

}  // namespace ombrine
