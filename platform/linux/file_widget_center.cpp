#include "platform/linux/file_widget_center.hpp"

#include <spawn.h>
#include <sys/wait.h>

#include <cstdlib>
#include <thread>

#include <fmt/format.h>
#include <cstring>

#include "platform/atomic_file.hpp"
#include "platform/log.hpp"
#include "platform/paths.hpp"

extern char** environ;

namespace ombrine {

std::filesystem::path FileWidgetCenter::defaultFolder() { return applicationSupportDirectory() / "WidgetCenter"; }

std::string FileWidgetCenter::hookFromEnvironment() {
  const char* hook = std::getenv("OMBRINE_WIDGET_RELOAD_HOOK");
  return hook ? hook : "";
}

FileWidgetCenter::FileWidgetCenter(Clock& clock, std::filesystem::path folder, std::string hook)
    : clock_(clock), folder_(std::move(folder)), hook_(std::move(hook)) {}

void FileWidgetCenter::reloadAllTimelines() {
  const auto now = clock_.now();
  const auto seconds = std::chrono::duration<double>(now.time_since_epoch()).count();
  const auto text = fmt::format("{:.3f}\n", seconds);
  try {
    std::filesystem::create_directories(folder_);
    writeFileAtomically(reloadFile(), text);
  } catch (const std::exception& error) {
    logf("Widget reload could not be recorded: {}", error.what());
  }
  if (hook_.empty()) return;
  const char* argv[] = {"/bin/sh", "-c", hook_.c_str(), nullptr};
  pid_t child = 0;
  const int spawned = ::posix_spawn(&child, "/bin/sh", nullptr, nullptr, const_cast<char* const*>(argv), environ);
  if (spawned != 0) {
    logf("Widget reload hook could not be started: {}", std::strerror(spawned));
    return;
  }
  // Reaped on a thread of its own, so a slow hook never holds the caller up.
  std::thread reaper([child] {
    int status = 0;
    if (::waitpid(child, &status, 0) == child && !(WIFEXITED(status) && WEXITSTATUS(status) == 0)) {
      logLine("Widget reload hook failed");
    }
  });
  reaper.detach();
}

}  // namespace ombrine
