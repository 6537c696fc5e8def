#pragma once
// The user's choice of forecast provider, as the fetch pipeline reads it.
//
// Two things: the stored preference (`dataSource`, 0 dynamic .. 3 ow) and at most one pending
// `ImmediateWeatherProviderFetchRequest`, which means "fetch now with this provider, whatever the
// stored preference says". A fetch that carried a request's id completes it when it ends, on
// success and on failure alike, and completing it never changes the stored preference.
//
// The settings store implements `ProviderSettings` for real; `SessionProviderSettings` below is
// the in-memory one for a single run (and for tests).

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/values/uuid.hpp"
#include "core/values/weather_data_source.hpp"
#include "platform/async/observer_list.hpp"
#include "platform/thread_annotations.hpp"

namespace ombrine {

struct ImmediateWeatherProviderFetchRequest {
  Uuid id;
  WeatherDataSource provider = WeatherDataSource::dynamic;
  bool operator==(const ImmediateWeatherProviderFetchRequest&) const = default;
};

// JSON {"id": "<UUID text>", "provider": <0..3>}, keys in that order.
std::string encodeImmediateWeatherProviderFetchRequest(const ImmediateWeatherProviderFetchRequest& request);
// Raises DecodingError (core/values/errors.hpp) for bad JSON, a missing key, an id that is not a UUID
// or a provider number outside 0..3. Unknown keys are ignored.
ImmediateWeatherProviderFetchRequest decodeImmediateWeatherProviderFetchRequest(std::string_view json);

// What changed, as told to observers of ProviderSettings.
enum class ProviderSettingsChange {
  dataSource,        // the stored preference
  immediateRequest,  // a request was posted, replaced or completed
};

// The preference as the fetch pipeline reads it.
//
// Context: every member may be called from any thread. Observers are called on whatever thread
// made (or noticed) the change, never while the implementation holds a lock; a receiver that
// owns state on a serial context posts to it. An observer stays registered while the returned
// subscription lives (platform/async/observer_list.hpp).
class ProviderSettings {
 public:
  using Observer = std::function<void(ProviderSettingsChange)>;

  virtual ~ProviderSettings() = default;
  // The stored preference ("preferredWeatherProvider").
  virtual WeatherDataSource dataSource() const = 0;
  // The pending request ("SettingsStore.pendingImmediateWeatherProviderFetchRequest"), if any.
  virtual std::optional<ImmediateWeatherProviderFetchRequest> pendingImmediateWeatherProviderFetchRequest() const = 0;
  // Clears the pending request when its id equals `id`; otherwise does nothing. Never raises:
  // a store that cannot persist the clearing logs and keeps going.
  virtual void completeImmediateFetch(const Uuid& id) = 0;
  [[nodiscard]] virtual Subscription observeProviderChanges(Observer observer) = 0;
};

// ProviderSettings held in memory for the life of the object: the preference of one command
// run, or a test's. Thread-safe as the interface says.
class SessionProviderSettings final : public ProviderSettings {
 public:
  explicit SessionProviderSettings(WeatherDataSource dataSource = WeatherDataSource::dynamic);

  WeatherDataSource dataSource() const override;
  std::optional<ImmediateWeatherProviderFetchRequest> pendingImmediateWeatherProviderFetchRequest() const override;
  void completeImmediateFetch(const Uuid& id) override;
  [[nodiscard]] Subscription observeProviderChanges(Observer observer) override;

  // Changes the preference; observers hear of it only when it differs.
  void setDataSource(WeatherDataSource source);
  // Replaces any pending request with a new one for `provider` and returns it.
  ImmediateWeatherProviderFetchRequest requestImmediateFetch(WeatherDataSource provider);

 private:
  mutable Mutex mutex_;
  WeatherDataSource dataSource_ GUARDED_BY(mutex_);
  std::optional<ImmediateWeatherProviderFetchRequest> pending_ GUARDED_BY(mutex_);
  ObserverList<Observer> observers_;
};

}  // namespace ombrine
