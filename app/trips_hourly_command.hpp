#pragma once
#include <CLI/CLI.hpp>

namespace ombrine::app {

// `ombrine trips hourly [PLACE | --at LAT,LON] [--hours N] [--provider P] [--no-fetch] [--json]`,
// added under the `trips` command: the next N hours (default 24, at most what the forecast
// holds) as they will be where the user will be. Each hour comes from the trip in force then,
// else from home once a trip is over, else from PLACE (default: the home place). Every line
// shows the local time in that hour's place, the place, temperature, condition and chance of
// precipitation; a line that changes place is marked. Trip and home forecasts are fetched when
// missing or stale and kept in the shared caches; `--no-fetch` shows only what is cached.
// Exit 2 for no place at all (neither PLACE nor a home) or an unknown place; 1 when the place's
// own forecast cannot be had. A trip or home forecast that fails is reported on stderr and its
// hours fall back to the next source.
void addTripsHourlyCommand(CLI::App& trips);

}  // namespace ombrine::app
