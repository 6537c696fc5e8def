#include "platform/linux/network_path.hpp"

#include <cstdlib>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>

namespace ombrine {

namespace {

// Some table lists a default route; nothing when no table could be read.
std::optional<bool> defaultRouteListed() {
  bool readAny = false;
  {
    std::ifstream table("/proc/net/route");
    std::string line;
    if (table && std::getline(table, line)) {  // header
      readAny = true;
      while (std::getline(table, line)) {
        std::istringstream fields(line);
        std::string interface, destination;
        fields >> interface >> destination;
        if (destination == "00000000" && interface != "lo") return true;
      }
    }
  }
  std::ifstream table6("/proc/net/ipv6_route");
  std::string line;
  if (table6) readAny = true;
  while (std::getline(table6, line)) {
    std::istringstream fields(line);
    std::string destination, prefixLength, ignored, interface;
    fields >> destination >> prefixLength;
    for (int i = 0; i < 7; ++i) fields >> ignored;
    fields >> interface;
    if (destination == std::string(32, '0') && prefixLength == "00" && interface != "lo") return true;
  }
  if (!readAny) return std::nullopt;
  return false;
}

}  // namespace

bool networkPathSatisfied() {
  if (const char* file = std::getenv("OMBRINE_NETWORK_PATH_FILE"); file && *file) {
    std::ifstream in(file);
    std::string word;
    in >> word;
    return word == "satisfied";
  }
  return defaultRouteListed().value_or(true);
}

}  // namespace ombrine
