#pragma once
// Which forecast service answers a fetch, by the chosen source and the place's region.
//
// A pure table: the fetch pipeline asks it, then runs the named path with the clients the
// composition root plugged in.

#include <string_view>

#include "core/values/location.hpp"
#include "core/values/weather_data_source.hpp"

namespace ombrine {

enum class ProviderPath {
  // The system weather service; on any failure except cancellation, Foreca instead.
  systemWeatherFallingBackToForeca,
  // The Bureau of Meteorology together with the second client, merged.
  bureauOfMeteorologyMerged,
  foreca,
  systemWeather,
  openWeather,
};

ProviderPath providerPath(WeatherDataSource source, const Region& region) noexcept;

// "dynamic", "apple", "foreca", "ow": the names the settings and the command line use.
std::string_view weatherDataSourceName(WeatherDataSource source) noexcept;
// The source of a name above; raises std::invalid_argument naming the accepted names.
WeatherDataSource weatherDataSourceNamed(std::string_view name);

// A user-facing name of a path's service ("Foreca", "OpenWeather", ...).
std::string_view providerPathName(ProviderPath path) noexcept;

}  // namespace ombrine
