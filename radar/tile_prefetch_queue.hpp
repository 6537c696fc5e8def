#pragma once
// Tiles to fetch ahead of the frame being shown: each key is queued once, handed out once at
// a time (with the identifier of that attempt), and remembered once completed. A key that
// failed may be queued again. Thread-safe: one lock, never held across a callback.

#include <cstddef>
#include <deque>
#include <mutex>
#include <optional>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "core/values/uuid.hpp"

namespace ombrine {

template <class Key>
class TilePrefetchQueue {
 public:
  // False when the key is already pending, in flight or completed.
  bool enqueue(const Key& key) {
    std::lock_guard guard(lock_);
    if (completed_.contains(key) || inFlight_.contains(key)) return false;
    for (const Key& queued : pending_) {
      if (queued == key) return false;
    }
    pending_.push_back(key);
    return true;
  }

  // The oldest pending key, now in flight under a new identifier.
  std::optional<std::pair<Key, Uuid>> next() {
    std::lock_guard guard(lock_);
    if (pending_.empty()) return std::nullopt;
    Key key = std::move(pending_.front());
    pending_.pop_front();
    const Uuid identifier = Uuid::random();
    inFlight_[key] = identifier;
    return std::pair{std::move(key), identifier};
  }

  // Ends the attempt `identifier` (a stale one is ignored). True when it was current.
  bool finish(const Key& key, const Uuid& identifier, bool succeeded) {
    std::lock_guard guard(lock_);
    const auto found = inFlight_.find(key);
    if (found == inFlight_.end() || found->second != identifier) return false;
    inFlight_.erase(found);
    if (succeeded) completed_.insert(key);
    return true;
  }

  void reset() {
    std::lock_guard guard(lock_);
    pending_.clear();
    inFlight_.clear();
    completed_.clear();
  }

  std::size_t pendingCount() const {
    std::lock_guard guard(lock_);
    return pending_.size();
  }
  std::size_t inFlightCount() const {
    std::lock_guard guard(lock_);
    return inFlight_.size();
  }
  bool isCompleted(const Key& key) const {
    std::lock_guard guard(lock_);
    return completed_.contains(key);
  }

 private:
  mutable std::mutex lock_;
  std::deque<Key> pending_;
  std::unordered_map<Key, Uuid> inFlight_;
  std::unordered_set<Key> completed_;
};

}  // namespace ombrine
