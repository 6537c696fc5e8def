#include "core/values/iso8601.hpp"

#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>

#include "core/values/errors.hpp"

namespace ombrine {

namespace {

constexpr int64_t kReferenceToUnix = static_cast<int64_t>(Date::kReferenceToUnix);

// A cursor over the text; every read either consumes exactly what it expects or fails.
class Reader {
 public:
  explicit Reader(std::string_view text) : text_(text) {}

  bool digits(int count, int& value) {
    if (text_.size() - position_ < static_cast<size_t>(count)) return false;
    value = 0;
    for (int i = 0; i < count; ++i) {
      const char c = text_[position_ + i];
      if (c < '0' || c > '9') return false;
      value = value * 10 + (c - '0');
    }
    position_ += count;
    return true;
  }

  bool literal(char expected) { return oneOf(expected, expected); }

  bool oneOf(char a, char b) {
    if (atEnd() || (text_[position_] != a && text_[position_] != b)) return false;
    ++position_;
    return true;
  }

  // One or more digits after a decimal point, as a fraction of a second.
  bool fraction(double& value) {
    double numerator = 0.0;
    double denominator = 1.0;
    size_t count = 0;
    while (!atEnd() && text_[position_] >= '0' && text_[position_] <= '9') {
      // Digits beyond a double's precision change nothing; they are read and skipped.
      if (count < 17) {
        numerator = numerator * 10.0 + (text_[position_] - '0');
        denominator *= 10.0;
      }
      ++count;
      ++position_;
    }
    value = numerator / denominator;
    return count > 0;
  }

  char peek() const { return atEnd() ? '\0' : text_[position_]; }
  bool atEnd() const { return position_ == text_.size(); }

 private:
  std::string_view text_;
  size_t position_ = 0;
};

}  // namespace

std::optional<Date> parseInternetDateTime(std::string_view text, bool fractionalSeconds) noexcept {
  Reader in(text);
  int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
  if (!(in.digits(4, year) && in.literal('-') && in.digits(2, month) && in.literal('-') && in.digits(2, day) &&
        in.oneOf('T', 't') && in.digits(2, hour) && in.literal(':') && in.digits(2, minute) && in.literal(':') &&
        in.digits(2, second))) {
    return std::nullopt;
  }
  double fraction = 0.0;
  if (fractionalSeconds != (in.peek() == '.')) return std::nullopt;
  if (fractionalSeconds && !(in.literal('.') && in.fraction(fraction))) return std::nullopt;

  int offsetSeconds = 0;
  if (!in.oneOf('Z', 'z')) {
    const char sign = in.peek();
    int offsetHours = 0, offsetMinutes = 0;
    if (!(in.oneOf('+', '-') && in.digits(2, offsetHours) && in.literal(':') && in.digits(2, offsetMinutes))) {
      return std::nullopt;
    }
    if (offsetHours > 23 || offsetMinutes > 59) return std::nullopt;
    offsetSeconds = (sign == '-' ? -1 : 1) * (offsetHours * 3600 + offsetMinutes * 60);
  }
  if (!in.atEnd()) return std::nullopt;

  const std::chrono::year_month_day date{std::chrono::year(year), std::chrono::month(static_cast<unsigned>(month)),
                                         std::chrono::day(static_cast<unsigned>(day))};
  if (!date.ok() || hour > 23 || minute > 59 || second > 60) return std::nullopt;

  const int64_t days = std::chrono::sys_days(date).time_since_epoch().count();
  const int64_t unixSeconds = days * 86400 + hour * 3600 + minute * 60 + second - offsetSeconds;
  // Whole seconds are moved to the reference epoch before the fraction is added, so a date
  // without a fraction is exact.
  return Date::fromReference(static_cast<double>(unixSeconds - kReferenceToUnix) + fraction);
}

Date decodeISO8601Date(std::string_view text) {
  if (auto date = parseInternetDateTime(text, true)) return *date;
  if (auto date = parseInternetDateTime(text, false)) return *date;
  throw DecodingError("Invalid ISO8601 date: " + std::string(text));
}

std::string iso8601String(Date date, bool fractionalSeconds) {
  const double reference = date.timeIntervalSinceReferenceDate;
  const int64_t milliseconds = fractionalSeconds ? static_cast<int64_t>(std::llround(reference * 1000.0))
                                                 : static_cast<int64_t>(std::floor(reference)) * 1000;
  const int64_t unixMilliseconds = milliseconds + kReferenceToUnix * 1000;
  const auto instant = std::chrono::sys_time<std::chrono::milliseconds>(std::chrono::milliseconds(unixMilliseconds));
  const auto day = std::chrono::floor<std::chrono::days>(instant);
  const std::chrono::year_month_day ymd(day);
  const std::chrono::hh_mm_ss time(instant - day);

  char buffer[40];
  int length = std::snprintf(buffer, sizeof buffer, "%04d-%02u-%02uT%02d:%02d:%02d", static_cast<int>(ymd.year()),
                             static_cast<unsigned>(ymd.month()), static_cast<unsigned>(ymd.day()),
                             static_cast<int>(time.hours().count()), static_cast<int>(time.minutes().count()),
                             static_cast<int>(time.seconds().count()));
  if (fractionalSeconds) {
    length +=
        std::snprintf(buffer + length, sizeof buffer - length, ".%03d", static_cast<int>(time.subseconds().count()));
  }
  return std::string(buffer, length) + "Z";
}

}  // namespace ombrine
