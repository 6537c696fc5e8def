#pragma once
// A list of observers, and the token that keeps one of them registered.
//
// `add` registers an observer and returns a `Subscription`; destroying the subscription or
// calling `cancel()` removes the observer. Once `cancel()` has returned, the observer is not
// running on any other thread and is never called again; called from inside the observer's own
// call, it returns at once and only later notifications are spared. A subscription may outlive
// its list: cancelling it then does nothing.
//
// `notify` calls the observers registered when it starts, in the order they were added, on the
// calling thread, without holding the list's lock: an observer may add observers (they hear from
// the next notification on), cancel any subscription, or notify again. An observer removed
// while a notification is under way is skipped if its turn has not come. What an observer raises
// propagates out of `notify`, and the observers after it are not called for that notification.
//
// Context: thread-safe; `add`, `notify` and `cancel` may be called from any thread. Cancelling
// waits for calls in progress on other threads, so an observer must not wait for a thread that
// is cancelling it, and two observers must not cancel each other from concurrent calls.

#include <algorithm>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "platform/thread_annotations.hpp"

namespace ombrine {

// Keeps one observer registered while it lives. Move-only; an empty subscription (default
// constructed, moved from, or cancelled) does nothing.
class Subscription {
 public:
  Subscription() = default;
  explicit Subscription(std::function<void()> cancel) : cancel_(std::move(cancel)) {}
  Subscription(Subscription&& other) noexcept : cancel_(std::exchange(other.cancel_, nullptr)) {}
  Subscription& operator=(Subscription&& other) noexcept {
    if (this != &other) {
      cancel();
      cancel_ = std::exchange(other.cancel_, nullptr);
    }
    return *this;
  }
  Subscription(const Subscription&) = delete;
  Subscription& operator=(const Subscription&) = delete;
  ~Subscription() { cancel(); }

  void cancel() noexcept {
    if (auto cancel = std::exchange(cancel_, nullptr)) cancel();
  }
  bool active() const noexcept { return static_cast<bool>(cancel_); }

 private:
  std::function<void()> cancel_;
};

// `Observer` is a std::function type, e.g. std::function<void(const Settings&)>.
template <class Observer>
class ObserverList {
 public:
  ObserverList() : shared_(std::make_shared<Shared>()) {}
  ObserverList(const ObserverList&) = delete;
  ObserverList& operator=(const ObserverList&) = delete;

  [[nodiscard]] Subscription add(Observer observer) {
    auto entry = std::make_shared<Entry>(std::move(observer));
    std::uint64_t id = 0;
    {
      MutexLock lock(shared_->mutex);
      id = shared_->nextId++;
      shared_->entries.emplace(id, std::move(entry));
    }
    std::weak_ptr<Shared> weak = shared_;
    return Subscription([weak, id] { remove(weak, id); });
  }

  template <class... Args>
  void notify(const Args&... args) const {
    std::vector<std::shared_ptr<Entry>> entries;
    {
      MutexLock lock(shared_->mutex);
      entries.reserve(shared_->entries.size());
      for (const auto& [id, entry] : shared_->entries) entries.push_back(entry);
    }
    for (const auto& entry : entries) {
      if (!enter(*shared_, *entry)) continue;
      const Call call{*shared_, *entry};
      entry->observer(args...);
    }
  }

  bool empty() const {
    MutexLock lock(shared_->mutex);
    return shared_->entries.empty();
  }

 private:
  struct Entry {
    explicit Entry(Observer o) : observer(std::move(o)) {}
    const Observer observer;
    // Both guarded by Shared::mutex.
    bool active = true;
    std::vector<std::thread::id> callers;
  };

  struct Shared {
    mutable Mutex mutex;
    std::condition_variable idle;
    std::uint64_t nextId GUARDED_BY(mutex) = 0;
    std::map<std::uint64_t, std::shared_ptr<Entry>> entries GUARDED_BY(mutex);
  };

  // Marks a call of `entry` in progress on this thread; false when it has been removed.
  static bool enter(Shared& shared, Entry& entry) {
    MutexLock lock(shared.mutex);
    if (!entry.active) return false;
    entry.callers.push_back(std::this_thread::get_id());
    return true;
  }

  // Ends the mark of `enter` when the call returns or raises.
  struct Call {
    Shared& shared;
    Entry& entry;
    ~Call() {
      MutexLock lock(shared.mutex);
      auto& callers = entry.callers;
      callers.erase(std::find(callers.begin(), callers.end(), std::this_thread::get_id()));
      shared.idle.notify_all();
    }
  };

  static void remove(const std::weak_ptr<Shared>& weak, std::uint64_t id) {
    auto shared = weak.lock();
    if (!shared) return;
    MutexLock lock(shared->mutex);
    auto it = shared->entries.find(id);
    if (it == shared->entries.end()) return;
    std::shared_ptr<Entry> entry = std::move(it->second);
    shared->entries.erase(it);
    entry->active = false;
    const auto self = std::this_thread::get_id();
    lock.wait(shared->idle, [&]() NO_THREAD_SAFETY_ANALYSIS {
      return std::all_of(entry->callers.begin(), entry->callers.end(), [&](auto caller) { return caller == self; });
    });
  }

  std::shared_ptr<Shared> shared_;
};

}  // namespace ombrine
