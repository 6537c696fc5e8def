#include "app/commands.hpp"

#include <atomic>

#include "app/places_command.hpp"
#include "app/units_command.hpp"

namespace ombrine::app {

namespace {
std::atomic<int> code{0};
}

void addCommands(CLI::App& app) {
  addPlacesCommand(app);
  addUnitsCommand(app);
}

int exitCode() { return code.load(); }
void setExitCode(int value) { code.store(value); }

}  // namespace ombrine::app
