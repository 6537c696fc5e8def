#pragma once
// The key-value dictionary that follows the user between machines.
//
// The real implementation keeps it as one JSON file in a sync folder (any folder-sync tool can
// carry it to another machine). Writes change the in-memory dictionary at once and reach the
// file on `synchronize()`; changes made by another process or a sync tool arrive as an external
// change notification naming the keys that differ. Conflicts are last-writer-wins per key: a
// key set locally and not yet synchronised is kept over the file's value.
//
// Limits as a hosted store would enforce them: at most `kMaximumKeyCount` keys, keys of at most
// `kMaximumKeyBytes` bytes, and `kMaximumTotalBytes` for the whole dictionary; a write beyond a
// limit is refused with `quotaViolation` reported to the observers and the store unchanged.
//
// Context: every member may be called from any thread; observers are called without any lock
// held, on the thread that noticed the change (the caller of `synchronize`, or the watcher).

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "platform/async/observer_list.hpp"
#include "platform/key_value_store.hpp"
#include "platform/thread_annotations.hpp"

namespace ombrine {

enum class CloudStoreChangeReason {
  serverChange,       // another process or machine changed keys
  initialSyncChange,  // the first read after start found values
  quotaViolation,     // a write was refused for exceeding a limit
  accountChange,      // the sync folder was replaced wholesale
};

struct CloudStoreChange {
  CloudStoreChangeReason reason = CloudStoreChangeReason::serverChange;
  std::vector<std::string> changedKeys;
};

class CloudKeyValueStore : public KeyValueStore {
 public:
  static constexpr std::size_t kMaximumKeyCount = 1024;
  // Wider than a hosted store's 64 bytes: the per-device counters of provider changes
  // ("DataSourceChangeTracker.lastDataSourceChangeDate." + a device UUID) are 85 bytes long.
  static constexpr std::size_t kMaximumKeyBytes = 128;
  static constexpr std::size_t kMaximumTotalBytes = 1024 * 1024;

  using Observer = std::function<void(const CloudStoreChange&)>;

  // Writes local changes out and reads external ones in (notifying observers of the keys that
  // differ). Returns false when the sync folder could not be read or written; the in-memory
  // values stay as they were.
  virtual bool synchronize() = 0;

  // Registers an observer of external changes; it stays registered while the returned
  // subscription lives. Cancelling it waits for a call running on another thread
  // (platform/async/observer_list.hpp).
  [[nodiscard]] virtual Subscription observeExternalChanges(Observer observer) = 0;

  // Given the value the shared store holds for a key now (nothing: absent), the value it should
  // hold (nothing: remove the key). May raise; nothing is written then.
  using ValueChange = std::function<std::optional<StoreValue>(const std::optional<StoreValue>& stored)>;

  // One keyed read-merge-write: under the store's exclusive lock (held across processes), reads
  // the value of `key` as the shared store holds it at this moment, calls `change` on it once,
  // and writes the result out, with every pending local write, before returning; a result equal
  // to the stored value writes nothing. What other processes wrote meanwhile, under this key or
  // another, survives, so two processes never lose each other's changes; toward other machines
  // the key stays last-writer-wins. Returns the value now stored for `key`, which memory holds
  // too. Observers hear of the other keys that moved, as for `synchronize`.
  // `change` runs on the calling thread, with the lock held: it must not call into this store.
  // Raises what `change` raises, FileError when the store cannot be read or written, and
  // CloudStoreQuotaError when the result would break a limit; the store is then as it was.
  virtual std::optional<StoreValue> changeValue(std::string_view key, const ValueChange& change) = 0;
};

// A value was refused because it would break a limit of the cloud store.
class CloudStoreQuotaError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Why writing `value` (nothing: removing) under `key` would break a limit of the cloud store,
// or nothing when it would not. `values` is the dictionary before the write and `totalBytes`
// its size by `cloudStoreEntryBytes`.
std::optional<std::string> cloudStoreLimitViolation(const StoreDictionary& values, std::size_t totalBytes,
                                                    std::string_view key, const std::optional<StoreValue>& value);

// What one entry counts toward `kMaximumTotalBytes`: the key's bytes and the value's JSON text
// (platform/key_value_store_json.hpp).
std::size_t cloudStoreEntryBytes(std::string_view key, const StoreValue& value);

// The behaviour every cloud store shares, over a remote dictionary that a subclass provides
// (a file in a sync folder, or memory in tests).
//
// Memory holds the values; a local write changes memory at once and is remembered as pending
// until a `synchronize` has written it to the remote. `synchronize` (and `refresh`, which only
// reads) compares the remote with what this store last saw of it: keys that moved there and have
// no pending local write are applied to memory, and observers hear of those whose value in
// memory changed, as `serverChange`. A pending local write wins over the remote's value (last
// writer wins per key). When the remote turns out unreadable (the subclass has set the garbage
// aside), memory is written back whole, so nothing is lost and no key reads as removed.
//
// Thread-safe. Observers run without any lock held, on the thread of `synchronize`/`refresh`.
class SynchronizingCloudKeyValueStore : public CloudKeyValueStore {
 public:
  ~SynchronizingCloudKeyValueStore() override;

  std::optional<StoreValue> value(std::string_view key) const override;
  // Refused (memory unchanged, observers told `quotaViolation` naming the key, one log line)
  // when a limit would be broken.
  void setValue(std::string_view key, std::optional<StoreValue> value) override;
  StoreDictionary dictionaryRepresentation() const override;
  bool synchronize() override;
  [[nodiscard]] Subscription observeExternalChanges(Observer observer) override;
  std::optional<StoreValue> changeValue(std::string_view key, const ValueChange& change) override;

  // Reads external changes in without writing pending local ones out. Same result as
  // `synchronize`.
  bool refresh();

 protected:
  SynchronizingCloudKeyValueStore();

  // Given the remote's dictionary (null when it was unreadable and has been set aside), the
  // dictionary to write to the remote, or nothing to leave it as it is.
  using Merge = std::function<std::optional<StoreDictionary>(const StoreDictionary* remote)>;

  // Under the remote's exclusive lock: reads it, calls `merge` once, writes its result if any,
  // and returns what the remote holds afterwards (an unreadable remote that was not rewritten
  // holds nothing). Raises FileError when the remote cannot be read or written; it is then as it
  // was. Called by one thread at a time.
  virtual StoreDictionary exchange(const Merge& merge) = 0;

  // Reads the remote as the starting values; call once from the subclass's constructor, before
  // anything else can call in. A failure is logged and leaves the store empty, or with
  // `raiseFailure` is raised (FileError).
  void load(bool raiseFailure = false);

 private:
  struct PendingWrite {
    std::optional<StoreValue> value;
    std::uint64_t sequence = 0;
  };
  using PendingWrites = std::map<std::string, PendingWrite, std::less<>>;

  bool exchangeAndApply(bool writeOut);
  // Takes in what the remote holds after an exchange that sent `sent`: keys that moved there and
  // have no local write (nor are `own`) are applied to memory; returns them. Precondition:
  // mutex_ held.
  std::vector<std::string> applyRemote(StoreDictionary remote, const PendingWrites& sent,
                                       std::optional<std::string_view> own) REQUIRES(mutex_);
  // Precondition: mutex_ held.
  void assign(const std::string& key, const std::optional<StoreValue>& value) REQUIRES(mutex_);
  void notify(const CloudStoreChange& change);

  // Serialises exchanges (and so the remote's lock) within this process; never taken while
  // mutex_ is held.
  Mutex exchangeMutex_;
  mutable Mutex mutex_;
  StoreDictionary values_ GUARDED_BY(mutex_);
  std::map<std::string, std::size_t, std::less<>> entryBytes_ GUARDED_BY(mutex_);
  std::size_t totalBytes_ GUARDED_BY(mutex_) = 0;
  // The remote as last read or written.
  StoreDictionary baseline_ GUARDED_BY(mutex_);
  PendingWrites pending_ GUARDED_BY(mutex_);
  std::uint64_t nextSequence_ GUARDED_BY(mutex_) = 1;
  ObserverList<Observer> observers_;
};

}  // namespace ombrine
