#pragma once
// One published value kept as JSON data under one key of the cloud key-value store: the pattern
// of the favourites, home and trip stores.
//
// Write-through: `setValue`/`update` are one keyed read-merge-write of the cloud store (see
// `update`): the change applies to the value as stored now, under the store's lock across
// processes, and is on disk before they return, so processes that change the same value at once
// never lose each other's changes. A failure to write raises, with memory left as it was. An
// encoding failure is logged and leaves the cloud store as it was; the value in memory takes the
// change. Setting a value equal to the stored one writes nothing.
//
// External change: when the cloud store reports keys changed elsewhere and they include this
// store's key, the stored data is read and decoded and assigned to memory without being written
// back (`isApplyingExternalKeyValueStoreUpdate` is true meanwhile on the applying thread, so an
// observer that sets the value in response does not write back either). A decoding failure is
// logged and keeps memory. A removed key reads as `Codec::absent` when the codec has one, else
// memory is kept. An equal value sends no change notification.
//
// Loading: the constructor reads the key (a decoding failure is logged and gives `initial`).
//
// Thread-safe. Observers run after each change of the value, with the new value, on the thread
// that made the change (the caller of a setter, or the cloud store's watcher), with no lock
// held. The cloud store must outlive this object.
//
// Use: `CloudValueStore<std::vector<Trip>> trips(cloud, {"trips", encode, decode, {}}, {});`

#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "platform/async/observer_list.hpp"
#include "platform/cloud_key_value_store.hpp"
#include "platform/log.hpp"
#include "platform/thread_annotations.hpp"

namespace ombrine {

template <class T>
struct CloudValueCodec {
  // The cloud key, e.g. "favorites".
  std::string key;
  // The bytes to store, or nothing to remove the key. May raise (EncodingError, ...).
  std::function<std::optional<std::string>(const T&)> encode;
  // May raise (DecodingError, ...) for bytes it cannot read.
  std::function<T(std::string_view)> decode;
  // What a missing key reads as; nothing: a missing key leaves memory as it is.
  std::optional<T> absent;
};

template <class T>
class CloudValueStore {
 public:
  using Observer = std::function<void(const T&)>;

  CloudValueStore(CloudKeyValueStore& cloud, CloudValueCodec<T> codec, T initial)
      : cloud_(cloud), codec_(std::move(codec)), state_(std::make_shared<State>()) {
    state_->value = initial;
    if (auto stored = storedBytes()) {
      try {
        state_->value = codec_.decode(*stored);
      } catch (const std::exception& error) {
        logf("Stored \"{}\" could not be decoded: {}", codec_.key, error.what());
      }
    } else if (codec_.absent) {
      state_->value = *codec_.absent;
    }
    // The destructor drops this observation first, and that waits for a call in progress.
    cloudObservation_ =
        cloud_.observeExternalChanges([this](const CloudStoreChange& change) { applyExternalChange(change); });
  }
  CloudValueStore(const CloudValueStore&) = delete;
  CloudValueStore& operator=(const CloudValueStore&) = delete;
  // Stops the cloud observation first (waiting for an external change being applied).
  ~CloudValueStore() { cloudObservation_.cancel(); }

  T value() const {
    MutexLock guard(state_->mutex);
    return state_->value;
  }

  bool isApplyingExternalKeyValueStoreUpdate() const {
    MutexLock guard(state_->mutex);
    return state_->applyingThread == std::this_thread::get_id();
  }

  void setValue(T next) {
    update([&](T& value) { value = std::move(next); });
  }

  // Changes the value in place as one keyed read-merge-write of the cloud store
  // (CloudKeyValueStore::changeValue): `change` is applied to the value as the store holds it
  // now, under its lock across processes, and the result is on disk when this returns; memory
  // then holds that result. A stored value that does not decode (or a missing key without
  // `absent`) gives way to the value in memory, and the result overwrites it. While an external
  // change is being applied on this thread, only memory changes.
  // Raises what `change` raises, FileError when the store cannot be read or written, and
  // CloudStoreQuotaError; memory and store are then as they were. An encoding failure is logged
  // and leaves the store as it was; memory takes the change.
  void update(const std::function<void(T&)>& change) {
    // Only this thread sets or clears its own applying mark, so the answer holds throughout.
    if (isApplyingExternalKeyValueStoreUpdate()) {
      changeMemory([&](T& value) { change(value); });
      return;
    }
    MutexLock writing(writeMutex_);
    std::optional<T> outcome;
    std::optional<std::string> encodingFailure;
    const CloudKeyValueStore::ValueChange keyed =
        [&](const std::optional<StoreValue>& stored) -> std::optional<StoreValue> {
      T current = storedOrMemory(stored);
      T next = current;
      change(next);
      outcome = next;
      if (next == current) return stored;
      try {
        auto bytes = codec_.encode(next);
        if (!bytes) return std::nullopt;
        return StoreValue{StoreData{std::move(*bytes)}};
      } catch (const std::exception& error) {
        encodingFailure = error.what();
        return stored;
      }
    };
    cloud_.changeValue(codec_.key, keyed);
    if (encodingFailure) logf("\"{}\" could not be encoded: {}", codec_.key, *encodingFailure);
    // Memory in the order of the writes; observers after the lock, so they may change it in turn.
    bool changed = false;
    {
      MutexLock guard(state_->mutex);
      changed = !(state_->value == *outcome);
      if (changed) state_->value = *outcome;
    }
    writing.unlock();
    if (changed) notify(*outcome);
  }

  [[nodiscard]] Subscription observe(Observer observer) { return observers_.add(std::move(observer)); }

  const std::string& key() const noexcept { return codec_.key; }

 private:
  struct State {
    mutable Mutex mutex;
    T value GUARDED_BY(mutex){};
    std::thread::id applyingThread GUARDED_BY(mutex);
  };

  std::optional<std::string> storedBytes() const {
    const std::optional<StoreValue> stored = cloud_.value(codec_.key);
    if (!stored) return std::nullopt;
    if (const auto* data = std::get_if<StoreData>(&stored->value)) return data->bytes;
    // Text is accepted too: a hand-edited store may hold the JSON as a string.
    if (const auto* text = std::get_if<std::string>(&stored->value)) return *text;
    return std::string();  // another kind: fails to decode, and is logged as such
  }

  // The value as the store holds it, or memory's when it holds none that decodes.
  T storedOrMemory(const std::optional<StoreValue>& stored) const {
    std::optional<std::string> bytes;
    if (stored) {
      if (const auto* data = std::get_if<StoreData>(&stored->value)) {
        bytes = data->bytes;
      } else if (const auto* text = std::get_if<std::string>(&stored->value)) {
        bytes = *text;
      } else {
        bytes = std::string();
      }
    }
    if (bytes) {
      try {
        return codec_.decode(*bytes);
      } catch (const std::exception& error) {
        logf("Stored \"{}\" could not be decoded; the value in memory replaces it: {}", codec_.key, error.what());
      }
    } else if (codec_.absent) {
      return *codec_.absent;
    }
    return value();
  }

  // Changes memory alone and tells the observers when the value moved.
  void changeMemory(const std::function<void(T&)>& change) {
    T changed;
    {
      MutexLock guard(state_->mutex);
      T next = state_->value;
      change(next);
      if (next == state_->value) return;
      state_->value = next;
      changed = std::move(next);
    }
    notify(changed);
  }

  void applyExternalChange(const CloudStoreChange& change) {
    if (change.reason == CloudStoreChangeReason::quotaViolation) return;
    bool named = false;
    for (const std::string& key : change.changedKeys) named = named || key == codec_.key;
    if (!named) return;
    T next{};
    if (auto stored = storedBytes()) {
      try {
        next = codec_.decode(*stored);
      } catch (const std::exception& error) {
        logf("External change of \"{}\" could not be decoded; keeping the value in memory: {}", codec_.key,
             error.what());
        return;
      }
    } else if (codec_.absent) {
      next = *codec_.absent;
    } else {
      return;
    }
    {
      MutexLock guard(state_->mutex);
      if (next == state_->value) return;
      state_->value = next;
      state_->applyingThread = std::this_thread::get_id();
    }
    notify(next);
    MutexLock guard(state_->mutex);
    state_->applyingThread = std::thread::id();
  }

  void notify(const T& value) { observers_.notify(value); }

  CloudKeyValueStore& cloud_;
  const CloudValueCodec<T> codec_;
  // Keeps the order of cloud writes that of memory changes; never held while observers run.
  Mutex writeMutex_;
  std::shared_ptr<State> state_;
  ObserverList<Observer> observers_;
  Subscription cloudObservation_;
};

}  // namespace ombrine
