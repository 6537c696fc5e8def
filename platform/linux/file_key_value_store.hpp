#pragma once
// The local defaults of one suite, as one JSON file shared by every process of the user.
//
// File "<container>/Library/Preferences/<suite>.json" (platform/paths.hpp for the container);
// its JSON form is that of platform/key_value_store_json.hpp, so every kind of value reads back
// as the kind it was written. A write is a read-merge-write of the one key under an exclusive
// flock of "<suite>.json.lock", followed by an atomic replacement, so two processes writing
// different keys never lose each other's change. Readers take no lock: every read compares the
// file's inode, size and modification time with those of the version in memory (one stat call)
// and reloads when they differ, so another process's write is seen without a restart.
//
// A file that does not decode is logged and kept aside as "<suite>.json.corrupt-<UTC time>"
// (never deleted); the suite then reads as empty and the next write starts a new file.
//
// Thread-safe; no callbacks.

#include <filesystem>
#include <mutex>
#include <string_view>

#include "platform/key_value_store.hpp"
#include "platform/linux/file_key_value_store_support.hpp"
#include "platform/thread_annotations.hpp"

namespace ombrine {

class FileKeyValueStore final : public KeyValueStore {
 public:
  // The application's own defaults (not shared with other programs of the group).
  static constexpr std::string_view kStandardSuite = "com.quillfernhollowarts.Weather";
  // The defaults shared by the application, its widgets and its background processes.
  static constexpr std::string_view kSharedSuite = "group.com.quillfernhollowarts.Weather";

  // "<container>/Library/Preferences/<suite>.json", read from the environment now.
  static std::filesystem::path suiteFile(std::string_view suite);

  // Reads the file now if it exists (a failure is logged; the suite reads as empty until the
  // file can be read).
  explicit FileKeyValueStore(std::filesystem::path file);

  const std::filesystem::path& file() const noexcept { return file_; }

  // A file that exists but cannot be read is logged and the last values read are returned.
  std::optional<StoreValue> value(std::string_view key) const override;
  // Raises FileError when the suite cannot be locked, read or written; the file is then as it
  // was. Writing the value already stored touches nothing.
  void setValue(std::string_view key, std::optional<StoreValue> value) override;
  StoreDictionary dictionaryRepresentation() const override;

 private:
  void reloadIfChanged() const;

  const std::filesystem::path file_;
  mutable Mutex mutex_;
  mutable StoreDictionary values_ GUARDED_BY(mutex_);
  mutable detail::FileSignature seen_ GUARDED_BY(mutex_);
};

}  // namespace ombrine
