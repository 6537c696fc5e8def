#pragma once
#include <CLI/CLI.hpp>

namespace ombrine::app {

// `ombrine fires [PLACE | --at LAT,LON] [--radius KM] [--json | --geojson]`: wildfire incidents
// and perimeters within KM (default 150) of a place, from NIFC, CAL FIRE, CWFIS and British
// Columbia, merged per fire, nearest first with size, containment, distance and bearing, then the
// state of every service (complete, from a snapshot of a given age, cooling down until a time,
// failed). A failing service prints one line on stderr and leaves the others standing.
// Exit codes: 0 listed (at least one service answered), 1 no service answered or the place is
// unknown, 2 bad usage.
void addFiresCommand(CLI::App& app);

}  // namespace ombrine::app
