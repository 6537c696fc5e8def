#pragma once
// The cloud key-value store as one JSON file in a sync folder.
//
// File "<sync folder>/ubiquitous-key-value-store.json" in the JSON form of
// platform/key_value_store_json.hpp. The sync folder is $OMBRINE_SYNC_DIR, else
// "<container>/Library/Synced Preferences"; point it at a folder that a sync tool carries to
// the user's other machines. Writes live in memory until `synchronize()`, which merges them into
// the file under an exclusive flock of "<file>.lock" and replaces it atomically; keys changed in
// the file meanwhile (another process, a sync tool) are read in and reported to observers
// (semantics of SynchronizingCloudKeyValueStore in platform/cloud_key_value_store.hpp).
//
// With watching on, a thread of the store's own follows the folder with inotify and reads the
// file in whenever it is replaced or rewritten, so observers hear of external changes within
// milliseconds, on that thread. A file that does not decode is logged, kept aside as
// "<file>.corrupt-<UTC time>", and rewritten from memory.

#include <filesystem>
#include <string_view>
#include <thread>

#include "platform/cloud_key_value_store.hpp"

namespace ombrine {

class FileCloudKeyValueStore final : public SynchronizingCloudKeyValueStore {
 public:
  static constexpr std::string_view kFileName = "ubiquitous-key-value-store.json";

  // $OMBRINE_SYNC_DIR (when absolute), else "<container>/Library/Synced Preferences".
  static std::filesystem::path defaultSyncDirectory();

  // How a file that cannot be read at opening is met: logged, with the store starting empty (a
  // long-lived process goes on and retries at each synchronize), or raised (a one-shot command,
  // which can neither show nor change what it cannot read, and reports it in one line).
  enum class Unreadable { logged, raised };

  // Creates the folder when missing and reads the file. Raises FileError when the folder cannot
  // be created or, with `watchForChanges`, not be watched, and with `Unreadable::raised` when the
  // file cannot be read.
  explicit FileCloudKeyValueStore(std::filesystem::path syncDirectory, bool watchForChanges = true,
                                  Unreadable unreadable = Unreadable::logged);
  // Stops the watcher (waiting for a notification in progress). Pending writes not yet
  // synchronised are dropped, as on the platform; call `synchronize()` first to keep them.
  ~FileCloudKeyValueStore() override;

  const std::filesystem::path& file() const noexcept { return file_; }

 protected:
  StoreDictionary exchange(const Merge& merge) override;

 private:
  void watch();

  const std::filesystem::path file_;
  int inotify_ = -1;
  int wake_ = -1;
  std::thread watcher_;
};

}  // namespace ombrine
