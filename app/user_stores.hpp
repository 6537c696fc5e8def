#pragma once
// The key-value stores of one command run: the cloud store (no watcher: a command is short; a
// file it cannot read raises FileError, since a command can neither show nor change it),
// the standard and the shared defaults, each at its usual place (platform/linux). Opening them
// also runs the daily backup of the cloud store, as every launch does; its failure is logged.
// Destruction synchronises the cloud store, so nothing written is lost when the command ends.

#include <memory>

#include "platform/linux/file_cloud_key_value_store.hpp"
#include "platform/linux/file_key_value_store.hpp"

namespace ombrine::app {

struct UserStores {
  FileCloudKeyValueStore cloud{FileCloudKeyValueStore::defaultSyncDirectory(), false,
                               FileCloudKeyValueStore::Unreadable::raised};
  FileKeyValueStore standardDefaults{FileKeyValueStore::suiteFile(FileKeyValueStore::kStandardSuite)};
  FileKeyValueStore sharedDefaults{FileKeyValueStore::suiteFile(FileKeyValueStore::kSharedSuite)};

  UserStores();
  UserStores(const UserStores&) = delete;
  UserStores& operator=(const UserStores&) = delete;
  ~UserStores();
};

}  // namespace ombrine::app
