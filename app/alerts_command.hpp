#pragma once
// `ombrine alerts [PLACE] [--json]`: the live warnings of a place (default: the home place) and
// whether each was announced.
// `ombrine notify alerts [PLACE]`: one notification pass over the place's warnings; stays until
// the request it added is delivered (5 seconds), so the desktop or the spool has it.

#include <CLI/CLI.hpp>

namespace ombrine::app {

void addAlertsCommand(CLI::App& app);
void addNotifyCommand(CLI::App& app);

}  // namespace ombrine::app
