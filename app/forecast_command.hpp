#pragma once
#include <CLI/CLI.hpp>

namespace ombrine::app {

// `ombrine forecast [PLACE | --at LAT,LON] [--provider P] [--json] [--force] [--watch]`: the
// forecast for a place through the fetch pipeline, readable or as the unified JSON record.
//
// One shot: the place is known at start and the scene becomes active, so the pipeline's gates
// apply (a fresh cached record of the place under 2 km ends it without a request); `--force` is
// the refresh gesture. `--watch` keeps the pipeline running, prints one line per event and gate
// decision to stderr and the screen again whenever the record changes; SIGUSR1 is the refresh
// gesture, SIGUSR2 selects the next data source, `--location-file` is polled for a moving place,
// the network path is polled for coming back; Ctrl-C ends it with exit code 0.
// Exit codes: 0 ok, 1 failure (a cached last good record is still shown), 2 usage.
void addForecastCommand(CLI::App& app);

}  // namespace ombrine::app
