#pragma once
#include <CLI/CLI.hpp>

namespace ombrine::app {

// `ombrine places search TEXT [--limit N] [--json]` and `ombrine places at LAT,LON [--json]`:
// the offline place search and reverse geocoder. Exit codes: 0 found, 1 no result or missing
// data, 2 malformed input.
void addPlacesCommand(CLI::App& app);

}  // namespace ombrine::app
