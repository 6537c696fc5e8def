#pragma once
// The radar services, simulated: RainViewer's public maps list under "/rainviewer" and the
// program's tile proxy (token mint and Foreca map capabilities) under "/tileproxy".
//   rainviewer.maps          GET  /rainviewer/public/weather-maps.json
//   rainviewer.tile          GET  /rainviewer-tiles/v2/radar/<frame>/<256|512>/<z>/<x>/<y>/<scheme>/<smooth>_<snow>.png
//   tileproxy.token          POST /tileproxy/token                    {"appTransactionJws"} -> {"token", "expiresAt"}
//   tileproxy.capabilities   GET  /tileproxy/api/v1/capabilities      {"images": [...]}
//   tileproxy.tile           GET  /tileproxy/api/v1/image/tile/<z>/<x>/<y>/<time>/<image id>
//
// RainViewer: 13 past radar frames every 10 minutes up to the last whole ten minutes of `now`
// (so the list moves with the clock), 3 nowcast frames after it and the infrared satellite
// frames, in the shape of the real reply; "Cache-Control: public, max-age=60".
//
// Token mint: a credential of the compact JWS form (three non-empty base64url parts) gets a
// token "sim-tile-<hex>" valid for 900 seconds; anything else 401. The mint cannot check the
// signature (it has no key), only the form.
// Tiles are PNG images of a synthetic rain field moving with the frame's time (sim/radar_tiles.hpp);
// above zoom 7 RainViewer answers a grey placeholder image, as the real network does. A frame
// or image that does not exist is 404.
// Capabilities and Foreca tiles need an "X-Ombrine-Tile-Token" minted here (401 otherwise) and lists the image
// layers 130 (cloud cover), 2 (temperature), 9 (UV index) and 79 (air quality), each with hourly
// times from 6 hours before `now` to 48 hours after it.

#include <vector>

#include "sim/sim_route.hpp"

namespace ombrine::sim {

std::vector<SimRoute> radarRoutes();

}  // namespace ombrine::sim
