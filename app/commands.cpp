#include "app/commands.hpp"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>

#include "app/alerts_command.hpp"
#include "app/cache_command.hpp"
#include "app/daemon_command.hpp"
#include "app/fires_command.hpp"
#include "app/forecast_command.hpp"
#include "app/global_options.hpp"
#include "app/history_command.hpp"
#include "app/notifications_command.hpp"
#include "app/places_command.hpp"
#include "app/radar_command.hpp"
#include "app/serve_command.hpp"
#include "app/settings_command.hpp"
#include "app/sources_command.hpp"
#include "app/storms_command.hpp"
#include "app/sun_command.hpp"
#include "app/threats_command.hpp"
#include "app/tides_command.hpp"
#include "app/trips_command.hpp"
#include "app/trips_forecast_command.hpp"
#include "app/units_command.hpp"
#include "app/widget_command.hpp"

namespace ombrine::app {

namespace {

std::atomic<int> code{0};

void addTripsCommands(CLI::App& app) { addTripsForecastCommand(*addTripsCommand(app)); }

struct Command {
  std::string_view name;
  void (*add)(CLI::App&);
};
// In the order --help lists them.
constexpr Command kCommands[] = {
    {"forecast", addForecastCommand}, {"places", addPlacesCommand},
    {"settings", addSettingsCommand}, {"units", addUnitsCommand},
    {"cache", addCacheCommand},       {"trips", addTripsCommands},
    {"tides", addTidesCommand},       {"alerts", addAlertsCommand},
    {"notify", addNotifyCommand},     {"notifications", addNotificationsCommand},
    {"storms", addStormsCommand},     {"sun", addSunCommand},
    {"history", addHistoryCommand},   {"daemon", addDaemonCommand},
    {"radar", addRadarCommand},       {"sources", addSourcesCommand},
    {"fires", addFiresCommand},       {"serve", addServeCommand},
    {"threats", addThreatsCommand},   {"widget", addWidgetCommand},
};

}  // namespace

void addCommands(CLI::App& app, std::string_view only) {
  addGlobalOptions(app);
  const bool known = std::any_of(std::begin(kCommands), std::end(kCommands),
                                 [&](const Command& command) { return command.name == only; });
  for (const Command& command : kCommands) {
    if (!known || command.name == only) command.add(app);
  }
}

namespace {

// The number the whole of `text` spells; nothing for "", "3x" or "abc".
std::optional<double> wholeNumber(const std::string& text) {
  char* end = nullptr;
  const double value = std::strtod(text.c_str(), &end);
  if (text.empty() || *end != '\0') return std::nullopt;
  return value;
}

}  // namespace

CLI::Validator positiveNumber() {
  return CLI::Validator(
      [](std::string& text) -> std::string {
        const auto value = wholeNumber(text);
        if (!value || !(*value > 0 && *value < 1e300)) return "must be a number greater than 0";
        return {};
      },
      "POSITIVE");
}

CLI::Validator numberBetween(double low, double high) {
  return CLI::Validator(
      [low, high](std::string& text) -> std::string {
        const auto value = wholeNumber(text);
        if (!value || !(*value >= low && *value <= high)) {
          return fmt::format("must be a number from {} to {}", low, high);
        }
        return {};
      },
      fmt::format("{}..{}", low, high));
}

std::string countOf(long count, const char* one, const char* many) {
  return std::to_string(count) + " " + (count == 1 ? one : many);
}

bool colourWanted(int fd) noexcept {
  const char* noColour = std::getenv("NO_COLOR");
  const char* term = std::getenv("TERM");
  if (noColour && *noColour) return false;
  if (term && std::string_view(term) == "dumb") return false;
  return ::isatty(fd) != 0;
}

int exitCode() { return code.load(); }
void setExitCode(int value) { code.store(value); }

}  // namespace ombrine::app
