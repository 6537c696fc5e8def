#pragma once
// The fetch pipeline of one process, assembled from the composition root's services: the main
// state (ContentView) on its own strand over the shared NetworkManager, the geocode namer, the
// container's latest-weather cache, the widget reload file, and the data source change tracker.
//
// Built after `Services` and destroyed before it. Destruction shuts the main state down
// (cancels the running fetch and the pending widget reload) and waits for its tasks.

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "core/fetch/content_view.hpp"
#include "wiring/services.hpp"

namespace ombrine {

class FetchPipeline {
 public:
  // Raises FileError when the container's caches folder cannot be created. Unless `hooks` count
  // the day's data source changes themselves, the change tracker does.
  FetchPipeline(Services& services, ContentView::Hooks hooks);
  ~FetchPipeline();
  FetchPipeline(const FetchPipeline&) = delete;
  FetchPipeline& operator=(const FetchPipeline&) = delete;

  ContentView& view() noexcept { return *view_; }
  LatestWeatherStore& cache() noexcept { return services_.latestWeather(); }
  std::filesystem::path widgetReloadFile() const;

  // Names `location` exactly `name` (a place the user searched for by name) instead of what the
  // geocoder calls the coordinate. Call before the first fetch.
  void nameExactly(const Location& location, std::string name);

  // Cancels the running fetch and waits for the main state's tasks to end. Idempotent; never
  // call it on the runtime's threads.
  void shutdown();

  struct Parts;

 private:
  Services& services_;
  std::unique_ptr<Parts> parts_;
  std::unique_ptr<ContentView> view_;
  bool shutDown_ = false;
};

}  // namespace ombrine
