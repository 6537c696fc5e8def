#include "wiring/fetch_pipeline.hpp"

#include <future>
#include <thread>

#include "platform/linux/file_widget_center.hpp"
#include "platform/log.hpp"
#include "wiring/geocode_namer.hpp"

namespace ombrine {

namespace {

// The process's namer, with the one place the user named by search called by that name.
class ExactNamer final : public CoordinateNamer {
 public:
  explicit ExactNamer(GeocodeNamer& namer) : namer_(namer) {}

  Task<GeoDetails> name(Location location) override {
    GeoDetails details = namer_.detailsOf(location);
    if (exact_ && exact_->first == location) details.name = exact_->second;
    co_return details;
  }

  std::optional<std::pair<Location, std::string>> exact_;

 private:
  GeocodeNamer& namer_;
};

}  // namespace

struct FetchPipeline::Parts {
  ExactNamer namer;
  FileWidgetCenter widgets;
};

FetchPipeline::FetchPipeline(Services& services, ContentView::Hooks hooks) : services_(services) {
  Clock& clock = services.clock();
  parts_ = std::unique_ptr<Parts>(new Parts{
      ExactNamer(services.namer()),
      FileWidgetCenter(clock, FileWidgetCenter::defaultFolder(), FileWidgetCenter::hookFromEnvironment()),
  });
  if (!hooks.changesToday) {
    hooks.changesToday = [&services, &clock] {
      return services.changeTracker().changesToday(Date::fromSystem(clock.now()), services.syncedStore());
    };
  }
  ContentView::Dependencies deps{
      clock,           services.network(), parts_->namer, services.latestWeather(), services.providerSettings(),
      &parts_->widgets};
  view_ = std::make_unique<ContentView>(services.runtime().makeStrand(), deps, std::move(hooks));
}

FetchPipeline::~FetchPipeline() { shutdown(); }

std::filesystem::path FetchPipeline::widgetReloadFile() const { return parts_->widgets.reloadFile(); }

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
