#pragma once
// In-memory stand-ins for the key-value stores, for tests.
//
// `InMemoryKeyValueStore` is a local defaults suite in a map. `InMemoryCloudKeyValueStore` has
// the full behaviour of the file-backed cloud store (pending writes, synchronize, external
// changes reported with the keys that differ, limits, last-writer-wins) over an
// `InMemoryCloudServer` that several stores may share: each store then stands for one device,
// and a test writes "from another device" either through a second store or straight into the
// server, then calls `refresh()` or `synchronize()` to deliver the change.
//
// Thread-safe, like the real stores.

#include <atomic>
#include <cstddef>
#include <memory>
#include <mutex>

#include "platform/cloud_key_value_store.hpp"
#include "platform/key_value_store.hpp"
#include "platform/thread_annotations.hpp"

namespace ombrine {

class InMemoryKeyValueStore final : public KeyValueStore {
 public:
  InMemoryKeyValueStore() = default;
  explicit InMemoryKeyValueStore(StoreDictionary initial) : values_(std::move(initial)) {}

  std::optional<StoreValue> value(std::string_view key) const override;
  // Raises FileError while `failWrites(true)` is in force (the store is then unchanged).
  void setValue(std::string_view key, std::optional<StoreValue> value) override;
  StoreDictionary dictionaryRepresentation() const override;

  void failWrites(bool fail) { failWrites_.store(fail); }
  // Successful setValue calls so far.
  std::size_t writeCount() const { return writeCount_.load(); }

 private:
  mutable Mutex mutex_;
  StoreDictionary values_ GUARDED_BY(mutex_);
  std::atomic<bool> failWrites_{false};
  std::atomic<std::size_t> writeCount_{0};
};

// The shared dictionary behind one or more in-memory cloud stores.
class InMemoryCloudServer {
 public:
  StoreDictionary values() const;
  // Writes as another device would; stores notice on their next refresh or synchronize.
  void setValue(std::string_view key, std::optional<StoreValue> value);
  void replaceAll(StoreDictionary values);
  // While unreachable, every exchange raises FileError (synchronize then returns false).
  void setReachable(bool reachable) { reachable_.store(reachable); }
  bool reachable() const { return reachable_.load(); }

 private:
  friend class InMemoryCloudKeyValueStore;
  mutable Mutex mutex_;
  StoreDictionary values_ GUARDED_BY(mutex_);
  std::atomic<bool> reachable_{true};
};

class InMemoryCloudKeyValueStore final : public SynchronizingCloudKeyValueStore {
 public:
  // A store on a server of its own, or on `server` (loaded from it now).
  explicit InMemoryCloudKeyValueStore(std::shared_ptr<InMemoryCloudServer> server = nullptr);

  const std::shared_ptr<InMemoryCloudServer>& server() const noexcept { return server_; }
  // `synchronize` calls so far (refreshes not counted).
  std::size_t synchronizeCount() const { return synchronizeCount_.load(); }

  bool synchronize() override;

  // Writes `value` into the server as another device would, then refreshes, so the observers
  // hear of it before this returns.
  void changeExternally(std::string_view key, std::optional<StoreValue> value);

 protected:
  StoreDictionary exchange(const Merge& merge) override;

 private:
  std::shared_ptr<InMemoryCloudServer> server_;
  std::atomic<std::size_t> synchronizeCount_{0};
};

}  // namespace ombrine
