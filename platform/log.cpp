#include "platform/log.hpp"

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <string>

namespace ombrine {

void logLine(std::string_view message) noexcept {
  try {
    std::string line(message);
    line.push_back('\n');
    const char* data = line.data();
    size_t left = line.size();
    while (left > 0) {
      ssize_t n = ::write(STDERR_FILENO, data, left);
      if (n < 0) {
        if (errno == EINTR) continue;
        return;
      }
      data += n;
      left -= static_cast<size_t>(n);
    }
  } catch (...) {
  }
}

namespace {
std::atomic<bool> detailsWanted{false};
}

void setDetailLogging(bool enabled) noexcept { detailsWanted.store(enabled); }
bool detailLogging() noexcept { return detailsWanted.load(); }
void logDetailLine(std::string_view message) noexcept {
  if (detailLogging()) logLine(message);
}

}  // namespace ombrine
