#include "storms/text_pattern.hpp"

#include <unicode/locid.h>
#include <unicode/regex.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>

#include <charconv>
#include <cmath>

namespace ombrine {

namespace {

// Each search may take this many units of the engine's work (10,000 steps each, about a
// millisecond): a text built to make an expression backtrack gives no match instead of a hang.
constexpr int32_t kSearchTimeLimit = 20;

std::unique_ptr<icu::RegexMatcher> matcherFor(const icu::RegexPattern& pattern, const icu::UnicodeString& input) {
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<icu::RegexMatcher> matcher(pattern.matcher(input, status));
  if (U_FAILURE(status)) return nullptr;
  matcher->setTimeLimit(kSearchTimeLimit, status);
  return matcher;
}

std::string utf8(const icu::UnicodeString& text) {
  std::string out;
  text.toUTF8String(out);
  return out;
}

TextMatch groupsOf(icu::RegexMatcher& matcher) {
  TextMatch match;
  UErrorCode status = U_ZERO_ERROR;
  const int count = matcher.groupCount();
  for (int g = 0; g <= count; ++g) {
    status = U_ZERO_ERROR;
    if (matcher.start(g, status) < 0 || U_FAILURE(status)) {
      match.emplace_back(std::nullopt);
      continue;
    }
    status = U_ZERO_ERROR;
    match.emplace_back(utf8(matcher.group(g, status)));
  }
  return match;
}

}  // namespace

TextPattern::TextPattern(std::string_view expression) {
  UErrorCode status = U_ZERO_ERROR;
  UParseError where;
  const auto source =
      icu::UnicodeString::fromUTF8(icu::StringPiece(expression.data(), static_cast<int32_t>(expression.size())));
  pattern_.reset(icu::RegexPattern::compile(source, UREGEX_CASE_INSENSITIVE, where, status));
  if (U_FAILURE(status)) pattern_.reset();
}

TextPattern::~TextPattern() = default;

std::optional<TextMatch> TextPattern::firstMatch(std::string_view text) const {
  if (!pattern_) return std::nullopt;
  UErrorCode status = U_ZERO_ERROR;
  const auto input = icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<int32_t>(text.size())));
  const auto matcher = matcherFor(*pattern_, input);
  if (!matcher || !matcher->find(status) || U_FAILURE(status)) return std::nullopt;
  return groupsOf(*matcher);
}

std::vector<TextMatch> TextPattern::allMatches(std::string_view text) const {
  std::vector<TextMatch> matches;
  if (!pattern_) return matches;
  UErrorCode status = U_ZERO_ERROR;
  const auto input = icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<int32_t>(text.size())));
  const auto matcher = matcherFor(*pattern_, input);
  if (!matcher) return matches;
  while (matcher->find(status) && U_SUCCESS(status)) matches.push_back(groupsOf(*matcher));
  return matches;
}

std::optional<std::string> TextPattern::firstGroup(std::string_view text, int group) const {
  auto match = firstMatch(text);
  if (!match || group >= static_cast<int>(match->size())) return std::nullopt;
  return (*match)[group];
}

std::string trimmed(std::string_view text) {
  auto value = icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<int32_t>(text.size())));
  int32_t start = 0;
  int32_t end = value.length();
  while (start < end && u_isUWhiteSpace(value.char32At(start))) start = value.moveIndex32(start, 1);
  while (end > start) {
    const int32_t before = value.moveIndex32(end, -1);
    if (!u_isUWhiteSpace(value.char32At(before))) break;
    end = before;
  }
  return utf8(value.tempSubStringBetween(start, end));
}

std::string upperCased(std::string_view text) {
  auto value = icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<int32_t>(text.size())));
  return utf8(value.toUpper(icu::Locale::getRoot()));
}

std::string lowerCased(std::string_view text) {
  auto value = icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<int32_t>(text.size())));
  return utf8(value.toLower(icu::Locale::getRoot()));
}

bool containsIgnoringCase(std::string_view text, std::string_view part) {
  auto haystack = icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<int32_t>(text.size())));
  auto needle = icu::UnicodeString::fromUTF8(icu::StringPiece(part.data(), static_cast<int32_t>(part.size())));
  haystack.foldCase();
  needle.foldCase();
  return haystack.indexOf(needle) >= 0;
}

std::optional<long long> parseInteger(std::string_view text) {
  if (!text.empty() && text.front() == '+') {
    text.remove_prefix(1);
    if (!text.empty() && text.front() == '-') return std::nullopt;
  }
  if (text.empty()) return std::nullopt;
  long long value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

std::optional<double> parseNumber(std::string_view text) {
  if (!text.empty() && text.front() == '+') text.remove_prefix(1);
  if (text.empty()) return std::nullopt;
  double value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || !std::isfinite(value)) return std::nullopt;
  return value;
}

}  // namespace ombrine
