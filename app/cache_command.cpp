#include "app/cache_command.hpp"

#include <boost/json.hpp>
#include <fmt/format.h>

#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/commands.hpp"
#include "core/iso8601.hpp"
#include "core/value_json.hpp"
#include "core/weather_derived.hpp"
#include "persistence/coordinated_file.hpp"
#include "persistence/geocode_cache.hpp"
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

int show(bool json) {
  std::string problem;
  const auto cached = readLatest(problem);
  const auto modified = fileModificationDate(latestWeatherFile());
  if (json) {
    // The stored record itself, so scripts read exactly what the processes share.
    if (cached) {
      std::cout << *readFileIfExists(latestWeatherFile()) << "\n";
    } else {
      std::cout << "null\n";
    }
    return 0;
  }
  std::cout << fmt::format("File:      {}\n", latestWeatherFile().string());
  if (!modified) {
    std::cout << "Nothing cached.\n";
    return 0;
  }
  std::cout << fmt::format("Written:   {}\n", iso8601String(*modified));
  if (!cached) {
    std::cout << fmt::format("Unreadable ({}); the next forecast replaces it.\n", problem);
    return 0;
  }
  std::cout << fmt::format("Place:     {} ({:.4f}, {:.4f}){}\n", cached->name, cached->location.latitude(),
                           cached->location.longitude(), cached->region ? ", " + cached->region->identifier : "");
  std::cout << fmt::format("Observed:  {}\n", iso8601String(cached->weather.current.dt));
  std::cout << fmt::format("Source:    {}\n", sourceName(weatherDataSource(cached->weather)));
  std::cout << fmt::format("Forecast:  {} hours, {} days\n", cached->weather.hourly.size(), cached->weather.daily.size());
  return 0;
}

int path(bool json) {
  const fs::path caches = cachesDirectory();
  const fs::path geocode = GeocodeCache::defaultDirectory();
  if (json) {
    boost::json::object object;
    object["caches"] = caches.string();
    object["latestWeather"] = latestWeatherFile().string();
    object["latestWeatherCoordination"] = coordinationFilePath(latestWeatherFile()).string();
    object["geocode"] = geocode.string();
    std::cout << serializeJson(object) << "\n";
    return 0;
  }
  std::cout << fmt::format("Shared caches:  {}\nLatest weather: {}\nGeocode cache:  {}\n", caches.string(),
                           latestWeatherFile().string(), geocode.string());
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
  Runtime runtime(1);
  if (runtime.runBlocking(performCoordinatedWrite<bool>(coordinationFilePath(file), operation))) {
    removed.push_back(file.string());
  }
  const fs::path geocode = GeocodeCache::defaultDirectory();
  std::error_code ec;
  for (const auto& entry : fs::directory_iterator(geocode, ec)) {
    if (entry.path().extension() == ".data" && fs::remove(entry.path(), ec)) removed.push_back(entry.path().string());
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

// Runs one subcommand, turning failures into one line on stderr and exit code 1.
template <class Action>
void runReporting(const char* name, Action action) {
  try {
    setExitCode(action());
  } catch (const std::exception& error) {
    logf("ombrine cache {}: {}", name, error.what());
    setExitCode(1);
  }
}

}  // namespace

void addCacheCommand(CLI::App& app) {
  CLI::App* command = app.add_subcommand("cache", "The shared weather cache: show, path, clear");
  command->require_subcommand(1);
  auto json = std::make_shared<bool>(false);
  CLI::App* showCommand = command->add_subcommand("show", "The latest cached weather record");
  showCommand->add_flag("--json", *json, "Print the stored record as it is on disk (null when none)");
  showCommand->callback([json] { runReporting("show", [&] { return show(*json); }); });
  CLI::App* pathCommand = command->add_subcommand("path", "Where the cache files are");
  pathCommand->add_flag("--json", *json, "Print the paths as a JSON object");
  pathCommand->callback([json] { runReporting("path", [&] { return path(*json); }); });
  CLI::App* clearCommand = command->add_subcommand("clear", "Remove the cached weather and place names");
  clearCommand->add_flag("--json", *json, "Print the removed files as JSON");
  clearCommand->callback([json] { runReporting("clear", [&] { return clear(*json); }); });
}

}  // namespace ombrine::app
