#pragma once
// Where the program keeps its files.
//
// All functions read the environment at the moment of the call; they create nothing.

#include <filesystem>
#include <string_view>

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

// Where the read-only resources (time-zone data, coastline files, place index, web page) were
// found, and by which rule: "OMBRINE_RESOURCE_DIR"; "beside the program" (../share/ombrine from
// the running program, so an installed tree works wherever it is moved); "install prefix" (the
// folder the build was configured to install into); "source tree" (a run from the build tree).
// The first rule that names a folder holding icu-tzdata/ wins, except that the environment
// variable is taken as it is.
struct ResourceLocation {
  std::filesystem::path directory;
  std::string_view origin;
};
ResourceLocation locateResources();

// locateResources().directory.
std::filesystem::path resourceDirectory();

}  // namespace ombrine
