#pragma once
// The background refresh's steps with the process's services: the place from the location
// provider (else the home place), the one fetch path, the rain and snow rules and the weather
// alert pass over the container's state, and the container's weather cache.
//
// Context: `fetch` and `storeLatest` on the runtime's executors; the notification steps block
// briefly on files (the defaults, the alert state's lock, the notification spool).

#include <optional>
#include <string>

#include "background/background_refresh.hpp"
#include "notifications/precipitation_notifier.hpp"
#include "wiring/services.hpp"

namespace ombrine {

// The place a pass looks at: the location provider's, else the home place.
struct LookedAtPlace {
  Location location;
  std::optional<std::string> name;
  std::optional<Region> region;
  std::optional<TimeZone> timeZone;
  std::string source;
};

// Raises DomainError("No result", 6000) when neither gives a place.
LookedAtPlace placeToLookAt(Services& services);

// One pass of the rain and snow rules over `weather` with the container's state and center.
PrecipitationPassOutcome notifyPrecipitationOnce(Services& services, const OneCallWeather& weather,
                                                 const std::function<bool()>& isCancelled = {});

class ServicesRefreshWork final : public BackgroundRefreshWork {
 public:
  explicit ServicesRefreshWork(Services& services) : services_(services) {}

  Task<RefreshedPlace> fetch() override;
  void evaluatePrecipitation(const RefreshedPlace& place, const std::function<bool()>& isCancelled) override;
  void notifyWeatherAlerts(const RefreshedPlace& place) override;
  Task<void> storeLatest(CachedWeather cachedWeather) override;

 private:
  Services& services_;
};

}  // namespace ombrine
