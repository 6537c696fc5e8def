#pragma once
// The base map drawn from our own shore data (resources/coastline/coastline_tiles.bin, the
// Natural Earth land outline simplified to 500 m): the shore lines inside a box, thinned to
// what a map at a zoom level can show, as one GeoJSON Feature with a MultiLineString.
//
// Pure apart from reading the shared index; reentrant.

#include <string>

#include "tides/coast_tile_index.hpp"

namespace ombrine::web {

struct LandBox {
  double west = -180, south = -85, east = 180, north = 85;
};

// Raises std::invalid_argument for a box with west >= east or south >= north, non-finite
// numbers, or a zoom outside 0...18. Longitudes outside -180...180 are clamped to the data.
std::string landLinesGeoJson(const CoastTileIndex& index, LandBox box, int zoom);

}  // namespace ombrine::web
