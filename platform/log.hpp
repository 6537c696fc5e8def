#pragma once
// Plain logging: one line per event on stderr, no levels.
//
// Thread-safe; a line is written with a single write(2) so lines from several threads or
// processes never interleave. Never pass a secret (token, key) into a log line.

#include <string_view>
#include <utility>

#include <fmt/format.h>

namespace ombrine {

void logLine(std::string_view message) noexcept;

// Diagnostic lines (each failed request with its address, and the like) are written only when
// the program was asked for them (`setDetailLogging(true)`, e.g. by -v); a command reports its
// outcome itself in one line. Off by default; thread-safe.
void setDetailLogging(bool enabled) noexcept;
bool detailLogging() noexcept;
void logDetailLine(std::string_view message) noexcept;

template <class... Args>
void logDetail(fmt::format_string<Args...> format, Args&&... args) noexcept {
  if (!detailLogging()) return;
  try {
    logDetailLine(fmt::format(format, std::forward<Args>(args)...));
  } catch (...) {
  }
}

template <class... Args>
void logf(fmt::format_string<Args...> format, Args&&... args) noexcept {
  try {
    logLine(fmt::format(format, std::forward<Args>(args)...));
  } catch (...) {
    logLine("(unformattable log message)");
  }
}

}  // namespace ombrine
