#pragma once
// `ombrine daemon [--once] [--poll SECONDS]`, `ombrine daemon install|uninstall|status`: the
// hourly background refresh, honoured by a long-running process or a systemd user timer.
// `ombrine notify rain [PLACE]`: the rain and snow check, once.

#include <CLI/CLI.hpp>

namespace ombrine::app {

void addDaemonCommand(CLI::App& app);
// Adds `rain` under `ombrine notify`.
void addNotifyRainCommand(CLI::App& notify);

}  // namespace ombrine::app
