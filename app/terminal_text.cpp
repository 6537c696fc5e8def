#include "app/terminal_text.hpp"

#include <unicode/uchar.h>

#include <algorithm>
#include <cstdint>

namespace ombrine::app {

namespace {

constexpr char32_t kReplacement = 0xFFFD;
constexpr std::size_t kMaxEchoedCharacters = 60;

// Decodes the code point at `at` and advances past it; malformed or overlong sequences and
// surrogates read as one U+FFFD per byte.
char32_t nextCodePoint(std::string_view text, std::size_t& at) {
  const auto byte = [&](std::size_t i) { return static_cast<std::uint8_t>(text[i]); };
  const std::uint8_t lead = byte(at);
  std::size_t length = 0;
  char32_t value = 0;
  char32_t minimum = 0;
  if (lead < 0x80) {
    ++at;
    return lead;
  } else if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2, value = lead & 0x1F, minimum = 0x80;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3, value = lead & 0x0F, minimum = 0x800;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4, value = lead & 0x07, minimum = 0x10000;
  }
  if (length == 0 || at + length > text.size()) {
    ++at;
    return kReplacement;
  }
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(at + i) & 0xC0) != 0x80) {
      ++at;
      return kReplacement;
    }
    value = value << 6 | (byte(at + i) & 0x3F);
  }
  if (value < minimum || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF)) {
    ++at;
    return kReplacement;
  }
  at += length;
  return value;
}

bool unsafe(char32_t c) {
  return c < 0x20 || (c >= 0x7F && c <= 0x9F) || c == 0x061C || c == 0x200E || c == 0x200F ||
         (c >= 0x202A && c <= 0x202E) || (c >= 0x2066 && c <= 0x2069);
}

void append(std::string& out, char32_t c) {
  if (c < 0x80) {
    out += static_cast<char>(c);
  } else if (c < 0x800) {
    out += static_cast<char>(0xC0 | c >> 6);
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    out += static_cast<char>(0xE0 | c >> 12);
    out += static_cast<char>(0x80 | (c >> 6 & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | c >> 18);
    out += static_cast<char>(0x80 | (c >> 12 & 0x3F));
    out += static_cast<char>(0x80 | (c >> 6 & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  }
}

std::size_t widthOf(char32_t c) {
  const auto u = static_cast<UChar32>(c);
  if (c == 0x200B || c == 0x200D || (c >= 0xFE00 && c <= 0xFE0F)) return 0;  // zero width, joiners, selectors
  const auto category = u_charType(u);
  if (category == U_NON_SPACING_MARK || category == U_ENCLOSING_MARK || category == U_FORMAT_CHAR) return 0;
  const auto eastAsian = u_getIntPropertyValue(u, UCHAR_EAST_ASIAN_WIDTH);
  if (eastAsian == U_EA_WIDE || eastAsian == U_EA_FULLWIDTH) return 2;
  if (u_hasBinaryProperty(u, UCHAR_EMOJI_PRESENTATION)) return 2;
  return 1;
}

}  // namespace

std::string neutralised(std::string_view text, std::size_t maxCharacters) {
  std::string out;
  out.reserve(std::min(text.size(), maxCharacters == std::string_view::npos ? text.size() : maxCharacters * 4));
  std::size_t characters = 0;
  for (std::size_t at = 0; at < text.size();) {
    if (characters == maxCharacters) {
      out += "…";
      break;
    }
    const char32_t c = nextCodePoint(text, at);
    append(out, unsafe(c) ? kReplacement : c);
    ++characters;
  }
  return out;
}

std::string quotedInput(std::string_view text) { return "\"" + neutralised(text, kMaxEchoedCharacters) + "\""; }

std::size_t displayWidth(std::string_view text) {
  std::size_t width = 0;
  for (std::size_t at = 0; at < text.size();) width += widthOf(nextCodePoint(text, at));
  return width;
}

std::string cutToWidth(std::string_view text, std::size_t columns) {
  if (displayWidth(text) <= columns) return std::string(text);
  if (columns == 0) return std::string();
  std::string out;
  std::size_t used = 0;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t start = at;
    const std::size_t width = widthOf(nextCodePoint(text, at));
    if (used + width > columns - 1) break;
    out.append(text.substr(start, at - start));
    used += width;
  }
  return out + "…";
}

std::string padRight(std::string_view text, std::size_t columns) {
  const std::size_t width = displayWidth(text);
  return std::string(text) + std::string(width < columns ? columns - width : 0, ' ');
}

std::string padLeft(std::string_view text, std::size_t columns) {
  const std::size_t width = displayWidth(text);
  return std::string(width < columns ? columns - width : 0, ' ') + std::string(text);
}

}  // namespace ombrine::app
