#pragma once
// The file handling the two file-backed stores share: change detection, the companion lock
// file, and reading a dictionary file with corrupt ones kept aside.

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <optional>

#include "platform/key_value_store.hpp"

namespace ombrine::detail {

// What tells one version of a file from another without reading it. A replacement by rename
// changes the inode, an in-place rewrite the size or the nanosecond modification time.
struct FileSignature {
  bool exists = false;
  dev_t device = 0;
  ino_t inode = 0;
  off_t size = 0;
  std::int64_t modifiedNanoseconds = 0;
  bool operator==(const FileSignature&) const = default;
};

// Raises FileError when the attributes cannot be read for another reason than absence.
FileSignature fileSignature(const std::filesystem::path& file);

// "<file>.lock" beside the dictionary file: empty, never replaced or deleted, so the lock
// survives the atomic replacement of the file itself.
std::filesystem::path lockFilePath(const std::filesystem::path& file);

// An exclusive flock of the lock file of a dictionary file, held while the object lives (the
// kernel drops it if the process dies). Blocks until granted; creates the folder and the lock
// file when missing. Raises FileError.
class DictionaryFileLock {
 public:
  explicit DictionaryFileLock(const std::filesystem::path& file);
  DictionaryFileLock(const DictionaryFileLock&) = delete;
  DictionaryFileLock& operator=(const DictionaryFileLock&) = delete;
  ~DictionaryFileLock();

 private:
  int fd_ = -1;
};

struct DictionaryFile {
  // Nothing when the file held something that is not a dictionary (it is gone now, see below).
  std::optional<StoreDictionary> values;
  // The file as it was when read (absent after a set-aside).
  FileSignature signature;
};

// Reads and decodes a dictionary file (platform/key_value_store_json.hpp); a missing file is
// the empty dictionary. When the content does not decode and `setAsideCorrupt` is true, the
// file is renamed to "<name>.corrupt-<UTC modification time>" (never deleted) and a line is
// logged; precondition for that: the caller holds the file's DictionaryFileLock. Raises
// FileError when the file cannot be read or renamed.
DictionaryFile readDictionaryFile(const std::filesystem::path& file, bool setAsideCorrupt);

// Atomically replaces the file with the dictionary's JSON; returns the new signature. Temporary
// files that killed writers left beside it more than a minute ago go first
// (removeStaleTemporaryFiles). Precondition: the caller holds the file's DictionaryFileLock.
// Raises FileError.
FileSignature writeDictionaryFile(const std::filesystem::path& file, const StoreDictionary& values);

}  // namespace ombrine::detail
