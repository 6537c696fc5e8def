#pragma once
// The Foreca point forecast and warnings service, simulated.
//
// Served under two bases, "/foreca/api/v1" and "/foreca-alt/api/v1" (the client's two bases),
// each point given as "<longitude>,<latitude>":
//   foreca.current     current/<lon>,<lat>                      {"current": {...}}
//   foreca.hourly      forecast/hourly/<lon>,<lat>              {"forecast": [...]}
//   foreca.daily       forecast/daily/<lon>,<lat>               {"forecast": [...]}
//   foreca.minutely    forecast/minutely/<lon>,<lat>            {"forecast": [...]}, 90 rows
//   foreca.airquality  air-quality/forecast/hourly/<lon>,<lat>  {"forecast": [{"time","AQI"}]}
//   foreca.warnings    warning/<lon>,<lat>                      {"warnings": [...]}
// Query items honoured: token (required, any non-empty text; else 401), windunit (MS default,
// KMH, MPH, KT), rounding (decimals 0..3, default 1; 0 sends whole numbers), dataset
// ("standard" default, "full" adds the detailed keys), periods (hourly 1..240 default 24, daily
// 1..16 default 7, air quality 1..96 default 24), history ("1" adds the row of the hour already
// begun before the `periods` rows), lang (phrases and warning order: en, fi, sv, de; others read
// as en). A bad value or point answers 400.
//
// Times are "yyyy-MM-dd'T'HH:mm" with the place's offset ("+02:00", "Z" for zero), the offset
// being the simulator's longitude-based one (sim_time.hpp); daily rows are local calendar days
// "yyyy-MM-dd" and carry sunrise/sunset as local minutes like the other times (absent in polar
// day and night). Warning times are ISO 8601 in UTC; "sent" has milliseconds. Warnings are
// those of the place's 5° grid cell already issued, including some that ended within the last
// day (readers filter them); descriptions come in up to four languages, some warnings have no
// English one and a few none at all. Places with scripted warnings (sim/alert_scenarios.hpp, Miami
// by default) answer with those instead. Error answers are {"error": {"code": N, "message": "..."}}.

#include <string>
#include <string_view>
#include <vector>

#include "sim/sim_route.hpp"
#include "sim/weather_model.hpp"

namespace ombrine::sim {

// The routes of the service, answering from `model`.
std::vector<SimRoute> forecaRoutes(const WeatherModel& model);

// The Foreca error object.
std::string forecaErrorBody(int status, std::string_view message);

// The Foreca symbol ("d" or "n" and three digits: cloud class, precipitation intensity,
// precipitation type) of a sample whose precipitation averages `meanRate` mm/h.
std::string forecaSymbol(const WeatherSample& sample, double meanRate, bool daylight);

// The phrase of a Foreca symbol in `language` ("en", "fi", "sv", "de"; others give English).
std::string forecaSymbolPhrase(std::string_view symbol, std::string_view language);

}  // namespace ombrine::sim
