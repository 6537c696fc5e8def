#include "app/fires_command.hpp"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <iostream>
#include <memory>

#include "app/commands.hpp"
#include "app/global_options.hpp"
#include "app/screen_text.hpp"
#include "app/terminal_text.hpp"
#include "core/fetch/geocoder.hpp"
#include "core/values/errors.hpp"
#include "core/values/unit_rules.hpp"
#include "fires/fire_map_loader.hpp"
#include "fires/fire_report.hpp"
#include "platform/log.hpp"
#include "wiring/services.hpp"

namespace ombrine::app {

namespace {

struct FiresOptions {
  std::string place;
  std::string at;
  double radius = 150;
  bool json = false;
  bool geojson = false;
};

FireCoordinate parseAt(const std::string& text) {
  // Read with from_chars, whatever the locale says a decimal separator is.
  auto number = [](std::string_view part, double& out) {
    while (!part.empty() && part.front() == ' ') part.remove_prefix(1);
    while (!part.empty() && part.back() == ' ') part.remove_suffix(1);
    if (!part.empty() && part.front() == '+') part.remove_prefix(1);
    const auto [ptr, ec] = std::from_chars(part.data(), part.data() + part.size(), out);
    return !part.empty() && ec == std::errc() && ptr == part.data() + part.size() && std::isfinite(out);
  };
  const size_t comma = text.find(',');
  double latitude = 0, longitude = 0;
  if (comma == std::string::npos || !number(std::string_view(text).substr(0, comma), latitude) ||
      !number(std::string_view(text).substr(comma + 1), longitude) || std::fabs(latitude) > 90 ||
      std::fabs(longitude) > 180) {
    throw InvalidPlaceQuery("--at needs LAT,LON in degrees (\"39.5,-121.5\"), got \"" + text + "\"");
  }
  return FireCoordinate{latitude, longitude};
}

int list(const FiresOptions& options) {
  if (options.place.empty() == options.at.empty()) throw InvalidPlaceQuery("name a PLACE or give --at LAT,LON");
  std::optional<FireCoordinate> centre;
  if (!options.at.empty()) centre = parseAt(options.at);
  ProgramServices program;
  Services& services = *program;
  std::string placeName;
  if (!centre) {
    const auto matches = services.geocoder().search(options.place, 1);
    if (matches.empty()) {
      throw DomainError(kNoResultErrorDomain, kNoResultErrorCode, "no place named " + quotedInput(options.place));
    }
    centre = FireCoordinate{matches.front().coordinate.latitude(), matches.front().coordinate.longitude()};
    placeName = matches.front().name;
  } else {
    char text[64];
    std::snprintf(text, sizeof text, "%.2f, %.2f", centre->latitude, centre->longitude);
    placeName = text;
  }
  const FireMapEnvelope envelope = fireEnvelopeAround(centre->latitude, centre->longitude, options.radius);
  FireMapLoader& loader = services.fireMapLoader();
  const FireMapLoad load = services.runtime().runBlocking(loader.load(envelope));
  const Date now = Date::fromSystem(services.clock().now());
  const FireList nearby = fireListAround(load.data, *centre, options.radius);

  bool anyAnswered = false;
  for (const auto& service : load.services) {
    if (service.isComplete || service.hasCompleteSnapshot) anyAnswered = true;
    if (!service.isComplete) {
      logf("ombrine fires: {}: {}", service.service,
           fireServiceStateText(service, now, ScreenWords(icu::Locale("en_US"))));
    }
  }
  if (options.geojson) {
    std::cout << fireListGeoJson(nearby) << "\n";
  } else if (options.json) {
    std::cout << fireListJson(nearby, load, *centre, options.radius, now) << "\n";
  } else {
    const ScreenText text(currentLocale());
    const std::string radius = text.number(options.radius, {.fractionDigits = 1, .trailingZeros = false});
    // A coordinate names the place in the reader's digits.
    const std::string shownPlace =
        options.place.empty() ? text.coordinate(centre->latitude, centre->longitude, 2) : placeName;
    if (nearby.incidents.empty() && nearby.perimeters.empty()) {
      std::cout << text.format("No fires within {} km of {}.", radius, shownPlace) << "\n";
    } else {
      std::cout << text.format("Fires within {} km of {}, nearest first", radius, shownPlace) << "\n";
      for (const auto& entry : nearby.incidents) std::cout << "  " << fireIncidentLine(entry, text) << "\n";
      if (!nearby.perimeters.empty()) {
        std::cout << "\n" << text("Perimeters") << "\n";
        for (const auto& entry : nearby.perimeters) std::cout << "  " << firePerimeterLine(entry, text) << "\n";
      }
    }
    std::cout << "\n" << text("Sources") << "\n";
    for (const auto& service : load.services) {
      std::cout << "  " << service.service << ": " << fireServiceStateText(service, now, text) << "\n";
    }
  }
  return anyAnswered ? 0 : 1;
}

}  // namespace

void addFiresCommand(CLI::App& app) {
  auto options = std::make_shared<FiresOptions>();
  CLI::App* command = app.add_subcommand("fires", "Wildfires in the United States and Canada around a place");
  command->add_option("place", options->place, "A place name (\"Chico\", \"Kamloops, BC\")");
  command->add_option("--at", options->at, "A coordinate instead of a place: LAT,LON");
  command->add_option("--radius", options->radius, "Only fires within KM (default 150)")->check(numberBetween(1, 2000));
  auto* json = command->add_flag("--json", options->json, "Print the fires and the services' states as JSON");
  auto* geojson = command->add_flag("--geojson", options->geojson, "Print the incidents and perimeters as GeoJSON");
  json->excludes(geojson);
  command->callback([options] {
    try {
      setExitCode(list(*options));
    } catch (const InvalidPlaceQuery& error) {
      logf("ombrine fires: {}", error.what());
      setExitCode(2);
    } catch (const std::exception& error) {
      logf("ombrine fires: {}", error.what());
      setExitCode(1);
    }
  });
}

}  // namespace ombrine::app
