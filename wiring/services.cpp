#include "wiring/services.hpp"

#include <unicode/locid.h>

#include <cstdlib>

#include "core/unit_rules.hpp"
#include "fires/bc_wildfire_enrichment.hpp"
#include "fires/fire_fetch.hpp"
#include "fires/fire_map_loader.hpp"
#include "persistence/favorite_store.hpp"
#include "persistence/favorite_weather_cache.hpp"
#include "persistence/geocode_cache.hpp"
#include "persistence/key_value_backup.hpp"
#include "persistence/settings_store.hpp"
#include "persistence/weather_cache.hpp"
#include "places/offline_geocoder.hpp"
#include "platform/errors.hpp"
#include "platform/linux/curl_http_client.hpp"
#include "platform/log.hpp"
#include "platform/paths.hpp"
#include "tides/tide_disk_cache.hpp"
#include "tides/tide_service.hpp"
#include "trips/trip_forecast.hpp"
#include "trips/trip_store.hpp"
#include "wiring/geocode_namer.hpp"
#include "wiring/provider_clients.hpp"

namespace ombrine {

namespace {

// A simulator checks that a token is sent, never which one.
constexpr const char* kSimulatorToken = "simulator-token";

// The tide service as the fetch path's tide task. The user's `hideTides` is read at each fetch:
// with it on, no tide is asked for.
class SettingsAwareTides final : public TideFetcher {
 public:
  SettingsAwareTides(TideService& service, SettingsStore& settings) : service_(service), settings_(settings) {}

  Task<Tides> tideData(Location location, Region region) override {
    if (settings_.settings().hideTides) co_return std::nullopt;
    co_return co_await service_.tideData(location.latitude(), location.longitude(), region.identifier);
  }

 private:
  TideService& service_;
  SettingsStore& settings_;
};

// The container's latest-weather cache behind the pipeline's view of it.
class SharedLatestWeather final : public LatestWeatherStore {
 public:
  explicit SharedLatestWeather(WeatherCache& cache) : cache_(cache) {}

  std::optional<PlacedWeather> latest() override {
    auto cached = cache_.latestCachedWeather();
    if (!cached) return std::nullopt;
    return PlacedWeather{std::move(cached->name), cached->location, std::move(cached->region),
                         std::move(cached->weather)};
  }
  bool isFresh(const OneCallWeather& weather, Date now) const override { return isFreshCachedRecord(weather, now); }
  bool isUsableBackdrop(const PlacedWeather& placed, const Location& here, Date now) const override {
    // The rule reads two fields: no copy of the whole record for it.
    return ombrine::isUsableBackdrop(placed.location, placed.weather.current.dt, here, now);
  }
  Task<void> storeLatest(PlacedWeather placed) override {
    CachedWeather cached{std::move(placed.name), placed.location, std::move(placed.region), std::move(placed.weather)};
    co_await cache_.storeLatest(std::move(cached));
  }

 private:
  WeatherCache& cache_;
};

}  // namespace

// The stored preference, with this run's `--provider` standing over it. Pending immediate
// requests and observers are the store's.
class Services::RunProviderSettings final : public ProviderSettings {
 public:
  RunProviderSettings(SettingsStore& store, std::optional<WeatherDataSource> chosen) : store_(store), chosen_(chosen) {}

  WeatherDataSource dataSource() const override { return chosen_ ? *chosen_ : store_.dataSource(); }
  std::optional<ImmediateWeatherProviderFetchRequest> pendingImmediateWeatherProviderFetchRequest() const override {
    return store_.pendingImmediateWeatherProviderFetchRequest();
  }
  void completeImmediateFetch(const Uuid& id) override { store_.completeImmediateFetch(id); }
  std::shared_ptr<void> observeProviderChanges(Observer observer) override {
    return store_.observeProviderChanges(std::move(observer));
  }
  // A change of the preference during the run replaces this run's choice as well.
  void forget() { chosen_.reset(); }

 private:
  SettingsStore& store_;
  std::optional<WeatherDataSource> chosen_;
};

struct Services::Adapters {
  ProviderClients providers;
  SettingsAwareTides tides;
  SharedLatestWeather latest;
};

Services::Services(ServicesOptions options) : options_(std::move(options)) {
  const bool fromEnvironment = std::getenv("OMBRINE_SERVICES") != nullptr;
  endpoints_ = options_.endpoints ? *options_.endpoints : ServiceEndpoints::fromEnvironment();
  simulated_ = options_.endpoints.has_value() || fromEnvironment;
  credentials_ = Credentials::load();
  if (simulated_ && !credentials_.forecaToken) credentials_.forecaToken = Secret(kSimulatorToken);
  languageCode_ = options_.languageCode.empty() ? currentLocale().getLanguage() : options_.languageCode;
  if (languageCode_.empty()) languageCode_ = "en";
}

Services::~Services() {
  // What this process wrote reaches the synced file before the stores go.
  if (synced_.value) synced_.value->synchronize();
}

Runtime& Services::runtime() {
  return runtime_.get([] { return std::make_unique<Runtime>(2); });
}

HttpClient& Services::http() {
  runtime();  // completions run on the runtime: it must exist first and so outlive the client
  return http_.get([] { return std::make_unique<CurlHttpClient>(); });
}

const Geocoder& Services::geocoder() {
  return geocoder_.get([] { return std::make_unique<OfflineGeocoder>(); });
}

GeocodeNamer& Services::namer() {
  return namer_.get([this] { return std::make_unique<GeocodeNamer>(geocoder(), GeocodeCache::defaultDirectory()); });
}

FileCloudKeyValueStore& Services::syncedStore() {
  return synced_.get([this] {
    auto store = std::make_unique<FileCloudKeyValueStore>(FileCloudKeyValueStore::defaultSyncDirectory(),
                                                          options_.watchSyncedStore);
    try {
      backupKeyValueStoreIfNeeded(Date::fromSystem(clock_.now()), TimeZone::current(), *store, standardDefaults());
    } catch (const std::exception& error) {
      logf("Backup of the cloud key-value store failed: {}", error.what());
    }
    return store;
  });
}

FileKeyValueStore& Services::standardDefaults() {
  return standardDefaults_.get([] {
    return std::make_unique<FileKeyValueStore>(FileKeyValueStore::suiteFile(FileKeyValueStore::kStandardSuite));
  });
}

FileKeyValueStore& Services::sharedDefaults() {
  return sharedDefaults_.get([] {
    return std::make_unique<FileKeyValueStore>(FileKeyValueStore::suiteFile(FileKeyValueStore::kSharedSuite));
  });
}

SettingsStore& Services::settings() {
  return settings_.get([this] {
    FileCloudKeyValueStore& synced = syncedStore();
    FileKeyValueStore& shared = sharedDefaults();
    return std::make_unique<SettingsStore>(synced, shared, clock_, runtime().makeStrand());
  });
}

ProviderSettings& Services::providerSettings() {
  return providerSettings_.get(
      [this] { return std::make_unique<RunProviderSettings>(settings(), options_.dataSource); });
}

FavoriteStore& Services::favorites() {
  return favorites_.get([this] { return std::make_unique<FavoriteStore>(syncedStore()); });
}

HomeStore& Services::home() {
  return home_.get([this] { return std::make_unique<HomeStore>(syncedStore()); });
}

TripStore& Services::trips() {
  return trips_.get([this] { return std::make_unique<TripStore>(syncedStore()); });
}

DataSourceChangeTracker& Services::changeTracker() {
  return changeTracker_.get(
      [this] { return std::make_unique<DataSourceChangeTracker>(standardDefaults(), TimeZone::current()); });
}

WeatherCache& Services::weatherCache() {
  return weatherCache_.get([this] {
    const auto folder = cachesDirectory();
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (error) throw FileError("cannot create " + folder.string() + ": " + error.message());
    return std::make_unique<WeatherCache>(folder, clock_, runtime().makeStrand());
  });
}

FavoriteWeatherCache& Services::favoriteWeather() {
  return favoriteWeather_.get([this] {
    weatherCache();  // the caches folder exists
    return std::make_unique<FavoriteWeatherCache>(cachesDirectory(), clock_, runtime().makeStrand());
  });
}

TripWeatherFetcher Services::tripWeatherFetcher() {
  GeocodeNamer& geocodeNamer = namer();
  NetworkManager& fetchPath = network();
  TripWeatherFetcher fetcher;
  fetcher.name = [&geocodeNamer](const Location& location) { return geocodeNamer.detailsOf(location); };
  fetcher.fetchOneCall = [&fetchPath](Location location, GeoDetails details, WeatherDataSource source) {
    return fetchPath.fetchOneCall(location, details.region, details.timeZone, source, true);
  };
  return fetcher;
}

LatestWeatherStore& Services::latestWeather() {
  return adapters_.get([this] { return makeAdapters(); }).latest;
}

TideService& Services::tides() {
  return tides_.get([this] {
    HttpClient& client = http();
    TideDiskCache& disk =
        tideDiskCache_.get([this] { return std::make_unique<TideDiskCache>(runtime().makeStrand(), clock_); });
    return std::make_unique<TideService>(runtime().makeStrand(), client, clock_, endpoints_, disk,
                                         TideRegionGate::processWide());
  });
}

FireProviderCooldownStore& Services::fireCooldowns() {
  return fireCooldowns_.get([this] {
    // Hosted ArcGIS services keep separate quotas; so do the simulator's services, which all
    // share its one host.
    std::vector<std::string> perServiceDomains{"arcgis.com"};
    if (simulated_) perServiceDomains.push_back(std::string(endpoints_.nifcFeatureServices.host()));
    return std::make_unique<FireProviderCooldownStore>(runtime().makeStrand(), std::move(perServiceDomains));
  });
}

FireProviderSnapshots& Services::fireSnapshots() {
  return fireSnapshots_.get([] { return std::make_unique<FireProviderSnapshots>(); });
}

BCWildfireEnrichmentCache& Services::bcWildfireEnrichment() {
  return bcWildfireEnrichment_.get([this] {
    HttpClient& client = http();
    FireProviderCooldownStore& cooldowns = fireCooldowns();
    return std::make_unique<BCWildfireEnrichmentCache>(runtime().makeStrand(), client, clock_, cooldowns,
                                                       endpoints_.bcMapServices,
                                                       std::string(endpoints_.bcWildfireSituation.host()));
  });
}

FireMapLoader& Services::fireMapLoader() {
  return fireMapLoader_.get([this] {
    HttpClient& client = http();
    FireProviderCooldownStore& cooldowns = fireCooldowns();
    FireProviderSnapshots& snapshots = fireSnapshots();
    BCWildfireEnrichmentCache& bc = bcWildfireEnrichment();
    return std::make_unique<FireMapLoader>(client, clock_, endpoints_, cooldowns, snapshots, bc);
  });
}

DesktopNotificationCenter& Services::notificationCenter() {
  return notificationCenter_.get([this] {
    return std::make_unique<DesktopNotificationCenter>(clock_, DesktopNotificationCenter::defaultSpoolFolder(),
                                                       DesktopNotifier(sessionBusAddressFromEnvironment()));
  });
}

std::unique_ptr<Services::Adapters> Services::makeAdapters() {
  HttpClient& client = http();
  TideService& tideService = tides();
  SettingsStore& store = settings();
  WeatherCache& cache = weatherCache();
  return std::unique_ptr<Adapters>(new Adapters{
      ProviderClients(client, endpoints_, credentials_, clock_, languageCode_),
      SettingsAwareTides(tideService, store),
      SharedLatestWeather(cache),
  });
}

NetworkManager& Services::network() {
  return network_.get([this] {
    Adapters& adapters = adapters_.get([this] { return makeAdapters(); });
    NetworkManager::Plugins plugins{.tides = &adapters.tides, .cache = &adapters.latest};
    return std::make_unique<NetworkManager>(adapters.providers, providerSettings(), clock_, plugins);
  });
}

DataSourceChange Services::changeDataSource(WeatherDataSource source) {
  SettingsStore& store = settings();
  DataSourceChange change;
  if (store.dataSource() == source) return change;
  const Date now = Date::fromSystem(clock_.now());
  change.changed = true;
  change.changesBefore = changeTracker().changesToday(now, syncedStore());
  change.limitReached = change.changesBefore >= DataSourceChangeTracker::kDailyLimit;
  // Counted first, so that a pipeline hearing of the change finds it among today's.
  changeTracker().recordChange(now, syncedStore());
  static_cast<RunProviderSettings&>(providerSettings()).forget();
  store.update([source](Settings& settings) { settings.preferredWeatherProvider = source; });
  return change;
}

}  // namespace ombrine
