#pragma once
#include <CLI/CLI.hpp>

namespace ombrine::app {

// `ombrine sources [PLACE | --at LAT,LON]`: every forecast source, whether it is configured
// (and if not, what is missing), and for a place which service `dynamic` uses there (the
// fetch pipeline's own choice, by the place's region). Exit codes: 0 ok, 1 failure, 2 usage.
void addSourcesCommand(CLI::App& app);

}  // namespace ombrine::app
