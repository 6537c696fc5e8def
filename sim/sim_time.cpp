#include "sim/sim_time.hpp"

#include <fmt/format.h>

#include <charconv>
#include <cmath>
#include <cstdlib>

namespace ombrine::sim {

using namespace std::chrono;

minutes longitudeUtcOffset(double longitude) {
  const double hoursEast = std::round(longitude / 15.0);
  const double clamped = hoursEast < -12 ? -12 : (hoursEast > 12 ? 12 : hoursEast);
  return hours(static_cast<int>(clamped));
}

std::string formatLocalMinute(Instant instant, minutes offset) {
  const auto local = instant + offset;
  const auto day = floor<days>(local);
  const year_month_day date{day};
  const hh_mm_ss clock{local - day};
  std::string text =
      fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}", static_cast<int>(date.year()), static_cast<unsigned>(date.month()),
                  static_cast<unsigned>(date.day()), clock.hours().count(), clock.minutes().count());
  if (offset == minutes::zero()) return text + "Z";
  const auto magnitude = std::abs(offset.count());
  return text + fmt::format("{}{:02}:{:02}", offset.count() < 0 ? '-' : '+', magnitude / 60, magnitude % 60);
}

std::string formatDay(sys_days day) {
  const year_month_day date{day};
  return fmt::format("{:04}-{:02}-{:02}", static_cast<int>(date.year()), static_cast<unsigned>(date.month()),
                     static_cast<unsigned>(date.day()));
}

sys_days localDay(Instant instant, minutes offset) { return floor<days>(instant + offset); }

Instant startOfLocalDay(sys_days day, minutes offset) { return Instant(day) - offset; }

std::string formatUtc(Instant instant, bool milliseconds) {
  const auto day = floor<days>(instant);
  const year_month_day date{day};
  const hh_mm_ss clock{instant - day};
  return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}{}Z", static_cast<int>(date.year()),
                     static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()), clock.hours().count(),
                     clock.minutes().count(), clock.seconds().count(), milliseconds ? ".000" : "");
}

namespace {

// Reads exactly `width` digits at `at` into `value`.
bool digits(std::string_view text, std::size_t at, std::size_t width, int& value) {
  if (at + width > text.size()) return false;
  for (std::size_t i = at; i < at + width; ++i) {
    if (text[i] < '0' || text[i] > '9') return false;
  }
  return std::from_chars(text.data() + at, text.data() + at + width, value).ec == std::errc();
}

}  // namespace

std::optional<Instant> parseUtc(std::string_view text) {
  int y = 0, mo = 0, d = 0, h = 0, mi = 0, s = 0;
  const bool withSeconds = text.size() == 20;
  if (!withSeconds && text.size() != 17) return std::nullopt;
  if (!digits(text, 0, 4, y) || text[4] != '-' || !digits(text, 5, 2, mo) || text[7] != '-' || !digits(text, 8, 2, d) ||
      text[10] != 'T' || !digits(text, 11, 2, h) || text[13] != ':' || !digits(text, 14, 2, mi) || text.back() != 'Z') {
    return std::nullopt;
  }
  if (withSeconds && (text[16] != ':' || !digits(text, 17, 2, s))) return std::nullopt;
  const year_month_day date{year(y), month(static_cast<unsigned>(mo)), day(static_cast<unsigned>(d))};
  if (!date.ok() || h > 23 || mi > 59 || s > 59) return std::nullopt;
  return Instant(sys_days(date)) + hours(h) + minutes(mi) + seconds(s);
}

}  // namespace ombrine::sim
