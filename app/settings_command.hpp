#pragma once
#include <CLI/CLI.hpp>

namespace ombrine::app {

// `ombrine settings list|get KEY|set KEY VALUE [--json]`: the user's settings as the cloud
// key-value store holds them (keys, values and defaults of SettingsStore), and
// `ombrine settings backup|restore`: the daily local backup of the cloud store and the explicit
// restore from its latest snapshot. Exit codes: 0 done, 1 failure, 2 unknown key or bad value.
void addSettingsCommand(CLI::App& app);

}  // namespace ombrine::app
