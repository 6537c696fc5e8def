#include "app/sources_command.hpp"

#include <fmt/format.h>

#include <iostream>
#include <memory>

#include "app/commands.hpp"
#include "app/global_options.hpp"
#include "app/terminal_text.hpp"
#include "core/errors.hpp"
#include "core/geocoder.hpp"
#include "core/provider_dispatch.hpp"
#include "platform/log.hpp"
#include "wiring/geocode_namer.hpp"
#include "wiring/services.hpp"

namespace ombrine::app {

namespace {

struct SourcesOptions {
  std::string place;
  std::string at;
};

// Whether the services of a source have what they need; the text says what is missing.
std::string configuration(WeatherDataSource source, const Credentials& credentials, bool simulated) {
  const bool foreca = credentials.forecaToken.has_value();
  const bool systemWeather = (credentials.weatherKitKey || credentials.weatherKitKeyFile) &&
                             credentials.weatherKitKeyId && credentials.weatherKitTeamId &&
                             credentials.weatherKitServiceId;
  const std::string suffix = simulated ? " (simulator)" : "";
  switch (source) {
    case WeatherDataSource::dynamic:
      return foreca ? "yes" + suffix : "no: needs a Foreca token (OMBRINE_FORECA_TOKEN or foreca_token)";
    case WeatherDataSource::apple:
      return systemWeather ? "yes" + suffix
                           : "no: needs weatherkit_key_file, weatherkit_key_id, weatherkit_team_id and "
                             "weatherkit_service_id";
    case WeatherDataSource::foreca:
      return foreca ? "yes" + suffix : "no: needs a Foreca token (OMBRINE_FORECA_TOKEN or foreca_token)";
    case WeatherDataSource::ow:
      return credentials.openWeatherKey ? "yes" + suffix
                                        : "no: needs an OpenWeather key (OMBRINE_OPENWEATHER_KEY or openweather_key)";
  }
  return "no";
}

std::string_view pathDescription(ProviderPath path) {
  switch (path) {
    case ProviderPath::systemWeatherFallingBackToForeca:
      return "the system weather service, falling back to Foreca on failure";
    case ProviderPath::bureauOfMeteorologyMerged:
      return "the Bureau of Meteorology merged with the system weather service";
    case ProviderPath::foreca: return "Foreca";
    case ProviderPath::systemWeather: return "the system weather service";
    case ProviderPath::openWeather: return "OpenWeather";
  }
  return "";
}

int run(const SourcesOptions& options) {
  ProgramServices program;
  Services& services = *program;
  const WeatherDataSource sources[] = {WeatherDataSource::dynamic, WeatherDataSource::apple,
                                       WeatherDataSource::foreca, WeatherDataSource::ow};
  const WeatherDataSource chosen = services.providerSettings().dataSource();
  std::cout << fmt::format("{:<9}{:<34}{}\n", "Source", "Service", "Configured");
  for (WeatherDataSource source : sources) {
    const std::string name(weatherDataSourceName(source));
    std::string service = source == WeatherDataSource::dynamic
                              ? "by region"
                              : std::string(providerPathName(providerPath(source, Region::unknown())));
    std::cout << fmt::format("{:<9}{:<34}{}{}\n", name, service,
                             configuration(source, services.credentials(), services.simulated()),
                             source == chosen ? "  (selected)" : "");
  }
  const std::string query = !options.at.empty() ? options.at : options.place;
  if (query.empty()) return 0;
  const auto matches = services.geocoder().search(query, 1);
  if (matches.empty()) throw DomainError(kNoResultErrorDomain, kNoResultErrorCode, "no place named " + quotedInput(query));
  const GeoDetails details = services.namer().detailsOf(matches.front().coordinate);
  const ProviderPath path = providerPath(WeatherDataSource::dynamic, details.region);
  std::cout << fmt::format("\n{} ({}): dynamic uses {}\n", details.name.empty() ? query : details.name,
                           details.region.identifier, pathDescription(path));
  return 0;
}

}  // namespace

void addSourcesCommand(CLI::App& app) {
  auto options = std::make_shared<SourcesOptions>();
  CLI::App* command =
      app.add_subcommand("sources", "The forecast sources, whether each is configured, and what dynamic picks");
  auto* place = command->add_option("place", options->place, "A place name (\"Sydney\") to show what dynamic picks");
  command->add_option("--at", options->at, "A coordinate, LAT,LON")->excludes(place);
  command->callback([options] {
    try {
      setExitCode(run(*options));
    } catch (const std::exception& error) {
      logf("ombrine sources: {}", error.what());
      setExitCode(1);
    }
  });
}

}  // namespace ombrine::app
