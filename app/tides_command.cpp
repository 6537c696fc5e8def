#include "app/tides_command.hpp"

#include <algorithm>
#include <iostream>
#include <memory>

#include "app/commands.hpp"
#include "app/failure_text.hpp"
#include "app/global_options.hpp"
#include "app/screen_text.hpp"
#include "app/terminal_text.hpp"
#include "core/fetch/geocoder.hpp"
#include "core/record/tide_records_json.hpp"
#include "core/values/errors.hpp"
#include "core/values/unit_rules.hpp"
#include "core/values/value_json.hpp"
#include "places/coordinate_text.hpp"
#include "platform/http_client.hpp"
#include "platform/log.hpp"
#include "tides/tide_deep_link.hpp"
#include "tides/tide_service.hpp"
#include "tides/tide_summary.hpp"
#include "wiring/geocode_namer.hpp"
#include "wiring/services.hpp"

namespace ombrine::app {

namespace {

struct TidesOptions {
  std::string place;
  std::string at;
  std::string station;
  int hours = 48;
  bool json = false;
};

// NOAA station ids are all digits; CHS ids are not.
TideStationSource sourceOf(const TideStation& station) {
  const bool digits = !station.id.empty() &&
                      std::all_of(station.id.begin(), station.id.end(), [](char c) { return c >= '0' && c <= '9'; });
  return digits ? TideStationSource::noaa : TideStationSource::chs;
}

Task<std::optional<TideData>> stationTides(TideService& tides, std::string id) {
  const auto noaa = co_await tides.noaaStations();
  for (const auto& station : noaa) {
    if (station.id == id) co_return co_await tides.noaaTideData(station, 0.0);
  }
  const auto chs = co_await tides.chsStations();
  for (const auto& station : chs) {
    if (station.id == id || station.code == id) co_return co_await tides.chsTideData(station.tideStation(), 0.0);
  }
  throw InvalidPlaceQuery("no NOAA or CHS station has the id \"" + id + "\"");
}

int run(const TidesOptions& options) {
  ProgramServices program;
  Services& services = *program;
  const icu::Locale locale = currentLocale();
  std::optional<TideData> data;
  std::string placeName;
  TimeZone zone = TimeZone::current();
  if (!options.station.empty()) {
    auto task = stationTides(services.tides(), options.station);
    data = services.runtime().runBlocking(std::move(task));
    if (data) {
      placeName = data->station.displayName();
      const Location at(data->station.latitude, data->station.longitude);
      try {
        zone = services.namer().detailsOf(at).timeZone;
      } catch (const DomainError&) {
        // An unnamed station shows in the device's zone.
      }
    }
  } else {
    if (options.at.empty() && options.place.empty()) {
      throw InvalidPlaceQuery("name a place (e.g. Dover), give --at LAT,LON or --station ID");
    }
    Location location;
    std::string foundName;
    if (!options.at.empty()) {
      location = parseCoordinate(options.at);
    } else {
      const auto matches = services.geocoder().search(options.place, 1);
      if (matches.empty()) {
        throw DomainError(kNoResultErrorDomain, kNoResultErrorCode, "no place named " + quotedInput(options.place));
      }
      location = matches.front().coordinate;
      foundName = matches.front().name;
    }
    const GeoDetails details = services.namer().detailsOf(location);
    placeName = options.at.empty() ? foundName : details.name;
    zone = details.timeZone;
    auto task = services.tides().tideData(location.latitude(), location.longitude(), details.region.identifier);
    data = services.runtime().runBlocking(std::move(task));
  }
  if (!data) {
    logf("ombrine tides: no tide station serves {}", placeName);
    return 1;
  }
  if (options.json) {
    std::cout << serializeJson(tideDataToJson(*data)) << "\n";
    return 0;
  }
  const Date now = Date::fromSystem(services.clock().now());
  const TideStationSource source = sourceOf(data->station);
  const ScreenText text(locale);
  std::cout << text.format("Tides for {}", placeName) << "\n";
  std::cout << text.format("Station: {}", describeTideStation(*data, text)) << " ("
            << stationKey(source, data->station.id) << ")\n";
  if (const auto next = describeNextTide(*data, now, zone, text)) std::cout << *next << "\n";
  std::cout << "\n";
  for (const auto& line : tideExtremeLines(*data, now, options.hours, zone, text)) std::cout << line << "\n";
  std::cout << "\n"
            << text.format("Times in {}. Open in the app: {}", zone.identifier(),
                           tideDeepLink(TideDetailLaunchRequest::station({source, data->station})))
            << "\n";
  return 0;
}

}  // namespace

void addTidesCommand(CLI::App& app) {
  auto options = std::make_shared<TidesOptions>();
  CLI::App* command = app.add_subcommand("tides", "The tide station of a place and its coming highs and lows");
  auto* place = command->add_option("place", options->place, "A place name (\"Boston\", \"Saint John, NB\")");
  auto* at = command->add_option("--at", options->at, "A coordinate, LAT,LON (e.g. 38.78,-75.12)")->excludes(place);
  command->add_option("--station", options->station, "A NOAA station id, or a CHS station id or code")
      ->excludes(place)
      ->excludes(at);
  command->add_option("--hours", options->hours, "How many hours of highs and lows to list (default 48)")
      ->check(CLI::Range(1, 56));
  command->add_flag("--json", options->json, "Print the tide record as JSON");
  command->callback([options] {
    try {
      setExitCode(run(*options));
    } catch (const InvalidPlaceQuery& error) {
      logf("ombrine tides: {}", error.what());
      setExitCode(2);
    } catch (const std::exception&) {
      logf("ombrine tides: {}", failureText(std::current_exception()));
      setExitCode(1);
    }
  });
}

}  // namespace ombrine::app
