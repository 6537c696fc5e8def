#include "persistence/weather_cache.hpp"

#include <boost/asio/post.hpp>
#include <boost/json.hpp>

#include <cmath>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "core/record/one_call_weather_json.hpp"
#include "core/record/weather_derived.hpp"
#include "core/values/location_json.hpp"
#include "core/values/value_json.hpp"
#include "persistence/coordinated_file.hpp"
#include "persistence/trip_cache_store.hpp"
#include "platform/atomic_file.hpp"

namespace ombrine {

void writeCachedWeather(JsonWriter& writer, const CachedWeather& cached, Date encodingMoment) {
  writer.beginObject();
  writer.key("name");
  writer.string(cached.name);
  writer.key("location");
  writeJson(writer, cached.location);
  if (cached.region) {
    writer.key("region");
    writer.string(cached.region->identifier);
  }
  writer.key("weather");
  writeOneCallWeather(writer, cached.weather, encodingMoment);
  writer.endObject();
}

std::string encodeCachedWeather(const CachedWeather& cached, Date encodingMoment) {
  // Written straight to text: a 240-hour record is ~100 kB, and building a DOM of it first
  // tripled the cost of every cache write.
  std::string out;
  JsonWriter writer(out);
  writeCachedWeather(writer, cached, encodingMoment);
  return out;
}

CachedWeather decodeCachedWeather(const boost::json::value& document, const JsonPath& root) {
  JsonObjectReader reader(document, root);
  CachedWeather cached;
  reader.read("name", cached.name);
  reader.read("location", cached.location);
  std::optional<std::string> region;
  reader.readOptional("region", region);
  if (region) cached.region = Region{*region};
  const boost::json::value* weather = reader.find("weather");
  const JsonPath weatherPath = root.key("weather");
  if (weather == nullptr) weatherPath.fail("missing key");
  cached.weather = decodeOneCallWeather(*weather, weatherPath);
  return cached;
}

CachedWeather decodeCachedWeather(std::string_view json) {
  // The document lives only for this call and the decoded record copies what it keeps, so one
  // arena serves all of its allocations (a 240-hour record costs thousands of small ones).
  boost::json::monotonic_resource arena;
  const boost::json::value document = parseJson(json, &arena);
  const JsonPath root;
  return decodeCachedWeather(document, root);
}

CachedWeather preferredLatestWeather(const std::optional<CachedWeather>& persisted, const CachedWeather& candidate,
                                     double radius) {
  if (!persisted) return candidate;
  const double distance = persisted->location.distance(candidate.location);
  if (!(distance < radius) || weatherDataSource(persisted->weather) != weatherDataSource(candidate.weather)) {
    return candidate;
  }
  const Date persistedTime = persisted->weather.current.dt;
  const Date candidateTime = candidate.weather.current.dt;
  if (candidateTime < persistedTime) return *persisted;
  if (candidateTime > persistedTime) return candidate;
  CachedWeather merged = candidate;
  if (!merged.weather.tideData) merged.weather.tideData = persisted->weather.tideData;
  if (!merged.region) merged.region = persisted->region;
  return merged;
}

namespace {

// Whole hours since the epoch on the wall clock of `zone`.
double localHour(Date at, const TimeZone& zone) {
  return std::floor((at.unixSeconds() + zone.secondsFromGMT(at)) / 3600.0);
}

}  // namespace

bool isFreshCachedRecord(const OneCallWeather& weather, Date now) {
  const Date dt = weather.current.dt;
  return now - dt < 300.0 && localHour(dt, weather.timeZone) == localHour(now, weather.timeZone);
}

bool isUsableBackdrop(const CachedWeather& cached, const Location& here, Date now) {
  return isUsableBackdrop(cached.location, cached.weather.current.dt, here, now);
}

bool isUsableBackdrop(const Location& cachedLocation, Date observedAt, const Location& here, Date now) {
  return now - observedAt < 3600.0 && cachedLocation.distance(here) < 2000.0;
}

// Everything behind the mutex, and what the coordinated write needs after the cache is gone.
struct WeatherCache::State {
  std::filesystem::path cacheDirectory;
  std::filesystem::path file;
  Clock* clock = nullptr;
  Executor notificationExecutor;

  std::mutex mutex;
  std::optional<CachedWeather> latestCache;
  Date lastCacheUpdate = Date::distantPast();
  std::vector<std::shared_ptr<const std::function<void()>>> listeners;

  Date now() const { return Date::fromSystem(clock->now()); }

  // The file's date, or the distant past for every failure.
  Date fileDate() const { return fileModificationDate(file).value_or(Date::distantPast()); }

  static std::optional<CachedWeather> readFile(const std::filesystem::path& file) {
    try {
      if (auto bytes = readFileIfExists(file)) return decodeCachedWeather(*bytes);
    } catch (const std::exception&) {
    }
    return std::nullopt;
  }

  // Reloads the file when it is newer than memory. Caller holds `mutex`.
  void reloadIfChangedLocked() {
    const Date date = fileDate();
    if (latestCache && !(lastCacheUpdate < date)) return;
    if (auto decoded = readFile(file)) {
      latestCache = std::move(decoded);
      lastCacheUpdate = date;
    }
  }

  // Posts every listener; takes the mutex itself, so call it without holding it.
  void notifyAll() {
    std::vector<std::shared_ptr<const std::function<void()>>> targets;
    {
      std::lock_guard guard(mutex);
      targets = listeners;
    }
    notify(targets);
  }

  // Posts every listener to the notification executor; never runs one under the mutex.
  void notify(const std::vector<std::shared_ptr<const std::function<void()>>>& targets) {
    for (const auto& listener : targets) {
      auto call = [listener] { (*listener)(); };
      asio::post(notificationExecutor, std::move(call));
    }
  }

  // Sets memory to `value` (from disk at `date`) and notifies when it changed.
  void applyPersisted(const std::optional<CachedWeather>& value, Date date) {
    std::vector<std::shared_ptr<const std::function<void()>>> targets;
    {
      std::lock_guard guard(mutex);
      const bool changed = latestCache != value;
      latestCache = value;
      lastCacheUpdate = date;
      if (changed) targets = listeners;
    }
    notify(targets);
  }

  // After a failed write: memory takes the merge anyway.
  void absorbFailedStore(const CachedWeather& candidate) {
    std::vector<std::shared_ptr<const std::function<void()>>> targets;
    {
      std::lock_guard guard(mutex);
      const Date date = fileDate();
      if (date > lastCacheUpdate) {
        if (auto decoded = readFile(file)) {
          latestCache = std::move(decoded);
          lastCacheUpdate = date;
        }
      }
      CachedWeather merged = preferredLatestWeather(latestCache, candidate, kLatestWeatherMergeRadius);
      if (latestCache != merged) {
        latestCache = std::move(merged);
        targets = listeners;
      }
    }
    notify(targets);
  }
};

WeatherCache::WeatherCache(std::filesystem::path cacheDirectory, Clock& clock, Executor notificationExecutor)
    : state_(std::make_shared<State>()) {
  state_->cacheDirectory = std::move(cacheDirectory);
  state_->file = state_->cacheDirectory / std::string(latestWeatherKey);
  state_->clock = &clock;
  state_->notificationExecutor = std::move(notificationExecutor);
  state_->latestCache = State::readFile(state_->file);
  state_->lastCacheUpdate = state_->fileDate();
  detail::TripCacheContext tripContext;
  tripContext.mutex = std::shared_ptr<std::mutex>(state_, &state_->mutex);
  std::weak_ptr<State> weak = state_;
  tripContext.notifyWillChange = [weak] {
    if (auto state = weak.lock()) state->notifyAll();
  };
  tripContext.cacheDirectory = state_->cacheDirectory;
  tripContext.clock = &clock;
  trips_ = detail::makeTripCacheCore(std::move(tripContext));
}

WeatherCache::~WeatherCache() = default;

const std::filesystem::path& WeatherCache::cacheDirectory() const noexcept { return state_->cacheDirectory; }

std::filesystem::path WeatherCache::latestWeatherFile() const { return state_->file; }

std::optional<CachedWeather> WeatherCache::latestCachedWeather() {
  std::lock_guard guard(state_->mutex);
  state_->reloadIfChangedLocked();
  return state_->latestCache;
}

void WeatherCache::onWillChange(std::function<void()> listener) {
  auto shared = std::make_shared<const std::function<void()>>(std::move(listener));
  std::lock_guard guard(state_->mutex);
  state_->listeners.push_back(std::move(shared));
}

namespace {

// The coordinated commit of one latest-weather store. Unlike the generic transaction, any read
// failure (not only a missing file) counts as nothing persisted: a broken file must never keep
// the newest weather out.
void commitLatestWeather(const std::filesystem::path& file, const CachedWeather& candidate, Date encodingMoment,
                         Date now, const std::function<void(const CachedWeather&, Date)>& applyPersistedValue) {
  std::optional<CachedWeather> persisted;
  try {
    if (auto bytes = readFileIfExists(file)) persisted = decodeCachedWeather(*bytes);
  } catch (const std::exception&) {
  }
  CachedWeather outcome = preferredLatestWeather(persisted, candidate, kLatestWeatherMergeRadius);
  if (persisted != outcome) writeFileAtomically(file, encodeCachedWeather(outcome, encodingMoment));
  const std::optional<Date> date = fileModificationDate(file);
  applyPersistedValue(outcome, date ? *date : now);
}

}  // namespace

Task<void> WeatherCache::storeLatest(CachedWeather cachedWeather) {
  const std::shared_ptr<State> state = state_;
  std::weak_ptr<State> weak = state;
  const std::filesystem::path file = state->file;
  const Date now = state->now();
  std::function<void(const CachedWeather&, Date)> apply = [weak](const CachedWeather& outcome, Date date) {
    if (auto state = weak.lock()) state->applyPersisted(outcome, date);
  };
  // Shared, not copied: the operation is copied into the writer's closure, and a record is big.
  auto candidate = std::make_shared<const CachedWeather>(std::move(cachedWeather));
  std::function<void()> operation = [file, candidate, now, apply] {
    commitLatestWeather(file, *candidate, now, now, apply);
  };
  std::exception_ptr failure;
  try {
    co_await performCoordinatedWrite<void>(coordinationFilePath(file), std::move(operation));
  } catch (...) {
    failure = std::current_exception();
  }
  if (!failure) co_return;
  rethrowIfCancellation(failure);
  co_await throwIfCancelled();
  state->absorbFailedStore(*candidate);
  std::rethrow_exception(failure);
}

}  // namespace ombrine
