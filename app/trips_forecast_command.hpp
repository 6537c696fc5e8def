#pragma once
#include <CLI/CLI.hpp>

namespace ombrine::app {

// `ombrine trips forecast [TRIP] [--provider P] [--no-fetch] [--json]`, added under the `trips`
// command: the forecast of one trip (TRIP = its id or name; without it the current trip, else
// the next one), day by day, with where each day's forecast comes from. Forecasts are fetched
// when missing or stale and kept in the shared trip cache. Exit 2 for a trip that cannot be
// found, 1 when no forecast can be had at all.
void addTripsForecastCommand(CLI::App& trips);

}  // namespace ombrine::app
