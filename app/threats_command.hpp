#pragma once
#include <CLI/CLI.hpp>

namespace ombrine::app {

// `ombrine threats [PLACE | --at LAT,LON] [--radius KM] [--json]`: what threatens a place — the
// nearest fire perimeter and incident, storms whose cone or track passes within the radius
// (default 500 km), warnings in force and coming rain — each with distance, bearing and data
// age, then the state of each source. Without a place: the home place.
// Exit codes: 0 shown, 1 every source failed or the place is unknown, 2 bad usage.
void addThreatsCommand(CLI::App& app);

}  // namespace ombrine::app
