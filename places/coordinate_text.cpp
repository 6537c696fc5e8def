#include "places/coordinate_text.hpp"

#include <fmt/format.h>

#include <charconv>
#include <cmath>
#include <optional>
#include <string>
#include <vector>

#include "core/fetch/geocoder.hpp"

namespace ombrine {

namespace {

bool isSpace(char c) noexcept { return c == ' ' || c == '\t'; }
bool isDigit(char c) noexcept { return c >= '0' && c <= '9'; }

// A decimal number as people type it: optional sign, digits with an optional fraction, or a
// fraction alone (".5"). No exponents, no "inf" or "nan".
std::optional<double> readNumber(std::string_view text) noexcept {
  std::size_t i = 0;
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) ++i;
  std::size_t digits = 0;
  while (i < text.size() && isDigit(text[i])) ++i, ++digits;
  if (i < text.size() && text[i] == '.') {
    ++i;
    while (i < text.size() && isDigit(text[i])) ++i, ++digits;
  }
  if (digits == 0 || i != text.size()) return std::nullopt;
  // from_chars takes no leading "+".
  const std::string_view unsigned_ = text[0] == '+' ? text.substr(1) : text;
  double value = 0;
  const auto [end, error] = std::from_chars(unsigned_.data(), unsigned_.data() + unsigned_.size(), value);
  if (error != std::errc() || end != unsigned_.data() + unsigned_.size()) return std::nullopt;
  return value;
}

std::string_view trim(std::string_view text) noexcept {
  while (!text.empty() && isSpace(text.front())) text.remove_prefix(1);
  while (!text.empty() && isSpace(text.back())) text.remove_suffix(1);
  return text;
}

// Splits "a,b", "a, b" or "a b" into its two parts; nothing when there are not exactly two.
std::optional<std::pair<std::string_view, std::string_view>> splitPair(std::string_view text) noexcept {
  text = trim(text);
  std::size_t separator = text.find(',');
  if (separator == std::string_view::npos) {
    separator = text.find_first_of(" \t");
    if (separator == std::string_view::npos) return std::nullopt;
  }
  const std::string_view first = trim(text.substr(0, separator));
  const std::string_view second = trim(text.substr(separator + 1));
  if (first.empty() || second.empty() || second.find_first_of(", \t") != std::string_view::npos) return std::nullopt;
  return std::pair{first, second};
}

}  // namespace

bool looksLikeCoordinate(std::string_view text) noexcept {
  bool digit = false;
  for (const char c : text) {
    if (isDigit(c)) {
      digit = true;
    } else if (c != '+' && c != '-' && c != '.' && c != ',' && !isSpace(c)) {
      return false;
    }
  }
  return digit;
}

Location parseCoordinate(std::string_view text) {
  const auto parts = splitPair(text);
  const std::optional<double> latitude = parts ? readNumber(parts->first) : std::nullopt;
  const std::optional<double> longitude = parts ? readNumber(parts->second) : std::nullopt;
  if (!latitude || !longitude) {
    throw InvalidPlaceQuery("\"" + std::string(text) +
                            "\" is not a coordinate: write latitude,longitude in decimal degrees, "
                            "e.g. \"48.14,11.58\"");
  }
  std::vector<std::string> problems;
  if (!(*latitude >= -90 && *latitude <= 90)) {
    problems.push_back("latitude " + std::string(parts->first) + " is outside -90 to 90");
  }
  if (!(*longitude >= -180 && *longitude <= 180)) {
    problems.push_back("longitude " + std::string(parts->second) + " is outside -180 to 180");
  }
  if (!problems.empty()) {
    std::string message = "\"" + std::string(text) + "\" is not a coordinate: " + problems[0];
    if (problems.size() > 1) message += " and " + problems[1];
    throw InvalidPlaceQuery(message);
  }
  return Location(*latitude, *longitude);
}

void checkCoordinate(double latitude, double longitude) {
  if (!(latitude >= -90 && latitude <= 90 && longitude >= -180 && longitude <= 180)) {
    throw InvalidPlaceQuery(
        fmt::format("({}, {}) is not a coordinate: latitude must lie within -90 to 90 "
                    "and longitude within -180 to 180",
                    latitude, longitude));
  }
}

std::string coordinateName(double latitude, double longitude) {
  // The hemisphere follows the rounded value, so that -0.001 reads "0.00°N", not "0.00°S".
  auto part = [](double value, const char* positive, const char* negative) {
    const double rounded = std::round(value * 100) / 100;
    return fmt::format("{:.2f}°{}", std::abs(rounded), rounded < 0 ? negative : positive);
  };
  return part(latitude, "N", "S") + " " + part(longitude, "E", "W");
}

}  // namespace ombrine
