#include "app/sources_command.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <iostream>
#include <memory>

#include "app/commands.hpp"
#include "app/failure_text.hpp"
#include "app/global_options.hpp"
#include "app/screen_text.hpp"
#include "app/terminal_text.hpp"
#include "core/fetch/geocoder.hpp"
#include "core/fetch/provider_dispatch.hpp"
#include "core/values/errors.hpp"
#include "core/values/unit_rules.hpp"
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
std::string configuration(const ScreenWords& text, WeatherDataSource source, const Credentials& credentials,
                          bool simulated) {
  const bool foreca = credentials.forecaToken.has_value();
  const bool systemWeather = (credentials.weatherKitKey || credentials.weatherKitKeyFile) &&
                             credentials.weatherKitKeyId && credentials.weatherKitTeamId &&
                             credentials.weatherKitServiceId;
  const std::string yes(text(simulated ? "yes (simulator)" : "yes"));
  const std::string_view forecaMissing = "no: needs a Foreca token (OMBRINE_FORECA_TOKEN or foreca_token)";
  switch (source) {
    case WeatherDataSource::dynamic:
    case WeatherDataSource::foreca: return foreca ? yes : std::string(text(forecaMissing));
    case WeatherDataSource::apple:
      return systemWeather
                 ? yes
                 : std::string(text("no: needs weatherkit_key_file, weatherkit_key_id, weatherkit_team_id and "
                                    "weatherkit_service_id"));
    case WeatherDataSource::ow:
      return credentials.openWeatherKey
                 ? yes
                 : std::string(text("no: needs an OpenWeather key (OMBRINE_OPENWEATHER_KEY or openweather_key)"));
  }
  return std::string(text("no"));
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
  const WeatherDataSource sources[] = {WeatherDataSource::dynamic, WeatherDataSource::apple, WeatherDataSource::foreca,
                                       WeatherDataSource::ow};
  const WeatherDataSource chosen = services.providerSettings().dataSource();
  const ScreenText text(currentLocale());
  // The first column holds source names (at most 7 characters) or its heading.
  const std::size_t nameWidth = std::max<std::size_t>(9, displayWidth(text("Source")) + 1);
  std::cout << padRight(text("Source"), nameWidth) << padRight(text("Service"), 34) << text("Configured") << "\n";
  for (WeatherDataSource source : sources) {
    const std::string name(weatherDataSourceName(source));
    std::string service = source == WeatherDataSource::dynamic
                              ? std::string(text("by region"))
                              : std::string(text(providerPathName(providerPath(source, Region::unknown()))));
    std::cout << padRight(name, nameWidth) << padRight(service, 34)
              << configuration(text, source, services.credentials(), services.simulated())
              << (source == chosen ? "  " + std::string(text("(selected)")) : "") << "\n";
  }
  const std::string query = !options.at.empty() ? options.at : options.place;
  if (query.empty()) return 0;
  const auto matches = services.geocoder().search(query, 1);
  if (matches.empty())
    throw DomainError(kNoResultErrorDomain, kNoResultErrorCode, "no place named " + quotedInput(query));
  const GeoDetails details = services.namer().detailsOf(matches.front().coordinate);
  const ProviderPath path = providerPath(WeatherDataSource::dynamic, details.region);
  std::cout << "\n"
            << text.format("{} ({}): dynamic uses {}", details.name.empty() ? query : details.name,
                           details.region.identifier, text(pathDescription(path)))
            << "\n";
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
    } catch (const std::exception&) {
      logf("ombrine sources: {}", failureText(std::current_exception()));
      setExitCode(1);
    }
  });
}

}  // namespace ombrine::app
