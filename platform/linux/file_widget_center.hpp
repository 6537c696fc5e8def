#pragma once
// WidgetCenter for Linux: a reload request is a file and, optionally, a user's command.
//
// `reloadAllTimelines` replaces "<folder>/reloadAllTimelines" atomically with the request's time
// (seconds since 1970, one line), so widgets and scripts watching the
// folder see each request, and starts `hook` (run by /bin/sh, not waited for; its exit status is
// logged when it fails) when one is configured. Failures are logged, never raised.
//
// Thread-safe.

#include <filesystem>
#include <string>

#include "platform/clock.hpp"
#include "platform/widget_center.hpp"

namespace ombrine {

class FileWidgetCenter final : public WidgetCenter {
 public:
  // "<container>/Library/Application Support/WidgetCenter".
  static std::filesystem::path defaultFolder();
  // The hook from $OMBRINE_WIDGET_RELOAD_HOOK; empty when unset.
  static std::string hookFromEnvironment();

  FileWidgetCenter(Clock& clock, std::filesystem::path folder, std::string hook = {});
  void reloadAllTimelines() override;

  std::filesystem::path reloadFile() const { return folder_ / "reloadAllTimelines"; }

 private:
  Clock& clock_;
  std::filesystem::path folder_;
  std::string hook_;
};

}  // namespace ombrine
