#pragma once
// The system weather service's REST interface, simulated, under "/weatherkit":
//   weatherkit.weather  api/v1/weather/<language>/<latitude>/<longitude>
// Query items: dataSets (comma list of currentWeather, forecastHourly, forecastDaily,
// forecastNextHour, weatherAlerts; required), timezone (required), hourlyStart/hourlyEnd
// (ISO 8601, default now to 24 h later, at most 240 h), countryCode (alerts only).
//
// Every request needs "Authorization: Bearer <developer token>": an ES256 JWT with "kid",
// "iss", "sub" and an "exp" in the future, signed by one of the keys the simulator trusts
// (`WeatherKitKeyRing`). Anything else is refused with 401, as the real service does. Error
// bodies have the service's shape {"timestamp","status","error","message","path"}.
//
// Answers have the real service's shape: "metadata" on every data set, km/h, hPa, fractions
// for humidity and cloud cover, "Z" times. Next-hour minutes come with a summary of stretches;
// alerts are the model's warnings of the place's cell (an empty "alerts" list is left out, as the
// service sends no data set then).

#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "sim/sim_route.hpp"
#include "sim/weather_model.hpp"

namespace ombrine::sim {

// The public keys (PEM) whose tokens the simulator accepts. Thread-safe.
class WeatherKitKeyRing {
 public:
  void trust(std::string publicKeyPem);
  // True when `token` is a well-formed, unexpired ES256 token signed by a trusted key.
  bool accepts(std::string_view token, Instant now) const;

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> keys_;
};

std::vector<SimRoute> weatherKitRoutes(const WeatherModel& model, std::shared_ptr<const WeatherKitKeyRing> keys);

std::string weatherKitErrorBody(int status, std::string_view message);

}  // namespace ombrine::sim
