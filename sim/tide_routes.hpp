#pragma once
// The two tide services, simulated: NOAA CO-OPS (metadata and data getter) under "/noaa" and
// the Canadian Hydrographic Service IWLS API under "/chs".
//   noaa.stations    /noaa/mdapi/prod/webapi/stations.json   {"count", "units", "stations": [...]}
//   noaa.datagetter  /noaa/api/prod/datagetter               {"predictions": [{"t", "v", "type"?}]}
//   chs.stations     /chs/api/v1/stations                    [station...]
//   chs.data         /chs/api/v1/stations/<id>/data          [{"eventDate", "value", ...}]
//
// Stations: a fixed list of real NOAA stations (reference and subordinate ones) on the coasts of
// the United States and its territories, and of real CHS stations in British Columbia, Quebec and
// the Maritimes, with their real operating flags and series codes.
//
// Water levels come from a deterministic tide model per station: a mean level plus five
// harmonic constituents (M2, S2, N2, K1, O1) whose amplitudes and phases are drawn from the
// station id and the seed, so most places get semi-diurnal tides with a daily inequality.
// Highs and lows are the turning points of that curve to the minute.
//
// Data getter query items honoured: product ("predictions" only), station, begin_date and
// end_date ("yyyyMMdd HH:mm" in UTC), interval ("15", "h", "hilo"; default 6 minutes), units
// ("metric" metres default, "english" feet), time_zone ("gmt"; "lst"/"lst_ldt" use the station's
// longitude-based offset), format ("json" only). Missing or bad items and unknown stations
// answer HTTP 200 with NOAA's error object {"error": {"message": "..."}}, as NOAA does. A range
// over 31 days is refused the same way.
// CHS data: time-series-code ("wlp": every 15 minutes; "wlp-hilo": highs and lows), from and to
// (ISO 8601 in UTC, fractional seconds allowed). A station without that series, or that is not
// operating, answers an empty array; an unknown station 404; bad dates 400. CHS errors are
// {"message": "..."}.

#include <string>
#include <string_view>
#include <vector>

#include "sim/sim_route.hpp"
#include "sim/weather_model.hpp"

namespace ombrine::sim {

std::vector<SimRoute> tideRoutes(const WeatherModel& model);

// The simulated water level in metres above the station's chart datum.
double simulatedTideHeight(std::string_view stationID, std::uint64_t seed, Instant instant);

}  // namespace ombrine::sim
