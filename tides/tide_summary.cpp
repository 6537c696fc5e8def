#include "tides/tide_summary.hpp"

#include <algorithm>
#include <memory>
#include <stdexcept>

#include <fmt/format.h>
#include <unicode/datefmt.h>
#include <unicode/measunit.h>
#include <unicode/numberformatter.h>
#include <unicode/timezone.h>

#include "core/values/unit_rules.hpp"

namespace ombrine {

namespace {

std::string utf8(const icu::UnicodeString& text) {
  std::string out;
  text.toUTF8String(out);
  return out;
}

// A date formatter for `skeleton` in `zone`, falling back to the locale's short style.
std::unique_ptr<icu::DateFormat> dateFormat(const char* skeleton, const icu::Locale& locale, const TimeZone& zone) {
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<icu::DateFormat> format(
      icu::DateFormat::createInstanceForSkeleton(icu::UnicodeString(skeleton), locale, status));
  if (U_FAILURE(status) || !format) {
    format.reset(icu::DateFormat::createDateTimeInstance(icu::DateFormat::kShort, icu::DateFormat::kShort, locale));
  }
  if (!format) throw std::runtime_error("ICU could not build a date format");
  format->adoptTimeZone(icu::TimeZone::createTimeZone(icu::UnicodeString::fromUTF8(zone.identifier())));
  return format;
}

std::string formatted(const icu::DateFormat& format, Date date) {
  icu::UnicodeString text;
  format.format(date.unixSeconds() * 1000.0, text);
  return utf8(text);
}

const char* kindWord(TideExtreme::Kind kind) { return kind == TideExtreme::Kind::high ? "high" : "low"; }

// The columns fmt gives `word` when it pads it (wide CJK characters count two).
std::size_t paddingWidth(std::string_view word) {
  constexpr std::size_t kWide = 64;
  return kWide - (fmt::formatted_size("{:<{}}", word, kWide) - word.size());
}

}  // namespace

TideHeightUnit tideHeightUnit(const icu::Locale& locale) {
  return measurementSystem(locale) == MeasurementSystem::us ? TideHeightUnit::feet : TideHeightUnit::meters;
}

std::string describeTideStation(const TideData& data, const ScreenWords& words) {
  const icu::Locale& locale = words.locale();
  if (data.distance == 0.0) return data.station.displayName() + " · " + std::string(words("chosen directly"));
  const bool miles = measurementSystem(locale) != MeasurementSystem::metric && measurementSystem(locale).has_value();
  const double value = miles ? data.distance / 1609.344 : data.distance / 1000.0;
  const auto formatter = icu::number::NumberFormatter::withLocale(locale)
                             .unit(miles ? icu::MeasureUnit::getMile() : icu::MeasureUnit::getKilometer())
                             .unitWidth(UNUM_UNIT_WIDTH_SHORT)
                             .precision(icu::number::Precision::fixedFraction(1));
  UErrorCode status = U_ZERO_ERROR;
  const std::string distance = utf8(formatter.formatDouble(value, status).toString(status));
  if (U_FAILURE(status)) throw std::runtime_error(std::string("ICU number formatting failed: ") + u_errorName(status));
  return data.station.displayName() + " · " + words.format("{} away", distance);
}

std::vector<std::string> tideExtremeLines(const TideData& data, Date now, int hours, const TimeZone& zone,
                                          const ScreenWords& words) {
  const icu::Locale& locale = words.locale();
  const auto day = dateFormat("EEEdMMM", locale, zone);
  const auto time = dateFormat("jmm", locale, zone);
  const TideHeightUnit unit = tideHeightUnit(locale);
  // The kind's column fits "high" and "low" in the reader's language.
  const std::size_t kindWidth = std::max<std::size_t>({4, paddingWidth(words(kindWord(TideExtreme::Kind::high))),
                                                       paddingWidth(words(kindWord(TideExtreme::Kind::low)))});
  std::vector<std::string> lines;
  for (const auto& extreme : data.extremesIn({now, now + hours * 3600.0})) {
    lines.push_back(fmt::format("{:<12} {:>8}  {:<{}}  {:>7}", formatted(*day, extreme.date),
                                formatted(*time, extreme.date), words(kindWord(extreme.kind)), kindWidth,
                                formattedTideHeight(extreme.height, unit, locale)));
  }
  return lines;
}

std::optional<std::string> describeNextTide(const TideData& data, Date now, const TimeZone& zone,
                                            const ScreenWords& words) {
  const icu::Locale& locale = words.locale();
  const auto next = data.nextExtreme(now);
  if (!next) return std::nullopt;
  const auto time = dateFormat(next->date - now < 86'400.0 && next->date >= now ? "jmm" : "EEEdMMMjmm", locale, zone);
  return words.format("Next tide: {} {} at {} ({})", words(kindWord(next->kind)),
                      formattedTideHeight(next->height, tideHeightUnit(locale), locale), formatted(*time, next->date),
                      data.station.displayName());
}

}  // namespace ombrine
