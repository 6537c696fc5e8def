#include "app/trips_hourly_command.hpp"

#include <fmt/format.h>
#include <boost/json/array.hpp>
#include <boost/json/object.hpp>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/commands.hpp"
#include "app/failure_text.hpp"
#include "app/global_options.hpp"
#include "app/screen_text.hpp"
#include "app/terminal_text.hpp"
#include "core/fetch/geocoder.hpp"
#include "core/fetch/provider_dispatch.hpp"
#include "core/record/one_call_weather_json.hpp"
#include "core/values/errors.hpp"
#include "core/values/geo_naming.hpp"
#include "core/values/unit_rules.hpp"
#include "core/values/value_format.hpp"
#include "core/values/value_json.hpp"
#include "persistence/favorite_store.hpp"
#include "persistence/favorite_weather_cache.hpp"
#include "persistence/weather_cache.hpp"
#include "places/coordinate_text.hpp"
#include "platform/errors.hpp"
#include "platform/linux/file_cloud_key_value_store.hpp"
#include "platform/log.hpp"
#include "platform/paths.hpp"
#include "trips/current_place_record.hpp"
#include "trips/hourly_trip_forecast.hpp"
#include "trips/trip_calendar.hpp"
#include "trips/trip_store.hpp"
#include "wiring/services.hpp"

namespace ombrine::app {

namespace {

constexpr int kDefaultHours = 24;

struct HourlyOptions {
  std::string place;
  std::string at;
  int hours = kDefaultHours;
  std::string provider;  // empty: the stored preference
  bool noFetch = false;
  bool json = false;
};

// No place to start from, or a place nobody knows: exit 2.
class PlaceUsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The place on screen: PLACE, --at, else home.
struct CurrentPlace {
  HourlyForecastLocation location;
  Location coordinate;
  std::optional<FavoriteLocation> home;  // set when the place is the home
};

CurrentPlace resolveCurrentPlace(const HourlyOptions& options, const std::optional<FavoriteLocation>& home,
                                 const Geocoder& geocoder) {
  // A place that is not saved has no id of its own; the nil id stands for it.
  CurrentPlace place{HourlyForecastLocation{Uuid{}, {}, "location", TimeZone::gmt(), std::nullopt, std::nullopt},
                     Location(), std::nullopt};
  if (!options.at.empty()) {
    place.coordinate = parseCoordinate(options.at);
    const std::vector<Placemark> placemarks = geocoder.reverseGeocode(place.coordinate);
    place.location.name = placemarks.empty() ? coordinateName(place.coordinate.latitude(), place.coordinate.longitude())
                                             : geoDetailsOfFirst(placemarks).name;
    place.location.timeZone = geocoder.timeZone(place.coordinate);
  } else if (!options.place.empty()) {
    const std::vector<PlaceMatch> matches = geocoder.search(options.place, 1);
    if (matches.empty()) throw PlaceUsageError("no place named " + quotedInput(options.place));
    const PlaceMatch& match = matches.front();
    place.coordinate = match.coordinate;
    place.location.name = match.name;
    const std::optional<TimeZone> zone = TimeZone::named(match.timeZoneIdentifier);
    place.location.timeZone = zone ? *zone : geocoder.timeZone(match.coordinate);
    if (!match.countryCode.empty()) place.location.region = Region{match.countryCode};
  } else if (home) {
    place.home = home;
    place.coordinate = home->location;
    place.location =
        HourlyForecastLocation{home->id,         home->shownName(),
                               kHomeRouteSymbol, home->timeZone ? *home->timeZone : geocoder.timeZone(home->location),
                               home->region,     std::nullopt};
  } else {
    throw PlaceUsageError(
        "no place to start from: name one (e.g. Munich), give --at LAT,LON, or set a home with ombrine places home");
  }
  return place;
}

// The rows from the hour that holds `now` on, up to `hours` real hours (sun-event rows between
// them are kept: they are part of the route, not hours of their own).
std::vector<OneCallWeather::Hourly> nextHours(const std::vector<OneCallWeather::Hourly>& rows, Date now, int hours) {
  std::vector<OneCallWeather::Hourly> out;
  int real = 0;
  for (const OneCallWeather::Hourly& row : rows) {
    if (row.dt + 3600.0 <= now) continue;
    if (!row.sunStateChange && ++real > hours) break;
    out.push_back(row);
  }
  return out;
}

// An instant on the wall clock of `zone`, with the zone's offset from UTC.
struct LocalClock {
  CivilDay day;
  WallTime time;
  char sign = '+';
  int offsetHours = 0;
  int offsetMinutes = 0;
};

LocalClock localClock(Date instant, const TimeZone& zone) {
  const TripCalendar calendar(zone);
  const int offset = zone.secondsFromGMT(instant);
  const int minutes = std::abs(offset) / 60;
  return {calendar.day(instant), calendar.timeOfDay(instant), offset < 0 ? '-' : '+', minutes / 60, minutes % 60};
}

// "2026-06-21 14:00 UTC+02" (or UTC+05:30), ASCII for JSON.
std::string localTime(Date instant, const TimeZone& zone) {
  const LocalClock at = localClock(instant, zone);
  const std::string utc = at.offsetMinutes == 0
                              ? fmt::format("UTC{}{:02}", at.sign, at.offsetHours)
                              : fmt::format("UTC{}{:02}:{:02}", at.sign, at.offsetHours, at.offsetMinutes);
  return fmt::format("{:04}-{:02}-{:02} {:02}:{:02} {}", at.day.year, at.day.month, at.day.day, at.time.hour,
                     at.time.minute, utc);
}

// The same in the reader's digits.
std::string shownLocalTime(const ScreenText& text, Date instant, const TimeZone& zone) {
  const LocalClock at = localClock(instant, zone);
  std::string utc = std::string("UTC") + at.sign + text.number(at.offsetHours, {.integerDigits = 2, .grouping = false});
  if (at.offsetMinutes != 0) utc += ":" + text.number(at.offsetMinutes, {.integerDigits = 2, .grouping = false});
  return text.day(at.day.year, at.day.month, at.day.day) + " " + text.clock(at.time.hour, at.time.minute) + " " + utc;
}

// What a change of place means to the user.
std::string handoverText(const ScreenText& text, const HourlyForecastPoint& point, const HourlyTripLoad& load,
                         const CurrentPlace& place) {
  if (load.snapshot.routes.contains(point.location.id) && point.location.destinationName) {
    return text.format("arrive in {}", point.location.name);
  }
  if (load.snapshot.home && point.location.id == load.snapshot.home->location.id) return std::string(text("back home"));
  return text.format("back in {}", place.location.name);
}

bool isHandover(const std::vector<HourlyForecastPoint>& timeline, std::size_t index) {
  return index > 0 && timeline[index].location != timeline[index - 1].location;
}

boost::json::value locationJson(const HourlyForecastLocation& location) {
  boost::json::object out;
  out["id"] = location.id.text();
  out["name"] = location.name;
  out["symbolName"] = location.symbolName;
  out["timeZone"] = location.timeZone.identifier();
  out["region"] = location.region ? boost::json::value(location.region->identifier) : boost::json::value(nullptr);
  out["destinationName"] =
      location.destinationName ? boost::json::value(*location.destinationName) : boost::json::value(nullptr);
  return out;
}

void printJson(const HourlyTripLoad& load, const CurrentPlace& place, Date now) {
  const auto& timeline = load.snapshot.timeline;
  // One encoding of all rows: the hourly form of the unified record, row by row.
  OneCallWeather rows;
  for (const HourlyForecastPoint& point : timeline) rows.hourly.push_back(point.weather);
  const boost::json::value encoded = oneCallWeatherToJson(rows, now).as_object().at("hourly");
  boost::json::array points;
  for (std::size_t i = 0; i < timeline.size(); ++i) {
    boost::json::object point;
    point["location"] = locationJson(timeline[i].location);
    point["handover"] = isHandover(timeline, i);
    point["localTime"] = localTime(timeline[i].weather.dt, timeline[i].location.timeZone);
    point["hourly"] = encoded.as_array().at(i);
    points.push_back(std::move(point));
  }
  boost::json::array routes;
  for (const LoadedHourlyRoute& route : load.routes) {
    boost::json::object out;
    out["trip"] = route.request.cacheID.text();
    out["location"] = locationJson(load.snapshot.routes.at(route.request.cacheID).location);
    out["observedAt"] = route.weather.weather.weather.current.dt.timeIntervalSinceReferenceDate;
    routes.push_back(std::move(out));
  }
  boost::json::array unpersisted;
  for (const UnpersistedRouteWeather& kept : load.unpersisted)
    unpersisted.push_back(boost::json::value(kept.cacheID.text()));
  boost::json::array errors;
  for (const std::string& error : load.errors) errors.push_back(boost::json::value(error));
  boost::json::object document;
  document["place"] = locationJson(place.location);
  document["home"] = load.snapshot.home ? locationJson(load.snapshot.home->location) : boost::json::value(nullptr);
  document["routes"] = std::move(routes);
  document["timeline"] = std::move(points);
  document["fetches"] = load.fetches;
  document["unpersisted"] = std::move(unpersisted);
  document["errors"] = std::move(errors);
  std::cout << serializeJson(document) << "\n";
}

void printReadable(const HourlyTripLoad& load, const CurrentPlace& place) {
  const icu::Locale locale = currentLocale();
  const ScreenText text(locale);
  const auto& timeline = load.snapshot.timeline;
  std::cout << text.format("Where you will be, hour by hour, from {} (local time of each place; ▸ marks a change)",
                           place.location.name)
            << "\n";
  const std::size_t percentWidth = displayWidth(text.percent(1.0));
  for (std::size_t i = 0; i < timeline.size(); ++i) {
    const HourlyForecastPoint& point = timeline[i];
    const bool handover = isHandover(timeline, i);
    const std::string condition =
        point.weather.weather.empty() ? std::string() : point.weather.weather.front().description;
    // Cells in terminal columns, not bytes: names and conditions may be wide or accented.
    std::string line = fmt::format(
        "{} {}  {} {}  {} {}", handover ? "▸" : " ", shownLocalTime(text, point.weather.dt, point.location.timeZone),
        padRight(cutToWidth(point.location.name, 16), 16),
        padLeft(formattedTemperature(point.weather.temp, TemperatureWidth::narrow, locale), 5),
        padRight(cutToWidth(condition, 20), 20), padLeft(text.percent(point.weather.pop), percentWidth));
    if (handover) line += "   ← " + handoverText(text, point, load, place);
    std::cout << line << "\n";
  }
}

int run(const HourlyOptions& options) {
  if (options.hours < 1) throw PlaceUsageError("--hours must be at least 1");
  ProgramServices program;
  Services& services = *program;
  const std::optional<FavoriteLocation> home = services.home().home();
  const CurrentPlace place = resolveCurrentPlace(options, home, services.geocoder());
  const WeatherDataSource provider =
      options.provider.empty() ? services.providerSettings().dataSource() : weatherDataSourceNamed(options.provider);

  WeatherCache& cache = services.weatherCache();
  FavoriteWeatherCache& favorites = services.favoriteWeather();
  const Date now = Date::fromSystem(services.clock().now());
  CurrentPlaceQuery query{place.location.name, place.coordinate, place.location.timeZone, place.location.region,
                          place.home,          provider,         !options.noFetch};
  auto loadRecord =
      currentPlaceRecord(std::move(query), cache, favorites, services.tripWeatherFetcher(), services.clock());
  const CachedWeather record = services.runtime().runBlocking(std::move(loadRecord));
  std::vector<OneCallWeather::Hourly> hours = nextHours(record.weather.hourly, now, options.hours);
  const auto real = std::count_if(hours.begin(), hours.end(), [](const auto& row) { return !row.sunStateChange; });
  if (real < options.hours) {
    logf("ombrine trips hourly: the forecast for {} holds {} more hours", place.location.name, real);
  }

  std::vector<Trip> trips = services.trips().trips();
  std::stable_sort(trips.begin(), trips.end(),
                   [](const Trip& a, const Trip& b) { return a.dates.from < b.dates.from; });
  HourlyTripRefreshID key{
      TripHourlySchedule{std::move(trips)}, home, place.coordinate, provider, std::move(hours), !options.noFetch};
  auto work = loadHourlyTripForecast(std::move(key), place.location, cache, favorites, services.tripWeatherFetcher(),
                                     services.clock());
  const HourlyTripLoad load = services.runtime().runBlocking(std::move(work));
  for (const std::string& error : load.errors) logf("ombrine trips hourly: {}", error);
  if (options.json) {
    printJson(load, place, now);
  } else {
    printReadable(load, place);
  }
  return 0;
}

}  // namespace

void addTripsHourlyCommand(CLI::App& trips) {
  auto options = std::make_shared<HourlyOptions>();
  CLI::App* command = trips.add_subcommand(
      "hourly", "The next hours where you will be: your trips' places while you are there, home after a trip");
  CLI::Option* place =
      command->add_option("place", options->place, "Where you are until a trip begins (default: your home place)");
  CLI::Option* at = command->add_option("--at", options->at, "That place as LAT,LON in decimal degrees");
  place->excludes(at);
  command->add_option("--hours", options->hours, "How many hours (default 24; at most what the forecast holds)")
      ->check(positiveNumber());
  command->add_option("--provider", options->provider, "dynamic (by region), apple, foreca or ow")
      ->check(CLI::IsMember({"dynamic", "apple", "foreca", "ow"}));
  command->add_flag("--no-fetch", options->noFetch, "Show only what the caches hold");
  command->add_flag("--json", options->json, "Print the timeline (place and hourly row of each point) as JSON");
  command->callback([options] {
    try {
      setExitCode(run(*options));
    } catch (const PlaceUsageError& error) {
      logf("ombrine trips hourly: {}", error.what());
      setExitCode(2);
    } catch (const InvalidPlaceQuery& error) {
      logf("ombrine trips hourly: {}", error.what());
      setExitCode(2);
    } catch (const std::exception& error) {
      logf("ombrine trips hourly: {}", failureText(std::current_exception()));
      setExitCode(1);
    }
  });
}

}  // namespace ombrine::app
