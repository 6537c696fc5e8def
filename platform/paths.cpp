#include "platform/paths.hpp"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>

namespace ombrine {

namespace {

std::filesystem::path homeDirectory() {
  if (const char* home = std::getenv("HOME"); home && *home) return home;
  if (const passwd* pw = ::getpwuid(::getuid()); pw && pw->pw_dir) return pw->pw_dir;
  return "/";
}

std::filesystem::path fromEnvironment(const char* name, const std::filesystem::path& fallback) {
  const char* value = std::getenv(name);
  // XDG says relative values are invalid and must be ignored.
  if (value && *value == '/') return value;
  return fallback;
}

}  // namespace

std::filesystem::path containerDirectory() {
  if (const char* container = std::getenv("OMBRINE_CONTAINER"); container && *container) {
    return std::filesystem::absolute(container);
  }
  return fromEnvironment("XDG_DATA_HOME", homeDirectory() / ".local/share") / "ombrine" / "group";
}

std::filesystem::path cachesDirectory() { return containerDirectory() / "Library" / "Caches"; }

std::filesystem::path applicationSupportDirectory() { return containerDirectory() / "Library" / "Application Support"; }

std::filesystem::path configDirectory() {
  return fromEnvironment("XDG_CONFIG_HOME", homeDirectory() / ".config") / "ombrine";
}

ResourceLocation locateResources() {
  if (const char* dir = std::getenv("OMBRINE_RESOURCE_DIR"); dir && *dir) return {dir, "OMBRINE_RESOURCE_DIR"};
  const auto holdsResources = [](const std::filesystem::path& folder) {
    std::error_code ec;
    return !folder.empty() && std::filesystem::is_directory(folder / "icu-tzdata", ec);
  };
  std::error_code ec;
  // The program's own file, symbolic links resolved: bin/ombrine -> bin/../share/ombrine.
  const auto program = std::filesystem::read_symlink("/proc/self/exe", ec);
  if (!ec) {
    auto beside = (program.parent_path().parent_path() / "share" / "ombrine").lexically_normal();
    if (holdsResources(beside)) return {beside, "beside the program"};
  }
  const std::filesystem::path installed = OMBRINE_INSTALLED_RESOURCE_DIR;
  if (holdsResources(installed)) return {installed, "install prefix"};
  return {OMBRINE_SOURCE_RESOURCE_DIR, "source tree"};
}

std::filesystem::path resourceDirectory() { return locateResources().directory; }

}  // namespace ombrine
