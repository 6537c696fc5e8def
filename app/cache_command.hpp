#pragma once
#include <CLI/CLI.hpp>

namespace ombrine::app {

// `ombrine cache show|path|clear [--json]`: what the weather caches hold (the shared latest
// weather and saved places' weather, the per-process place names and history), where their files
// are, and removing them (the latest-weather file under its coordination lock, so a concurrent
// writer in another process is never interleaved with).
void addCacheCommand(CLI::App& app);

}  // namespace ombrine::app
