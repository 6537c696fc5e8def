#pragma once
#include <CLI/CLI.hpp>

namespace ombrine::app {

// `ombrine forecast [PLACE | --at LAT,LON] [--provider P] [--json]`: the forecast for a place,
// readable or as the unified JSON record.
void addForecastCommand(CLI::App& app);

}  // namespace ombrine::app
