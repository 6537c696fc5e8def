#include "app/trips_command.hpp"

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/commands.hpp"
#include "app/global_options.hpp"
#include "core/errors.hpp"
#include "core/geo_naming.hpp"
#include "core/geocoder.hpp"
#include "core/value_json.hpp"
#include "persistence/favorite_store.hpp"
#include "places/coordinate_text.hpp"
#include "platform/errors.hpp"
#include "platform/linux/file_cloud_key_value_store.hpp"
#include "platform/linux/system_clock.hpp"
#include "platform/log.hpp"
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

// No trip matches what the user named. Exit code 1.
class NoSuchTrip : public std::runtime_error {
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

// The stores of one command run: the synced dictionary, the trips and the home place in it.
struct Stores {
  FileCloudKeyValueStore cloud{FileCloudKeyValueStore::defaultSyncDirectory(), false};
  TripStore trips{cloud};
  HomeStore home{cloud};
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

std::string lower(std::string_view text) {
  std::string out(text);
  for (char& c : out) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return out;
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

// The trip a user named: by id, id prefix, or shown name or name (ignoring case).
Trip findTrip(const std::vector<Trip>& trips, const std::string& named) {
  if (const std::optional<Uuid> id = Uuid::parse(named)) {
    for (const Trip& trip : trips) {
      if (trip.id == *id) return trip;
    }
    throw NoSuchTrip(fmt::format("no trip has the id {}", id->text()));
  }
  const std::string wanted = lower(named);
  std::vector<const Trip*> matches;
  for (const Trip& trip : trips) {
    if (lower(trip.destination.shownName()) == wanted || lower(trip.destination.name) == wanted) {
      matches.push_back(&trip);
    }
  }
  if (matches.empty() && wanted.size() >= 4) {
    for (const Trip& trip : trips) {
      if (lower(trip.id.text()).starts_with(wanted)) matches.push_back(&trip);
    }
  }
  if (matches.size() == 1) return *matches.front();
  if (matches.empty()) throw NoSuchTrip(fmt::format("no trip matches \"{}\"", named));
  std::string ids;
  for (const Trip* trip : matches) ids += " " + trip->id.text();
  throw UsageError(fmt::format("\"{}\" names {} trips; give one id:{}", named, matches.size(), ids));
}

std::optional<Location> homeLocation(const Stores& stores) {
  const std::optional<FavoriteLocation> home = stores.home.home();
  if (!home) return std::nullopt;
  return home->location;
}

Date now() { return Date::fromSystem(SystemClock().now()); }

// The trip's first and last days as the destination numbers them.
std::pair<CivilDay, CivilDay> tripDays(const Trip& trip) {
  const TripCalendar destination(trip.destination.timeZone);
  return {destination.day(trip.dates.from), destination.day(trip.dates.hasTimes ? endMoment(trip) : trip.dates.to)};
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
  return out;
}

std::string stateText(const TripState& state) {
  auto days = [](int n) { return fmt::format("{} day{}", n, n == 1 ? "" : "s"); };
  switch (state.value) {
    case TripStateValue::upcoming: return "upcoming, in " + days(state.days);
    case TripStateValue::past: return "past, " + days(state.days) + " ago";
    case TripStateValue::active: return state.days == 0 ? "active, last day" : "active, " + days(state.days) + " left";
  }
  return {};
}

void printTrip(const Trip& trip, const std::vector<Trip>& trips, const std::optional<Location>& home,
               const TripCalendar& calendar, Date today, bool detailed) {
  const auto [first, last] = tripDays(trip);
  const std::string days = first == last ? dayText(first) : dayText(first) + " to " + dayText(last);
  std::cout << fmt::format("{}  {:<24} {}  ({})\n", trip.id.text().substr(0, 8), trip.destination.shownName(), days,
                           stateText(tripState(trip, today, calendar)));
  if (const std::optional<Trip> next = nextConnectedTrip(trip, trips, home)) {
    std::cout << "          " << continuationLabel(*next) << "\n";
  }
  if (!detailed) return;
  auto row = [](std::string_view label, const std::string& value) { std::cout << fmt::format("  {:<12}{}\n", label, value); };
  row("id", trip.id.text());
  row("place", trip.destination.name);
  if (trip.destination.displayName) row("shown as", *trip.destination.displayName);
  row("coordinate", coordinateName(trip.destination.location.latitude(), trip.destination.location.longitude()));
  row("time zone", trip.destination.timeZone.identifier());
  row("kind", trip.dates.hasTimes ? "with times" : "all day");
}

std::vector<Trip> byStart(std::vector<Trip> trips) {
  std::stable_sort(trips.begin(), trips.end(), [](const Trip& a, const Trip& b) { return a.dates.from < b.dates.from; });
  return trips;
}

// Stores the list as the rules keep it after a change.
void store(Stores& stores, std::vector<Trip> trips, const std::optional<Location>& home, const TripCalendar& calendar) {
  stores.trips.setTrips(normalizedTrips(trips, home, calendar));
}

int add(const AddOptions& options) {
  const TripCalendar calendar = TripCalendar::current();
  const CivilDay first = parseDay(options.from, "--from");
  const std::optional<CivilDay> last = options.to.empty() ? std::nullopt : std::optional(parseDay(options.to, "--to"));
  Stores stores;
  const std::optional<Location> home = homeLocation(stores);
  const std::vector<Trip> existing = stores.trips.trips();
  std::optional<TripLocation> destination;
  if (home) {
    // The geocoder's data is opened only when the first rule has passed.
    Services services(servicesOptions());
    destination = resolvePlace(options.place, services.geocoder());
  }
  const NewTripRequest request{destination, calendar.date(first),
                               last ? std::optional(calendar.date(*last)) : std::nullopt};
  const Trip trip = validateNewTrip(request, home, existing, now(), calendar, Uuid::random());
  std::vector<Trip> trips = existing;
  trips.push_back(trip);
  store(stores, trips, home, calendar);
  const auto [from, to] = tripDays(trip);
  std::cout << fmt::format("Added trip to {} ({} to {}), id {}\n", trip.destination.shownName(), dayText(from),
                           dayText(to), trip.id.text());
  return 0;
}

int list(bool json) {
  const TripCalendar calendar = TripCalendar::current();
  Stores stores;
  const std::optional<Location> home = homeLocation(stores);
  const std::vector<Trip> trips = byStart(stores.trips.trips());
  const Date today = now();
  if (json) {
    boost::json::array out;
    for (const Trip& trip : trips) out.push_back(describe(trip, trips, home, calendar, today));
    std::cout << serializeJson(out) << "\n";
    return 0;
  }
  if (trips.empty()) std::cout << "No trips. Add one with: ombrine trips add PLACE --from YYYY-MM-DD\n";
  for (const Trip& trip : trips) printTrip(trip, trips, home, calendar, today, false);
  return 0;
}

int show(const ShowOptions& options) {
  const TripCalendar calendar = TripCalendar::current();
  Stores stores;
  const std::optional<Location> home = homeLocation(stores);
  const std::vector<Trip> trips = byStart(stores.trips.trips());
  const Trip trip = findTrip(trips, options.trip);
  if (options.json) {
    std::cout << serializeJson(describe(trip, trips, home, calendar, now())) << "\n";
  } else {
    printTrip(trip, trips, home, calendar, now(), true);
  }
  return 0;
}

int edit(const EditOptions& options) {
  const TripCalendar calendar = TripCalendar::current();
  Stores stores;
  const std::optional<Location> home = homeLocation(stores);
  const std::vector<Trip> existing = stores.trips.trips();
  const Trip original = findTrip(existing, options.trip);
  const bool movesPlace = !options.place.place.empty() || !options.place.at.empty();
  std::optional<TripLocation> destination = original.destination;
  if (movesPlace && home) {
    Services services(servicesOptions());
    destination = resolvePlace(options.place, services.geocoder());
  }
  if (destination) {
    if (options.clearName) destination->displayName.reset();
    if (options.place.displayName && !options.place.displayName->empty()) destination->displayName = options.place.displayName;
    if (!options.place.symbol.empty()) destination->symbolName = options.place.symbol;
  }
  // Days the user does not change stay the trip's own days of its destination.
  const auto [oldFirst, oldLast] = tripDays(original);
  const CivilDay first = options.from.empty() ? oldFirst : parseDay(options.from, "--from");
  const CivilDay last = options.to.empty() ? oldLast : parseDay(options.to, "--to");
  NewTripRequest request{destination, calendar.date(first), calendar.date(last)};
  request.keepsStart = options.from.empty();
  const Trip edited = validateNewTrip(request, home, existing, now(), calendar, original.id);
  std::vector<Trip> trips = existing;
  std::replace_if(trips.begin(), trips.end(), [&](const Trip& trip) { return trip.id == original.id; }, edited);
  store(stores, trips, home, calendar);
  const auto [from, to] = tripDays(edited);
  std::cout << fmt::format("Changed trip to {} ({} to {}), id {}\n", edited.destination.shownName(), dayText(from),
                           dayText(to), edited.id.text());
  return 0;
}

int remove(const std::string& named) {
  Stores stores;
  const Trip trip = findTrip(stores.trips.trips(), named);
  stores.trips.remove(trip.id);
  std::cout << fmt::format("Removed trip to {}, id {}\n", trip.destination.shownName(), trip.id.text());
  return 0;
}

// Runs a subcommand and turns its failures into one line on stderr and the exit code.
template <class Run>
void report(const char* name, Run run) {
  try {
    setExitCode(run());
  } catch (const TripRejectedError& error) {
    logf("ombrine trips {}: {}", name, error.what());
    setExitCode(2);
  } catch (const UsageError& error) {
    logf("ombrine trips {}: {}", name, error.what());
    setExitCode(2);
  } catch (const InvalidPlaceQuery& error) {
    logf("ombrine trips {}: {}", name, error.what());
    setExitCode(2);
  } catch (const NoSuchTrip& error) {
    logf("ombrine trips {}: {}", name, error.what());
    setExitCode(1);
  } catch (const FileError& error) {
    logf("ombrine trips {}: the trips cannot be read or written: {}", name, error.what());
    setExitCode(1);
  }
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
  CLI::App* addCommand = trips->add_subcommand("add", "Add an all-day trip (dates are days at the destination)");
  addPlaceOptions(*addCommand, addOptions->place);
  addCommand->add_option("--from", addOptions->from, "First day, YYYY-MM-DD")->required();
  addCommand->add_option("--to", addOptions->to, "Last day, YYYY-MM-DD (default: the first day)");
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
  CLI::App* editCommand = trips->add_subcommand("edit", "Change a trip's place, days or names (it becomes all-day)");
  editCommand->add_option("trip", editOptions->trip, "The trip: id, id prefix or name")->required();
  editCommand->add_option("--place", editOptions->place.place, "A new destination by name");
  editCommand->add_option("--at", editOptions->place.at, "A new destination as LAT,LON");
  editCommand->add_option("--name", editOptions->place.displayName, "Your own name for the place");
  editCommand->add_flag("--clear-name", editOptions->clearName, "Show the place's own name again");
  editCommand->add_option("--symbol", editOptions->place.symbol, "Name of the place's icon");
  editCommand->add_option("--from", editOptions->from, "New first day, YYYY-MM-DD");
  editCommand->add_option("--to", editOptions->to, "New last day, YYYY-MM-DD");
  editCommand->callback([editOptions] { report("edit", [&] { return edit(*editOptions); }); });

  auto removeName = std::make_shared<std::string>();
  CLI::App* removeCommand = trips->add_subcommand("remove", "Remove a trip");
  removeCommand->add_option("trip", *removeName, "The trip: id, id prefix or name")->required();
  removeCommand->callback([removeName] { report("remove", [&] { return remove(*removeName); }); });
  return trips;
}

}  // namespace ombrine::app
