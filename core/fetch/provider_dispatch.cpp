#include "core/fetch/provider_dispatch.hpp"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string>

namespace ombrine {

namespace {
// Regions where the system weather service is preferred over Foreca.
constexpr std::array<std::string_view, 7> kSystemWeatherRegions = {"CN", "SA", "AE", "KW", "OM", "QA", "BH"};
}  // namespace

ProviderPath providerPath(WeatherDataSource source, const Region& region) noexcept {
  switch (source) {
    case WeatherDataSource::dynamic:
      if (std::find(kSystemWeatherRegions.begin(), kSystemWeatherRegions.end(), region.identifier) !=
          kSystemWeatherRegions.end()) {
        return ProviderPath::systemWeatherFallingBackToForeca;
      }
      if (region.identifier == "AU") return ProviderPath::bureauOfMeteorologyMerged;
      return ProviderPath::foreca;
    case WeatherDataSource::apple: return ProviderPath::systemWeather;
    case WeatherDataSource::foreca: return ProviderPath::foreca;
    case WeatherDataSource::ow: return ProviderPath::openWeather;
  }
  return ProviderPath::foreca;
}

std::string_view weatherDataSourceName(WeatherDataSource source) noexcept {
  switch (source) {
    case WeatherDataSource::dynamic: return "dynamic";
    case WeatherDataSource::apple: return "apple";
    case WeatherDataSource::foreca: return "foreca";
    case WeatherDataSource::ow: return "ow";
  }
  return "dynamic";
}

WeatherDataSource weatherDataSourceNamed(std::string_view name) {
  for (auto source :
       {WeatherDataSource::dynamic, WeatherDataSource::apple, WeatherDataSource::foreca, WeatherDataSource::ow}) {
    if (weatherDataSourceName(source) == name) return source;
  }
  throw std::invalid_argument("unknown provider \"" + std::string(name) + "\" (choose dynamic, apple, foreca or ow)");
}

std::string_view providerPathName(ProviderPath path) noexcept {
  switch (path) {
    case ProviderPath::systemWeatherFallingBackToForeca: return "system weather (falling back to Foreca)";
    case ProviderPath::bureauOfMeteorologyMerged: return "Bureau of Meteorology";
    case ProviderPath::foreca: return "Foreca";
    case ProviderPath::systemWeather: return "system weather";
    case ProviderPath::openWeather: return "OpenWeather";
  }
  return "";
}

}  // namespace ombrine
