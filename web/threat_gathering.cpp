#include "web/threat_gathering.hpp"

#include <future>

#include "core/values/errors.hpp"
#include "core/values/unit_rules.hpp"
#include "fires/fire_map_loader.hpp"
#include "platform/exception_message.hpp"

namespace ombrine::web {

namespace {

// Storms whose centre is farther than this beyond the radius cannot bring their cone near:
// no published cone reaches this far from the storm's current position.
constexpr double kConeReachKilometres = 4000.0;

template <class T>
std::optional<T> collect(std::future<T>& pending, ThreatSource& source) {
  try {
    T value = pending.get();
    source.state = "live";
    return value;
  } catch (const CancellationError&) {
    throw;
  } catch (...) {
    source.state = "failed";
    source.error = exceptionMessage(std::current_exception());
    return std::nullopt;
  }
}

}  // namespace

ActiveStormsResult trustedStorms(Services& services) {
  ActiveStormFetcher fetcher(services.http(), services.endpoints(), services.clock());
  ActiveStormsResult result = services.runtime().runBlocking(fetcher.fetchWithCoverage(wholeCoverage()));
  result.storms = trustedActiveStorms(std::move(result.storms), result.completeCoverage);
  return result;
}

PlaceThreats gatherThreats(Services& services, const std::string& placeName, const Location& place,
                           const GeoDetails& details, double radiusKilometres, const ScreenWords* words) {
  const Date now = Date::fromSystem(services.clock().now());
  auto forecast = std::async(std::launch::async, [&] {
    auto fetching = services.network().fetchOneCall(place, details.region, details.timeZone, std::nullopt, false);
    return services.runtime().runBlocking(std::move(fetching));
  });
  auto fires = std::async(std::launch::async, [&] {
    const FireMapEnvelope envelope = fireEnvelopeAround(place.latitude(), place.longitude(), radiusKilometres);
    return services.runtime().runBlocking(services.fireMapLoader().load(envelope));
  });
  auto storms = std::async(std::launch::async, [&] {
    std::vector<StormTrack> tracks;
    const icu::Locale locale = currentLocale();
    for (auto& storm : trustedStorms(services).storms) {
      const Location centre(storm.coordinate.latitude, storm.coordinate.longitude);
      if (place.distance(centre) / 1000.0 > radiusKilometres + kConeReachKilometres) continue;
      StormOverlay overlay = services.runtime().runBlocking(loadStormOverlay(services.http(), storm, now));
      std::string title = storm.title(locale);
      tracks.push_back({std::move(storm), std::move(title), std::move(overlay)});
    }
    return tracks;
  });

  PlaceThreats found;
  found.placeName = placeName;
  found.place = place;
  found.radiusKilometres = radiusKilometres;
  ThreatSource forecastSource, fireSource, stormSource;
  forecastSource.name = "forecast";
  fireSource.name = "fires";
  stormSource.name = "storms";
  const auto weather = collect(forecast, forecastSource);
  if (weather) {
    forecastSource.ageSeconds = std::max(0.0, now - weather->current.dt);
  } else if (auto last = services.latestWeather().latest(); last && place.distance(last->location) < 2000.0) {
    // The last good record still tells of warnings and rain; its age says how far to trust it.
    forecastSource.state = "stale";
    forecastSource.ageSeconds = std::max(0.0, now - last->weather.current.dt);
  }
  const auto fireLoad = collect(fires, fireSource);
  std::optional<FireList> fireList;
  if (fireLoad) {
    fireList = fireListAround(fireLoad->data, FireCoordinate{place.latitude(), place.longitude()}, radiusKilometres);
    bool complete = false;
    std::optional<Date> oldest;
    for (const auto& service : fireLoad->services) {
      if (!service.asked) continue;
      complete = complete || service.isComplete;
      if (!service.isComplete && service.snapshotFetchedAt && (!oldest || *service.snapshotFetchedAt < *oldest)) {
        oldest = service.snapshotFetchedAt;
      }
    }
    if (!complete && oldest) {
      fireSource.state = "stale";
      fireSource.ageSeconds = now - *oldest;
    } else if (!complete) {
      fireSource.state = "failed";
      fireSource.error = "no fire service answered";
    }
  }
  auto tracks = collect(storms, stormSource);

  ThreatInputs inputs;
  inputs.place = place;
  inputs.now = now;
  inputs.radiusKilometres = radiusKilometres;
  inputs.words = words;
  std::optional<PlacedWeather> stale;
  if (weather) {
    inputs.weather = &*weather;
  } else if (forecastSource.state == "stale") {
    stale = services.latestWeather().latest();
    if (stale) inputs.weather = &stale->weather;
  }
  if (fireList) inputs.fires = &*fireList;
  if (tracks) inputs.storms = std::move(*tracks);
  found.threats = assessThreats(inputs);
  found.sources = {forecastSource, fireSource, stormSource};
  return found;
}

}  // namespace ombrine::web
