#pragma once
// The two climate normals services, simulated: Meteostat's normals behind the RapidAPI gateway
// under "/meteostat" and NASA POWER's climatology under "/nasapower".
//   meteostat.point_normals     /meteostat/point/normals?lat&lon&start&end
//   meteostat.stations_nearby   /meteostat/stations/nearby?lat&lon[&limit]
//   meteostat.station_normals   /meteostat/stations/normals?station&start&end
//   nasapower.climatology       /nasapower/api/temporal/climatology/point?parameters&community
//                               &longitude&latitude&format&start&end
//
// Meteostat answers {"meta": {...}, "data": [{"month", "tavg", "tmin", "tmax", "prcp", "wspd",
// "pres", "tsun"}]} with temperatures in Celsius, precipitation in millimetres and sunshine in
// minutes, as the real service does. NASA POWER answers a GeoJSON Feature whose
// "properties.parameter" maps each asked parameter (T2M, T2M_MAX_AVG, T2M_MIN_AVG,
// PRECTOTCORR_SUM) to {"JAN" ... "DEC", "ANN"}, with "header.fill_value" -999.0.
//
// Normals follow latitude: warm and wet near the equator, colder with a wider seasonal swing
// towards the poles, seasons mirrored south of the equator, sunshine following day length. A
// deterministic hash of the seed and the coordinate (to 0.1°) adds small differences and gaps:
//   - 1991-2020 point normals lack values at some places: one month without tmax and prcp, or
//     one month left out, or sunshine missing; beyond 75° latitude there is no data at all.
//   - 1981-2010 and 1961-1990 are complete in temperature and precipitation, without sunshine.
//   - NASA POWER writes the fill value for a month of T2M_MAX_AVG at some places, and for all
//     precipitation beyond 85° latitude. It refuses a start before 1981 (422).
// Stations are a fixed list of real ones; "nearby" sorts them by distance; an unknown station
// has "data": []. Missing or malformed query items answer 400 (Meteostat {"message"}) or 422
// (NASA POWER {"header", "messages"}). The key headers are not checked.

#include <cstdint>
#include <vector>

#include "sim/sim_route.hpp"

namespace ombrine::sim {

std::vector<SimRoute> climateRoutes(std::uint64_t seed);

}  // namespace ombrine::sim
