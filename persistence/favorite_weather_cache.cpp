#include "persistence/favorite_weather_cache.hpp"

#include <boost/json.hpp>

#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include "core/values/errors.hpp"
#include "core/values/value_json.hpp"
#include "persistence/coordinated_value_cache.hpp"
#include "platform/async/coroutines.hpp"
#include "platform/atomic_file.hpp"
#include "platform/thread_annotations.hpp"

namespace ombrine {

std::string encodeFavoriteWeather(const FavoriteWeather& weather, Date encodingMoment) {
  std::string text;
  JsonWriter writer(text);
  writer.beginArray();
  for (const auto& [id, cached] : weather) {
    writer.string(id.text());
    writeCachedWeather(writer, cached, encodingMoment);
  }
  writer.endArray();
  return text;
}

FavoriteWeather decodeFavoriteWeather(std::string_view json) {
  boost::json::monotonic_resource arena;  // the document dies here; the records copy what they keep
  const boost::json::value document = parseJson(json, &arena);
  const JsonPath root;
  const auto* entries = document.if_array();
  if (entries == nullptr) root.fail("expected an array of alternating ids and records");
  if (entries->size() % 2 != 0) root.fail("an id without a record");
  FavoriteWeather weather;
  for (std::size_t i = 0; i < entries->size(); i += 2) {
    const JsonPath keyPath = root.index(i);
    const auto* text = (*entries)[i].if_string();
    if (text == nullptr) keyPath.fail("expected an id");
    const auto id = Uuid::parse(*text);
    if (!id) keyPath.fail("not an id");
    const JsonPath valuePath = root.index(i + 1);
    try {
      weather.insert_or_assign(*id, decodeCachedWeather(serializeJson((*entries)[i + 1])));
    } catch (const DecodingError& error) {
      valuePath.fail(error.what());
    }
  }
  return weather;
}

struct FavoriteWeatherCache::State {
  std::filesystem::path file;
  Clock* clock = nullptr;
  Executor queue;

  Mutex mutex;
  FavoriteWeather weather GUARDED_BY(mutex);
  std::uint64_t saveGeneration GUARDED_BY(mutex) = 0;
  // The snapshot of `saveGeneration` while it is not written yet.
  std::optional<FavoriteWeather> unsaved GUARDED_BY(mutex);
  SpawnedTask pendingSave GUARDED_BY(mutex);
  std::vector<std::shared_ptr<const std::function<void()>>> listeners GUARDED_BY(mutex);

  // Serialises the file writes, so an older snapshot never lands after a newer one.
  Mutex diskMutex;

  // Writes the snapshot of `generation` if it is still the newest and unwritten.
  void saveIfCurrent(std::uint64_t generation) {
    MutexLock disk(diskMutex);
    FavoriteWeather snapshot;
    {
      MutexLock guard(mutex);
      if (generation != saveGeneration || !unsaved) return;
      snapshot = std::move(*unsaved);
      unsaved.reset();
    }
    write(snapshot);
  }

  void write(const FavoriteWeather& snapshot) const noexcept {
    try {
      if (snapshot.empty()) {
        detail::removeFileIfExists(file);
      } else {
        writeFileAtomically(file, encodeFavoriteWeather(snapshot, Date::fromSystem(clock->now())));
      }
    } catch (const std::exception&) {
      // Memory keeps the dictionary; the next change saves it again.
    }
  }

  static Task<void> saveLater(std::weak_ptr<State> weak, Clock& clock, std::uint64_t generation) {
    co_await clock.sleep(saveDelay);
    if (auto state = weak.lock()) state->saveIfCurrent(generation);
  }
};

FavoriteWeatherCache::FavoriteWeatherCache(std::filesystem::path cacheDirectory, Clock& clock, Executor executor)
    : state_(std::make_shared<State>()) {
  state_->file = cacheDirectory / std::string(favoritesCacheKey);
  state_->clock = &clock;
  state_->queue = serialExecutor(executor);
  FavoriteWeather stored;
  try {
    if (auto bytes = readFileIfExists(state_->file)) stored = decodeFavoriteWeather(*bytes);
  } catch (const std::exception&) {
    stored.clear();
  }
  setWeather(std::move(stored));
}

FavoriteWeatherCache::~FavoriteWeatherCache() {
  SpawnedTask pending;
  {
    MutexLock guard(state_->mutex);
    pending = state_->pendingSave;
  }
  pending.cancel();
  flush();
}

std::filesystem::path FavoriteWeatherCache::file() const { return state_->file; }

FavoriteWeather FavoriteWeatherCache::weather() const {
  MutexLock guard(state_->mutex);
  return state_->weather;
}

void FavoriteWeatherCache::setWeather(FavoriteWeather weather) {
  SpawnedTask previous;
  SpawnedTask next = SpawnedTask::prepare(state_->queue);
  std::uint64_t generation = 0;
  std::vector<std::shared_ptr<const std::function<void()>>> listeners;
  {
    MutexLock guard(state_->mutex);
    if (state_->weather == weather) return;
    state_->unsaved = weather;
    state_->weather = std::move(weather);
    generation = ++state_->saveGeneration;
    previous = std::exchange(state_->pendingSave, next);
    listeners = state_->listeners;
  }
  // A superseded save would find its generation outdated anyway; cancelling it just ends its
  // sleep early.
  if (previous) previous.cancel();
  std::weak_ptr<State> weak = state_;
  auto ignore = [](std::exception_ptr) {};
  next.start(State::saveLater(weak, *state_->clock, generation), ignore);
  for (const auto& listener : listeners) (*listener)();
}

void FavoriteWeatherCache::flush() {
  std::uint64_t generation = 0;
  {
    MutexLock guard(state_->mutex);
    generation = state_->saveGeneration;
  }
  state_->saveIfCurrent(generation);
}

void FavoriteWeatherCache::onChange(std::function<void()> listener) {
  auto shared = std::make_shared<const std::function<void()>>(std::move(listener));
  MutexLock guard(state_->mutex);
  state_->listeners.push_back(std::move(shared));
}

}  // namespace ombrine
