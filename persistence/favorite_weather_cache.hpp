#pragma once
// The weather of every saved location, kept as one debounced snapshot file.
//
// File "favoriteWeatherCache" under the container's "Library/Caches": the dictionary from the
// saved location's id to its CachedWeather, as one JSON array of alternating key (the id in
// upper-case text) and value (the CachedWeather form of weather_cache.hpp). The file does not
// exist while the dictionary is empty. It is not coordinated: the last writer of all processes
// wins the whole file, and a reader always sees one whole snapshot since every write is an
// atomic replacement.
//
// A set that changes the dictionary schedules a save 750 ms later on the cache's own serial
// context ("com.quillfernhollowarts.Weather.favorites.disk-cache"); every later set within that
// time replaces the scheduled save, so a burst costs one write, of the last snapshot. Disk
// failures are ignored: memory keeps the dictionary, and the next save tries again.
//
// Thread-safe: `weather`, `setWeather` and `flush` may be called from any thread; the dictionary
// is guarded by a mutex that is never held across an await, a file write or a listener.

#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "core/values/uuid.hpp"
#include "persistence/weather_cache.hpp"
#include "platform/async/task.hpp"
#include "platform/clock.hpp"

namespace ombrine {

// Saved location id -> its weather.
using FavoriteWeather = std::map<Uuid, CachedWeather>;

// The file form of a dictionary; `encodingMoment` as encodeCachedWeather. Raises EncodingError.
std::string encodeFavoriteWeather(const FavoriteWeather& weather, Date encodingMoment);
// Raises DecodingError for anything but an array of alternating id text and CachedWeather.
FavoriteWeather decodeFavoriteWeather(std::string_view json);

class FavoriteWeatherCache {
 public:
  static constexpr std::string_view favoritesCacheKey = "favoriteWeatherCache";
  static constexpr std::string_view queueLabel = "com.quillfernhollowarts.Weather.favorites.disk-cache";
  static constexpr std::chrono::milliseconds saveDelay{750};

  // Loads the file (any failure: the empty dictionary) and takes it through `setWeather`, so a
  // non-empty file is written back once after the delay. Saves run on a new serial context on
  // `executor`, whose io_context must outlive the cache; delays are measured on `clock`, which
  // must outlive the cache too.
  FavoriteWeatherCache(std::filesystem::path cacheDirectory, Clock& clock, Executor executor);
  FavoriteWeatherCache(const FavoriteWeatherCache&) = delete;
  FavoriteWeatherCache& operator=(const FavoriteWeatherCache&) = delete;
  // Cancels the scheduled save and writes its snapshot now, so that nothing set is lost.
  ~FavoriteWeatherCache();

  std::filesystem::path file() const;

  FavoriteWeather weather() const;

  // Replaces the whole dictionary. Equal to what is held: nothing happens at all. Otherwise the
  // listeners run (on this thread, after the change) and a save is scheduled.
  void setWeather(FavoriteWeather weather);

  // Writes the snapshot of a scheduled save now instead of at its time; nothing when none is
  // pending. Blocks on the file write.
  void flush();

  // Adds a listener of changes; not removable.
  void onChange(std::function<void()> listener);

  struct State;

 private:
  std::shared_ptr<State> state_;
};

}  // namespace ombrine
