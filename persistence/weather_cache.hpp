#pragma once
// The last weather shown for the device's own place, shared by every process of the container.
//
// File "latestWeatherCache" under the container's "Library/Caches" (no extension), coordinated
// by "latestWeatherCache.coordination". Writers merge with what is on disk under the lock
// (`preferredLatestWeather`); readers never lock and reload only when the file's modification
// date has moved past the one their memory reflects, so the common read is one stat call.

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "core/record/one_call_weather.hpp"
#include "core/values/date.hpp"
#include "core/values/location.hpp"
#include "core/values/uuid.hpp"
#include "core/values/value_json.hpp"
#include "core/values/weather_data_source.hpp"
#include "platform/async/task.hpp"
#include "platform/clock.hpp"

namespace ombrine {

// Trip records hosted by the weather cache: persistence/trip_cache_store.hpp.
struct TripCacheEntry;
struct TripCacheWrite;
namespace detail {
class TripCacheCore;
}

// A forecast with the place it belongs to.
//
// JSON, keys in this order: "name" (string), "location" ({"latitude", "longitude"}, numbers),
// "region" (the two-letter code, left out when absent), "weather" (the OneCallWeather form of
// core/record/one_call_weather_json.hpp). Equality: `location` by coordinate (Location's own rule).
struct CachedWeather {
  std::string name;
  Location location;
  std::optional<Region> region;
  OneCallWeather weather;

  bool operator==(const CachedWeather&) const = default;
};

// Compact JSON text; `encodingMoment` fixes the zone offset written with the record.
// Raises EncodingError for a non-finite number.
std::string encodeCachedWeather(const CachedWeather& cached, Date encodingMoment);
// Raises DecodingError naming the place of the fault.
CachedWeather decodeCachedWeather(std::string_view json);
// The same forms inside a larger document, for records that embed a CachedWeather.
void writeCachedWeather(JsonWriter& writer, const CachedWeather& cached, Date encodingMoment);
CachedWeather decodeCachedWeather(const boost::json::value& value, const JsonPath& path);

// The merge radius of the latest value, in metres.
inline constexpr double kLatestWeatherMergeRadius = 2000.0;

// Which of two latest values to keep. Nothing persisted, a place at least `radius` metres away
// or another data source: the candidate, however old. Otherwise the newer by `weather.current.dt`
// wins whole (a late slow fetch never rolls the cache back); on a tie the candidate, with the
// persisted tide data and region filling in where the candidate has none. Pure.
CachedWeather preferredLatestWeather(const std::optional<CachedWeather>& persisted, const CachedWeather& candidate,
                                     double radius);

// A cached record is fresh (a fetch can be skipped) when it is under 300 seconds old by
// `current.dt` and `current.dt` lies in the same clock hour as `now` in the record's own zone.
bool isFreshCachedRecord(const OneCallWeather& weather, Date now);

// A cached record can stand in while a fetch runs when it is under 3600 seconds old by
// `current.dt` and under 2000 metres from `here`.
bool isUsableBackdrop(const CachedWeather& cached, const Location& here, Date now);
// The same rule on the two parts it reads, for callers that hold the record in another shape.
bool isUsableBackdrop(const Location& cachedLocation, Date observedAt, const Location& here, Date now);

// The latest-weather cache of one process. Create one and share it by reference.
//
// Thread-safe: every member may be called from any thread; the in-memory state is guarded by one
// mutex that is never held across file locking, an await or a callback. `latestCachedWeather`
// blocks on a file read when another process has written since. Listeners added with
// `onWillChange` are called on `notificationExecutor` (the presentation's context) whenever the
// in-memory value changes.
class WeatherCache {
 public:
  static constexpr std::string_view latestWeatherKey = "latestWeatherCache";
  static constexpr std::string_view legacyTripCacheKey = "latestTripCache";
  static constexpr std::string_view tripCacheDirectoryName = "TripCache";

  // Loads the file if there is one (any failure: nothing cached). `cacheDirectory` is normally
  // cachesDirectory() of platform/paths.hpp.
  WeatherCache(std::filesystem::path cacheDirectory, Clock& clock, Executor notificationExecutor);
  WeatherCache(const WeatherCache&) = delete;
  WeatherCache& operator=(const WeatherCache&) = delete;
  ~WeatherCache();

  const std::filesystem::path& cacheDirectory() const noexcept;
  std::filesystem::path latestWeatherFile() const;

  // The newest value known: memory when the file has not moved, else the file (a file that
  // cannot be read or decoded leaves memory as it is, which may be nothing).
  std::optional<CachedWeather> latestCachedWeather();

  // Merges `cachedWeather` into the file under the coordination lock and brings memory up to
  // date with the outcome. CancellationError leaves memory as it was. Any other failure (the file
  // or its folder cannot be written) is absorbed into memory first, so this process shows the
  // value even when the disk refused it (a later reload may replace it), and is then raised, so
  // that the caller can tell the user the cache holds nothing new; the record is not lost.
  Task<void> storeLatest(CachedWeather cachedWeather);

  // Adds a listener of changes of the in-memory value. Not removable; the cache lives as long as
  // the process.
  void onWillChange(std::function<void()> listener);

  // -- Trip records (persistence/trip_cache_store.hpp; include it to call these) --------------
  // They share this cache's lock, listeners and folder. Trip files are "TripCache/<UUID>.json".

  // The entry stored for `cacheID` whose requested and observed places both lie within 200 m of
  // `location` and, when `requestedProvider` is given, that was requested from it (an entry
  // with no provider never matches a given one); the latest observation wins, then the later
  // stamp. `includeFallback` adds what this process failed to write. Reads the file only when
  // its date moved past memory's; a corrupt file reads as missing. Blocks; any thread.
  std::optional<TripCacheEntry> cachedWeather(const Uuid& cacheID, const Location& location, bool includeFallback,
                                              std::optional<WeatherDataSource> requestedProvider);

  // Merges finished fetches into memory at once (listeners hear of it) and then into each
  // identifier's file under its lock, identifiers in parallel. A failure other than
  // cancellation keeps the weather visible in this process as a fallback and is raised; a
  // cancellation drops it and raises CancellationError. Raises FileError and the like.
  Task<void> store(std::vector<TripCacheWrite> writes);

  // Leaves a tombstone stamped now for `cacheID`, in memory and on disk (a file is written even
  // where none existed): no fetch that began before it can bring an entry back. Raises as store.
  Task<void> removeTripCache(Uuid cacheID);

  // Moves the legacy dictionary "latestTripCache" into per-trip files, once, under the lock of
  // "TripCache/migration.coordination"; a file already there wins. Does nothing without a legacy
  // file. Raises FileError (the legacy file and memory stay for the next attempt).
  Task<void> migrateLegacyTripCacheIfNeeded();

  class TripCacheStore;

  struct State;

 private:
  std::shared_ptr<State> state_;
  std::shared_ptr<detail::TripCacheCore> trips_;
};

}  // namespace ombrine
