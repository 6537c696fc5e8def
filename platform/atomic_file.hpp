#pragma once
// Whole-file reads and crash-safe replacement.

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace ombrine {

// Replaces `path` with `bytes` so that every reader, in this or another process, sees either the
// old content or the new one, never a mix, even if this process is killed mid-write or the
// machine loses power after the call returns.
//
// Writes a temporary file in the same folder, fsyncs it, renames it over `path` and fsyncs the
// folder. Creates missing parent folders. New files get mode `mode` (before the umask).
// Raises FileError (with the path and the system error) on failure; the old file is then intact
// and no temporary file is left behind.
//
// `Durability::processCrash` skips both fsyncs: readers still never see a mix and a killed
// process leaves the old or the new file, but a power loss may leave the file empty or missing.
// For caches whose loss only costs a later miss, where a sync would sit on a user's wait.
enum class Durability { powerLoss, processCrash };
void writeFileAtomically(const std::filesystem::path& path, std::string_view bytes, unsigned mode = 0644,
                         Durability durability = Durability::powerLoss);

// The temporary files that writeFileAtomically leaves beside `path` when its process is killed
// between creating and renaming one (".<name>.XXXXXX", six random characters): removes those
// whose modification date lies `minimumAge` or more before `now` (file-system time, the clock
// modification dates come from) and that no live writer holds. A writer holds an exclusive
// `flock` on its temporary file for as long as the file carries the temporary name, so a file
// that can be locked without waiting belongs to nobody. Returns how many were removed. Never
// raises: a folder that cannot be listed, or a file that cannot be examined or removed, is left
// alone, since cleaning up must never fail the write that triggered it.
std::size_t removeStaleTemporaryFiles(const std::filesystem::path& path, std::filesystem::file_time_type now,
                                      std::chrono::seconds minimumAge = std::chrono::minutes(1));

// Reads the whole file; nothing when it does not exist. Raises FileError on any other failure.
std::optional<std::string> readFileIfExists(const std::filesystem::path& path);

}  // namespace ombrine
