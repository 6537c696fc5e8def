#pragma once
// The weather fetched for trips, kept per trip (or leg) cache identifier and per requested
// provider, shared by every process of the container.
//
// Files under the weather cache's folder: "TripCache/<UUID>.json" (one TripCacheRecord, the name
// in canonical upper-case form), each with its "<file>.coordination"; the migration's lock
// "TripCache/migration.coordination"; the legacy dictionary "latestTripCache". Nothing here
// expires: a record stays until a removal leaves a tombstone in it, and a tombstone file is
// never cleaned up.
//
// Writes are not ordered by arrival. Every write and removal carries the stamp of the moment its
// operation began (TripCacheOperationOrder), and every merge, in memory and under the file lock,
// decides by stamps and observation times only, so the two writers of a race end at the same
// record whichever commits first. A removal's stamp is a tombstone: no entry stamped at or
// before it can come back, in either process, even when it is committed afterwards.
//
// The state lives inside WeatherCache (persistence/weather_cache.hpp): the same lock, the same
// change listeners, the same folder. The trip operations are members of WeatherCache; this
// header holds the records, the merge rules and the thin read facade for the trip screens.

#include <compare>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/values/date.hpp"
#include "core/values/location.hpp"
#include "core/values/uuid.hpp"
#include "core/values/weather_data_source.hpp"
#include "persistence/weather_cache.hpp"

namespace ombrine {

// A totally ordered stamp: by `startedAt`, then by the canonical upper-case text of
// `tieBreaker` (which orders exactly as its bytes do). JSON {"startedAt": date, "tieBreaker":
// "UUID"}.
struct TripCacheOperationOrder {
  Date startedAt;
  Uuid tieBreaker;

  // A new stamp: `now`, with a random tie-breaker. Take it when the operation begins.
  static TripCacheOperationOrder begin(Date now);
  // The stamp of entries from the oldest file format: the distant past and the nil UUID; it
  // sorts before every stamp a running program makes.
  static TripCacheOperationOrder legacy();

  auto operator<=>(const TripCacheOperationOrder&) const = default;
  bool operator==(const TripCacheOperationOrder&) const = default;
};

// The weather of one place from one requested provider.
// JSON keys in order: "cachedWeather", "requestedLocation" ({"latitude","longitude"}; when
// missing it reads as the weather's own location), "requestedProvider" (case name, only when
// present), "operationOrder".
struct TripCacheEntry {
  CachedWeather cachedWeather;
  Location requestedLocation;
  std::optional<WeatherDataSource> requestedProvider;
  TripCacheOperationOrder operationOrder;

  bool operator==(const TripCacheEntry&) const = default;
};

// The content of one trip file. JSON keys in order: "version" (always 1), "entries",
// "removalOrder" (only when present). A removal order is a tombstone: entries whose stamp is not
// later than it are dead.
struct TripCacheRecord {
  std::vector<TripCacheEntry> entries;
  std::optional<TripCacheOperationOrder> removalOrder;

  bool operator==(const TripCacheRecord&) const = default;
};

// One finished fetch, to be stored under `cacheID`.
struct TripCacheWrite {
  Uuid cacheID;
  CachedWeather cachedWeather;
  WeatherDataSource requestedProvider = WeatherDataSource::dynamic;
  TripCacheOperationOrder operationOrder;

  bool operator==(const TripCacheWrite&) const = default;
};

// One wish to look up or fetch; its stamp is taken when the request is made and carried through
// the fetch into the resulting TripCacheWrite.
struct TripCacheRequest {
  Uuid cacheID;
  Location location;
  WeatherDataSource requestedProvider = WeatherDataSource::dynamic;
  TripCacheOperationOrder operationOrder;

  bool operator==(const TripCacheRequest&) const = default;
};

// Places closer than this many metres are the same place for every rule here.
inline constexpr double kTripCacheRadius = 200.0;

// The later of two optional stamps; `b` on a tie.
std::optional<TripCacheOperationOrder> laterOrder(const std::optional<TripCacheOperationOrder>& a,
                                                  const std::optional<TripCacheOperationOrder>& b);

// `existing` and `incoming` merged. Different places: the later stamp wins whole. Same place:
// the freshest observation (`weather.current.dt`) wins when both observations are of one spot,
// else the newer operation; the newer operation always gives the name, the requested place and
// provider, and the merged stamp is the later one. Pure.
TripCacheEntry mergedEntry(const TripCacheEntry& existing, const TripCacheEntry& incoming);

// `incoming` folded into `existing` (which may be nothing): tombstones combine to the later one
// and kill every entry not stamped after it; an incoming entry for a place the trip has left is
// skipped when older than the newest entry, and clears the old place when newer; one entry per
// requested provider, sorted by provider rank (none, dynamic, apple, ow, foreca) then stamp.
// Commutative in its choice of winners, so racing writers converge. Pure.
TripCacheRecord mergedRecord(const std::optional<TripCacheRecord>& existing, const TripCacheRecord& incoming);

// Compact JSON text of a record; `encodingMoment` fixes the zone offsets written with forecasts.
// Raises EncodingError for a non-finite number.
std::string encodeTripCacheRecord(const TripCacheRecord& record, Date encodingMoment);
// Reads every format ever written: an object without "entries" is one bare CachedWeather (one
// entry with the legacy stamp). Raises DecodingError, also for a "version" other than 1
// ("Unsupported trip cache record version N").
TripCacheRecord decodeTripCacheRecord(std::string_view json);

// The legacy dictionary "latestTripCache": an alternating array of UUID text and record.
std::string encodeLegacyTripCache(const std::vector<std::pair<Uuid, TripCacheRecord>>& records, Date encodingMoment);
// Raises DecodingError; a repeated key keeps its last value at its first place.
std::vector<std::pair<Uuid, TripCacheRecord>> decodeLegacyTripCache(std::string_view json);

// The read side the trip screens use: holds the cache without ownership (the cache outlives it).
class WeatherCache::TripCacheStore {
 public:
  explicit TripCacheStore(WeatherCache& cache) noexcept : cache_(&cache) {}

  // The weather stored for `cacheID` near `location`, from any provider, without this process's
  // unsaved fallbacks. Same contract as WeatherCache::cachedWeather.
  std::optional<CachedWeather> cachedWeather(const Uuid& cacheID, const Location& location) const;

 private:
  WeatherCache* cache_;
};

namespace detail {

// What the trip records share with their weather cache.
struct TripCacheContext {
  std::shared_ptr<std::mutex> mutex;       // the weather cache's lock; never held across I/O waits
  std::function<void()> notifyWillChange;  // posts the cache's listeners; call without the lock
  std::filesystem::path cacheDirectory;
  Clock* clock = nullptr;
};

// Builds the trip state and loads the legacy dictionary (any failure: empty).
std::shared_ptr<TripCacheCore> makeTripCacheCore(TripCacheContext context);

}  // namespace detail

}  // namespace ombrine
