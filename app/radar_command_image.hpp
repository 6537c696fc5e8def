#pragma once
// `ombrine radar [PLACE | --at LAT,LON] [--zoom Z] [--size WxH] [--layer L] [--loop] [--json]
// -o FILE`: the radar (or a supplemental layer) over a map around the place, as a PNG of the
// latest frame or, with --loop, an animated GIF of the frames with a timestamp on each.
// Progress on stderr while tiles load; --json prints each tile's state and each frame's
// completeness on stdout.

#include <CLI/CLI.hpp>

#include <string>

#include "core/values/date.hpp"
#include "core/values/time_zone.hpp"

namespace ombrine::app {

// Adds the options and the callback of the picture to the `radar` command itself.
void addRadarImageOptions(CLI::App& radar);

// "YYYY-MM-DD HH:MM" of `date` on the clock of `zone`.
std::string radarLocalTime(Date date, const TimeZone& zone);

}  // namespace ombrine::app
