#pragma once
// A provider's condition codes as glyphs: one row per code, with the symbol by day and by night
// and the condition id the rest of the app reads.

#include <span>
#include <string>
#include <string_view>

#include "core/record/one_call_weather.hpp"

namespace ombrine {

struct GlyphRule {
  std::string_view code;
  std::string_view day;
  std::string_view night;
  int id;
};

// The glyph of `code` by `rules` (the last row naming it wins; a code no row names shows
// "cloud" with id 0); `text` is its main text and description.
inline OneCallWeather::Glyph glyphByTable(std::span<const GlyphRule> rules, std::string_view code,
                                          const std::string& text, bool isDaylight) {
  OneCallWeather::Glyph glyph{
      .id = 0, .main = text, .description = text, .symbolName = "cloud", .isDaylight = isDaylight};
  for (const GlyphRule& rule : rules) {
    if (rule.code == code) {
      glyph.symbolName = isDaylight ? rule.day : rule.night;
      glyph.id = rule.id;
    }
  }
  return glyph;
}

}  // namespace ombrine
