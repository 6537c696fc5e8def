#pragma once
// PNG map tiles for the simulated radar services: a synthetic rain field (a few storm cells
// drifting east at 40 km/h through a day-long pass
// over their home region and breathing over hours) drawn in web-mercator tiles.
//
// Pure functions of the tile, the frame's instant and the layer; thread-safe.

#include <cstdint>
#include <string>

#include "sim/sim_time.hpp"

namespace ombrine::sim {

enum class TileLayer { radar, clouds, temperature, uv, airQuality };

// A `size`×`size` RGBA PNG of `layer` at `time` for tile z/x/y. Radar uses a blue-to-magenta
// reflectivity scale, transparent where it is dry (RainViewer's colour scheme 2); the Foreca
// layers their own colour ramps, semi-transparent.
std::string renderTilePng(TileLayer layer, int z, int x, int y, Instant time, int size);

// The grey "zoom level not supported" placeholder a tile network sends above its maximum zoom.
std::string placeholderTilePng(int size);

// The simulated reflectivity (dBZ, 0 when dry) at a place and instant.
double simulatedReflectivity(double latitude, double longitude, Instant time);

}  // namespace ombrine::sim
