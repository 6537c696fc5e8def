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
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/key_value_store.hpp"

namespace ombrine {

enum class CloudStoreChangeReason {
  serverChange,          // another process or machine changed keys
  initialSyncChange,     // the first read after start found values
  quotaViolation,        // a write was refused for exceeding a limit
  accountChange,         // the sync folder was replaced wholesale
};

struct CloudStoreChange {
  CloudStoreChangeReason reason = CloudStoreChangeReason::serverChange;
  std::vector<std::string> changedKeys;
};

class CloudKeyValueStore : public KeyValueStore {
 public:
  static constexpr std::size_t kMaximumKeyCount = 1024;
  static constexpr std::size_t kMaximumKeyBytes = 64;
  static constexpr std::size_t kMaximumTotalBytes = 1024 * 1024;

  using Observer = std::function<void(const CloudStoreChange&)>;

  // Writes local changes out and reads external ones in (notifying observers of the keys that
  // differ). Returns false when the sync folder could not be read or written; the in-memory
  // values stay as they were.
  virtual bool synchronize() = 0;

  // Registers an observer of external changes; it stays registered while the returned token
  // lives. Dropping the token unregisters it (blocking until a running call has returned).
  virtual std::shared_ptr<void> observeExternalChanges(Observer observer) = 0;
};

}  // namespace ombrine
