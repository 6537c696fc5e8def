#include "app/progress_line.hpp"

#include <unistd.h>

#include <algorithm>
#include <iostream>
#include <string>

#include "app/terminal_text.hpp"

namespace ombrine::app {

ProgressLine::ProgressLine(bool wanted) : enabled_(wanted && ::isatty(STDERR_FILENO)) {}

ProgressLine::~ProgressLine() { wipe(); }

void ProgressLine::show(std::string_view text) {
  if (!enabled_) return;
  // Padded to what was there, so a shorter line leaves nothing of the longer one behind.
  std::cerr << "\r" << padRight(text, width_) << std::flush;
  width_ = std::max(width_, displayWidth(text));
}

void ProgressLine::wipe() {
  if (!enabled_ || width_ == 0) return;
  std::cerr << "\r" << std::string(width_, ' ') << "\r" << std::flush;
  width_ = 0;
}

}  // namespace ombrine::app
