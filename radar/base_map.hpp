#pragma once
// The map under a radar picture: water, land filled from the coastline resource's shore lines
// (Natural Earth land), the shore, a graticule every few degrees, and a marker with the place's
// name. Without the coastline resource the land is drawn everywhere, with the graticule.
//
// Pure drawing on the caller's surfaces; thread-safe (the coastline index is shared read-only).

#include <cairo.h>

#include <memory>
#include <string>

#include "radar/map_viewport.hpp"
#include "tides/coast_tile_index.hpp"

namespace ombrine {

// Paints water, land, shore and graticule over the whole of `context` (in pixels of `viewport`).
void drawBaseMap(cairo_t* context, const MapViewport& viewport, const CoastTileIndex* coast);

// A dot with a ring at the coordinate and `label` beside it, readable over any colour.
void drawPlaceMarker(cairo_t* context, const MapViewport& viewport, double latitude, double longitude,
                     const std::string& label);

// `text` in a box in the top-left corner (the frame's time) and `note` in the bottom-right
// corner (attribution), in pixels.
void drawCaption(cairo_t* context, const MapViewport& viewport, const std::string& text, const std::string& note);

}  // namespace ombrine
