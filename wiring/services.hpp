#pragma once
// The composition root: builds the process's long-lived services, each once, and plugs them
// together. `app/` (the command), the daemon and the web server receive them from here; nothing
// inside the library builds its own.
//
// A service is built on first use, so a command pays only for what it touches (`places at`
// never starts the runtime or the HTTP client). Members are declared in dependency order and so
// destroyed in reverse: the runtime outlives the HTTP client (whose completions it runs) and
// every cache and store that posts to it; the synced store outlives the settings that write it
// and is synchronised last, so nothing a command wrote is lost at exit.
//
// Accessors may be called from any thread; each builds its service at most once.

#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "core/fetch/credentials.hpp"
#include "core/fetch/data_source_change_tracker.hpp"
#include "core/fetch/fetch_dependencies.hpp"
#include "core/fetch/geocoder.hpp"
#include "core/fetch/network_manager.hpp"
#include "core/fetch/service_endpoints.hpp"
#include "core/values/weather_data_source.hpp"
#include "platform/http_client.hpp"
#include "platform/linux/desktop_notification_center.hpp"
#include "platform/linux/file_background_scheduler.hpp"
#include "platform/linux/file_cloud_key_value_store.hpp"
#include "platform/linux/file_key_value_store.hpp"
#include "platform/linux/file_location_provider.hpp"
#include "platform/linux/system_clock.hpp"
#include "platform/runtime.hpp"

namespace ombrine {

class ClimateNormalsService;
class CredentialIssuer;
class HttpCache;
class RadarLoader;
class TileRequestPacer;
struct TileSession;
class TileTokenManager;
class BCWildfireEnrichmentCache;
class FavoriteStore;
class FireMapLoader;
class FireProviderCooldownStore;
struct FireProviderSnapshots;
class FavoriteWeatherCache;
struct TripWeatherFetcher;
class HomeStore;
class SettingsStore;
class TideDiskCache;
class TideService;
class TripStore;
class WeatherCache;
class GeocodeNamer;
class BackgroundRefresh;
class ServicesRefreshWork;

struct ServicesOptions {
  // Replaces every service's endpoint (a simulator's); nothing: the public services, or the
  // simulator named by OMBRINE_SERVICES.
  std::optional<ServiceEndpoints> endpoints;
  // The device language ("en", "de", ...); empty: from the reader's locale.
  std::string languageCode;
  // The provider of this run (`--provider`), standing over the stored preference without
  // changing it; nothing: the stored preference decides.
  std::optional<WeatherDataSource> dataSource;
  // Watch the synced store for other processes' changes (long-running commands).
  bool watchSyncedStore = false;
  // A synced store that cannot be read fails the command (which could neither show nor change
  // it); when false, the failure is logged and the store reads as empty (a forecast still shows).
  bool requireReadableSyncedStore = true;
};

// What a change of the preferred source did.
struct DataSourceChange {
  bool changed = false;       // false: the source was already the preferred one
  int changesBefore = 0;      // changes made today across devices before this one
  bool limitReached = false;  // the change no longer forces a refetch today
};

class Services {
 public:
  // Raises FileError for an unreadable or unsafe credential file (unless the environment holds
  // every secret) and std::invalid_argument for a malformed OMBRINE_SERVICES.
  explicit Services(ServicesOptions options);
  ~Services();
  Services(const Services&) = delete;
  Services& operator=(const Services&) = delete;

  Clock& clock() noexcept { return clock_; }
  const ServiceEndpoints& endpoints() const noexcept { return endpoints_; }
  const Credentials& credentials() const noexcept { return credentials_; }
  const std::string& languageCode() const noexcept { return languageCode_; }
  // True when requests go to a simulator (which checks only that a token is sent).
  bool simulated() const noexcept { return simulated_; }
  // With the simulator and no system weather key configured, the public key (PEM) of the
  // throwaway key this run signs its developer tokens with; the simulator must trust it.
  const std::optional<std::string>& simulatorWeatherKitPublicKey() const noexcept {
    return simulatorWeatherKitPublicKey_;
  }

  Runtime& runtime();
  HttpClient& http();
  // The shared HTTP cache of the container ("Library/Caches/URLCache") and the client that
  // answers from it as each request's cache policy says (the shared default session).
  HttpCache& httpCache();
  HttpClient& cachedHttp();
  // Raises the geocoder's errors when the place data is missing.
  const Geocoder& geocoder();
  // The geocode cache in front of the geocoder: one reader and writer of it per process.
  GeocodeNamer& namer();

  // The synced (cloud) key-value store and the local defaults. Opening the synced store runs
  // the daily backup, as every launch does (a failure is logged).
  FileCloudKeyValueStore& syncedStore();
  FileKeyValueStore& standardDefaults();
  FileKeyValueStore& sharedDefaults();
  SettingsStore& settings();
  FavoriteStore& favorites();
  HomeStore& home();
  TripStore& trips();
  DataSourceChangeTracker& changeTracker();

  // The container's shared weather cache (latest record, trips). A caches folder that cannot be
  // created is logged once; `latestWeather()` then stores nothing.
  WeatherCache& weatherCache();
  LatestWeatherStore& latestWeather();
  // The saved places' weather (one snapshot file of the container).
  FavoriteWeatherCache& favoriteWeather();
  TideService& tides();
  TideDiskCache& tideDiskCache();
  // Climate normals, cached in the per-process history folder.
  ClimateNormalsService& climate();
  // The fire services' shared state, kept for the life of the process: the cooldowns per
  // service, the snapshots of the US providers' last complete answers and British Columbia's
  // names; and the envelope loader that uses them.
  FireProviderCooldownStore& fireCooldowns();
  FireProviderSnapshots& fireSnapshots();
  BCWildfireEnrichmentCache& bcWildfireEnrichment();
  FireMapLoader& fireMapLoader();
  // Desktop notifications, with the spool of the container.
  DesktopNotificationCenter& notificationCenter();

  // Background wake-ups: the standing requests of the container. A pass that has not completed
  // after OMBRINE_BACKGROUND_PASS_LIMIT_MS (default 30 s) is expired.
  FileBackgroundScheduler& backgroundScheduler();
  // Where the user is (OMBRINE_LOCATION, the location file); the home place is the caller's
  // fallback (wiring/background_work.hpp).
  LocationProvider& locationProvider();
  // The hourly refresh over the scheduler, its pass on a strand of the runtime. A minute of its
  // delays lasts OMBRINE_BACKGROUND_MINUTE_MS milliseconds (default 60000; shorter for tests).
  BackgroundRefresh& backgroundRefresh();
  std::chrono::milliseconds backgroundMinute() const;
  // The tile proxy's credential (signed with the configured key; with a key made for the run
  // when the services are simulated and none is configured), its token, and the radar
  // timelines.
  CredentialIssuer& credentialIssuer();
  TileTokenManager& tileTokens();
  RadarLoader& radar();
  // What every tile overlay downloads through: the shared session and HTTP cache, the tile
  // memory cache, the token, requests paced at ten a second.
  TileSession& tileSession();

  // The one fetch path: provider choice, tides and the providers' cache short-cut.
  NetworkManager& network();
  // What trip forecasts fetch through: the namer and the one fetch path, tides included.
  TripWeatherFetcher tripWeatherFetcher();
  // The preference the fetch path reads: this run's `--provider` over the stored one.
  ProviderSettings& providerSettings();

  // The user changes the preferred source: stores it, counts the change (when it is one) and
  // says whether today's limit still lets it force a refetch. Raises FileError when the
  // local defaults cannot be written.
  DataSourceChange changeDataSource(WeatherDataSource source);

 private:
  // Placeholder credentials where the simulator needs them and none are configured.
  void useSimulatorPlaceholders();
  template <class T>
  struct Lazy {
    std::once_flag once;
    std::unique_ptr<T> value;
    template <class Make>
    T& get(Make make) {
      std::call_once(once, [&] { value = make(); });
      return *value;
    }
  };
  struct Adapters;
  class RunProviderSettings;
  std::unique_ptr<Adapters> makeAdapters();

  SystemClock clock_;
  ServicesOptions options_;
  ServiceEndpoints endpoints_;
  Credentials credentials_;
  std::string languageCode_;
  bool simulated_ = false;
  std::optional<std::string> simulatorWeatherKitPublicKey_;

  Lazy<FileCloudKeyValueStore> synced_;
  Lazy<FileKeyValueStore> standardDefaults_;
  Lazy<FileKeyValueStore> sharedDefaults_;
  Lazy<Runtime> runtime_;
  Lazy<HttpClient> http_;
  Lazy<Geocoder> geocoder_;
  Lazy<GeocodeNamer> namer_;
  Lazy<SettingsStore> settings_;
  Lazy<RunProviderSettings> providerSettings_;
  Lazy<FavoriteStore> favorites_;
  Lazy<HomeStore> home_;
  Lazy<TripStore> trips_;
  Lazy<DataSourceChangeTracker> changeTracker_;
  Lazy<WeatherCache> weatherCache_;
  // False once the caches folder could not be created (reported then, once).
  bool cachesWritable_ = true;
  Lazy<FavoriteWeatherCache> favoriteWeather_;
  Lazy<TideDiskCache> tideDiskCache_;
  Lazy<TideService> tides_;
  Lazy<ClimateNormalsService> climate_;
  Lazy<FireProviderCooldownStore> fireCooldowns_;
  Lazy<FireProviderSnapshots> fireSnapshots_;
  Lazy<BCWildfireEnrichmentCache> bcWildfireEnrichment_;
  Lazy<FireMapLoader> fireMapLoader_;
  Lazy<DesktopNotificationCenter> notificationCenter_;
  Lazy<Adapters> adapters_;
  Lazy<NetworkManager> network_;
  Lazy<FileBackgroundScheduler> backgroundScheduler_;
  Lazy<FileLocationProvider> locationProvider_;
  Lazy<ServicesRefreshWork> refreshWork_;
  Lazy<BackgroundRefresh> backgroundRefresh_;
  Lazy<HttpCache> httpCache_;
  Lazy<HttpClient> cachedHttp_;
  Lazy<CredentialIssuer> credentialIssuer_;
  Lazy<TileTokenManager> tileTokens_;
  Lazy<RadarLoader> radar_;
  Lazy<TileRequestPacer> tilePacer_;
  Lazy<TileSession> tileSession_;
};

}  // namespace ombrine
