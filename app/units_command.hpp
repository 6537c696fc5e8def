#pragma once
#include <CLI/CLI.hpp>

namespace ombrine::app {

// `ombrine units [--locale L]`: a table of sample values formatted by the unit rules of a locale.
void addUnitsCommand(CLI::App& app);

}  // namespace ombrine::app
