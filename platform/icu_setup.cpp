#include "platform/icu_setup.hpp"

#include <unicode/putil.h>
#include <unicode/timezone.h>

#include <cstdlib>
#include <mutex>

#include "platform/paths.hpp"

namespace ombrine {

void useShippedTimeZoneData() {
  static std::once_flag once;
  std::call_once(once, [] {
    // A user-set directory wins, so a newer release can be dropped in without a rebuild.
    if (const char* dir = std::getenv("ICU_TIMEZONE_FILES_DIR"); dir && *dir) return;
    std::string dir = (resourceDirectory() / "icu-tzdata").string();
    ::setenv("ICU_TIMEZONE_FILES_DIR", dir.c_str(), 0);
    UErrorCode status = U_ZERO_ERROR;
    u_setTimeZoneFilesDirectory(dir.c_str(), &status);
  });
}

std::string timeZoneDataVersion() {
  UErrorCode status = U_ZERO_ERROR;
  const char* version = icu::TimeZone::getTZDataVersion(status);
  return U_SUCCESS(status) && version ? version : "unknown";
}

}  // namespace ombrine
