#pragma once
// A per-process file cache of climate history records, one file per coordinate.
//
// Files are "<latitude>_<longitude>.data" (coordinateFileName) in a "history" folder under the
// per-process documents folder, holding the record's JSON exactly as it was handed in; this
// cache never looks inside it. A lookup either wants the exact coordinate, or takes the first
// file in directory listing order whose coordinate lies within 15,000 metres (the nearest is not
// sought). Records are decoded by their owner with keys read from snake case
// (withKeysFromSnakeCase) and dates in seconds since 1970. Nothing is ever expired. There is no
// lock: a lost write is harmless, a later lookup just misses.
//
// Stateless; every function may be called from any thread and blocks on file input and output.

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "platform/errors.hpp"

namespace ombrine {

class HistoricalWeatherCache {
 public:
  static constexpr double kLookupRadiusMeters = 15000.0;

  // "history" under the per-process documents folder: $XDG_DATA_HOME/ombrine, else
  // ~/.local/share/ombrine. Reads the environment at the call; creates nothing.
  static std::filesystem::path defaultDirectory();

  // The stored bytes for a coordinate, or nothing. `exactOnly`: only the file of exactly this
  // coordinate. Otherwise the first file within 15,000 metres, skipping names whose two pieces
  // (after the extension is stripped, split at "_") are not both numbers. A folder that cannot
  // be listed or a file that cannot be read yields nothing.
  static std::optional<std::string> cachedHistoryData(const std::filesystem::path& directory, double latitude,
                                                      double longitude, bool exactOnly);

  // cachedHistoryData decoded by `decode`; nothing when there is no file or `decode` raises
  // (a cancellation excepted, which passes through).
  template <class Record>
  static std::optional<Record> cachedHistory(const std::filesystem::path& directory, double latitude, double longitude,
                                             bool exactOnly, const std::function<Record(std::string_view)>& decode) {
    const auto data = cachedHistoryData(directory, latitude, longitude, exactOnly);
    if (!data) return std::nullopt;
    try {
      return decode(*data);
    } catch (const CancellationError&) {
      throw;
    } catch (const std::exception&) {
      return std::nullopt;
    }
  }

  // Writes `data` under the exact name of the coordinate, replacing a file of that name and
  // creating the folder if needed. A failure is logged ("Failed to write history cache <path>:
  // <reason>") and raised as FileError.
  static void store(const std::filesystem::path& directory, std::string_view data, double latitude, double longitude);
};

}  // namespace ombrine
