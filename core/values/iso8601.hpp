#pragma once
// ISO 8601 dates as the services send them, and as the caches write them.
//
// Parsing accepts the internet date-time form (RFC 3339): "2024-03-10T14:05:09Z",
// "2024-03-10T14:05:09.250+05:30", with "T"/"t", "Z"/"z", a ±hh:mm offset, and any number of
// fraction digits. The calendar is checked (no 31 April, 29 February only in leap years);
// a second of 60 is read as the leap second it stands for and lands on the next minute.
// Pure functions; thread-safe.

#include <optional>
#include <string>
#include <string_view>

#include "core/values/date.hpp"

namespace ombrine {

// The date of an internet date-time with fractional seconds (`fractionalSeconds`) or without;
// nothing when `text` is not exactly that form.
std::optional<Date> parseInternetDateTime(std::string_view text, bool fractionalSeconds) noexcept;

// The wire decoder: with fractional seconds first, then without. Raises DecodingError
// "Invalid ISO8601 date: <text>" when neither form fits.
Date decodeISO8601Date(std::string_view text);

// "2024-03-10T14:05:09Z" in UTC, or with milliseconds ("2024-03-10T14:05:09.250Z"); seconds
// are truncated, milliseconds rounded to nearest. Precondition: the year is 1 to 9999.
std::string iso8601String(Date date, bool fractionalSeconds = false);

}  // namespace ombrine
