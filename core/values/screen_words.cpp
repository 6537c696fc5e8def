#include "core/values/screen_words.hpp"

#include <unicode/smpdtfmt.h>
#include <unicode/timezone.h>

#include <cmath>
#include <stdexcept>

namespace ombrine {

namespace {

constexpr NumberStyle kTwoDigits{.integerDigits = 2, .grouping = false};

}  // namespace

ScreenWords::ScreenWords(const icu::Locale& locale) : locale_(locale), values_(ValueFormatter::forLocale(locale)) {}

std::string ScreenWords::coordinate(double latitude, double longitude, int decimals) const {
  const NumberStyle style{.fractionDigits = decimals, .grouping = false};
  return number(latitude, style) + ", " + number(longitude, style);
}

std::string ScreenWords::hemispheres(double latitude, double longitude) const {
  const NumberStyle twoDecimals{.fractionDigits = 2, .grouping = false};
  return format(latitude < 0 ? "{}°S" : "{}°N", number(std::abs(latitude), twoDecimals)) + " " +
         format(longitude < 0 ? "{}°W" : "{}°E", number(std::abs(longitude), twoDecimals));
}

std::string ScreenWords::clock(int hour, int minute) const {
  return number(hour, kTwoDigits) + ":" + number(minute, kTwoDigits);
}

std::string ScreenWords::clock(int hour, int minute, int second) const {
  return clock(hour, minute) + ":" + number(second, kTwoDigits);
}

std::string ScreenWords::day(int year, int month, int day) const {
  return number(year, {.integerDigits = 4, .grouping = false}) + "-" + number(month, kTwoDigits) + "-" +
         number(day, kTwoDigits);
}

std::string ScreenWords::utcTime(Date instant) const {
  UErrorCode status = U_ZERO_ERROR;
  // fa_IR, th_TH and others would count years in their own calendars.
  icu::Locale gregorian(locale_);
  gregorian.setKeywordValue("calendar", "gregorian", status);
  icu::SimpleDateFormat format(icu::UnicodeString("yyyy-MM-dd HH:mm:ss 'UTC'"), gregorian, status);
  if (U_FAILURE(status)) throw std::runtime_error(std::string("ICU date formatting failed: ") + u_errorName(status));
  format.adoptTimeZone(icu::TimeZone::createTimeZone("UTC"));
  icu::UnicodeString shown;
  format.format(instant.unixSeconds() * 1000.0, shown);
  std::string out;
  return shown.toUTF8String(out);
}

}  // namespace ombrine
