#include "app/commands.hpp"

#include <atomic>

#include "app/units_command.hpp"

namespace ombrine::app {

namespace {
std::atomic<int> code{0};
}

void addCommands(CLI::App& app) { addUnitsCommand(app); }

int exitCode() { return code.load(); }
void setExitCode(int value) { code.store(value); }

}  // namespace ombrine::app
