#include "platform/http_server.hpp"

#include <algorithm>
#include <cctype>

namespace ombrine {

namespace {

bool sameLetters(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
    return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y));
  });
}

}  // namespace

std::optional<std::string> HttpServerRequest::header(std::string_view name) const {
  for (const auto& [key, value] : headers) {
    if (sameLetters(key, name)) return value;
  }
  return std::nullopt;
}

std::optional<std::string> HttpServerRequest::queryItem(std::string_view name) const {
  for (const auto& [key, value] : query) {
    if (key == name) return value;
  }
  return std::nullopt;
}

}  // namespace ombrine
