#pragma once
#include <CLI/CLI.hpp>

namespace ombrine::app {

// `ombrine cache show|path|clear [--json]`: what the shared weather cache holds, where the cache
// files are, and removing them (the latest-weather file under its coordination lock, so a
// concurrent writer in another process is never interleaved with).
void addCacheCommand(CLI::App& app);

}  // namespace ombrine::app
