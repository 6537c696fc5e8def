#include "persistence/coordinate_file_cache.hpp"

#include <boost/json.hpp>

#include <cctype>
#include <charconv>
#include <system_error>

namespace ombrine {

namespace {

std::string shortestText(double value) {
  char buffer[64];
  const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
  return std::string(buffer, result.ptr);
}

}  // namespace

std::string coordinateFileName(double latitude, double longitude) {
  return shortestText(latitude) + "_" + shortestText(longitude) + ".data";
}

std::vector<std::string_view> fileNamePieces(std::string_view stem) {
  std::vector<std::string_view> pieces;
  while (!stem.empty()) {
    const auto cut = stem.find('_');
    const std::string_view piece = stem.substr(0, cut);
    if (!piece.empty()) pieces.push_back(piece);
    if (cut == std::string_view::npos) break;
    stem.remove_prefix(cut + 1);
  }
  return pieces;
}

std::optional<double> numberOfPiece(std::string_view piece) {
  double value = 0.0;
  const auto result = std::from_chars(piece.data(), piece.data() + piece.size(), value);
  if (piece.empty() || result.ec != std::errc() || result.ptr != piece.data() + piece.size()) return std::nullopt;
  return value;
}

std::string camelCaseOfSnakeCase(std::string_view key) {
  const auto first = key.find_first_not_of('_');
  if (first == std::string_view::npos) return std::string(key);
  const auto last = key.find_last_not_of('_');
  const std::string_view body = key.substr(first, last - first + 1);
  const std::vector<std::string_view> words = fileNamePieces(body);
  if (words.size() <= 1) return std::string(key);
  std::string converted(key.substr(0, first));
  for (std::size_t i = 0; i < words.size(); ++i) {
    for (std::size_t j = 0; j < words[i].size(); ++j) {
      const auto c = static_cast<unsigned char>(words[i][j]);
      converted += static_cast<char>(i > 0 && j == 0 ? std::toupper(c) : std::tolower(c));
    }
  }
  converted += key.substr(last + 1);
  return converted;
}

boost::json::value withKeysFromSnakeCase(const boost::json::value& value) {
  if (const auto* object = value.if_object()) {
    boost::json::object converted;
    for (const auto& [key, member] : *object) converted[camelCaseOfSnakeCase(key)] = withKeysFromSnakeCase(member);
    return converted;
  }
  if (const auto* array = value.if_array()) {
    boost::json::array converted;
    converted.reserve(array->size());
    for (const auto& element : *array) converted.push_back(withKeysFromSnakeCase(element));
    return converted;
  }
  return value;
}

}  // namespace ombrine
