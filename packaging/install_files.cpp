#include "packaging/install_files.hpp"

#include "background/background_refresh.hpp"
#include "packaging/build_info.hpp"
#include "packaging/command_docs.hpp"
#include "platform/linux/systemd_user_units.hpp"

namespace ombrine::packaging {

void writeInstallFiles(const CLI::App& program, const std::filesystem::path& folder) {
  writeCommandDocs(program, std::string(version()), folder);
  // No environment: an installed unit uses the user's own.
  const auto units = makeRefreshUnits({"@OMBRINE_PROGRAM@", "daemon", "--once"}, {},
                                      std::chrono::minutes(BackgroundRefresh::kRefreshDelayMinutes));
  const auto unitFolder = folder / "systemd";
  std::filesystem::create_directories(unitFolder);
  installRefreshUnits(units, unitFolder);
}

}  // namespace ombrine::packaging
