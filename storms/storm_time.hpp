#pragma once
// The time texts of the storm feeds: day-hour-minute tokens without month or year, RSS
// publication dates and the fixed formats of KML placemarks.
//
// All calendar arithmetic is Gregorian in UTC. Pure functions; thread-safe.

#include <optional>
#include <string_view>

#include "core/values/date.hpp"

namespace ombrine {

// A "DDHHMM" token (day 1-31, hour 0-23, minute 0-59, two digits each) placed in the month
// before, the month of, or the month after `reference`, whichever valid candidate lies nearest
// to it (the earlier on a tie). Nothing for a malformed token or when no month has that day.
std::optional<Date> parseTokenDDHHMM(std::string_view token, Date reference);

// `text` read with an ICU date pattern in the "en_US_POSIX" locale, strictly and as a whole;
// times without a zone are UTC.
std::optional<Date> parseDateWithPattern(std::string_view text, std::string_view pattern);

// An RSS publication date: "EEE, dd MMM yy HH:mm:ss Z" first (on purpose), then the
// four-digit year form.
std::optional<Date> parseRSSDate(std::string_view text);

// A UTC civil time; nothing for an invalid date or time.
std::optional<Date> utcDate(int year, int month, int day, int hour, int minute, int second = 0);

// The UTC year of `date`.
int utcYear(Date date);

}  // namespace ombrine
