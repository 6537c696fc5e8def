#pragma once
// The fetch pipeline of one process, assembled: the main state (ContentView) on its own strand,
// NetworkManager over the provider clients this program has, the geocode cache in front of the
// offline geocoder, the shared latest-weather cache of the container, and the widget reload file.
//
// Built after `Services` and destroyed before it. Destruction shuts the main state down
// (cancels the running fetch and the pending widget reload) and waits for its tasks.

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "core/content_view.hpp"
#include "core/network_manager.hpp"
#include "core/provider_settings.hpp"
#include "wiring/services.hpp"

namespace ombrine {

class WeatherCache;
class FileWidgetCenter;

struct FetchPipelineOptions {
  // The provider preference of this run.
  WeatherDataSource dataSource = WeatherDataSource::dynamic;
  // The shared caches folder; empty: cachesDirectory() of platform/paths.hpp.
  std::filesystem::path cacheDirectory;
  ContentView::Hooks hooks;
};

class FetchPipeline {
 public:
  // Raises FileError when the container's caches folder cannot be created.
  FetchPipeline(Services& services, FetchPipelineOptions options);
  ~FetchPipeline();
  FetchPipeline(const FetchPipeline&) = delete;
  FetchPipeline& operator=(const FetchPipeline&) = delete;

  ContentView& view() noexcept { return *view_; }
  SessionProviderSettings& settings() noexcept { return settings_; }
  LatestWeatherStore& cache() noexcept;
  const std::filesystem::path& widgetReloadFile() const noexcept { return widgetReloadFile_; }

  // Names `location` exactly `name` (a place the user searched for by name) instead of what the
  // geocoder calls the coordinate. Call before the first fetch.
  void nameExactly(const Location& location, std::string name);

  // Cancels the running fetch and waits for the main state's tasks to end. Idempotent; never
  // call it on the runtime's threads.
  void shutdown();

  struct Parts;

 private:
  Services& services_;
  SessionProviderSettings settings_;
  std::unique_ptr<Parts> parts_;
  std::unique_ptr<NetworkManager> network_;
  std::unique_ptr<ContentView> view_;
  std::filesystem::path widgetReloadFile_;
  bool shutDown_ = false;
};

}  // namespace ombrine
