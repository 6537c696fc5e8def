#include "app/widget_command.hpp"

#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <iostream>
#include <memory>

#include "app/commands.hpp"
#include "app/failure_text.hpp"
#include "app/global_options.hpp"
#include "core/values/iso8601.hpp"
#include "persistence/favorite_store.hpp"
#include "persistence/favorite_weather_cache.hpp"
#include "platform/http_client.hpp"
#include "platform/linux/file_widget_center.hpp"
#include "platform/log.hpp"
#include "trips/trip_store.hpp"
#include "widget/widget_view.hpp"

namespace ombrine::app {

namespace {

struct WidgetOptions {
  std::string format = "text";
  std::string place;
  bool follow = false;
};

class NoSuchPlace : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

bool startsWithIgnoringCase(std::string_view text, std::string_view prefix) {
  return text.size() >= prefix.size() && equalsIgnoringCase(text.substr(0, prefix.size()), prefix);
}

std::optional<std::string> nextTrip(Services& services, Date now) {
  std::optional<Trip> next;
  for (const auto& trip : services.trips().trips()) {
    if (trip.dates.to <= now) continue;
    if (!next || trip.dates.from < next->dates.from) next = trip;
  }
  if (!next) return std::nullopt;
  const bool active = next->dates.from <= now;
  return next->destination.shownName() + (active ? " until " + iso8601String(next->dates.to).substr(0, 10)
                                                 : " from " + iso8601String(next->dates.from).substr(0, 10));
}

std::string line(Services& services, const WidgetOptions& options, WidgetFormat format) {
  WidgetInput input;
  input.now = Date::fromSystem(services.clock().now());
  input.unit = weatherTemperatureUnit(currentLocale());
  input.nextTrip = nextTrip(services, input.now);
  std::optional<CachedWeather> favorite;
  std::optional<PlacedWeather> latest;
  if (!options.place.empty()) {
    for (const auto& saved : services.favorites().locations()) {
      if (!startsWithIgnoringCase(saved.shownName(), options.place)) continue;
      input.placeName = saved.shownName();
      const auto cached = services.favoriteWeather().weather();
      if (auto found = cached.find(saved.id); found != cached.end()) favorite = found->second;
      break;
    }
    if (input.placeName.empty()) {
      latest = services.latestWeather().latest();
      if (!latest || !startsWithIgnoringCase(latest->name, options.place)) {
        throw NoSuchPlace("no saved place or cached forecast named \"" + options.place + "\"");
      }
    }
  } else {
    latest = services.latestWeather().latest();
  }
  if (favorite) input.weather = &favorite->weather;
  if (latest) {
    input.placeName = latest->name;
    input.weather = &latest->weather;
  }
  return widgetOutput(input, format);
}

// Blocks until the reload file is written again (or replaced).
void waitForReload(int watch) {
  char events[4096];
  pollfd descriptor{watch, POLLIN, 0};
  while (::poll(&descriptor, 1, -1) >= 0) {
    const ssize_t length = ::read(watch, events, sizeof events);
    for (ssize_t at = 0; at < length;) {
      const auto* event = reinterpret_cast<const inotify_event*>(events + at);
      if (event->len && std::string_view(event->name) == "reloadAllTimelines") return;
      at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
    }
  }
}

int run(const WidgetOptions& options) {
  const auto format = widgetFormatNamed(options.format);
  ServicesOptions servicesOptions;
  servicesOptions.requireReadableSyncedStore = false;
  ProgramServices program(std::move(servicesOptions));
  Services& services = *program;
  std::cout << line(services, options, *format) << std::endl;
  if (!options.follow) return 0;
  const auto folder = FileWidgetCenter::defaultFolder();
  std::filesystem::create_directories(folder);
  const int watch = ::inotify_init1(IN_CLOEXEC);
  if (watch < 0 || ::inotify_add_watch(watch, folder.c_str(), IN_CLOSE_WRITE | IN_MOVED_TO | IN_CREATE) < 0) {
    logf("ombrine widget: cannot watch {}", folder.string());
    return 1;
  }
  for (;;) {
    waitForReload(watch);
    // A fresh read of every cache: other processes wrote them.
    ProgramServices fresh;
    std::cout << line(*fresh, options, *format) << std::endl;
  }
}

}  // namespace

void addWidgetCommand(CLI::App& app) {
  auto options = std::make_shared<WidgetOptions>();
  CLI::App* command = app.add_subcommand("widget", "One status-bar line from the cached forecast (never the network)");
  command->add_option("--format", options->format, "text (default), json, waybar or i3blocks")
      ->check(CLI::IsMember({"text", "json", "waybar", "i3blocks"}));
  command->add_option("--place", options->place, "A saved place (name or its beginning); default: the latest forecast");
  command->add_flag("--follow", options->follow, "Print again whenever the widgets are told to reload");
  command->callback([options] {
    try {
      setExitCode(run(*options));
    } catch (const NoSuchPlace& error) {
      logf("ombrine widget: {}", error.what());
      setExitCode(1);
    } catch (const std::exception&) {
      logf("ombrine widget: {}", failureText(std::current_exception()));
      setExitCode(1);
    }
  });
}

}  // namespace ombrine::app
