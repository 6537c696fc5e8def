#pragma once
// Registration of the `ombrine` subcommands. Each command runs from its CLI11 callback and
// records the process exit code; failures print one clear line on stderr.

#include <CLI/CLI.hpp>

namespace ombrine::app {

void addCommands(CLI::App& app);

// Accepts a number greater than 0 and says so plainly otherwise (CLI::PositiveNumber's message
// spells out the largest double).
CLI::Validator positiveNumber();

// 0 ok, 1 failure, 2 usage, 3 shown from the last good data.
int exitCode();
void setExitCode(int code);

}  // namespace ombrine::app
