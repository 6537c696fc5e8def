#pragma once
// Whole-file reads and crash-safe replacement.

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
void writeFileAtomically(const std::filesystem::path& path, std::string_view bytes,
                         unsigned mode = 0644);

// Reads the whole file; nothing when it does not exist. Raises FileError on any other failure.
std::optional<std::string> readFileIfExists(const std::filesystem::path& path);

}  // namespace ombrine
