#pragma once
#include <CLI/CLI.hpp>

namespace ombrine::app {

// `ombrine sun [PLACE | --at LAT,LON] [--date YYYY-MM-DD | --year Y] [--json]`: sunrise, sunset,
// the three twilights and the length of daylight at a place, computed on the device in the
// place's own time zone. One day (today there, or --date) lists every event; --year lists
// sunrise, sunset and daylight for each local day. Days without a sunrise or sunset say so
// ("Midnight sun", "Polar night"). `--json` prints the same days as JSON.
// Exit codes: 0 shown, 1 the place could not be found or named, 2 bad usage.
void addSunCommand(CLI::App& app);

}  // namespace ombrine::app
