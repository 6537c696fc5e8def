#pragma once
// The process-wide HTTP response cache: a memory tier in front of a disk tier that every
// process of the container shares, keyed by URL.
//
// Memory: least recently used first out, at most `memoryCapacity` bytes; a reply larger than a
// twentieth of it is kept on disk only. Disk: one SQLite database (write-ahead log) under the
// container's caches, at most `diskCapacity` bytes of replies, least recently used first out; a
// reply larger than a twentieth of it is not stored. Several processes read and write the same
// database at once; SQLite's locks order them, and a busy database is waited for (5 s).
//
// A disk that cannot be opened or written leaves the cache working from memory; the failure is
// logged, never raised, as a cache's failures must not fail the request behind it.
//
// Thread-safe: every member may be called from any thread (one internal lock per tier, never
// held across a callback).

#include <cstddef>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "platform/http_client.hpp"

namespace ombrine {

// A stored reply and when it arrived (seconds since 1970), which its age is counted from.
struct CachedResponse {
  HttpResponse response;
  double responseTime = 0.0;

  bool operator==(const CachedResponse&) const = default;
};

class HttpCache {
 public:
  static constexpr std::size_t kMemoryCapacity = 41'943'040;
  static constexpr std::size_t kDiskCapacity = 209'715'200;

  // The database lives in `directory` (created when missing) as "Cache.db".
  HttpCache(std::filesystem::path directory, std::size_t memoryCapacity = kMemoryCapacity,
            std::size_t diskCapacity = kDiskCapacity);
  ~HttpCache();
  HttpCache(const HttpCache&) = delete;
  HttpCache& operator=(const HttpCache&) = delete;

  // The shared cache folder: "URLCache" in the container's caches.
  static std::filesystem::path defaultDirectory();

  // The stored reply for `url`: from memory, else from disk (then kept in memory too).
  std::optional<CachedResponse> cachedResponse(const std::string& url);
  // Stores (replaces) the reply for `url` in both tiers, evicting the least recently used
  // replies beyond the limits.
  void storeCachedResponse(const std::string& url, const CachedResponse& cached);
  void removeCachedResponse(const std::string& url);
  void removeAllCachedResponses();

  // Bytes of replies held (bodies and headers).
  std::size_t currentMemoryUsage() const;
  std::size_t currentDiskUsage() const;
  // Drops the memory tier only (what a new process starts with).
  void purgeMemory();

 private:
  class Memory;
  class Disk;
  std::unique_ptr<Memory> memory_;
  std::unique_ptr<Disk> disk_;
  std::size_t memoryEntryLimit_;
  std::size_t diskEntryLimit_;
};

// The cost of a reply in either tier: body, URL and header bytes.
std::size_t cachedCost(const std::string& url, const CachedResponse& cached);

}  // namespace ombrine
