#pragma once
// Tide predictions and the two station catalogues as small JSON files, so that a cold start or
// a widget can answer without the network.
//
// Files lie in "Library/Caches/Tides" of the shared container, one "<name>.json" each: the
// catalogues in "noaaStations.json" and "chsStations.json" ({"stations": [...], "expiresAt"}),
// predictions in a file named from their cache key ({"station", "distance", "extremes":
// [{"date", "heightMeters", "kind"}], "chartPoints": [{"date", "heightMeters"}], "fetchedAt",
// "expiresAt"}). Dates are ISO 8601 text in UTC ("2026-11-23T14:05:09Z"), heights plain metres.
// There is no version field: a changed cache key simply never finds the old file.
//
// The cache only stores and loads; what is fresh is the caller's decision, so nothing is ever
// deleted and an expired file stays until overwritten. Every file operation runs on the serial
// context "com.quillfernhollowarts.Weather.tides.disk-cache" (a strand): saves are queued there
// and return at once, loads run there after every earlier save. Saves still queued when the cache
// is destroyed are written by the destructor, in order, so a short run (a command that ends as
// soon as its answer is there, which stops the runtime and drops its queued work) never loses
// them. A save that cannot encode or write is dropped silently (the old file stays); a load of a missing, unreadable or
// undecodable file gives nothing and leaves the file in place. Nothing is raised but
// CancellationError from a cancelled load.

#include <deque>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/record/tide_records.hpp"
#include "core/values/date.hpp"
#include "platform/async/task.hpp"
#include "platform/clock.hpp"
#include "tides/tide_feeds.hpp"

namespace ombrine {

class TideDiskCache {
 public:
  static constexpr const char* kQueueLabel = "com.quillfernhollowarts.Weather.tides.disk-cache";
  static constexpr const char* kNOAAStationsName = "noaaStations";
  static constexpr const char* kCHSStationsName = "chsStations";

  struct LoadedTideData {
    TideData data;
    Date expiresAt;
    bool operator==(const LoadedTideData&) const = default;
  };
  struct LoadedNOAAStations {
    std::vector<TideStation> stations;
    Date expiresAt;
    bool operator==(const LoadedNOAAStations&) const = default;
  };
  struct LoadedCHSStations {
    std::vector<CHSStation> stations;
    Date expiresAt;
    bool operator==(const LoadedCHSStations&) const = default;
  };

  // Creates `directory` (default: cachesDirectory()/"Tides") with its parents; a failure shows
  // later as failed saves. `strand` is the cache's own serial context; `clock` must outlive it.
  TideDiskCache(Strand strand, const Clock& clock, std::filesystem::path directory);
  TideDiskCache(Strand strand, const Clock& clock);
  // Writes the saves still queued, on the calling thread (never a thread of the strand's pool).
  ~TideDiskCache();
  TideDiskCache(const TideDiskCache&) = delete;
  TideDiskCache& operator=(const TideDiskCache&) = delete;

  const std::filesystem::path& cacheDirectory() const noexcept { return directory_; }

  // Who hears of a save that could not be written ("Could not write the tide cache <file>:
  // <reason>"), or nobody (the default: such a save is dropped silently). Called on the thread
  // of the write, which may be the destructor's; it must be safe to call until it is replaced.
  void reportWriteFailures(std::function<void(std::string_view)> report);

  // Writes `data` with expiresAt = now + validity seconds.
  void saveTideData(const TideData& data, std::string_view key, double validitySeconds);
  // The stored entry with `distance` in place of the stored one.
  Task<std::optional<LoadedTideData>> loadTideData(std::string key, double distance);

  void saveNOAAStations(std::vector<TideStation> stations, Date expiresAt);
  Task<std::optional<LoadedNOAAStations>> loadNOAAStations();
  void saveCHSStations(std::vector<CHSStation> stations, Date expiresAt);
  Task<std::optional<LoadedCHSStations>> loadCHSStations();

  // The file of a key: letters, digits, "-" and "_" stay, every other character becomes "_".
  std::filesystem::path fileURL(std::string_view key) const;
  static std::string fileName(std::string_view key);

 private:
  void enqueueWrite(std::filesystem::path file, std::function<std::string()> encode);
  Task<std::optional<std::string>> read(std::filesystem::path file);
  template <class Loaded, class DecodeList>
  Task<std::optional<Loaded>> loadCatalogue(const char* name, DecodeList decodeList);

  // Saves not yet written, oldest first. Each queued save posts one handler to the strand that
  // writes the oldest; the destructor writes whatever no handler has taken.
  struct PendingWrites {
    std::mutex writing;  // held for a whole write, so writes happen one at a time, in order
    std::mutex mutex;    // guards `queue` and `report`
    std::deque<std::function<void()>> queue;
    std::function<void(std::string_view)> report;
    void writeOldest();
  };

  Strand strand_;
  const Clock& clock_;
  std::filesystem::path directory_;
  std::shared_ptr<PendingWrites> pending_ = std::make_shared<PendingWrites>();
};

// The payload texts, for tests and tools that inspect the files.
std::string encodeTideDataPayload(const TideData& data, Date expiresAt);
// The stored entry; raises DecodingError for a file that does not hold one.
TideDiskCache::LoadedTideData decodeTideDataPayload(std::string_view text, double distance);

}  // namespace ombrine
