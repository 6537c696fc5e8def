#pragma once
#include <CLI/CLI.hpp>

namespace ombrine::app {

// `ombrine places search TEXT [--limit N] [--json]` and `ombrine places at LAT,LON [--json]`:
// the offline place search and reverse geocoder. `ombrine places save|list|remove|home`: the
// saved places and the home place, kept in the synced key-value store. Exit codes: 0 done,
// 1 no result, no such saved place or missing data, 2 malformed input.
void addPlacesCommand(CLI::App& app);

}  // namespace ombrine::app
