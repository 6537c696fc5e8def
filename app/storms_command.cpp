#include "app/storms_command.hpp"

#include <iostream>
#include <memory>

#include "app/command_report.hpp"
#include "app/commands.hpp"
#include "app/failure_text.hpp"
#include "app/global_options.hpp"
#include "app/screen_text.hpp"
#include "app/terminal_text.hpp"
#include "core/fetch/geocoder.hpp"
#include "core/values/errors.hpp"
#include "core/values/unit_rules.hpp"
#include "platform/log.hpp"
#include "storms/active_storm_fetch.hpp"
#include "storms/storm_overlay_plan.hpp"
#include "storms/storm_report.hpp"
#include "wiring/services.hpp"

namespace ombrine::app {

namespace {

struct StormsOptions {
  bool json = false;
  std::string near;
  std::optional<double> radius;
  std::string showID;
  bool geojson = false;
};

// The list and its coverage, with the rule that an empty list is only believed when every
// basin has been covered.
ActiveStormsResult fetchTrusted(Services& services) {
  ActiveStormFetcher fetcher(services.http(), services.endpoints(), services.clock());
  ActiveStormsResult result = services.runtime().runBlocking(fetcher.fetchWithCoverage(wholeCoverage()));
  result.storms = trustedActiveStorms(std::move(result.storms), result.completeCoverage);
  return result;
}

int list(const StormsOptions& options) {
  if (options.radius && options.near.empty()) throw InvalidPlaceQuery("--radius needs --near PLACE");
  ProgramServices program;
  Services& services = *program;
  const icu::Locale locale = currentLocale();
  std::optional<Location> near;
  std::string placeName;
  if (!options.near.empty()) {
    const auto matches = services.geocoder().search(options.near, 1);
    if (matches.empty())
      throw DomainError(kNoResultErrorDomain, kNoResultErrorCode, "no place named " + quotedInput(options.near));
    near = matches.front().coordinate;
    placeName = matches.front().name;
  }
  const ActiveStormsResult result = fetchTrusted(services);
  const auto entries = stormListEntries(result.storms, near, options.radius);
  if (options.json) {
    std::cout << stormListJson(entries, result.completeCoverage, locale) << "\n";
    return 0;
  }
  const ScreenText text(locale);
  if (result.storms.empty()) {
    std::cout << text("No active tropical storms.") << "\n";
    return 0;
  }
  if (entries.empty()) {
    std::cout << text.format("No active tropical storm within {} km of {}.",
                             text.number(*options.radius, {.fractionDigits = 1, .trailingZeros = false}), placeName)
              << "\n";
    return 0;
  }
  if (near) std::cout << text.format("Active tropical storms nearest {} first", placeName) << "\n";
  for (const auto& entry : entries) std::cout << stormListLine(entry, text) << "\n";
  if (result.completeCoverage != wholeCoverage()) {
    std::string missing;
    for (auto area : wholeCoverage()) {
      if (result.completeCoverage.count(area)) continue;
      missing += (missing.empty() ? "" : ", ") + std::string(coverageName(area));
    }
    std::cout << "\n" << text.format("Incomplete: {} did not answer in full.", missing) << "\n";
  }
  return 0;
}

int show(const StormsOptions& options) {
  ProgramServices program;
  Services& services = *program;
  const icu::Locale locale = currentLocale();
  const ActiveStormsResult result = fetchTrusted(services);
  const auto storm = findStorm(result.storms, options.showID);
  if (!storm) {
    logf("ombrine storms: no active storm \"{}\"", options.showID);
    return 1;
  }
  const Date now = Date::fromSystem(services.clock().now());
  const StormOverlay overlay = services.runtime().runBlocking(loadStormOverlay(services.http(), *storm, now));
  if (options.geojson) {
    std::cout << stormOverlayGeoJson(*storm, overlay) << "\n";
    return 0;
  }
  const ScreenText text(locale);
  std::cout << stormListLine(StormListEntry{*storm, std::nullopt}, text) << "\n";
  if (overlay.forecastPoints.empty()) {
    std::cout << text("No forecast track published.") << "\n";
    return 0;
  }
  std::cout << "\n" << text("Forecast track:") << "\n";
  for (const auto& point : overlay.forecastPoints) std::cout << "  " << forecastPointLine(point, text) << "\n";
  const double past = static_cast<double>(overlay.historyPoints.size());
  std::cout << "\n"
            << (overlay.cone.empty() ? text.counted(past, "{} past position, no cone of uncertainty.",
                                                    "{} past positions, no cone of uncertainty.")
                                     : text.counted(past, "{} past position, a cone of uncertainty.",
                                                    "{} past positions, a cone of uncertainty."))
            << "\n";
  return 0;
}

void report(const std::function<int()>& command) {
  static const CommandReporting reporting{
      {wordAs<InvalidPlaceQuery>(2),
       wordAs<ActiveStormFetchError>(1, {}, "no usable storm data: neither NHC nor JTWC answered in full")},
      "the storm service"};
  runReporting("storms", command, reporting);
}

}  // namespace

void addStormsCommand(CLI::App& app) {
  auto options = std::make_shared<StormsOptions>();
  CLI::App* command = app.add_subcommand("storms", "Active tropical storms from NHC and JTWC");
  command->add_flag("--json", options->json, "Print the list as JSON");
  auto* near = command->add_option("--near", options->near, "Sort by distance from a place (\"Okinawa\")");
  command->add_option("--radius", options->radius, "Only storms within KM of --near")
      ->check(positiveNumber())
      ->needs(near);
  CLI::App* showCommand = command->add_subcommand("show", "One storm's forecast track");
  showCommand->add_option("id", options->showID, "The storm's id (\"al052026\", \"WP0626\")")->required();
  showCommand->add_flag("--geojson", options->geojson, "Print the cone and tracks as GeoJSON");
  showCommand->callback([options] { report([&] { return show(*options); }); });
  command->callback([options, showCommand] {
    if (showCommand->parsed()) return;
    report([&] { return list(*options); });
  });
}

}  // namespace ombrine::app
