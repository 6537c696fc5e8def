#pragma once
// The two tropical storm services, simulated, over the season of storm_season.hpp:
//   nhc.storms      /nhc/CurrentStorms.json                               {"activeStorms": [...]}
//   nhc.advisory    /nhc/text/<product>.shtml                             public advisory text
//   nhc.cone        /nhc/storm_graphics/api/<ID>_<adv>adv_CONE.kmz        cone of uncertainty
//   nhc.track       /nhc/storm_graphics/api/<ID>_<adv>adv_TRACK.kmz       forecast track points
//   nhc.besttrack   /nhc/gis/best_track/<id>_best_track.kmz               past track points
//   jtwc.rss        /jtwc/jtwc/rss/jtwc.rss                               RSS, one item per section
//   jtwc.warning    /jtwc/jtwc/products/<slug>web.txt                     warning text
//   jtwc.kmz        /jtwc/jtwc/products/<slug>.kmz                        cone, past and forecast track
//
// The NHC feed has the live feed's shape (string intensity and pressure, numeric and text
// positions, linked files as objects with absolute URLs on this server). JTWC warnings follow
// the real warning layout ("WARNING POSITION:", "MAX SUSTAINED WINDS - 115 KT", forecasts,
// "MINIMUM CENTRAL PRESSURE AT 310600Z IS 937 MB"); its RSS items carry HTML descriptions
// linking each storm's "<slug>web.txt" and "<slug>.kmz", or "No Current Tropical Cyclone
// Warnings." KMZ files are stored ZIP archives built on the fly. A storm or file that is not
// active answers 404. JTWC's error pages are HTML (so `error200` on jtwc.rss is the site
// answering a web page instead of the feed); NHC's are JSON.

#include <vector>

#include "sim/sim_route.hpp"

namespace ombrine::sim {

std::vector<SimRoute> stormRoutes();

}  // namespace ombrine::sim
