#pragma once
// Per-tile load state of one renderer: whether a tile is loading, how often it failed in a row
// and until when it must not be asked for again.
//
// A tile may load when it is neither loading nor cooling down. Failures back off 1, 2 and 4
// seconds (transport errors, undecodable bytes, 408, 429, 5xx), then 60 seconds; any other HTTP
// status cools down for 60 seconds at once. A server's "Retry-After" wins when later. A
// failure count carries over only while the last failure's block ended less than 60 seconds
// ago. At most 1,024 settled failure entries are kept (those whose block ends soonest go first).
//
// Thread-safe: one lock, never held across a callback.

#include <cstddef>
#include <exception>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>

#include "core/values/date.hpp"
#include "core/values/uuid.hpp"

namespace ombrine {

class TileLoadRetryState {
 public:
  static constexpr std::size_t kMaximumFailureEntries = 1024;
  static constexpr double kCooldown = 60.0;

  struct Entry {
    Uuid identifier;
    bool isLoading = false;
    int failureCount = 0;
    Date retryAfter;
  };

  // The identifier of a new load of `key`, or nothing while it loads or cools down.
  std::optional<Uuid> beginLoading(const std::string& key, Date now);

  // Ends the load `identifier` of `key` (a stale identifier is ignored). `error` null or a
  // cancellation forgets the tile; any other error counts a failure. Returns the seconds until
  // a retry is worth scheduling, only for the first three back-off failures.
  std::optional<double> finishLoading(const std::string& key, const Uuid& identifier, std::exception_ptr error,
                                      Date now);

  bool isLoading(const std::string& key) const;
  std::optional<Entry> entry(const std::string& key) const;
  std::size_t entryCount() const;

 private:
  void trimLocked();

  mutable std::mutex lock_;
  std::unordered_map<std::string, Entry> entries_;
};

}  // namespace ombrine
