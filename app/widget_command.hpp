#pragma once
#include <CLI/CLI.hpp>

namespace ombrine::app {

// `ombrine widget [--format text|json|waybar|i3blocks] [--place P] [--follow]`: one status-bar
// line from the container's caches only (the latest forecast, or a saved place's cached
// forecast, and the next trip); never asks a service. `--follow` prints again each time the
// widget reload file changes, until Ctrl-C.
// Exit codes: 0 shown (also "no forecast cached yet"), 1 no saved place named P, 2 bad usage.
void addWidgetCommand(CLI::App& app);

}  // namespace ombrine::app
