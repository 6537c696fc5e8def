#include "app/threats_command.hpp"

#include <cmath>
#include <iostream>
#include <memory>

#include "app/commands.hpp"
#include "app/failure_text.hpp"
#include "app/global_options.hpp"
#include "app/place_query.hpp"
#include "app/screen_text.hpp"
#include "core/fetch/geocoder.hpp"
#include "core/values/errors.hpp"
#include "core/values/unit_rules.hpp"
#include "persistence/favorite_store.hpp"
#include "platform/log.hpp"
#include "web/threat_gathering.hpp"
#include "wiring/geocode_namer.hpp"

namespace ombrine::app {

namespace {

struct ThreatsOptions {
  std::string place;
  std::string at;
  double radius = kDefaultThreatRadiusKilometres;
  bool json = false;
};

int run(const ThreatsOptions& options) {
  ProgramServices program;
  Services& services = *program;
  NamedPlace place;
  if (!options.at.empty() || !options.place.empty()) {
    place = resolveNamedPlace(services, options.at.empty() ? options.place : options.at, !options.at.empty());
  } else if (auto home = services.home().home()) {
    place = NamedPlace{home->shownName(), home->location, TimeZone::current()};
  } else {
    throw InvalidPlaceQuery("name a place (e.g. Miami), give --at LAT,LON, or save a home: ombrine places home PLACE");
  }
  const GeoDetails details = services.namer().detailsOf(place.location);
  const ScreenText text(currentLocale());
  const PlaceThreats found =
      web::gatherThreats(services, place.name, place.location, details, options.radius, options.json ? nullptr : &text);
  bool anyAnswered = false;
  for (const auto& source : found.sources) {
    if (source.state != "failed") anyAnswered = true;
    if (source.state == "failed") logf("ombrine threats: {}: {}", source.name, source.error);
  }
  if (options.json) {
    std::cout << threatsJson(found) << "\n";
    return anyAnswered ? 0 : 1;
  }
  const std::string radius = text.number(options.radius, {.fractionDigits = 1, .trailingZeros = false});
  if (found.threats.empty()) {
    std::cout << text.format("Nothing threatens {} within {} km.", place.name, radius) << "\n";
  } else {
    std::cout << text.format("Threats to {} within {} km", place.name, radius) << "\n";
    for (const auto& threat : found.threats) std::cout << "  " << threatLine(threat, text) << "\n";
  }
  std::cout << "\n" << text("Sources") << "\n";
  for (const auto& source : found.sources) {
    std::cout << "  " << text(source.name) << ": " << text(source.state);
    if (source.ageSeconds && source.state != "failed") {
      std::cout << ", " << text.format("{} min old", text.number(std::floor(*source.ageSeconds / 60)));
    }
    std::cout << "\n";
  }
  return anyAnswered ? 0 : 1;
}

}  // namespace

void addThreatsCommand(CLI::App& app) {
  auto options = std::make_shared<ThreatsOptions>();
  CLI::App* command = app.add_subcommand("threats", "Fires, storms, warnings and rain near a place");
  auto* place = command->add_option("place", options->place, "A place name (\"Miami\"); default: the home place");
  command->add_option("--at", options->at, "A coordinate, LAT,LON")->excludes(place);
  command->add_option("--radius", options->radius, "Storms and fires within KM (default 500)")
      ->check(numberBetween(1, 2000));
  command->add_flag("--json", options->json, "Print the threats and the sources' states as JSON");
  command->callback([options] {
    try {
      setExitCode(run(*options));
    } catch (const InvalidPlaceQuery& error) {
      logf("ombrine threats: {}", error.what());
      setExitCode(2);
    } catch (const std::exception&) {
      logf("ombrine threats: {}", failureText(std::current_exception()));
      setExitCode(1);
    }
  });
}

}  // namespace ombrine::app
