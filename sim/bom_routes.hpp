#pragma once
// The Bureau of Meteorology locations API, simulated, under "/bom/v1":
//   bom.search        locations?search=<lat>,<lon>            {"data": [{geohash (7), name, ...}]}
//   bom.location      locations/<geohash>                     place information with "timezone"
//   bom.hourly        locations/<geohash>/forecasts/hourly    72 hours from the current hour
//   bom.daily         locations/<geohash>/forecasts/daily     7 local days; "now" on the first
//   bom.observations  locations/<geohash>/observations        the nearest "station" now
//   bom.warnings      locations/<geohash>/warnings            the model's warnings in force
// A geohash of 6 or 7 characters names the centre of its cell; anything else answers 400.
// Shaped like the real answers: snake_case keys, "metadata" beside "data", km/h with knots,
// compass points, nulls where the service sends them (rain.amount.max when dry, uv of the
// later days, temp_min of the first day once the night has passed, fire and surf danger).
// Time zones are the Australian zone names by coordinate, "UTC" outside Australia. Error
// bodies are {"errors": [{"code", "title", "status", "detail"}]}.

#include <string>
#include <string_view>
#include <vector>

#include "sim/sim_route.hpp"
#include "sim/weather_model.hpp"

namespace ombrine::sim {

std::vector<SimRoute> bomRoutes(const WeatherModel& model);

std::string bomErrorBody(int status, std::string_view message);

}  // namespace ombrine::sim
