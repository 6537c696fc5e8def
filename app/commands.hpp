#pragma once
// Registration of the `ombrine` subcommands. Each command runs from its CLI11 callback and
// records the process exit code; failures print one clear line on stderr.

#include <CLI/CLI.hpp>

namespace ombrine::app {

void addCommands(CLI::App& app);

// 0 after success, 1 after a failure a command reported.
int exitCode();
void setExitCode(int code);

}  // namespace ombrine::app
