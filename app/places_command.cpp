#include "app/places_command.hpp"

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <fmt/format.h>

#include <cstdlib>
#include <iostream>
#include <memory>
#include <optional>
#include <string>

#include "app/commands.hpp"
#include "core/errors.hpp"
#include "core/geo_naming.hpp"
#include "core/value_json.hpp"
#include "places/coordinate_text.hpp"
#include "places/offline_geocoder.hpp"
#include "platform/errors.hpp"
#include "platform/linux/system_clock.hpp"
#include "platform/log.hpp"

namespace ombrine::app {

namespace {

struct SearchOptions {
  std::string text;
  std::size_t limit = 10;
  bool json = false;
};

struct AtOptions {
  std::string coordinate;
  bool json = false;
};

// "UTC+05:45", "UTC−03:00", "UTC".
std::string utcOffset(int seconds) {
  if (seconds == 0) return "UTC";
  const int magnitude = std::abs(seconds) / 60;
  return fmt::format("UTC{}{:02}:{:02}", seconds < 0 ? "-" : "+", magnitude / 60, magnitude % 60);
}

// 8,336,817
std::string grouped(std::int64_t value) {
  std::string digits = std::to_string(value);
  for (int i = static_cast<int>(digits.size()) - 3; i > 0; i -= 3) digits.insert(static_cast<std::size_t>(i), ",");
  return digits;
}

std::string joinNonEmpty(std::initializer_list<std::string_view> parts) {
  std::string out;
  for (const std::string_view part : parts) {
    if (part.empty()) continue;
    if (!out.empty()) out += ", ";
    out += part;
  }
  return out;
}

boost::json::value optionalText(const std::optional<std::string>& text) {
  return text ? boost::json::value(*text) : boost::json::value(nullptr);
}

int search(const SearchOptions& options) {
  const OfflineGeocoder geocoder;
  const auto matches = geocoder.search(options.text, options.limit);
  if (matches.empty()) {
    throw DomainError(kNoResultErrorDomain, kNoResultErrorCode, "no place matches \"" + options.text + "\"");
  }
  if (options.json) {
    boost::json::array out;
    for (const PlaceMatch& m : matches) {
      out.push_back(boost::json::object{
          {"name", m.name},
          {"admin1", m.admin1},
          {"countryCode", m.countryCode},
          {"countryName", m.countryName},
          {"latitude", m.coordinate.latitude()},
          {"longitude", m.coordinate.longitude()},
          {"population", m.population},
          {"timeZone", m.timeZoneIdentifier},
      });
    }
    std::cout << serializeJson(out) << "\n";
    return 0;
  }
  int number = 0;
  for (const PlaceMatch& m : matches) {
    std::cout << fmt::format("{:>2}. {}\n", ++number, joinNonEmpty({m.name, m.admin1, m.countryName}));
    std::string detail = fmt::format("{:.4f}, {:.4f}", m.coordinate.latitude(), m.coordinate.longitude());
    if (m.population > 0) detail += "  pop. " + grouped(m.population);
    detail += "  " + m.timeZoneIdentifier;
    std::cout << "    " << detail << "\n";
  }
  return 0;
}

int at(const AtOptions& options) {
  const Location location = parseCoordinate(options.coordinate);
  const OfflineGeocoder geocoder;
  const auto placemarks = geocoder.reverseGeocode(location);
  const GeoDetails details = geoDetailsOfFirst(placemarks);
  const Placemark& mark = placemarks.front();
  const SystemClock clock;
  const int offset = details.timeZone.secondsFromGMT(Date::fromSystem(clock.now()));

  if (options.json) {
    boost::json::object out{
        {"name", details.name},
        {"region", details.region.identifier},
        {"timeZone", details.timeZone.identifier()},
        {"latitude", location.latitude()},
        {"longitude", location.longitude()},
        {"placemark",
         boost::json::object{
             {"name", optionalText(mark.name)},
             {"locality", optionalText(mark.locality)},
             {"subLocality", optionalText(mark.subLocality)},
             {"administrativeArea", optionalText(mark.administrativeArea)},
             {"country", optionalText(mark.country)},
             {"ISOcountryCode", optionalText(mark.ISOcountryCode)},
             {"description", mark.description},
         }},
    };
    std::cout << serializeJson(out) << "\n";
    return 0;
  }
  std::cout << details.name << "\n";
  auto row = [](std::string_view label, std::string_view value) {
    if (!value.empty()) std::cout << fmt::format("  {:<11}{}\n", label, value);
  };
  row("district", mark.subLocality.value_or(""));
  row("locality", mark.locality.value_or(""));
  row("region", mark.administrativeArea.value_or(""));
  row("country", mark.country ? fmt::format("{} ({})", *mark.country, details.region.identifier) : "");
  row("time zone", fmt::format("{} ({} now)", details.timeZone.identifier(), utcOffset(offset)));
  row("coordinate", coordinateName(location.latitude(), location.longitude()));
  return 0;
}

// Runs a subcommand and turns its failures into one line on stderr and the exit code.
template <class Run>
void report(const char* name, Run run) {
  try {
    setExitCode(run());
  } catch (const InvalidPlaceQuery& error) {
    logf("ombrine places {}: {}", name, error.what());
    setExitCode(2);
  } catch (const DomainError& error) {
    logf("ombrine places {}: {}", name, error.what());
    setExitCode(1);
  } catch (const FileError& error) {
    logf("ombrine places {}: the place data cannot be read: {}", name, error.what());
    setExitCode(1);
  }
}

}  // namespace

void addPlacesCommand(CLI::App& app) {
  CLI::App* places = app.add_subcommand("places", "Find places by name, or name a coordinate (offline)");
  places->require_subcommand(1);

  auto searchOptions = std::make_shared<SearchOptions>();
  CLI::App* searchCommand = places->add_subcommand("search", "Places whose name starts with TEXT, best first");
  searchCommand->add_option("text", searchOptions->text,
                            "A name (\"zurich\"), a name with its state or country (\"Springfield, IL\", "
                            "\"Paris, FR\"), or LAT,LON")
      ->required();
  searchCommand->add_option("--limit", searchOptions->limit, "At most this many places (1 to 1000)")
      ->check(CLI::Range(1, 1000));
  searchCommand->add_flag("--json", searchOptions->json, "Print the matches as a JSON array");
  searchCommand->callback([searchOptions] { report("search", [&] { return search(*searchOptions); }); });

  auto atOptions = std::make_shared<AtOptions>();
  CLI::App* atCommand = places->add_subcommand("at", "Name a coordinate: place, region, country, time zone");
  atCommand->add_option("coordinate", atOptions->coordinate, "LAT,LON in decimal degrees, e.g. 48.137,11.575")
      ->required();
  atCommand->add_flag("--json", atOptions->json, "Print the result as JSON");
  atCommand->callback([atOptions] { report("at", [&] { return at(*atOptions); }); });
}

}  // namespace ombrine::app
