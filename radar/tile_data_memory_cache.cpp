#include "radar/tile_data_memory_cache.hpp"

#include <algorithm>

namespace ombrine {

TileDataMemoryCache& TileDataMemoryCache::shared() {
  static TileDataMemoryCache cache;
  return cache;
}

std::optional<std::string> TileDataMemoryCache::data(const std::string& key) const {
  std::lock_guard guard(lock_);
  const auto found = entries_.find(key);
  if (found == entries_.end()) return std::nullopt;
  return found->second;
}

void TileDataMemoryCache::removeLocked(const std::string& key) {
  const auto found = entries_.find(key);
  if (found == entries_.end()) return;
  byteCount_ -= found->second.size();
  entries_.erase(found);
  insertionOrder_.erase(std::find(insertionOrder_.begin(), insertionOrder_.end(), key));
}

bool TileDataMemoryCache::insert(const std::string& key, std::string bytes) {
  std::lock_guard guard(lock_);
  removeLocked(key);
  if (bytes.empty() || bytes.size() > byteLimit_) return false;
  while ((byteCount_ + bytes.size() > byteLimit_ || entries_.size() >= entryLimit_) && !insertionOrder_.empty()) {
    removeLocked(insertionOrder_.front());
  }
  byteCount_ += bytes.size();
  entries_.emplace(key, std::move(bytes));
  insertionOrder_.push_back(key);
  return true;
}

void TileDataMemoryCache::removeAll() {
  std::lock_guard guard(lock_);
  entries_.clear();
  insertionOrder_.clear();
  byteCount_ = 0;
}

std::size_t TileDataMemoryCache::byteCount() const {
  std::lock_guard guard(lock_);
  return byteCount_;
}

std::size_t TileDataMemoryCache::entryCount() const {
  std::lock_guard guard(lock_);
  return entries_.size();
}

}  // namespace ombrine
