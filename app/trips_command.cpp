#include "app/trips_command.hpp"

#include <fmt/format.h>
#include <boost/json/array.hpp>
#include <boost/json/object.hpp>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/command_report.hpp"
#include "app/commands.hpp"
#include "app/global_options.hpp"
#include "app/screen_text.hpp"
#include "app/terminal_text.hpp"
#include "app/trips_hourly_command.hpp"
#include "core/fetch/geocoder.hpp"
#include "core/values/errors.hpp"
#include "core/values/geo_naming.hpp"
#include "core/values/unit_rules.hpp"
#include "core/values/value_format.hpp"
#include "core/values/value_json.hpp"
#include "persistence/favorite_store.hpp"
#include "persistence/trip_cache_store.hpp"
#include "persistence/weather_cache.hpp"
#include "places/coordinate_text.hpp"
#include "platform/errors.hpp"
#include "platform/log.hpp"
#include "platform/paths.hpp"
#include "trips/hourly_trip_forecast.hpp"
#include "trips/trip_lookup.hpp"
#include "trips/trip_rules.hpp"
#include "trips/trip_store.hpp"
#include "wiring/services.hpp"

namespace ombrine::app {

namespace {

// Input the command refuses before any rule runs: a malformed date, an unknown place, an
// ambiguous trip. Exit code 2.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct PlaceOptions {
  std::string place;
  std::string at;
  std::optional<std::string> displayName;
  std::string symbol;
};

struct AddOptions {
  PlaceOptions place;
  std::string from;
  std::string to;
};

struct EditOptions {
  std::string trip;
  PlaceOptions place;
  std::string from;
  std::string to;
  bool clearName = false;
};

struct ShowOptions {
  std::string trip;
  bool json = false;
};

// The services of one command run, with the trips and the home place of the synced store.
struct Stores {
  ProgramServices program;
  Services& services = *program;
  TripStore& trips = services.trips();
  HomeStore& home = services.home();

  Date now() { return Date::fromSystem(services.clock().now()); }
};

CivilDay parseDay(const std::string& text, const char* what) {
  CivilDay day;
  auto number = [&](size_t at, size_t length, int& out) {
    const char* begin = text.data() + at;
    const auto [end, error] = std::from_chars(begin, begin + length, out);
    return error == std::errc() && end == begin + length;
  };
  const bool shaped = text.size() == 10 && text[4] == '-' && text[7] == '-' && number(0, 4, day.year) &&
                      number(5, 2, day.month) && number(8, 2, day.day);
  if (shaped && day.month >= 1 && day.month <= 12 && day.day >= 1) {
    // The day must exist: rebuilding it in GMT gives the same fields back.
    const TripCalendar gmt(TimeZone::gmt());
    if (gmt.day(gmt.date(day)) == day) return day;
  }
  throw UsageError(fmt::format("{} \"{}\" is not a date; write YYYY-MM-DD, e.g. 2027-03-20", what, text));
}

std::string dayText(CivilDay day) { return fmt::format("{:04}-{:02}-{:02}", day.year, day.month, day.day); }

// A day, or a day with a wall-clock time ("YYYY-MM-DD HH:MM", a "T" also separates them).
struct DayInput {
  CivilDay day;
  std::optional<WallTime> time;
};

DayInput parseDayInput(const std::string& text, const char* what) {
  if (text.size() <= 10) return DayInput{parseDay(text, what), std::nullopt};
  auto number = [&](size_t at, int& out) {
    const auto [end, error] = std::from_chars(text.data() + at, text.data() + at + 2, out);
    return error == std::errc() && end == text.data() + at + 2;
  };
  WallTime time;
  const bool shaped = text.size() == 16 && (text[10] == ' ' || text[10] == 'T') && text[13] == ':' &&
                      number(11, time.hour) && number(14, time.minute);
  if (!shaped || time.hour > 23 || time.minute > 59) {
    throw UsageError(fmt::format(
        "{} \"{}\" is not a date and time; write \"YYYY-MM-DD HH:MM\", e.g. \"2027-03-20 14:30\"", what, text));
  }
  return DayInput{parseDay(text.substr(0, 10), what), time};
}

// The wall clock of an instant at the destination, as the user would enter it.
std::pair<CivilDay, WallTime> wallClock(Date instant, const TimeZone& zone) {
  const TripCalendar calendar(zone);
  const WallTime time = calendar.timeOfDay(instant);
  return {calendar.day(instant), WallTime{time.hour, time.minute, 0}};
}

std::string momentText(Date instant, const TimeZone& zone) {
  const auto [day, time] = wallClock(instant, zone);
  return fmt::format("{} {:02}:{:02}", dayText(day), time.hour, time.minute);
}

// The same day and time in the reader's digits.
std::string shownDay(const ScreenWords& words, CivilDay day) { return words.day(day.year, day.month, day.day); }

std::string shownMoment(const ScreenWords& words, Date instant, const TimeZone& zone) {
  const auto [day, time] = wallClock(instant, zone);
  return shownDay(words, day) + " " + words.clock(time.hour, time.minute);
}

// The destination the options name, or nothing when no place could be read for them.
std::optional<TripLocation> resolvePlace(const PlaceOptions& options, const Geocoder& geocoder) {
  if (!options.place.empty() && !options.at.empty()) throw UsageError("give a place name or --at, not both");
  TripLocation destination;
  destination.symbolName = options.symbol.empty() ? "airplane" : options.symbol;
  if (!options.at.empty()) {
    destination.location = parseCoordinate(options.at);
    const std::vector<Placemark> placemarks = geocoder.reverseGeocode(destination.location);
    if (placemarks.empty()) return std::nullopt;
    destination.name = geoDetailsOfFirst(placemarks).name;
    destination.timeZone = geocoder.timeZone(destination.location);
  } else {
    const std::vector<PlaceMatch> matches = geocoder.search(options.place, 1);
    if (matches.empty()) return std::nullopt;
    const PlaceMatch& match = matches.front();
    std::optional<TimeZone> zone = TimeZone::named(match.timeZoneIdentifier);
    destination.name = match.name;
    destination.location = match.coordinate;
    destination.timeZone = zone ? *zone : geocoder.timeZone(match.coordinate);
  }
  if (options.displayName && !options.displayName->empty()) destination.displayName = options.displayName;
  return destination;
}

std::optional<Location> homeLocation(const Stores& stores) {
  const std::optional<FavoriteLocation> home = stores.home.home();
  if (!home) return std::nullopt;
  return home->location;
}

// The trip's first and last days as the destination numbers them.
std::pair<CivilDay, CivilDay> tripDays(const Trip& trip) {
  const TripCalendar destination(trip.destination.timeZone);
  return {destination.day(trip.dates.from), destination.day(trip.dates.hasTimes ? endMoment(trip) : trip.dates.to)};
}

// What the user sees of a trip's span: days for an all-day trip, arrival and departure on the
// destination's clock for a timed one.
std::string spanText(const ScreenWords& words, const Trip& trip) {
  if (trip.dates.hasTimes) {
    return words.format("{} to {}", shownMoment(words, trip.dates.from, trip.destination.timeZone),
                        shownMoment(words, endBase(trip.dates), trip.destination.timeZone));
  }
  const auto [first, last] = tripDays(trip);
  return first == last ? shownDay(words, first)
                       : words.format("{} to {}", shownDay(words, first), shownDay(words, last));
}

std::string_view weatherStateName(WeatherState state) {
  switch (state) {
    case WeatherState::sunnyDay: return "sunnyDay";
    case WeatherState::hotDay: return "hotDay";
    case WeatherState::rainyDay: return "rainyDay";
    case WeatherState::chillyDay: return "chillyDay";
    case WeatherState::overcast: return "overcast";
    case WeatherState::night: return "night";
    case WeatherState::rainyNight: return "rainyNight";
    case WeatherState::placeholder: return "placeholder";
  }
  return "placeholder";
}

std::string_view weatherStateText(WeatherState state) {
  switch (state) {
    case WeatherState::sunnyDay: return "sunny";
    case WeatherState::hotDay: return "hot";
    case WeatherState::rainyDay: return "rainy";
    case WeatherState::chillyDay: return "chilly";
    case WeatherState::overcast: return "overcast";
    case WeatherState::night: return "clear night";
    case WeatherState::rainyNight: return "rainy night";
    case WeatherState::placeholder: return "no forecast";
  }
  return "";
}

// The row weather of each trip the trip cache holds a record for; nothing is fetched.
std::map<Uuid, TripRowWeatherSnapshot> rowWeather(WeatherCache& cache, const std::vector<Trip>& trips, Date today) {
  std::map<Uuid, TripRowWeatherSnapshot> out;
  for (const Trip& trip : trips) {
    const std::optional<TripCacheEntry> entry =
        cache.cachedWeather(trip.id, trip.destination.location, true, std::nullopt);
    if (!entry) continue;
    if (auto row = tripRowWeather(trip, entry->cachedWeather, today)) out.emplace(trip.id, *row);
  }
  return out;
}

boost::json::object describe(const Trip& trip, const std::vector<Trip>& trips, const std::optional<Location>& home,
                             const TripCalendar& calendar, Date today) {
  const TripState state = tripState(trip, today, calendar);
  const auto [first, last] = tripDays(trip);
  const std::optional<Trip> next = nextConnectedTrip(trip, trips, home);
  boost::json::object out;
  out["trip"] = parseJson(encodeTrip(trip));
  out["state"] = tripStateName(state.value);
  out["days"] = state.days;
  out["firstDay"] = dayText(first);
  out["lastDay"] = dayText(last);
  out["continuesTo"] = next ? boost::json::value(next->destination.shownName()) : boost::json::value(nullptr);
  if (trip.dates.hasTimes) {
    out["arrival"] = momentText(trip.dates.from, trip.destination.timeZone);
    out["departure"] = momentText(endBase(trip.dates), trip.destination.timeZone);
  }
  return out;
}

std::string stateText(const ScreenWords& words, const TripState& state) {
  const std::string days = words.counted(state.days, "{} day", "{} days");
  switch (state.value) {
    case TripStateValue::upcoming: return words.format("upcoming, in {}", days);
    case TripStateValue::past: return words.format("past, {} ago", days);
    case TripStateValue::active:
      return state.days == 0 ? std::string(words("active, last day")) : words.format("active, {} left", days);
  }
  return {};
}

void printTrip(const ScreenWords& words, const Trip& trip, const std::vector<Trip>& trips,
               const std::optional<Location>& home, const TripCalendar& calendar, Date today, bool detailed,
               const std::optional<TripRowWeatherSnapshot>& weather = std::nullopt) {
  std::string weatherText;
  if (weather) {
    weatherText = "  " + words.values().temperature(weather->temperature, TemperatureWidth::narrow) + ", " +
                  std::string(words(weatherStateText(weather->weatherState)));
  }
  // Names are measured in terminal cells, so that CJK names keep the dates in one column.
  std::cout << trip.id.text().substr(0, 8) << "  " << padRight(neutralised(trip.destination.shownName()), 24) << " "
            << spanText(words, trip) << "  (" << stateText(words, tripState(trip, today, calendar)) << ")"
            << weatherText << "\n";
  // The continuation label keeps its English words in every language.
  if (const std::optional<Trip> next = nextConnectedTrip(trip, trips, home)) {
    std::cout << "          " << neutralised(continuationLabel(*next)) << "\n";
  }
  if (!detailed) return;
  // The labels' column fits the longest label in the reader's language and two spaces.
  std::size_t width = 12;
  for (const char* label : {"id", "place", "shown as", "coordinate", "time zone", "kind"}) {
    width = std::max(width, displayWidth(words(label)) + 2);
  }
  auto row = [&](std::string_view label, std::string_view value) {
    std::cout << "  " << padRight(words(label), width) << value << "\n";
  };
  row("id", trip.id.text());
  row("place", neutralised(trip.destination.name));
  if (trip.destination.displayName) row("shown as", neutralised(*trip.destination.displayName));
  row("coordinate", words.hemispheres(trip.destination.location.latitude(), trip.destination.location.longitude()));
  row("time zone", trip.destination.timeZone.identifier());
  row("kind", words(trip.dates.hasTimes ? "with times" : "all day"));
}

std::vector<Trip> byStart(std::vector<Trip> trips) {
  std::stable_sort(trips.begin(), trips.end(),
                   [](const Trip& a, const Trip& b) { return a.dates.from < b.dates.from; });
  return trips;
}

// Saves the trip `id` as `validated` makes it against the trips as stored now, and the list as
// the rules keep it after the change (TripStore::saveChecked). Returns the trip as stored.
Trip store(Stores& stores, const Uuid& id, const std::function<Trip(const std::vector<Trip>&)>& validated,
           const std::optional<Location>& home, const TripCalendar& calendar) {
  const bool editing = stores.trips.trip(id).has_value();
  const std::function<std::vector<Trip>(std::vector<Trip>)> normalize = [&](std::vector<Trip> trips) {
    return normalizedTrips(trips, home, calendar);
  };
  return stores.trips.saveChecked(id, editing, validated, normalize);
}

// Times on both ends or on neither: a trip is timed or all-day as a whole.
std::optional<std::pair<CivilDay, WallTime>> departureOf(const std::optional<DayInput>& to, bool timed) {
  if (!to) return std::nullopt;
  if (to->time.has_value() != timed) {
    throw UsageError("give --from and --to both with a time (\"YYYY-MM-DD HH:MM\") or both as days (YYYY-MM-DD)");
  }
  return std::pair{to->day, *to->time};
}

int add(const AddOptions& options) {
  const TripCalendar calendar = TripCalendar::current();
  const DayInput arrival = parseDayInput(options.from, "--from");
  const std::optional<DayInput> departure =
      options.to.empty() ? std::nullopt : std::optional(parseDayInput(options.to, "--to"));
  const bool timed = arrival.time.has_value();
  const auto timedDeparture = timed ? departureOf(departure, true) : std::nullopt;
  if (!timed) departureOf(departure, false);
  const CivilDay first = arrival.day;
  const std::optional<CivilDay> last = departure ? std::optional(departure->day) : std::nullopt;
  Stores stores;
  const std::optional<Location> home = homeLocation(stores);
  const std::vector<Trip> existing = stores.trips.trips();
  std::optional<TripLocation> destination;
  if (home) {
    // The geocoder's data is opened only when the first rule has passed.
    destination = resolvePlace(options.place, stores.services.geocoder());
  }
  const Uuid id = Uuid::random();
  const std::function<Trip(const std::vector<Trip>&)> validated = [&](const std::vector<Trip>& current) {
    if (timed) {
      const NewTimedTripRequest request{destination, arrival.day, *arrival.time, timedDeparture};
      return validateNewTimedTrip(request, home, current, stores.now(), calendar, id);
    }
    const NewTripRequest request{destination, calendar.date(first),
                                 last ? std::optional(calendar.date(*last)) : std::nullopt};
    return validateNewTrip(request, home, current, stores.now(), calendar, id);
  };
  // The rules first against what this run read, so a refused trip needs no lock.
  validated(existing);
  // As stored: an inferred end may have become the next trip's arrival.
  const Trip trip = store(stores, id, validated, home, calendar);
  const ScreenText words(currentLocale());
  std::cout << words.format("Added trip to {} ({}), id {}", neutralised(trip.destination.shownName()),
                            spanText(words, trip), trip.id.text())
            << "\n";
  return 0;
}

// {"temperature" in °C, "weatherState"}, or null when the cache has nothing for the trip.
boost::json::value rowWeatherJson(const std::optional<TripRowWeatherSnapshot>& snapshot) {
  if (!snapshot) return nullptr;
  return {{"temperature", snapshot->temperature.inCelsius()},
          {"weatherState", weatherStateName(snapshot->weatherState)}};
}

int list(bool json) {
  const TripCalendar calendar = TripCalendar::current();
  Stores stores;
  const std::optional<Location> home = homeLocation(stores);
  const std::vector<Trip> trips = byStart(stores.trips.trips());
  const Date today = stores.now();
  const std::map<Uuid, TripRowWeatherSnapshot> weather = rowWeather(stores.services.weatherCache(), trips, today);
  auto weatherOf = [&](const Trip& trip) {
    auto found = weather.find(trip.id);
    return found == weather.end() ? std::nullopt : std::optional(found->second);
  };
  if (json) {
    boost::json::array out;
    for (const Trip& trip : trips) {
      boost::json::object row = describe(trip, trips, home, calendar, today);
      row["rowWeather"] = rowWeatherJson(weatherOf(trip));
      out.push_back(std::move(row));
    }
    std::cout << serializeJson(out) << "\n";
    return 0;
  }
  const ScreenText words(currentLocale());
  if (trips.empty())
    std::cout << words.format("No trips. Add one with: {}", "ombrine trips add PLACE --from YYYY-MM-DD") << "\n";
  for (const Trip& trip : trips) printTrip(words, trip, trips, home, calendar, today, false, weatherOf(trip));
  return 0;
}

int show(const ShowOptions& options) {
  const TripCalendar calendar = TripCalendar::current();
  Stores stores;
  const std::optional<Location> home = homeLocation(stores);
  const std::vector<Trip> trips = byStart(stores.trips.trips());
  const Date today = stores.now();
  const Trip trip = findTrip(trips, options.trip, today, calendar);
  const std::map<Uuid, TripRowWeatherSnapshot> weather = rowWeather(stores.services.weatherCache(), {trip}, today);
  const std::optional<TripRowWeatherSnapshot> snapshot =
      weather.empty() ? std::nullopt : std::optional(weather.begin()->second);
  if (options.json) {
    boost::json::object out = describe(trip, trips, home, calendar, today);
    out["rowWeather"] = rowWeatherJson(snapshot);
    std::cout << serializeJson(out) << "\n";
  } else {
    printTrip(ScreenText(currentLocale()), trip, trips, home, calendar, today, true, snapshot);
  }
  return 0;
}

int edit(const EditOptions& options) {
  const TripCalendar calendar = TripCalendar::current();
  Stores stores;
  const std::optional<Location> home = homeLocation(stores);
  const std::vector<Trip> existing = stores.trips.trips();
  const Trip original = findTrip(existing, options.trip, stores.now(), calendar);
  const bool movesPlace = !options.place.place.empty() || !options.place.at.empty();
  std::optional<TripLocation> destination = original.destination;
  if (movesPlace && home) {
    destination = resolvePlace(options.place, stores.services.geocoder());
    if (destination) destination = movedDestination(original.destination, *destination);
  }
  if (destination) {
    if (options.clearName) destination->displayName.reset();
    if (options.place.displayName && !options.place.displayName->empty())
      destination->displayName = options.place.displayName;
    if (!options.place.symbol.empty()) destination->symbolName = options.place.symbol;
  }
  const std::optional<DayInput> newFrom =
      options.from.empty() ? std::nullopt : std::optional(parseDayInput(options.from, "--from"));
  const std::optional<DayInput> newTo =
      options.to.empty() ? std::nullopt : std::optional(parseDayInput(options.to, "--to"));
  // A time on either end makes the trip timed; a day on either end makes it all-day; otherwise it
  // stays what it was.
  const bool timed = (newFrom && newFrom->time) || (newTo && newTo->time) ||
                     (original.dates.hasTimes && !(newFrom && !newFrom->time) && !(newTo && !newTo->time));
  std::function<Trip(const std::vector<Trip>&)> validated;
  if (timed) {
    // Ends the user does not change keep their wall clock at the destination.
    const TimeZone& zone = destination ? destination->timeZone : original.destination.timeZone;
    DayInput arrival;
    if (newFrom) {
      arrival = *newFrom;
    } else {
      if (!original.dates.hasTimes) throw UsageError("give --from with a time to make this all-day trip timed");
      const auto [day, time] = wallClock(original.dates.from, zone);
      arrival = DayInput{day, time};
    }
    if (!arrival.time) throw UsageError("give --from with a time (\"YYYY-MM-DD HH:MM\") for a trip with times");
    std::optional<DayInput> departure = newTo;
    if (!departure && original.dates.hasTimes && !original.dates.hasExclusiveEnd) {
      const auto [day, time] = wallClock(original.dates.to, zone);
      departure = DayInput{day, time};
    }
    NewTimedTripRequest request{destination, arrival.day, *arrival.time, departureOf(departure, true)};
    request.keepsStart = !newFrom;
    validated = [=, &calendar, &stores](const std::vector<Trip>& current) {
      return validateNewTimedTrip(request, home, current, stores.now(), calendar, original.id);
    };
  } else {
    // Days the user does not change stay the trip's own days of its destination.
    const auto [oldFirst, oldLast] = tripDays(original);
    const CivilDay first = newFrom ? newFrom->day : oldFirst;
    const CivilDay last = newTo ? newTo->day : oldLast;
    NewTripRequest request{destination, calendar.date(first), calendar.date(last)};
    request.keepsStart = !newFrom;
    validated = [=, &calendar, &stores](const std::vector<Trip>& current) {
      return validateNewTrip(request, home, current, stores.now(), calendar, original.id);
    };
  }
  validated(existing);
  const Trip edited = store(stores, original.id, validated, home, calendar);
  const ScreenText words(currentLocale());
  std::cout << words.format("Changed trip to {} ({}), id {}", neutralised(edited.destination.shownName()),
                            spanText(words, edited), edited.id.text())
            << "\n";
  return 0;
}

int remove(const std::string& named) {
  Stores stores;
  const Trip trip = findTrip(stores.trips.trips(), named, stores.now(), TripCalendar::current());
  stores.trips.remove(trip.id);
  std::cout << ScreenText(currentLocale())
                   .format("Removed trip to {}, id {}", neutralised(trip.destination.shownName()), trip.id.text())
            << "\n";
  return 0;
}

// Runs a subcommand and turns its failures into one line on stderr and the exit code.
void report(const char* name, const std::function<int()>& run) {
  // A trip's name in a message quotes what was typed: shown harmlessly, and never at length.
  const FailureTextTransform quoted = [](std::string_view text) { return neutralised(text, kMaxTripMessage); };
  static const CommandReporting reporting{
      {wordAs<TripRejectedError>(2), wordAs<UsageError>(2), wordAs<InvalidPlaceQuery>(2), wordAs<NoSuchTrip>(1, quoted),
       wordAs<AmbiguousTrip>(2, quoted), wordAs<TripRemovedError>(1),
       wordAs<FileError>(1, "the trips cannot be read or written: "), wordAs<CloudStoreQuotaError>(1)},
      "the weather service",
      false};
  runReporting(std::string("trips ") + name, run, reporting);
}

void addPlaceOptions(CLI::App& command, PlaceOptions& options) {
  CLI::Option* place = command.add_option("place", options.place, "The destination by name (\"Kyoto\", \"Paris, FR\")");
  CLI::Option* at = command.add_option("--at", options.at, "The destination as LAT,LON in decimal degrees");
  place->excludes(at);
  command.add_option("--name", options.displayName, "Your own name for the place, shown instead of its name");
  command.add_option("--symbol", options.symbol, "Name of the place's icon (default \"airplane\")");
}

}  // namespace

CLI::App* addTripsCommand(CLI::App& app) {
  CLI::App* trips = app.add_subcommand("trips", "Your trips: where you will be, and when");
  trips->require_subcommand(1);

  auto addOptions = std::make_shared<AddOptions>();
  CLI::App* addCommand = trips->add_subcommand(
      "add",
      "Add a trip: all-day with YYYY-MM-DD, or with times with \"YYYY-MM-DD HH:MM\" on the destination's clock. "
      "A time the destination's clocks skip is refused; a time they pass twice (clocks going back) is the first "
      "of the two.");
  addPlaceOptions(*addCommand, addOptions->place);
  addCommand->add_option("--from", addOptions->from, "First day, YYYY-MM-DD, or arrival, \"YYYY-MM-DD HH:MM\"")
      ->required();
  addCommand->add_option("--to", addOptions->to,
                         "Last day, YYYY-MM-DD (default: the first day), or departure, \"YYYY-MM-DD HH:MM\" "
                         "(default: the end of the arrival day, or the next trip's arrival when you go straight on)");
  addCommand->callback([addOptions] {
    report("add", [&] {
      if (addOptions->place.place.empty() && addOptions->place.at.empty()) {
        throw UsageError("give the destination by name or with --at LAT,LON");
      }
      return add(*addOptions);
    });
  });

  auto listJson = std::make_shared<bool>(false);
  CLI::App* listCommand = trips->add_subcommand("list", "All trips by start, with their state");
  listCommand->add_flag("--json", *listJson, "Print the trips as a JSON array");
  listCommand->callback([listJson] { report("list", [&] { return list(*listJson); }); });

  auto showOptions = std::make_shared<ShowOptions>();
  CLI::App* showCommand = trips->add_subcommand("show", "One trip in detail");
  showCommand->add_option("trip", showOptions->trip, "The trip: id, id prefix or name")->required();
  showCommand->add_flag("--json", showOptions->json, "Print the trip as JSON");
  showCommand->callback([showOptions] { report("show", [&] { return show(*showOptions); }); });

  auto editOptions = std::make_shared<EditOptions>();
  CLI::App* editCommand = trips->add_subcommand(
      "edit", "Change a trip's place, days, times or names (a day on either end makes it all-day, a time timed)");
  editCommand->add_option("trip", editOptions->trip, "The trip: id, id prefix or name")->required();
  editCommand->add_option("--place", editOptions->place.place, "A new destination by name");
  editCommand->add_option("--at", editOptions->place.at, "A new destination as LAT,LON");
  editCommand->add_option("--name", editOptions->place.displayName, "Your own name for the place");
  editCommand->add_flag("--clear-name", editOptions->clearName, "Show the place's own name again");
  editCommand->add_option("--symbol", editOptions->place.symbol, "Name of the place's icon");
  editCommand->add_option("--from", editOptions->from, "New first day, YYYY-MM-DD, or arrival, \"YYYY-MM-DD HH:MM\"");
  editCommand->add_option("--to", editOptions->to, "New last day, YYYY-MM-DD, or departure, \"YYYY-MM-DD HH:MM\"");
  editCommand->callback([editOptions] { report("edit", [&] { return edit(*editOptions); }); });

  auto removeName = std::make_shared<std::string>();
  CLI::App* removeCommand = trips->add_subcommand("remove", "Remove a trip");
  removeCommand->add_option("trip", *removeName, "The trip: id, id prefix or name")->required();
  removeCommand->callback([removeName] { report("remove", [&] { return remove(*removeName); }); });
  addTripsHourlyCommand(*trips);
  return trips;
}

}  // namespace ombrine::app
