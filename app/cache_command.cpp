#include "app/cache_command.hpp"

#include "app/global_options.hpp"

#include <boost/json.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/command_report.hpp"
#include "app/commands.hpp"
#include "app/failure_text.hpp"
#include "core/iso8601.hpp"
#include "core/value_json.hpp"
#include "core/weather_derived.hpp"
#include "persistence/coordinated_file.hpp"
#include "persistence/favorite_weather_cache.hpp"
#include "persistence/geocode_cache.hpp"
#include "persistence/historical_weather_cache.hpp"
#include "persistence/weather_cache.hpp"
#include "platform/atomic_file.hpp"
#include "platform/coroutines.hpp"
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

std::string plural(std::size_t count, std::string_view one, std::string_view many) {
  return fmt::format("{} {}", count, count == 1 ? one : many);
}

std::string_view sourceName(WeatherDataSource source) {
  switch (source) {
    case WeatherDataSource::dynamic: return "unknown";
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

void showLatest() {
  std::string problem;
  const auto cached = readLatest(problem);
  const auto modified = fileModificationDate(latestWeatherFile());
  std::cout << fmt::format("File:      {}\n", latestWeatherFile().string());
  if (!modified) {
    std::cout << "Nothing cached.\n";
    return;
  }
  std::cout << fmt::format("Written:   {}\n", iso8601String(*modified));
  if (!cached) {
    // Only a file can be replaced; a folder there blocks every write until it is removed.
    const bool replaceable = !std::filesystem::is_directory(latestWeatherFile());
    std::cout << fmt::format("Unreadable ({}); {}.\n", problem,
                             replaceable ? "the next forecast replaces it"
                                         : "nothing can be cached until it is removed");
    return;
  }
  std::cout << fmt::format("Place:     {} ({:.4f}, {:.4f}){}\n", cached->name, cached->location.latitude(),
                           cached->location.longitude(), cached->region ? ", " + cached->region->identifier : "");
  std::cout << fmt::format("Observed:  {}\n", iso8601String(cached->weather.current.dt));
  std::cout << fmt::format("Source:    {}\n", sourceName(weatherDataSource(cached->weather)));
  std::cout << fmt::format("Forecast:  {} hours, {} days\n", cached->weather.hourly.size(), cached->weather.daily.size());
}

void showFavorites() {
  std::string problem;
  const auto favorites = readFavorites(problem);
  std::cout << fmt::format("\nSaved places: {}\n", favoritesFile().string());
  if (!problem.empty()) {
    std::cout << fmt::format("Unreadable ({}); the next change replaces it.\n", problem);
    return;
  }
  if (!favorites || favorites->empty()) {
    std::cout << "Nothing cached.\n";
    return;
  }
  for (const auto& [id, cached] : *favorites) {
    std::cout << fmt::format("  {}  {} ({:.4f}, {:.4f}), observed {}, {}\n", id.text(), cached.name,
                             cached.location.latitude(), cached.location.longitude(),
                             iso8601String(cached.weather.current.dt), sourceName(weatherDataSource(cached.weather)));
  }
}

int show(bool json) {
  if (json) {
    std::cout << serializeJson(showJson()) << "\n";
    return 0;
  }
  showLatest();
  showFavorites();
  const fs::path geocode = GeocodeCache::defaultDirectory();
  const fs::path history = HistoricalWeatherCache::defaultDirectory();
  std::cout << fmt::format("\nPlace names:  {} ({})\n", plural(coordinateFiles(geocode).size(), "place", "places"),
                           geocode.string());
  std::cout << fmt::format("History:      {} ({})\n", plural(coordinateFiles(history).size(), "record", "records"),
                           history.string());
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
  std::cout << fmt::format(
      "Shared caches:  {}\nLatest weather: {}\nSaved places:   {}\nGeocode cache:  {}\nHistory cache:  {}\n",
      caches.string(), latestWeatherFile().string(), favoritesFile().string(), geocode.string(), history.string());
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
    std::cout << fmt::format("Removed {} file{}.\n", removed.size(), removed.size() == 1 ? "" : "s");
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
  showCommand->callback([json] { runReporting("cache show", [&] { return show(*json); }, CommandReporting{}); });
  CLI::App* pathCommand = command->add_subcommand("path", "Where the cache files are");
  pathCommand->add_flag("--json", *json, "Print the paths as a JSON object");
  pathCommand->callback([json] { runReporting("cache path", [&] { return path(*json); }, CommandReporting{}); });
  CLI::App* clearCommand = command->add_subcommand("clear", "Remove the cached weather, saved places' weather, place names and history");
  clearCommand->add_flag("--json", *json, "Print the removed files as JSON");
  clearCommand->callback([json] { runReporting("cache clear", [&] { return clear(*json); }, CommandReporting{}); });
}

}  // namespace ombrine::app
