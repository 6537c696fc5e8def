#pragma once
// Where the program keeps its files.
//
// All functions read the environment at the moment of the call; they create nothing.

#include <filesystem>

namespace ombrine {

// The shared application-group container: $OMBRINE_CONTAINER, else
// $XDG_DATA_HOME/ombrine/group, else ~/.local/share/ombrine/group.
std::filesystem::path containerDirectory();

// "Library/Caches" inside the container: the shared caches.
std::filesystem::path cachesDirectory();

// "Library/Application Support" inside the container.
std::filesystem::path applicationSupportDirectory();

// The user's configuration folder: $XDG_CONFIG_HOME/ombrine, else ~/.config/ombrine.
std::filesystem::path configDirectory();

// The read-only resources (time-zone data, coastline files, place index):
// $OMBRINE_RESOURCE_DIR, else the installed folder, else the source tree's resources/.
std::filesystem::path resourceDirectory();

}  // namespace ombrine
