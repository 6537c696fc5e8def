#include "app/cache_command.hpp"

#include "app/global_options.hpp"

#include <fmt/format.h>
#include <boost/json.hpp>

#include <algorithm>
#include <filesystem>
#include <initializer_list>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/command_report.hpp"
#include "app/commands.hpp"
#include "app/failure_text.hpp"
#include "app/screen_text.hpp"
#include "app/terminal_text.hpp"
#include "core/record/weather_derived.hpp"
#include "core/values/iso8601.hpp"
#include "core/values/unit_rules.hpp"
#include "core/values/value_json.hpp"
#include "persistence/coordinated_file.hpp"
#include "persistence/favorite_weather_cache.hpp"
#include "persistence/geocode_cache.hpp"
#include "persistence/historical_weather_cache.hpp"
#include "persistence/weather_cache.hpp"
#include "platform/async/coroutines.hpp"
#include "platform/atomic_file.hpp"
#include "platform/log.hpp"
#include "platform/paths.hpp"
#include "platform/runtime.hpp"

namespace ombrine::app {

namespace {

namespace fs = std::filesystem;

fs::path latestWeatherFile() { return cachesDirectory() / std::string(WeatherCache::latestWeatherKey); }
fs::path favoritesFile() { return cachesDirectory() / std::string(FavoriteWeatherCache::favoritesCacheKey); }

// The "<latitude>_<longitude>.data" files of a per-process cache folder, sorted; none when the
// folder is missing or unreadable.
std::vector<fs::path> coordinateFiles(const fs::path& folder) {
  std::vector<fs::path> files;
  std::error_code ec;
  for (fs::directory_iterator entry(folder, ec), end; !ec && entry != end; entry.increment(ec)) {
    if (entry->path().extension() == ".data" && entry->is_regular_file(ec)) files.push_back(entry->path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

// "Label:    value", the values of one block in one column however long the labels are in the
// reader's language.
class LabelColumn {
 public:
  LabelColumn(const ScreenWords& text, std::initializer_list<std::string_view> labels) : text_(text) {
    for (const std::string_view label : labels) width_ = std::max(width_, displayWidth(text(label)) + 1);
  }
  std::string operator()(std::string_view label, std::string_view value) const {
    return padRight(text_(label), width_) + std::string(value) + "\n";
  }

 private:
  const ScreenWords& text_;
  std::size_t width_ = 0;
};

std::string_view sourceName(WeatherDataSource source) {
  switch (source) {
    case WeatherDataSource::dynamic: return "unknown";  // translated like every screen word
    case WeatherDataSource::apple: return "system weather";
    case WeatherDataSource::foreca: return "Foreca";
    case WeatherDataSource::ow: return "OpenWeather";
  }
  return "unknown";
}

// Reads the file as any process would, without the lock; nothing when absent or unreadable.
std::optional<CachedWeather> readLatest(std::string& problem) {
  try {
    const auto bytes = readFileIfExists(latestWeatherFile());
    if (!bytes) return std::nullopt;
    return decodeCachedWeather(*bytes);
  } catch (const std::exception& error) {
    problem = error.what();
    return std::nullopt;
  }
}

// The favourites snapshot as any process would read it; nothing when absent, `problem` set when
// unreadable.
std::optional<FavoriteWeather> readFavorites(std::string& problem) {
  try {
    const auto bytes = readFileIfExists(favoritesFile());
    if (!bytes) return std::nullopt;
    return decodeFavoriteWeather(*bytes);
  } catch (const std::exception& error) {
    problem = error.what();
    return std::nullopt;
  }
}

// The file as stored when it parses as JSON, else null: scripts read exactly what the processes
// share, and an unreadable file shows as nothing cached, as the processes see it.
boost::json::value storedJson(const fs::path& file) {
  try {
    const auto bytes = readFileIfExists(file);
    if (bytes) return parseJson(*bytes);
  } catch (const std::exception&) {
  }
  return nullptr;
}

boost::json::value showJson() {
  boost::json::object object;
  std::string problem;
  object["latestWeather"] = readLatest(problem) ? storedJson(latestWeatherFile()) : boost::json::value(nullptr);
  object["favorites"] = readFavorites(problem) ? storedJson(favoritesFile()) : boost::json::value(nullptr);
  boost::json::object geocode;
  for (const auto& file : coordinateFiles(GeocodeCache::defaultDirectory())) {
    geocode[file.filename().string()] = storedJson(file);
  }
  object["geocode"] = std::move(geocode);
  boost::json::array history;
  for (const auto& file : coordinateFiles(HistoricalWeatherCache::defaultDirectory())) {
    history.emplace_back(file.filename().string());
  }
  object["history"] = std::move(history);
  return object;
}

void showLatest(const ScreenWords& text) {
  std::string problem;
  const auto cached = readLatest(problem);
  const auto modified = fileModificationDate(latestWeatherFile());
  const LabelColumn row(text, {"File:", "Written:", "Place:", "Observed:", "Source:", "Forecast:"});
  std::cout << row("File:", latestWeatherFile().string());
  if (!modified) {
    std::cout << text("Nothing cached.") << "\n";
    return;
  }
  std::cout << row("Written:", text.utcTime(*modified));
  if (!cached) {
    // Only a file can be replaced; a folder there blocks every write until it is removed.
    const bool replaceable = !std::filesystem::is_directory(latestWeatherFile());
    std::cout << text.format(replaceable ? "Unreadable ({}); the next forecast replaces it."
                                         : "Unreadable ({}); nothing can be cached until it is removed.",
                             problem)
              << "\n";
    return;
  }
  std::cout << row("Place:", fmt::format("{} ({}){}", cached->name,
                                         text.coordinate(cached->location.latitude(), cached->location.longitude(), 4),
                                         cached->region ? ", " + cached->region->identifier : ""));
  std::cout << row("Observed:", text.utcTime(cached->weather.current.dt));
  std::cout << row("Source:", text(sourceName(weatherDataSource(cached->weather))));
  std::cout << row(
      "Forecast:",
      text.format("{}, {}", text.counted(static_cast<double>(cached->weather.hourly.size()), "{} hour", "{} hours"),
                  text.counted(static_cast<double>(cached->weather.daily.size()), "{} day", "{} days")));
}

void showFavorites(const ScreenWords& text) {
  std::string problem;
  const auto favorites = readFavorites(problem);
  std::cout << "\n" << text.format("Saved places: {}", favoritesFile().string()) << "\n";
  if (!problem.empty()) {
    std::cout << text.format("Unreadable ({}); the next change replaces it.", problem) << "\n";
    return;
  }
  if (!favorites || favorites->empty()) {
    std::cout << text("Nothing cached.") << "\n";
    return;
  }
  for (const auto& [id, cached] : *favorites) {
    std::cout << "  " << id.text() << "  "
              << text.format("{} ({}), observed {}, {}", cached.name,
                             text.coordinate(cached.location.latitude(), cached.location.longitude(), 4),
                             text.utcTime(cached.weather.current.dt),
                             text(sourceName(weatherDataSource(cached.weather))))
              << "\n";
  }
}

int show(bool json) {
  if (json) {
    std::cout << serializeJson(showJson()) << "\n";
    return 0;
  }
  const ScreenText text(currentLocale());
  showLatest(text);
  showFavorites(text);
  const fs::path geocode = GeocodeCache::defaultDirectory();
  const fs::path history = HistoricalWeatherCache::defaultDirectory();
  const LabelColumn row(text, {"Place names:", "History:"});
  std::cout << "\n"
            << row("Place names:", fmt::format("{} ({})",
                                               text.counted(static_cast<double>(coordinateFiles(geocode).size()),
                                                            "{} place", "{} places"),
                                               geocode.string()));
  std::cout << row("History:", fmt::format("{} ({})",
                                           text.counted(static_cast<double>(coordinateFiles(history).size()),
                                                        "{} record", "{} records"),
                                           history.string()));
  return 0;
}

int path(bool json) {
  const fs::path caches = cachesDirectory();
  const fs::path geocode = GeocodeCache::defaultDirectory();
  const fs::path history = HistoricalWeatherCache::defaultDirectory();
  if (json) {
    boost::json::object object;
    object["caches"] = caches.string();
    object["latestWeather"] = latestWeatherFile().string();
    object["latestWeatherCoordination"] = coordinationFilePath(latestWeatherFile()).string();
    object["favorites"] = favoritesFile().string();
    object["geocode"] = geocode.string();
    object["history"] = history.string();
    std::cout << serializeJson(object) << "\n";
    return 0;
  }
  const ScreenText text(currentLocale());
  const LabelColumn row(text,
                        {"Shared caches:", "Latest weather:", "Saved places:", "Geocode cache:", "History cache:"});
  std::cout << row("Shared caches:", caches.string()) << row("Latest weather:", latestWeatherFile().string())
            << row("Saved places:", favoritesFile().string()) << row("Geocode cache:", geocode.string())
            << row("History cache:", history.string());
  return 0;
}

int clear(bool json) {
  std::vector<std::string> removed;
  const fs::path file = latestWeatherFile();
  // Under the lock: a writer in another process finishes before the file goes, never after.
  std::function<bool()> operation = [file] {
    std::error_code ec;
    const bool existed = fs::remove(file, ec);
    if (ec) throw FileError("cannot remove " + file.string() + ": " + ec.message());
    return existed;
  };
  ProgramServices services;
  if (services->runtime().runBlocking(performCoordinatedWrite<bool>(coordinationFilePath(file), operation))) {
    removed.push_back(file.string());
  }
  // The favourites snapshot is not coordinated: a process that still holds saved places writes
  // them again at its next change, which is what that process shows anyway.
  std::error_code ec;
  if (fs::remove(favoritesFile(), ec)) removed.push_back(favoritesFile().string());
  for (const fs::path& folder : {GeocodeCache::defaultDirectory(), HistoricalWeatherCache::defaultDirectory()}) {
    for (const auto& file : coordinateFiles(folder)) {
      if (fs::remove(file, ec)) removed.push_back(file.string());
    }
  }
  if (json) {
    boost::json::array paths;
    for (const auto& path : removed) paths.emplace_back(path);
    boost::json::object object;
    object["removed"] = std::move(paths);
    std::cout << serializeJson(object) << "\n";
  } else {
    const ScreenText text(currentLocale());
    std::cout << text.counted(static_cast<double>(removed.size()), "Removed {} file.", "Removed {} files.") << "\n";
  }
  return 0;
}

}  // namespace

void addCacheCommand(CLI::App& app) {
  CLI::App* command = app.add_subcommand("cache", "The weather caches: show, path, clear");
  command->require_subcommand(1);
  auto json = std::make_shared<bool>(false);
  CLI::App* showCommand = command->add_subcommand("show", "The cached weather, saved places, place names and history");
  showCommand->add_flag("--json", *json, "Print the stored records as they are on disk (null when none)");
  showCommand->callback([json] {
    runReporting(
        "cache show", [&] { return show(*json); }, CommandReporting{});
  });
  CLI::App* pathCommand = command->add_subcommand("path", "Where the cache files are");
  pathCommand->add_flag("--json", *json, "Print the paths as a JSON object");
  pathCommand->callback([json] {
    runReporting(
        "cache path", [&] { return path(*json); }, CommandReporting{});
  });
  CLI::App* clearCommand =
      command->add_subcommand("clear", "Remove the cached weather, saved places' weather, place names and history");
  clearCommand->add_flag("--json", *json, "Print the removed files as JSON");
  clearCommand->callback([json] {
    runReporting(
        "cache clear", [&] { return clear(*json); }, CommandReporting{});
  });
}

}  // namespace ombrine::app
