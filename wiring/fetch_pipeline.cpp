#include "wiring/fetch_pipeline.hpp"

#include <future>
#include <thread>

#include "core/errors.hpp"
#include "persistence/geocode_cache.hpp"
#include "persistence/weather_cache.hpp"
#include "platform/errors.hpp"
#include "platform/linux/file_widget_center.hpp"
#include "platform/log.hpp"
#include "platform/paths.hpp"

namespace ombrine {

namespace {

// The provider clients built into this program: Foreca, through the composition root's own
// fetch (which adds what it plugs in around the client). The others are named when asked for.
class BuiltInProviders final : public ForecastProviders {
 public:
  explicit BuiltInProviders(Services& services) : services_(services) {}

  Task<OneCallWeather> fetch(ProviderPath path, Location location, Region region, TimeZone timeZone) override {
    if (path != ProviderPath::foreca) {
      throw DomainError(kRequestErrorDomain, kRequestErrorCode,
                        std::string(providerPathName(path)) + " is not available in this build");
    }
    GeoDetails details{"", region, timeZone};
    co_return co_await services_.fetchOneCall(location, details, WeatherDataSource::foreca);
  }

 private:
  Services& services_;
};

// The geocode cache, else the offline geocoder (whose answer is then cached).
class CachedNamer final : public CoordinateNamer {
 public:
  explicit CachedNamer(Services& services) : services_(services), folder_(GeocodeCache::defaultDirectory()) {}

  Task<GeoDetails> name(Location location) override {
    GeoDetails details;
    if (auto cached = GeocodeCache::cachedGeoDetails(folder_, location.latitude(), location.longitude())) {
      details = *cached;
    } else {
      details = services_.name(location);
      try {
        GeocodeCache::store(folder_, details, location.latitude(), location.longitude());
      } catch (const std::exception& error) {
        logf("Geocode cache write failed: {}", error.what());
      }
    }
    if (exact_ && exact_->first == location) details.name = exact_->second;
    co_return details;
  }

  std::optional<std::pair<Location, std::string>> exact_;

 private:
  Services& services_;
  std::filesystem::path folder_;
};

// The container's latest-weather cache behind the pipeline's view of it.
class SharedLatestWeather final : public LatestWeatherStore {
 public:
  SharedLatestWeather(std::filesystem::path folder, Clock& clock, Executor executor)
      : cache_(std::move(folder), clock, std::move(executor)) {}

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
  WeatherCache cache_;
};

}  // namespace

struct FetchPipeline::Parts {
  BuiltInProviders providers;
  CachedNamer namer;
  SharedLatestWeather cache;
  FileWidgetCenter widgets;
};

FetchPipeline::FetchPipeline(Services& services, FetchPipelineOptions options)
    : services_(services), settings_(options.dataSource) {
  const auto folder = options.cacheDirectory.empty() ? cachesDirectory() : options.cacheDirectory;
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  // A read-only container still gets its forecast, only nothing is cached.
  if (error) logLine("Caches cannot be written (" + folder.string() + ": " + error.message() + "); nothing is cached");
  Runtime& runtime = services.runtime();
  parts_ = std::unique_ptr<Parts>(new Parts{
      BuiltInProviders(services),
      CachedNamer(services),
      SharedLatestWeather(folder, services.clock(), runtime.makeStrand()),
      FileWidgetCenter(services.clock(), FileWidgetCenter::defaultFolder(), FileWidgetCenter::hookFromEnvironment()),
  });
  widgetReloadFile_ = parts_->widgets.reloadFile();
  network_ = std::make_unique<NetworkManager>(parts_->providers, settings_);
  ContentView::Dependencies deps{services.clock(), *network_, parts_->namer, parts_->cache, settings_, &parts_->widgets};
  view_ = std::make_unique<ContentView>(runtime.makeStrand(), deps, std::move(options.hooks));
}

FetchPipeline::~FetchPipeline() { shutdown(); }

LatestWeatherStore& FetchPipeline::cache() noexcept { return parts_->cache; }

void FetchPipeline::nameExactly(const Location& location, std::string name) {
  parts_->namer.exact_ = std::make_pair(location, std::move(name));
}

void FetchPipeline::shutdown() {
  if (shutDown_) return;
  shutDown_ = true;
  view_->post([](ContentView& view) { view.shutdown(); });
  auto idle = [this] {
    std::promise<bool> answer;
    auto future = answer.get_future();
    view_->post([&answer](ContentView& view) { answer.set_value(view.idle()); });
    return future.get();
  };
  // A cancelled fetch ends promptly: its tasks only need their cancellation delivered.
  const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (!idle()) {
    if (std::chrono::steady_clock::now() > giveUp) {
      logLine("The fetch pipeline did not stop within 30 s");
      return;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

}  // namespace ombrine
