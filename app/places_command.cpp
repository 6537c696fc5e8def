#include "app/places_command.hpp"

#include <fmt/format.h>
#include <boost/json/array.hpp>
#include <boost/json/object.hpp>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "app/command_report.hpp"
#include "app/commands.hpp"
#include "app/failure_text.hpp"
#include "app/global_options.hpp"
#include "app/screen_text.hpp"
#include "app/terminal_text.hpp"
#include "core/values/errors.hpp"
#include "core/values/geo_naming.hpp"
#include "core/values/unit_rules.hpp"
#include "core/values/value_json.hpp"
#include "persistence/favorite_store.hpp"
#include "places/coordinate_text.hpp"
#include "places/offline_geocoder.hpp"
#include "platform/errors.hpp"
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

struct SavedOptions {
  std::string place;  // a name to geocode, or an id or name of a saved place
  std::string at;
  std::string name;  // the user's own name (`displayName`)
  bool clear = false;
  bool json = false;
};

// A name or id that matches no saved place, or more than one.
class SavedPlaceNotFound : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// "UTC+05:45", "UTC-03:00", "UTC", in the reader's digits.
std::string utcOffset(const ScreenWords& text, int seconds) {
  if (seconds == 0) return "UTC";
  const int magnitude = std::abs(seconds) / 60;
  return std::string("UTC") + (seconds < 0 ? "-" : "+") + text.clock(magnitude / 60, magnitude % 60);
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
  ProgramServices services;
  const Geocoder& geocoder = services->geocoder();
  const auto matches = geocoder.search(options.text, options.limit);
  if (matches.empty()) {
    throw DomainError(kNoResultErrorDomain, kNoResultErrorCode, "no place matches " + quotedInput(options.text));
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
  const ScreenText text(currentLocale());
  int number = 0;
  for (const PlaceMatch& m : matches) {
    std::cout << padLeft(text.number(++number), 2) << ". "
              << neutralised(joinNonEmpty({m.name, m.admin1, m.countryName})) << "\n";
    std::string detail = text.coordinate(m.coordinate.latitude(), m.coordinate.longitude(), 4);
    if (m.population > 0) detail += "  " + text.format("pop. {}", text.number(static_cast<double>(m.population)));
    detail += "  " + m.timeZoneIdentifier;
    std::cout << "    " << detail << "\n";
  }
  return 0;
}

int at(const AtOptions& options) {
  const Location location = parseCoordinate(options.coordinate);
  ProgramServices services;
  const auto placemarks = services->geocoder().reverseGeocode(location);
  const GeoDetails details = geoDetailsOfFirst(placemarks);
  const Placemark& mark = placemarks.front();
  const int offset = details.timeZone.secondsFromGMT(Date::fromSystem(services->clock().now()));

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
  std::cout << neutralised(details.name) << "\n";
  const ScreenText text(currentLocale());
  // The labels' column fits the longest label in the reader's language and a space (11 columns
  // in English).
  std::size_t width = 11;
  for (const char* label : {"district", "locality", "region", "country", "time zone", "coordinate"}) {
    width = std::max(width, displayWidth(text(label)) + 1);
  }
  auto row = [&](std::string_view label, std::string_view value) {
    if (!value.empty()) std::cout << "  " << padRight(text(label), width) << neutralised(value) << "\n";
  };
  row("district", mark.subLocality.value_or(""));
  row("locality", mark.locality.value_or(""));
  row("region", mark.administrativeArea.value_or(""));
  row("country", mark.country ? fmt::format("{} ({})", *mark.country, details.region.identifier) : "");
  row("time zone", text.format("{} ({} now)", details.timeZone.identifier(), utcOffset(text, offset)));
  row("coordinate", text.hemispheres(location.latitude(), location.longitude()));
  return 0;
}

// A new saved place for PLACE (search by name, best match) or --at LAT,LON (named by the
// reverse geocoder), with the time zone and region of the place.
FavoriteLocation resolveFavorite(const SavedOptions& options, const Geocoder& geocoder) {
  if (options.place.empty() == options.at.empty()) {
    throw InvalidPlaceQuery("name a place (e.g. \"Bergen, NO\") or give --at LAT,LON, not both");
  }
  FavoriteLocation favorite;
  favorite.id = Uuid::random();
  if (!options.name.empty()) favorite.displayName = options.name;
  if (!options.at.empty()) {
    favorite.location = parseCoordinate(options.at);
    const GeoDetails details = geoDetailsOfFirst(geocoder.reverseGeocode(favorite.location));
    favorite.name = details.name;
    favorite.timeZone = details.timeZone;
    if (details.region != Region::unknown()) favorite.region = details.region;
    return favorite;
  }
  const auto matches = geocoder.search(options.place, 1);
  if (matches.empty()) {
    throw DomainError(kNoResultErrorDomain, kNoResultErrorCode, "no place matches " + quotedInput(options.place));
  }
  const PlaceMatch& match = matches.front();
  favorite.location = match.coordinate;
  favorite.name = match.name;
  favorite.timeZone = TimeZone::named(match.timeZoneIdentifier);
  if (!match.countryCode.empty()) favorite.region = Region{match.countryCode};
  return favorite;
}

// The first eight characters of an id: what `places list` shows and `places remove` accepts.
std::string shortId(const Uuid& id) { return id.text().substr(0, 8); }

std::string lowered(std::string_view text) {
  std::string out(text);
  for (char& c : out) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return out;
}

// The saved place whose id is `text`, whose shown name or place name equals it (ignoring
// case), or whose id starts with it (four characters or more, as `places list` shows them).
// Raises SavedPlaceNotFound when none or several match.
FavoriteLocation savedPlace(const std::vector<FavoriteLocation>& favorites, std::string_view text) {
  const auto id = Uuid::parse(text);
  const std::string wanted = lowered(text);
  std::vector<const FavoriteLocation*> found;
  for (const FavoriteLocation& f : favorites) {
    if (id ? f.id == *id : lowered(f.shownName()) == wanted || lowered(f.name) == wanted) found.push_back(&f);
  }
  if (found.empty() && !id && wanted.size() >= 4) {
    for (const FavoriteLocation& f : favorites) {
      if (lowered(f.id.text()).starts_with(wanted)) found.push_back(&f);
    }
  }
  if (found.size() == 1) return *found.front();
  if (found.empty()) {
    throw SavedPlaceNotFound("no saved place is named " + quotedInput(text) +
                             " or has an id starting so (see ombrine places list)");
  }
  std::string ids;
  for (const FavoriteLocation* f : found) ids += " " + shortId(f->id);
  throw SavedPlaceNotFound("several saved places match " + quotedInput(text) + "; give one of the ids:" + ids);
}

// The same place saved before: the same name shown at the same spot (within about 10 m).
const FavoriteLocation* sameSaved(const std::vector<FavoriteLocation>& favorites, const FavoriteLocation& place) {
  for (const FavoriteLocation& f : favorites) {
    if (std::abs(f.location.latitude() - place.location.latitude()) < 1e-4 &&
        std::abs(f.location.longitude() - place.location.longitude()) < 1e-4 && f.shownName() == place.shownName()) {
      return &f;
    }
  }
  return nullptr;
}

boost::json::object favoriteJson(const FavoriteLocation& favorite) {
  return parseJson(encodeFavoriteLocation(favorite)).as_object();
}

// A saved place on one line; names typed by a user are shown neutralised.
std::string favoriteLine(const FavoriteLocation& f) {
  const ScreenText text(currentLocale());
  std::string line = neutralised(f.shownName());
  if (f.displayName && !f.displayName->empty() && *f.displayName != f.name) line += " (" + neutralised(f.name) + ")";
  line += "  " + text.coordinate(f.location.latitude(), f.location.longitude(), 4);
  if (f.region) line += "  " + f.region->identifier;
  if (f.timeZone) line += "  " + f.timeZone->identifier();
  return line;
}

int save(const SavedOptions& options) {
  ProgramServices services;
  const FavoriteLocation favorite = resolveFavorite(options, services->geocoder());
  FavoriteStore& favorites = services->favorites();
  const auto existing = favorites.locations();
  const FavoriteLocation* known = sameSaved(existing, favorite);
  if (!known) favorites.save(favorite);
  const FavoriteLocation& shown = known ? *known : favorite;
  if (options.json) {
    std::cout << serializeJson(favoriteJson(shown)) << "\n";
  } else {
    const ScreenText text(currentLocale());
    std::cout << text.format(known ? "already saved {}" : "saved {}", favoriteLine(shown)) << "\n  "
              << text.format("id {}", shown.id.text()) << "\n";
  }
  return 0;
}

int listSaved(const SavedOptions& options) {
  ProgramServices services;
  const auto favorites = services->favorites().locations();
  const auto home = services->home().home();
  if (options.json) {
    boost::json::array list;
    for (const FavoriteLocation& f : favorites) list.push_back(favoriteJson(f));
    boost::json::object out;
    out["favorites"] = std::move(list);
    out["home"] = home ? boost::json::value(favoriteJson(*home)) : boost::json::value(nullptr);
    std::cout << serializeJson(out) << "\n";
    return 0;
  }
  const ScreenText text(currentLocale());
  // Ids are eight characters; "home" in another language may be wider.
  const std::size_t width = std::max<std::size_t>(8, displayWidth(text("home")));
  if (home) std::cout << padRight(text("home"), width) << "  " << favoriteLine(*home) << "\n";
  for (const FavoriteLocation& f : favorites)
    std::cout << padRight(shortId(f.id), width) << "  " << favoriteLine(f) << "\n";
  if (!home && favorites.empty()) std::cout << text("no saved places; add one with: ombrine places save NAME") << "\n";
  return 0;
}

int removeSaved(const SavedOptions& options) {
  ProgramServices services;
  FavoriteStore& favorites = services->favorites();
  const FavoriteLocation gone = savedPlace(favorites.locations(), options.place);
  favorites.remove(gone.id);
  if (options.json) {
    std::cout << serializeJson(favoriteJson(gone)) << "\n";
  } else {
    std::cout << ScreenText(currentLocale()).format("removed {}", favoriteLine(gone)) << "\n";
  }
  return 0;
}

// `places home`: shows the home place; with PLACE or --at sets it (a saved place by name or
// id first, else a geocoded one); with --clear removes it.
int home(const SavedOptions& options) {
  const bool choosing = !options.place.empty() || !options.at.empty();
  if (options.clear && (choosing || !options.name.empty())) {
    throw InvalidPlaceQuery(
        "--clear takes no place, --at or --name; usage: ombrine places home [PLACE | --at LAT,LON] [--name NAME] | "
        "--clear");
  }
  if (!options.name.empty() && !choosing) {
    throw InvalidPlaceQuery(
        "--name names the place being set; usage: ombrine places home PLACE|--at LAT,LON --name NAME");
  }
  ProgramServices services;
  HomeStore& homes = services->home();
  if (options.clear) {
    homes.setHome(std::nullopt);
  } else if (!options.place.empty() || !options.at.empty()) {
    std::optional<FavoriteLocation> chosen;
    if (!options.place.empty()) {
      try {
        chosen = savedPlace(services->favorites().locations(), options.place);
        if (!options.name.empty()) chosen->displayName = options.name;
      } catch (const SavedPlaceNotFound&) {
      }
    }
    homes.setHome(chosen ? *chosen : resolveFavorite(options, services->geocoder()));
  }
  const auto current = homes.home();
  if (options.json) {
    std::cout << serializeJson(current ? boost::json::value(favoriteJson(*current)) : boost::json::value(nullptr))
              << "\n";
  } else {
    const ScreenText text(currentLocale());
    std::cout << (current ? std::string(text("home")) + "  " + favoriteLine(*current)
                          : std::string(text("no home place")))
              << "\n";
  }
  return 0;
}

// Runs a subcommand and turns its failures into one line on stderr and the exit code.
void report(const char* name, const std::function<int()>& run) {
  static const CommandReporting reporting{
      {wordAs<InvalidPlaceQuery>(2), wordByFailureText<DomainError>(), wordAs<SavedPlaceNotFound>(1),
       wordAs<FileError>(1, "a file cannot be read or written: "), wordAs<CloudStoreQuotaError>(1)},
      "the weather service",
      false};
  runReporting(std::string("places ") + name, run, reporting);
}

}  // namespace

void addPlacesCommand(CLI::App& app) {
  CLI::App* places = app.add_subcommand("places", "Find places by name, or name a coordinate (offline)");
  places->require_subcommand(1);

  auto searchOptions = std::make_shared<SearchOptions>();
  CLI::App* searchCommand = places->add_subcommand("search", "Places whose name starts with TEXT, best first");
  searchCommand
      ->add_option("text", searchOptions->text,
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

  auto saved = std::make_shared<SavedOptions>();
  CLI::App* saveCommand = places->add_subcommand("save", "Save a place (found by name, or --at LAT,LON)");
  saveCommand->add_option("place", saved->place, "A place name, e.g. \"Bergen, NO\"");
  saveCommand->add_option("--at", saved->at, "LAT,LON instead of a name");
  saveCommand->add_option("--name", saved->name, "Your own name for the place");
  saveCommand->add_flag("--json", saved->json, "Print the saved place as JSON");
  saveCommand->callback([saved] { report("save", [&] { return save(*saved); }); });

  CLI::App* listCommand = places->add_subcommand("list", "The saved places and the home place");
  listCommand->add_flag("--json", saved->json, "Print {\"favorites\": [...], \"home\": ...}");
  listCommand->callback([saved] { report("list", [&] { return listSaved(*saved); }); });

  CLI::App* removeCommand = places->add_subcommand("remove", "Remove a saved place");
  removeCommand->add_option("place", saved->place, "Its name, id or the id's first characters (see places list)")
      ->required();
  removeCommand->add_flag("--json", saved->json, "Print the removed place as JSON");
  removeCommand->callback([saved] { report("remove", [&] { return removeSaved(*saved); }); });

  CLI::App* homeCommand = places->add_subcommand("home", "Show, set (PLACE or --at) or --clear the home place");
  homeCommand->add_option("place", saved->place, "A saved place's name or id, or a place name to look up");
  homeCommand->add_option("--at", saved->at, "LAT,LON instead of a name");
  homeCommand->add_option("--name", saved->name, "Your own name for the place");
  homeCommand->add_flag("--clear", saved->clear, "Remove the home place");
  homeCommand->add_flag("--json", saved->json, "Print the home place as JSON (null when none)");
  homeCommand->callback([saved] { report("home", [&] { return home(*saved); }); });
}

}  // namespace ombrine::app
