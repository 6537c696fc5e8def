#pragma once
// Instants and their wire texts as the simulated services write them.
//
// The simulator knows no time-zone database for a coordinate (that would need the place index),
// so a place's local time uses a longitude-based offset: round(longitude / 15) whole hours,
// within -12..+12 (so 179.9 gives +12:00 and -179.9 gives -12:00). Pure functions; thread-safe.

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace ombrine::sim {

using Instant = std::chrono::sys_seconds;

// The UTC offset the simulator uses for a place at `longitude` (degrees, -180..180).
std::chrono::minutes longitudeUtcOffset(double longitude);

// "yyyy-MM-dd'T'HH:mm" followed by the offset as "+hh:mm"/"-hh:mm", or "Z" for a zero offset;
// seconds are dropped, not rounded.
std::string formatLocalMinute(Instant instant, std::chrono::minutes offset);

// "yyyy-MM-dd" of a calendar day.
std::string formatDay(std::chrono::sys_days day);

// The calendar day that contains `instant` at `offset`.
std::chrono::sys_days localDay(Instant instant, std::chrono::minutes offset);

// The instant local midnight begins `day` at `offset`.
Instant startOfLocalDay(std::chrono::sys_days day, std::chrono::minutes offset);

// ISO 8601 internet date-time in UTC: "yyyy-MM-ddTHH:mm:ssZ", or with `milliseconds` set
// "yyyy-MM-ddTHH:mm:ss.000Z".
std::string formatUtc(Instant instant, bool milliseconds = false);

// Reads "yyyy-MM-ddTHH:mm:ssZ" (or "...THH:mmZ"); nothing for any other text or an invalid date.
std::optional<Instant> parseUtc(std::string_view text);

}  // namespace ombrine::sim
