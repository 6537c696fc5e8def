#pragma once
// The five fire services and British Columbia's map service, simulated over a repeating
// ten-day season in which every fire keeps growing:
//   nifc.current       /nifc/T4QMspbfLg3qTGWY/arcgis/rest/services/<layer>/FeatureServer/0/query,
//                      layer WFIGS_Incident_Locations_Current
//   nifc.yeartodate    the same with WFIGS_Incident_Locations_YearToDate
//   nifc.perimeters    the same with WFIGS_Interagency_Perimeters_Current
//   calfire.incidents  /calfire/api/sitecore/Incident/GetFiresForMap        the list, as a plain array
//   calfire.perimeters /calfire-gis/bz1uwWPKUInZBK94/arcgis/rest/services/
//                      CA_Perimeters_NIFC_FIRIS_public_view/FeatureServer/0/query
//   cwfis.activefires  /cwfif/geoserver/ows                                 WFS GetFeature JSON
//   cwfis.perimeters   /cwfis/geoserver/public/ows                          WFS GetFeature JSON
//   bcws.fires         /bcgov/arcgis/rest/services/mpcm/bcgwpub/MapServer/502/query
//
// ArcGIS routes answer "f=geojson" collections honouring the envelope ("geometry"), the
// "OBJECTID IN (...)" and "UPPER(mission) IN (...)" clauses, "resultOffset" and
// "resultRecordCount" up to each layer's own page limit (the perimeter layers hold three a page,
// so a large envelope needs several), with "exceededTransferLimit" while more remain. WFS routes
// honour "count", "startIndex", the CQL longitude/latitude bounds and "bbox", with
// "numberMatched" and "totalFeatures". The season: the Dixon Fire in both NIFC and CAL FIRE
// (incident and a two-member FIRIS mission), a CAL FIRE-only fire, a prescribed burn, a
// perimeter with a hole and one with a spot fire, fires in Oregon and Nevada, and in Canada BC
// fires whose names only the province knows (one placeholder name, one number it does not know),
// a row CWFIS lists twice and an Alberta fire. Errors are ArcGIS error objects, GeoServer
// exception reports and the CAL FIRE site's HTML page.
//
// Faults: a renamed NIFC layer is "nifc.current=status=404" (the year-to-date layer then stands
// in); "nifc.*=error200" answers HTTP 200 with an ArcGIS error object.

#include <vector>

#include "sim/sim_route.hpp"

namespace ombrine::sim {

std::vector<SimRoute> fireRoutes();

}  // namespace ombrine::sim
