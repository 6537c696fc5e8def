#include "wiring/services.hpp"

#include <unicode/locid.h>

#include <cstdlib>

#include "core/errors.hpp"
#include "core/geo_naming.hpp"
#include "core/provider_dispatch.hpp"
#include "core/unit_rules.hpp"
#include "history/climate_normals_service.hpp"
#include "persistence/geocode_cache.hpp"
#include "persistence/historical_weather_cache.hpp"
#include "places/offline_geocoder.hpp"
#include "platform/linux/curl_http_client.hpp"
#include "platform/log.hpp"
#include "providers/foreca/foreca_client.hpp"
#include "sim/sim_server.hpp"
#include "tides/tide_fetch.hpp"
#include "tides/tide_service.hpp"

namespace ombrine {

namespace {

// The simulator checks that a token is sent, never which one.
constexpr const char* kSimulatorToken = "simulator-token";

// OMBRINE_SIM_FAULTS="ROUTE=SPEC;ROUTE=SPEC" sets faults of the embedded simulator, so a user or
// a test can watch the program meet a failing service. Raises std::invalid_argument.
void applySimulatorFaults(sim::SimServer& simulator) {
  const char* faults = std::getenv("OMBRINE_SIM_FAULTS");
  if (!faults) return;
  std::string_view rest(faults);
  while (!rest.empty()) {
    const auto end = rest.find(';');
    const auto fault = rest.substr(0, end);
    if (!fault.empty()) simulator.setFault(fault);
    rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
  }
}

}  // namespace

Services::Services(ServicesOptions options) {
  if (options.embeddedSimulator) {
    sim::SimServer::Options simOptions;
    simOptions.seed = options.simulatorSeed;
    simOptions.clock = &clock_;
    simulator_ = std::make_unique<sim::SimServer>(simOptions);
    applySimulatorFaults(*simulator_);
  }
  runtime_ = std::make_unique<Runtime>(2);
  http_ = std::make_unique<CurlHttpClient>();
  endpoints_ = simulator_ ? ServiceEndpoints::simulator(simulator_->baseUrl()) : ServiceEndpoints::fromEnvironment();
  credentials_ = Credentials::load();
  if (simulator_ && !credentials_.forecaToken) credentials_.forecaToken = Secret(kSimulatorToken);
  geocoder_ = std::make_unique<OfflineGeocoder>();
  languageCode_ = options.languageCode.empty() ? currentLocale().getLanguage() : options.languageCode;
  if (languageCode_.empty()) languageCode_ = "en";
  hideTides_ = options.hideTides;
  tideDiskCache_ = std::make_unique<TideDiskCache>(runtime_->makeStrand(), clock_);
  tides_ = std::make_unique<TideService>(runtime_->makeStrand(), *http_, clock_, endpoints_, *tideDiskCache_,
                                         TideRegionGate::processWide());
  climate_ = std::make_unique<ClimateNormalsService>(*http_, endpoints_, credentials_.meteostatKey,
                                                     HistoricalWeatherCache::defaultDirectory());
}

Services::~Services() {
  climate_.reset();
  tides_.reset();
  tideDiskCache_.reset();
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
  auto forecast = fetchForecaForecast(*http_, endpoints_, credentials_, clock_, languageCode_, location, details);
  co_return co_await withTideData(hideTides_ ? nullptr : tides_.get(), location, details.region.identifier,
                                  std::move(forecast));
}

}  // namespace ombrine
