#pragma once
// Case-insensitive regular expressions over UTF-8 text (ICU syntax: \d and \s are Unicode
// classes, as the agencies' texts are read elsewhere).
//
// An expression that cannot be compiled never matches, and neither does a search that runs over
// its time limit (about 20 ms of backtracking): hostile texts cannot stall a reader. A compiled pattern is immutable
// and may be shared by threads; keep patterns as function-local statics.

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <unicode/uversion.h>

U_NAMESPACE_BEGIN
class RegexPattern;
U_NAMESPACE_END

namespace ombrine {

// The groups of one match: [0] is the whole match; a group that took no part is absent.
using TextMatch = std::vector<std::optional<std::string>>;

class TextPattern {
 public:
  explicit TextPattern(std::string_view expression);
  ~TextPattern();
  TextPattern(const TextPattern&) = delete;
  TextPattern& operator=(const TextPattern&) = delete;

  std::optional<TextMatch> firstMatch(std::string_view text) const;
  std::vector<TextMatch> allMatches(std::string_view text) const;
  // Group `group` of the first match, when the match and the group exist.
  std::optional<std::string> firstGroup(std::string_view text, int group = 1) const;

 private:
  std::unique_ptr<icu::RegexPattern> pattern_;
};

// `text` without leading and trailing whitespace and newlines (Unicode White_Space).
std::string trimmed(std::string_view text);
std::string upperCased(std::string_view text);
std::string lowerCased(std::string_view text);
// Case-insensitive containment (full case folding).
bool containsIgnoringCase(std::string_view text, std::string_view part);
// A whole decimal integer with an optional sign ("+12", "-3"); nothing for anything else.
std::optional<long long> parseInteger(std::string_view text);
// A whole decimal number ("12", "-3.5"); nothing for anything else.
std::optional<double> parseNumber(std::string_view text);

}  // namespace ombrine
