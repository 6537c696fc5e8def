#pragma once
// The composition root: builds the process's long-lived services once and plugs them
// together. `app/` (the command) and the daemon use it; nothing inside the library does.
//
// Construction order is destruction order reversed, and it matters: the embedded simulator
// outlives the HTTP client that talks to it, and the runtime outlives the HTTP client, whose
// completions are posted to the runtime's executors.

#include <memory>
#include <optional>
#include <string>

#include "core/credentials.hpp"
#include "core/geocoder.hpp"
#include "core/location.hpp"
#include "core/one_call_weather.hpp"
#include "core/service_endpoints.hpp"
#include "core/weather_data_source.hpp"
#include "platform/http_client.hpp"
#include "platform/linux/system_clock.hpp"
#include "platform/runtime.hpp"

namespace ombrine {

namespace sim {
class SimServer;
}
class TideDiskCache;
class TideService;

struct ServicesOptions {
  // Start the service simulator in this process and send every request to it.
  bool embeddedSimulator = false;
  std::uint64_t simulatorSeed = 0;
  // The device language ("en", "de", ...); empty: from the reader's locale.
  std::string languageCode;
  // The user setting `hideTides`: forecasts carry no tides and no tide request is made.
  bool hideTides = false;
};

class Services {
 public:
  // Raises FileError for an unreadable or unsafe credential file, std::invalid_argument for a
  // malformed OMBRINE_SERVICES, and the geocoder's errors when the place data is missing.
  explicit Services(ServicesOptions options);
  ~Services();
  Services(const Services&) = delete;
  Services& operator=(const Services&) = delete;

  Runtime& runtime() noexcept { return *runtime_; }
  Clock& clock() noexcept { return clock_; }
  HttpClient& http() noexcept { return *http_; }
  const ServiceEndpoints& endpoints() const noexcept { return endpoints_; }
  const Credentials& credentials() const noexcept { return credentials_; }
  const Geocoder& geocoder() const noexcept { return *geocoder_; }
  const std::string& languageCode() const noexcept { return languageCode_; }
  TideService& tides() noexcept { return *tides_; }
  TideDiskCache& tideDiskCache() noexcept { return *tideDiskCache_; }
  // The embedded simulator's base URL, when one runs.
  std::optional<std::string> simulatorUrl() const;

  // Names a coordinate: from the geocode cache when a record lies under 200 m away, else with
  // the offline geocoder, whose answer is cached. Raises DomainError("No result", 6000) when
  // nothing names it.
  GeoDetails name(const Location& location) const;

  // One forecast for a named place from the service the source and region choose. Services not
  // built into this program raise DomainError("Request", 5001) saying which one is missing.
  Task<OneCallWeather> fetchOneCall(Location location, GeoDetails details, WeatherDataSource source);

 private:
  SystemClock clock_;
  std::unique_ptr<sim::SimServer> simulator_;
  std::unique_ptr<Runtime> runtime_;
  std::unique_ptr<HttpClient> http_;
  ServiceEndpoints endpoints_;
  Credentials credentials_;
  std::unique_ptr<Geocoder> geocoder_;
  std::string languageCode_;
  bool hideTides_ = false;
  std::unique_ptr<TideDiskCache> tideDiskCache_;
  std::unique_ptr<TideService> tides_;
};

}  // namespace ombrine
