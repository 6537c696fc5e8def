#pragma once
#include <CLI/CLI.hpp>

namespace ombrine::app {

// `ombrine tides [PLACE | --at LAT,LON | --station ID] [--hours N] [--json]`: the tide station
// that serves a place (or the station named by its NOAA id or CHS id or code), its distance and
// the coming highs and lows in the place's local time; `--json` prints the tide record instead.
// Exit codes: 0 tides shown, 1 no tides for the place or a service failed, 2 bad usage.
void addTidesCommand(CLI::App& app);

}  // namespace ombrine::app
