#pragma once
#include <CLI/CLI.hpp>

namespace ombrine::app {

// `ombrine radar frames [--layer radar|clouds|temperature|uv|airquality] [--json]`: the frames
// the map animates, oldest first, each with its tile URL template, and where the timeline came
// from: RainViewer's service or the computed fallback for the radar, the tile proxy for the
// Foreca layers. Without --layer: the radar and every supplemental layer.
// Exit codes: 0 listed (a supplemental layer that failed is reported on stderr and in the
// listing, as the map hides it and keeps the radar), 1 the one layer asked for with --layer
// failed, 2 bad usage.
void addRadarCommand(CLI::App& app);

}  // namespace ombrine::app
