#pragma once
#include <CLI/CLI.hpp>

namespace ombrine::app {

// `ombrine history PLACE [--compare PLACE] [--json] [-o FILE.png|FILE.svg]`: a place's monthly climate normals
// (low and high temperature, precipitation, sunshine) and its sunrise, sunset and daylight
// through this year, side by side with a second place when asked. Months without a value show
// "--". `--json` prints the normals, the monthly series and the sun comparison as JSON; `-o`
// also draws the charts into a PNG or SVG file (replaced atomically).
// Exit codes: 0 shown, 1 a service failed or a place is unknown, 2 bad usage.
void addHistoryCommand(CLI::App& app);

}  // namespace ombrine::app
