#pragma once
// `ombrine notifications list [--json]`: what the notification spool holds, pending and delivered.
// `ombrine notifications clear`: empties it (delivered notifications are closed on the desktop).

#include <CLI/CLI.hpp>

namespace ombrine::app {

void addNotificationsCommand(CLI::App& app);

}  // namespace ombrine::app
