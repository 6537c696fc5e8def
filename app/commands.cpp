#include "app/commands.hpp"

#include <atomic>

#include "app/alerts_command.hpp"
#include "app/cache_command.hpp"
#include "app/forecast_command.hpp"
#include "app/global_options.hpp"
#include "app/notifications_command.hpp"
#include "app/places_command.hpp"
#include "app/settings_command.hpp"
#include "app/fires_command.hpp"
#include "app/storms_command.hpp"
#include "app/trips_command.hpp"
#include "app/trips_forecast_command.hpp"
#include "app/tides_command.hpp"
#include "app/units_command.hpp"

namespace ombrine::app {

namespace {
std::atomic<int> code{0};
}

void addCommands(CLI::App& app) {
  addGlobalOptions(app);
  addForecastCommand(app);
  addPlacesCommand(app);
  addSettingsCommand(app);
  addUnitsCommand(app);
  addCacheCommand(app);
  addTripsForecastCommand(*addTripsCommand(app));
  addTidesCommand(app);
  addAlertsCommand(app);
  addNotifyCommand(app);
  addNotificationsCommand(app);
  addStormsCommand(app);
  addFiresCommand(app);
}

int exitCode() { return code.load(); }
void setExitCode(int value) { code.store(value); }

}  // namespace ombrine::app
