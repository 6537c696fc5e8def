#pragma once
// Text that reaches a terminal: what a user typed or saved, echoed back safely, and columns
// that line up whatever the script. Pure functions; they never raise but std::bad_alloc.

#include <cstddef>
#include <string>
#include <string_view>

namespace ombrine::app {

// `text` with every control character (C0, DEL, C1), every bidirectional formatting character
// (U+061C, U+200E/F, U+202A-U+202E, U+2066-U+2069) and every malformed UTF-8 byte replaced by
// U+FFFD, so that it can neither move the cursor nor reorder the rest of the line; cut to
// `maxCharacters` code points followed by "…" when longer.
std::string neutralised(std::string_view text, std::size_t maxCharacters = std::string_view::npos);

// The longest message about a trip that quotes what was typed (the trips library words it).
inline constexpr std::size_t kMaxTripMessage = 160;

// What a command echoes of a user's input in a message: neutralised, at most 60 characters,
// in double quotes.
std::string quotedInput(std::string_view text);

// The number of terminal columns `text` takes: 2 for East Asian wide and full-width characters
// (CJK, kana, hangul, most emoji), 0 for combining marks and zero-width characters, else 1.
std::size_t displayWidth(std::string_view text);

// `text` cut to at most `columns` terminal columns, the cut marked by "…" (one column); whole
// characters only, so a wide character that would straddle the edge goes as well.
std::string cutToWidth(std::string_view text, std::size_t columns);

// `text` followed by spaces up to `columns` terminal columns (nothing added when it is wider).
std::string padRight(std::string_view text, std::size_t columns);
// Spaces up to `columns` terminal columns followed by `text`.
std::string padLeft(std::string_view text, std::size_t columns);

}  // namespace ombrine::app
