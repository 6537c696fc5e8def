#pragma once
// Dates of the proleptic Gregorian calendar as day counts, for the UTC side of the solar
// calculation (exact for every date; no time zone involved). Pure, constexpr.

#include <cmath>
#include <cstdint>

#include "core/values/date.hpp"

namespace ombrine {

struct CivilDate {
  int year = 1970;
  int month = 1;  // 1 to 12
  int day = 1;    // 1 to 31
  constexpr auto operator<=>(const CivilDate&) const = default;
};

// Days from 1970-01-01 to the date (negative before it).
constexpr std::int64_t daysFromCivil(CivilDate date) {
  const std::int64_t y = date.year - (date.month <= 2 ? 1 : 0);
  const std::int64_t era = (y >= 0 ? y : y - 399) / 400;
  const std::int64_t yearOfEra = y - era * 400;
  const std::int64_t dayOfYear = (153 * (date.month + (date.month > 2 ? -3 : 9)) + 2) / 5 + date.day - 1;
  const std::int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
  return era * 146097 + dayOfEra - 719468;
}

constexpr CivilDate civilFromDays(std::int64_t days) {
  days += 719468;
  const std::int64_t era = (days >= 0 ? days : days - 146096) / 146097;
  const std::int64_t dayOfEra = days - era * 146097;
  const std::int64_t yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
  const std::int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
  const std::int64_t mp = (5 * dayOfYear + 2) / 153;
  const int day = static_cast<int>(dayOfYear - (153 * mp + 2) / 5 + 1);
  const int month = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
  const int year = static_cast<int>(yearOfEra + era * 400 + (month <= 2 ? 1 : 0));
  return CivilDate{year, month, day};
}

// 1 for January 1.
constexpr int dayOfYear(CivilDate date) {
  return static_cast<int>(daysFromCivil(date) - daysFromCivil(CivilDate{date.year, 1, 1}) + 1);
}

// The UTC day that holds `instant`, as days since 1970-01-01.
inline std::int64_t utcDayNumber(Date instant) {
  return static_cast<std::int64_t>(std::floor(instant.unixSeconds() / 86400.0));
}

// 00:00:00 UTC of a day number.
constexpr Date utcMidnight(std::int64_t dayNumber) { return Date::fromUnix(static_cast<double>(dayNumber) * 86400.0); }

}  // namespace ombrine
