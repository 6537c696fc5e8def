#pragma once
// The systemd user units that honour background requests without a running daemon: a oneshot
// service that runs one due pass, and a timer that starts it. The timer fires once per refresh
// interval after the service last ran (and at start-up, for a wake-up missed while the machine
// was off, with Persistent=true); a pass whose request is not yet due does nothing, so the timer
// may fire early but never makes a pass happen before its request allows.
//
// Context: plain functions; `install` and `uninstall` touch only the two unit files.

#include <chrono>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace ombrine {

struct SystemdUserUnits {
  static constexpr std::string_view kServiceName = "ombrine-refresh.service";
  static constexpr std::string_view kTimerName = "ombrine-refresh.timer";

  std::string service;
  std::string timer;
};

// The units for running `command` (the program and its arguments, each quoted as systemd needs)
// with `environment` set, every `interval` (rounded up to whole seconds).
SystemdUserUnits makeRefreshUnits(const std::vector<std::string>& command,
                                  const std::map<std::string, std::string>& environment, std::chrono::seconds interval);

// $XDG_CONFIG_HOME/systemd/user, else ~/.config/systemd/user.
std::filesystem::path systemdUserUnitFolder();

// Writes both files (atomically) into `folder`; returns their paths. Raises FileError.
std::vector<std::filesystem::path> installRefreshUnits(const SystemdUserUnits& units,
                                                       const std::filesystem::path& folder);
// Removes both files; returns the paths that were there. Raises FileError.
std::vector<std::filesystem::path> uninstallRefreshUnits(const std::filesystem::path& folder);

}  // namespace ombrine
