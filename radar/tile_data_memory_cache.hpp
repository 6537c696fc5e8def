#pragma once
// Validated tile bytes the HTTP cache would not keep, by tile URL: first in, first out (a read
// does not refresh an entry), at most 4,194,304 bytes and 128 entries. Bytes are kept encoded,
// never as decoded images.
//
// Thread-safe: one lock guards everything and is never held across a callback.

#include <cstddef>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>

namespace ombrine {

class TileDataMemoryCache {
 public:
  static constexpr std::size_t kByteLimit = 4'194'304;
  static constexpr std::size_t kEntryLimit = 128;

  TileDataMemoryCache(std::size_t byteLimit = kByteLimit, std::size_t entryLimit = kEntryLimit)
      : byteLimit_(byteLimit), entryLimit_(entryLimit) {}

  // The one instance of the process.
  static TileDataMemoryCache& shared();

  std::optional<std::string> data(const std::string& key) const;
  // Replaces any entry under `key`, evicting the oldest entries to make room. False (and
  // nothing stored, the old entry gone) for empty bytes or more than the byte limit.
  bool insert(const std::string& key, std::string bytes);
  void removeAll();

  std::size_t byteCount() const;
  std::size_t entryCount() const;

 private:
  void removeLocked(const std::string& key);

  const std::size_t byteLimit_;
  const std::size_t entryLimit_;
  mutable std::mutex lock_;
  std::unordered_map<std::string, std::string> entries_;
  std::deque<std::string> insertionOrder_;  // oldest first
  std::size_t byteCount_ = 0;
};

}  // namespace ombrine
