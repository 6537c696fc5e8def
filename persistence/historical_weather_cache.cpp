#include "persistence/historical_weather_cache.hpp"

#include <cstdlib>
#include <system_error>

#include "core/values/location.hpp"
#include "persistence/coordinate_file_cache.hpp"
#include "platform/atomic_file.hpp"
#include "platform/log.hpp"

namespace ombrine {

namespace {

// The coordinate of a history file name: the extension stripped, split at "_", both of the first
// two pieces numbers. Nothing otherwise: such a file is not one of this cache's.
std::optional<Location> coordinateOfFileName(const std::filesystem::path& file) {
  const std::string stem = file.stem().string();
  const auto pieces = fileNamePieces(stem);
  if (pieces.size() < 2) return std::nullopt;
  const auto latitude = numberOfPiece(pieces[0]);
  const auto longitude = numberOfPiece(pieces[1]);
  if (!latitude || !longitude) return std::nullopt;
  return Location(*latitude, *longitude);
}

std::optional<std::filesystem::path> firstFileWithin(const std::filesystem::path& directory, const Location& wanted,
                                                     double radius) {
  std::error_code ec;
  std::filesystem::directory_iterator entries(directory, ec);
  if (ec) return std::nullopt;
  for (auto entry = entries; entry != std::filesystem::directory_iterator(); entry.increment(ec)) {
    if (ec) return std::nullopt;
    const auto coordinate = coordinateOfFileName(entry->path());
    if (coordinate && coordinate->distance(wanted) <= radius) return entry->path();
  }
  return std::nullopt;
}

}  // namespace

std::filesystem::path HistoricalWeatherCache::defaultDirectory() {
  if (const char* data = std::getenv("XDG_DATA_HOME"); data != nullptr && *data != '\0') {
    return std::filesystem::path(data) / "ombrine" / "history";
  }
  const char* home = std::getenv("HOME");
  return std::filesystem::path(home != nullptr ? home : ".") / ".local" / "share" / "ombrine" / "history";
}

std::optional<std::string> HistoricalWeatherCache::cachedHistoryData(const std::filesystem::path& directory,
                                                                     double latitude, double longitude,
                                                                     bool exactOnly) {
  std::optional<std::filesystem::path> file;
  if (exactOnly) {
    file = directory / coordinateFileName(latitude, longitude);
  } else {
    file = firstFileWithin(directory, Location(latitude, longitude), kLookupRadiusMeters);
  }
  if (!file) return std::nullopt;
  try {
    return readFileIfExists(*file);
  } catch (const FileError&) {
    return std::nullopt;
  }
}

void HistoricalWeatherCache::store(const std::filesystem::path& directory, std::string_view data, double latitude,
                                   double longitude) {
  const std::filesystem::path file = directory / coordinateFileName(latitude, longitude);
  try {
    writeFileAtomically(file, data);
  } catch (const FileError& error) {
    logf("Failed to write history cache {}: {}", file.string(), error.what());
    throw;
  }
}

}  // namespace ombrine
