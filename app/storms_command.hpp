#pragma once
#include <CLI/CLI.hpp>

namespace ombrine::app {

// `ombrine storms [--json] [--near PLACE [--radius KM]]`: the active tropical storms of NHC and
// JTWC reconciled into one list (agency, category, wind, pressure, position, movement, and the
// distance from PLACE, nearest first); "No active tropical storms." when both agencies have
// spoken for every basin and list none.
// `ombrine storms show ID [--geojson]`: one storm's forecast points (the GeoJSON of its cone and
// tracks with --geojson).
// Exit codes: 0 shown, 1 no usable storm data / no such storm / a service failed, 2 bad usage.
void addStormsCommand(CLI::App& app);

}  // namespace ombrine::app
