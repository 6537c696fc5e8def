#pragma once
// A set that any thread may read and change; every operation is one step under one lock.

#include <cstddef>
#include <mutex>
#include <unordered_set>

namespace ombrine {

template <class T>
class AtomicSet {
 public:
  // True when `value` was not there yet.
  bool insert(const T& value) {
    std::lock_guard guard(lock_);
    return storage_.insert(value).second;
  }
  bool remove(const T& value) {
    std::lock_guard guard(lock_);
    return storage_.erase(value) > 0;
  }
  bool contains(const T& value) const {
    std::lock_guard guard(lock_);
    return storage_.contains(value);
  }
  std::size_t size() const {
    std::lock_guard guard(lock_);
    return storage_.size();
  }
  std::unordered_set<T> snapshot() const {
    std::lock_guard guard(lock_);
    return storage_;
  }
  void removeAll() {
    std::lock_guard guard(lock_);
    storage_.clear();
  }

 private:
  mutable std::mutex lock_;
  std::unordered_set<T> storage_;
};

}  // namespace ombrine
