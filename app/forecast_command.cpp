#include "app/forecast_command.hpp"

#include <unistd.h>

#include <cstdlib>
#include <iostream>
#include <memory>

#include "app/commands.hpp"
#include "app/forecast_render.hpp"
#include "app/global_options.hpp"
#include "core/errors.hpp"
#include "core/one_call_weather_json.hpp"
#include "core/provider_dispatch.hpp"
#include "core/unit_rules.hpp"
#include "platform/errors.hpp"
#include "platform/http_client.hpp"
#include "platform/log.hpp"

namespace ombrine::app {

namespace {

struct ForecastOptions {
  std::string place;
  std::string at;
  std::string provider = "dynamic";
  bool json = false;
};

const char* kApiLimitMessage =
    "There are currently way more people (trying) to check the weather with Ombrine than we "
    "expected, and we're over capacity. We are working on it and hope to be back in an hour or "
    "two.\nSorry again!";

struct Place {
  Location location;
  std::string name;
};

Place resolvePlace(const ForecastOptions& options, const Geocoder& geocoder) {
  const std::string query = !options.at.empty() ? options.at : options.place;
  if (query.empty()) throw InvalidPlaceQuery("name a place (e.g. Munich) or give --at LAT,LON");
  const auto matches = geocoder.search(query, 1);
  if (matches.empty()) throw DomainError(kNoResultErrorDomain, kNoResultErrorCode, "no place named \"" + query + "\"");
  if (!options.at.empty()) return Place{matches.front().coordinate, {}};
  return Place{matches.front().coordinate, matches.front().name};
}

int run(const ForecastOptions& options) {
  Services services(servicesOptions());
  const WeatherDataSource source = weatherDataSourceNamed(options.provider);
  const Place place = resolvePlace(options, services.geocoder());
  GeoDetails details = services.name(place.location);
  if (!place.name.empty()) details.name = place.name;

  auto fetch = services.fetchOneCall(place.location, details, source);
  const OneCallWeather weather = services.runtime().runBlocking(std::move(fetch));
  const Date now = Date::fromSystem(services.clock().now());

  if (options.json) {
    std::cout << encodeOneCallWeather(weather, now) << "\n";
    return 0;
  }
  ForecastScreen screen;
  screen.placeName = details.name;
  screen.regionCode = details.region.identifier == "XX" ? "" : details.region.identifier;
  screen.providerName = std::string(providerPathName(providerPath(source, details.region)));
  screen.weather = &weather;
  screen.now = now;
  screen.locale = currentLocale();
  screen.colour = ::isatty(STDOUT_FILENO) && !std::getenv("NO_COLOR");
  std::cout << renderForecast(screen);
  return 0;
}

}  // namespace

void addForecastCommand(CLI::App& app) {
  auto options = std::make_shared<ForecastOptions>();
  CLI::App* command = app.add_subcommand("forecast", "The forecast for a place");
  command->add_option("place", options->place, "A place name (\"Munich\", \"Springfield, IL\") or LAT,LON");
  command->add_option("--at", options->at, "A coordinate, LAT,LON (e.g. 48.137,11.575)")->excludes("place");
  command->add_option("--provider", options->provider, "dynamic (by region), apple, foreca or ow")
      ->check(CLI::IsMember({"dynamic", "apple", "foreca", "ow"}));
  command->add_flag("--json", options->json, "Print the unified forecast record as JSON");
  command->callback([options] {
    try {
      setExitCode(run(*options));
    } catch (const InvalidPlaceQuery& error) {
      logf("ombrine forecast: {}", error.what());
      setExitCode(2);
    } catch (const NetworkError& error) {
      if (error.which() == NetworkError::exceededApiLimit) {
        logf("Sorry! {}", kApiLimitMessage);
      } else {
        logf("ombrine forecast: the forecast service's answer could not be used ({})", error.what());
      }
      setExitCode(1);
    } catch (const HttpError& error) {
      logf("ombrine forecast: could not reach the forecast service: {}", error.what());
      setExitCode(1);
    } catch (const std::exception& error) {
      logf("ombrine forecast: {}", error.what());
      setExitCode(1);
    }
  });
}

}  // namespace ombrine::app
