#include "storms/storm_time.hpp"

#include <unicode/smpdtfmt.h>
#include <unicode/timezone.h>
#include <unicode/unistr.h>

#include <chrono>
#include <cmath>
#include <memory>

namespace ombrine {

namespace {

bool twoDigits(std::string_view text, std::size_t at, int& value) {
  const char a = text[at];
  const char b = text[at + 1];
  if (a < '0' || a > '9' || b < '0' || b > '9') return false;
  value = (a - '0') * 10 + (b - '0');
  return true;
}

}  // namespace

std::optional<Date> utcDate(int year, int month, int day, int hour, int minute, int second) {
  using namespace std::chrono;
  const year_month_day ymd{std::chrono::year(year), std::chrono::month(static_cast<unsigned>(month)),
                           std::chrono::day(static_cast<unsigned>(day))};
  if (month < 1 || month > 12 || day < 1 || !ymd.ok() || hour < 0 || hour > 23 || minute < 0 || minute > 59 ||
      second < 0 || second > 59) {
    return std::nullopt;
  }
  const auto instant = sys_days(ymd) + hours(hour) + minutes(minute) + seconds(second);
  return Date::fromUnix(static_cast<double>(instant.time_since_epoch().count()));
}

int utcYear(Date date) {
  using namespace std::chrono;
  const auto seconds = sys_seconds(std::chrono::seconds(static_cast<long long>(std::floor(date.unixSeconds()))));
  return static_cast<int>(year_month_day(floor<days>(seconds)).year());
}

std::optional<Date> parseTokenDDHHMM(std::string_view token, Date reference) {
  int day = 0;
  int hour = 0;
  int minute = 0;
  if (token.size() != 6 || !twoDigits(token, 0, day) || !twoDigits(token, 2, hour) || !twoDigits(token, 4, minute)) {
    return std::nullopt;
  }
  if (day < 1 || day > 31 || hour > 23 || minute > 59) return std::nullopt;
  using namespace std::chrono;
  const auto seconds = sys_seconds(std::chrono::seconds(static_cast<long long>(std::floor(reference.unixSeconds()))));
  const year_month_day today(floor<days>(seconds));
  const year_month first = today.year() / today.month();
  std::optional<Date> best;
  for (int offset : {-1, 0, 1}) {
    const year_month candidateMonth = first + months(offset);
    const auto candidate = utcDate(static_cast<int>(candidateMonth.year()),
                                   static_cast<int>(unsigned(candidateMonth.month())), day, hour, minute);
    if (!candidate) continue;
    if (!best || std::abs(*candidate - reference) < std::abs(*best - reference)) best = candidate;
  }
  return best;
}

std::optional<Date> parseDateWithPattern(std::string_view text, std::string_view pattern) {
  UErrorCode status = U_ZERO_ERROR;
  const auto icuPattern =
      icu::UnicodeString::fromUTF8(icu::StringPiece(pattern.data(), static_cast<int32_t>(pattern.size())));
  icu::SimpleDateFormat format(icuPattern, icu::Locale("en_US_POSIX"), status);
  if (U_FAILURE(status)) return std::nullopt;
  format.adoptTimeZone(icu::TimeZone::createTimeZone("UTC"));
  format.setLenient(false);
  const auto input = icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<int32_t>(text.size())));
  icu::ParsePosition position(0);
  const UDate parsed = format.parse(input, position);
  if (position.getErrorIndex() >= 0 || position.getIndex() != input.length()) return std::nullopt;
  return Date::fromUnix(parsed / 1000.0);
}

std::optional<Date> parseRSSDate(std::string_view text) {
  if (auto date = parseDateWithPattern(text, "EEE, dd MMM yy HH:mm:ss Z")) return date;
  return parseDateWithPattern(text, "EEE, dd MMM yyyy HH:mm:ss Z");
}

}  // namespace ombrine
