#pragma once
// The main screen's fetch logic without the screen: when to fetch, guarding against duplicate
// and stale fetches, and publishing the result.
//
// `requestFetch(force)` is the only way a fetch starts. At most one request is active; setting
// `activeFetchRequest` starts the task that runs it (`performFetch`) and replacing or clearing it
// cancels that task. A running task re-checks, after every suspension, that it was not cancelled
// and is still the active request, so a replaced request can never publish.
//
// Gates of an unforced request: a network fetch began no more than 300 s ago (the first fetch
// of the process always passes); a fresh cached record under 2,000 m from the location ends the
// fetch with that record. A move over 4,000 m, the refresh gesture, a pending immediate provider
// request and (within the daily limit) a change of data source force a fetch past both gates.
//
// Context: every member must be called on the main context (the strand given to the
// constructor), except `post` and `snapshot`, which any other thread may call. Hooks are called
// on the main context. `shutdown` (on the main context) cancels the running fetch and runs a
// pending widget reload at once; destroy the object only after their tasks have ended (`idle`).

#include <cstdint>
#include <exception>
#include <functional>
#include <future>
#include <optional>
#include <string>
#include <string_view>

#include "core/fetch/fetch_dependencies.hpp"
#include "core/fetch/network_manager.hpp"
#include "core/fetch/provider_settings.hpp"
#include "core/values/uuid.hpp"
#include "platform/async/coroutines.hpp"
#include "platform/clock.hpp"
#include "platform/widget_center.hpp"

namespace ombrine {

struct WeatherFetchRequest {
  Uuid id;
  Location location;
  WeatherDataSource provider = WeatherDataSource::dynamic;
  bool force = false;
  std::optional<Uuid> immediateProviderFetchRequestID;
  bool operator==(const WeatherFetchRequest&) const = default;
};

// Remembers that an event asked for a fresh fetch while another was running.
struct WeatherFetchRecoveryState {
  std::optional<Uuid> pendingRequestID;

  // Keeps the wish against the active request; answers whether nothing is active (then the
  // caller fetches at once).
  bool note(const std::optional<Uuid>& activeID);
  // Whether `id` carried a wish; clears it if so.
  bool consume(const Uuid& id);
  // Clears a wish carried by `id`; always answers false (no fetch follows a cancellation).
  bool cancel(const Uuid& id);
  bool operator==(const WeatherFetchRecoveryState&) const = default;
};

enum class LocationAuthorization { notDetermined, denied, authorized };

// What the location side knows; `resolvedFetchLocation` picks the place to fetch for.
struct LocationInputs {
  LocationAuthorization authorization = LocationAuthorization::notDetermined;
  std::optional<Location> lastLocation;  // the location manager's last location
  std::optional<Location> home;
  std::optional<Location> firstFavorite;
  bool operator==(const LocationInputs&) const = default;
};

// Denied: home, else the first favourite, else the last location. Otherwise the last location.
std::optional<Location> resolvedFetchLocation(const LocationInputs& inputs);

// Whether a change of the selected data source forces a refetch: the cached record came from
// another source, no immediate provider request is pending, and fewer than
// DataSourceChangeTracker::kDailyLimit changes were made today before this one.
bool dataSourceChangeForcesRefetch(std::optional<WeatherDataSource> cachedSource, WeatherDataSource chosen,
                                   bool immediateRequestPending, int changesToday);

struct ContentViewState {
  std::optional<OneCallWeather> placeholderWeather;
  std::optional<OneCallWeather> currentWeather;
  std::optional<std::string> name;
  std::optional<Region> region;
  bool isFetchingData = false;
  std::optional<Date> lastFetch;
  std::optional<Uuid> lastFetchOwnerRequestID;
  bool hasHitAPILimit = false;
  bool isShowingAPILimitSorryMessage = false;
  std::optional<WeatherFetchRequest> activeFetchRequest;
  WeatherFetchRecoveryState fetchRecoveryState;
  bool sceneIsActive = false;
  bool networkIsSatisfied = true;
  LocationInputs location;
  bool operator==(const ContentViewState&) const = default;
};

// The title and text of the alert shown after a provider answered 429.
inline constexpr std::string_view kAPILimitSorryTitle = "Sorry!";
inline constexpr std::string_view kAPILimitSorryMessage =
    "There are currently way more people (trying) to check the weather with Ombrine than we "
    "expected, and we're over capacity. We are working on it and hope to be back in an hour or "
    "two.\nSorry again!";

// What the screen shows: the newer of the current record and the backdrop by `current.dt` (the
// backdrop only when strictly newer), either alone when the other is missing; nothing when
// neither exists (the caller shows its placeholder).
struct ShownWeather {
  OneCallWeather weather;
  std::optional<std::string> name;
  std::optional<Region> region;
  bool fromBackdrop = false;
};
std::optional<ShownWeather> shownWeather(const ContentViewState& state, const std::optional<PlacedWeather>& backdrop);

class ContentView {
 public:
  // The constants of the fetch rules.
  static constexpr double kMinimumFetchInterval = 300.0;        // seconds
  static constexpr double kCachedRecordReuseDistance = 2000.0;  // metres, exclusive
  static constexpr double kForcingMoveDistance = 4000.0;        // metres, exclusive
  static constexpr auto kFirstAppearancePause = std::chrono::milliseconds(450);
  static constexpr auto kWidgetReloadDelay = std::chrono::milliseconds(750);

  enum class LocationServiceAsk { requestWhenInUseAuthorization, requestLocation };

  struct Dependencies {
    Clock& clock;
    NetworkManager& network;
    CoordinateNamer& namer;
    LatestWeatherStore& cache;
    ProviderSettings& settings;
    WidgetCenter* widgets = nullptr;
  };
  struct Hooks {
    // One line per event and gate decision, for watching the pipeline work. Default: silent.
    std::function<void(std::string_view)> trace;
    // The pipeline's log lines ("Error fetching weather data: ..."). Default: stderr.
    std::function<void(std::string_view)> log;
    // After anything on screen changed (loading state, record, alert).
    std::function<void()> stateChanged;
    // A network fetch ended with this failure (not called for cancellations).
    std::function<void(std::exception_ptr)> fetchFailed;
    // The background refresh is told that a fetch took place.
    std::function<void()> fetchHappened;
    // The data source changes made today across devices, the one being handled included (the
    // changer records a change before the pipeline hears of it). Default: none.
    std::function<int()> changesToday;
    // The active request ended (finished, failed or cancelled) and none replaced it.
    std::function<void()> requestEnded;
    // The location service is asked for permission or a location.
    std::function<void(LocationServiceAsk)> askLocationService;
    // False for a caller that shows the result once and never a placeholder (a one-shot
    // command): the first record is then published without the first-appearance pause.
    bool showsPlaceholder = true;
  };

  ContentView(Strand mainContext, Dependencies dependencies, Hooks hooks);
  ContentView(Strand mainContext, Dependencies dependencies);
  ContentView(const ContentView&) = delete;
  ContentView& operator=(const ContentView&) = delete;
  ~ContentView();

  // Runs `work` on the main context. Any thread.
  void post(std::function<void(ContentView&)> work);
  // A copy of the state, taken on the main context. Blocks; never call it on the main context.
  ContentViewState snapshot();
  // True when no fetch or widget reload task is running. Main context.
  bool idle() const;

  const ContentViewState& state() const { return state_; }

  // What the location side knows at start, before any event (no fetch starts).
  void setLocationInputs(LocationInputs inputs);

  // Events.
  void locationChanged(Location location);
  void refreshGesture();
  void sceneBecameActive();
  void sceneBecameInactive();
  void networkPathChanged(bool satisfied);
  void authorizationChanged(LocationAuthorization authorization);
  void favoritesChanged(std::optional<Location> home, std::optional<Location> firstFavorite);
  void immediateProviderRequestBecameRelevant();
  void dataSourceChanged(WeatherDataSource chosen);
  void dismissAPILimitSorryMessage();

  // The pipeline.
  void requestFetch(bool force);
  void finishFetch(const WeatherFetchRequest& request);
  void handleFetchCancelled(const WeatherFetchRequest& request);
  void resetLastFetchIfOwned(const WeatherFetchRequest& request);
  void clearLastFetchOwner(const WeatherFetchRequest& request);

  // Cancels the running fetch; a widget reload still pending runs at once.
  void shutdown();

 private:
  Task<void> performFetch(WeatherFetchRequest request);
  Task<void> reloadWidgetsLater();
  void setActiveFetchRequest(std::optional<WeatherFetchRequest> request);
  bool isActive(const WeatherFetchRequest& request) const;
  void noteRecoveryWish();
  void completeImmediateRequest(const WeatherFetchRequest& request);
  void publish(const std::optional<std::string>& name, const OneCallWeather& weather,
               const std::optional<Region>& region);
  void handleFetchError(const WeatherFetchRequest& request, std::exception_ptr error, bool cancelled);
  void trace(std::string_view line) const;
  void log(std::string_view line) const;
  void changed() const;

  Strand main_;
  Dependencies deps_;
  Hooks hooks_;
  ContentViewState state_;
  SpawnedTask activeTask_;
  std::uint64_t runningTasks_ = 0;
  SpawnedTask widgetReload_;
  bool widgetReloadPending_ = false;
  bool shutDown_ = false;
};

}  // namespace ombrine
