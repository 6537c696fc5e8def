#pragma once
// The OpenWeather current weather and forecast service, simulated, under "/openweather":
//   openweather.current   data/2.5/weather          one observation, like the service's example
//   openweather.forecast  data/2.5/forecast         40 three-hour items from the next 3-hour mark
//   openweather.daily     data/2.5/forecast/daily   `cnt` days (1..16, default 7)
// Query items: lat (-90..90), lon (-180..180), appid (required, any non-empty text; else 401),
// units ("standard" kelvin by default, "metric" °C, "imperial" °F and mph), lang (ignored).
// As the real service: blocks without data are left out ("rain" only when something falls,
// "wind.gust" only when gusty), numbers at two decimals, times in seconds since 1970, a "cod"
// string. Errors are {"cod": N, "message": "..."}.

#include <string>
#include <string_view>
#include <vector>

#include "sim/sim_route.hpp"
#include "sim/weather_model.hpp"

namespace ombrine::sim {

std::vector<SimRoute> openWeatherRoutes(const WeatherModel& model);

std::string openWeatherErrorBody(int status, std::string_view message);

}  // namespace ombrine::sim
