#include "platform/linux/systemd_user_units.hpp"

#include <cstdlib>

#include <fmt/format.h>

#include "platform/atomic_file.hpp"
#include "platform/errors.hpp"

namespace ombrine {

namespace {

// A word of an ExecStart= line (`command`: the variable sign escaped too) or an Environment=
// line: double-quoted, with backslash, quote and the specifier sign escaped.
std::string unitWord(std::string_view word, bool command) {
  std::string out = "\"";
  for (const char c : word) {
    if (c == '\\' || c == '"') out += '\\';
    if (c == '%') {
      out += "%%";
      continue;
    }
    if (c == '$' && command) {
      out += "$$";
      continue;
    }
    out += c;
  }
  return out + "\"";
}

}  // namespace

SystemdUserUnits makeRefreshUnits(const std::vector<std::string>& command,
                                  const std::map<std::string, std::string>& environment,
                                  std::chrono::seconds interval) {
  SystemdUserUnits units;
  std::string exec;
  for (const auto& word : command) exec += (exec.empty() ? "" : " ") + unitWord(word, true);
  std::string env;
  for (const auto& [name, value] : environment) env += "Environment=" + unitWord(name + "=" + value, false) + "\n";
  units.service = fmt::format(
      "[Unit]\n"
      "Description=Ombrine background weather refresh (one pass when its request is due)\n"
      "After=network-online.target\n"
      "\n"
      "[Service]\n"
      "Type=oneshot\n"
      "ExecStart={}\n"
      "{}"
      "Nice=10\n",
      exec, env);
  const long seconds = std::max<long>(1, static_cast<long>(interval.count()));
  units.timer = fmt::format(
      "[Unit]\n"
      "Description=Ombrine background weather refresh, about every {}s\n"
      "\n"
      "[Timer]\n"
      "OnStartupSec=1min\n"
      "OnUnitActiveSec={}s\n"
      "Persistent=true\n"
      "AccuracySec=1min\n"
      "Unit={}\n"
      "\n"
      "[Install]\n"
      "WantedBy=timers.target\n",
      seconds, seconds, SystemdUserUnits::kServiceName);
  return units;
}

std::filesystem::path systemdUserUnitFolder() {
  if (const char* config = std::getenv("XDG_CONFIG_HOME"); config && *config) {
    return std::filesystem::path(config) / "systemd" / "user";
  }
  const char* home = std::getenv("HOME");
  return std::filesystem::path(home ? home : "/") / ".config" / "systemd" / "user";
}

std::vector<std::filesystem::path> installRefreshUnits(const SystemdUserUnits& units,
                                                       const std::filesystem::path& folder) {
  const auto service = folder / SystemdUserUnits::kServiceName;
  const auto timer = folder / SystemdUserUnits::kTimerName;
  writeFileAtomically(service, units.service);
  writeFileAtomically(timer, units.timer);
  return {service, timer};
}

std::vector<std::filesystem::path> uninstallRefreshUnits(const std::filesystem::path& folder) {
  std::vector<std::filesystem::path> removed;
  for (const auto name : {SystemdUserUnits::kTimerName, SystemdUserUnits::kServiceName}) {
    const auto path = folder / name;
    std::error_code error;
    if (std::filesystem::remove(path, error)) removed.push_back(path);
    if (error) throw FileError("cannot remove " + path.string() + ": " + error.message());
  }
  return removed;
}

}  // namespace ombrine
