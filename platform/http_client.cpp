#include "platform/http_client.hpp"

#include <algorithm>

namespace ombrine {

namespace {

const char* describe(HttpError::Case which) {
  switch (which) {
    case HttpError::timedOut: return "The request timed out.";
    case HttpError::cannotConnect: return "Could not connect to the server.";
    case HttpError::truncated: return "The connection closed before the whole response arrived.";
    case HttpError::tooManyRedirects: return "Too many HTTP redirects.";
    case HttpError::other: break;
  }
  return "The HTTP request failed.";
}

std::string message(HttpError::Case which, const std::string& detail) {
  std::string text = describe(which);
  if (!detail.empty()) text += " (" + detail + ")";
  return text;
}

char lowerAscii(char c) noexcept { return c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c; }

}  // namespace

bool equalsIgnoringCase(std::string_view a, std::string_view b) noexcept {
  return std::ranges::equal(a, b, [](char x, char y) { return lowerAscii(x) == lowerAscii(y); });
}

std::optional<std::string> HttpResponse::header(std::string_view name) const {
  auto found =
      std::ranges::find_if(headers, [&](const HttpHeader& header) { return equalsIgnoringCase(header.name, name); });
  if (found == headers.end()) return std::nullopt;
  return found->value;
}

HttpError::HttpError(Case which, const std::string& detail)
    : std::runtime_error(message(which, detail)), which_(which) {}

}  // namespace ombrine
