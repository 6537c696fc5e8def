#pragma once
// What the fetch pipeline needs from the layers above core, as small interfaces.
//
// core/ never includes providers/, tides/ or persistence/: the composition root (wiring/) plugs
// the real clients and caches in behind these, and tests plug in their own.

#include <optional>
#include <string>

#include "core/fetch/provider_dispatch.hpp"
#include "core/record/one_call_weather.hpp"
#include "core/values/date.hpp"
#include "core/values/location.hpp"
#include "platform/async/task.hpp"

namespace ombrine {

// One provider request: the place, and the pipeline's newest cached record when it is fresh
// (under 300 s old, same clock hour in its own zone). A provider with a cache short-cut returns
// that record without any request when it lies within 2000 m and came from the same source.
struct ProviderRequest {
  Location location;
  Region region;
  TimeZone timeZone;
  std::optional<OneCallWeather> freshCachedRecord;
};

// The forecast services. `path` is one of systemWeather, foreca, openWeather or
// bureauOfMeteorologyMerged: the fall-back from system weather to Foreca is the pipeline's own
// decision, never the provider's. Implementations map a path to a client and nothing more.
//
// Raises NetworkError (429 is `exceededApiLimit`), DomainError("Request", 5001) and
// CancellationError; a client not built into this program raises DomainError("Request", 5001)
// saying so. Runs on the caller's executor; sub-requests are child tasks awaited before it returns.
class ForecastProviders {
 public:
  virtual ~ForecastProviders() = default;
  virtual Task<OneCallWeather> fetch(ProviderPath path, ProviderRequest request) = 0;
};

// Tide predictions for a place in `region`, as the record's `tideData`. Nothing when the place
// has no tides or the user hides tides. Raises any error of its service and CancellationError;
// the pipeline keeps the forecast without tides on any failure but cancellation.
class TideFetcher {
 public:
  // The record's own tide field type.
  using Tides = decltype(OneCallWeather::tideData);
  virtual ~TideFetcher() = default;
  virtual Task<Tides> tideData(Location location, Region region) = 0;
};

// Names a coordinate: the geocode cache first, else the geocoder. Raises DomainError("No
// result", 6000) when nothing names it, and CancellationError.
class CoordinateNamer {
 public:
  virtual ~CoordinateNamer() = default;
  virtual Task<GeoDetails> name(Location location) = 0;
};

// A forecast with the place it belongs to: the latest-weather cache's record.
struct PlacedWeather {
  std::string name;
  Location location;
  std::optional<Region> region;
  OneCallWeather weather;
  bool operator==(const PlacedWeather&) const = default;
};

// The latest-weather cache shared by the processes of the container, and its two verdicts.
//
// `latest` and the verdicts may block briefly on a file read and are called from the pipeline's
// serial context. `storeLatest` merges the record into the cache; it raises CancellationError,
// or the failure of a disk that refused the write (the record is still shown: the pipeline names
// the failure in its log and goes on).
class LatestWeatherStore {
 public:
  virtual ~LatestWeatherStore() = default;
  virtual std::optional<PlacedWeather> latest() = 0;
  // Fresh enough to skip a fetch (age by `current.dt` and same clock hour in the record's zone).
  virtual bool isFresh(const OneCallWeather& weather, Date now) const = 0;
  // Recent and near enough to stand in on screen while a fetch runs.
  virtual bool isUsableBackdrop(const PlacedWeather& cached, const Location& here, Date now) const = 0;
  virtual Task<void> storeLatest(PlacedWeather placed) = 0;
};

}  // namespace ombrine
