#include "sim/sim_route.hpp"

#include <algorithm>
#include <cctype>

namespace ombrine::sim {

std::optional<std::string_view> SimRequest::param(std::string_view name) const {
  for (const auto& [key, value] : query) {
    if (key == name) return std::string_view(value);
  }
  return std::nullopt;
}

const SimRoute* matchRoute(const std::vector<SimRoute>& routes, const std::string& path,
                           std::vector<std::string>& captures) {
  for (const auto& route : routes) {
    std::smatch match;
    if (std::regex_match(path, match, route.pattern)) {
      captures.clear();
      for (std::size_t i = 1; i < match.size(); ++i) captures.push_back(match[i].str());
      return &route;
    }
  }
  return nullptr;
}

namespace {

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

std::string percentDecode(std::string_view text, bool plusIsSpace) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (plusIsSpace && text[i] == '+') {
      out += ' ';
    } else if (text[i] == '%' && i + 2 < text.size() && hexValue(text[i + 1]) >= 0 && hexValue(text[i + 2]) >= 0) {
      out += static_cast<char>(hexValue(text[i + 1]) * 16 + hexValue(text[i + 2]));
      i += 2;
    } else {
      out += text[i];
    }
  }
  return out;
}

std::optional<std::string_view> SimRequest::header(std::string_view name) const {
  for (const auto& [key, value] : headers) {
    if (key.size() == name.size() && std::equal(key.begin(), key.end(), name.begin(),
                                                [](char a, char b) { return std::tolower(a) == std::tolower(b); })) {
      return value;
    }
  }
  return std::nullopt;
}

SimRequest requestFor(std::string_view target, Instant now) {
  const std::size_t question = target.find('?');
  SimRequest request;
  request.path = percentDecode(target.substr(0, question), false);
  if (question != std::string_view::npos) request.query = parseQuery(target.substr(question + 1));
  request.now = now;
  return request;
}

std::vector<std::pair<std::string, std::string>> parseQuery(std::string_view query) {
  std::vector<std::pair<std::string, std::string>> items;
  std::size_t start = 0;
  while (start < query.size()) {
    std::size_t end = query.find('&', start);
    if (end == std::string_view::npos) end = query.size();
    const std::string_view item = query.substr(start, end - start);
    start = end + 1;
    if (item.empty()) continue;
    const std::size_t equals = item.find('=');
    if (equals == std::string_view::npos) {
      items.emplace_back(percentDecode(item, true), std::string());
    } else {
      items.emplace_back(percentDecode(item.substr(0, equals), true), percentDecode(item.substr(equals + 1), true));
    }
  }
  return items;
}

}  // namespace ombrine::sim
