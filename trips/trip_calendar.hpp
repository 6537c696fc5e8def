#pragma once
// A Gregorian calendar in one time zone, with the few operations trip rules need: days, starts
// of days, whole-day differences and wall-clock times.
//
// Wall-clock rules: a wall-clock time that a zone skips (clocks spring forward) resolves to the
// next time that exists; a time that happens twice (clocks fall back) resolves to the first.
// Day arithmetic keeps the wall-clock time, so a day across a change of offset is 23 or 25 hours.
//
// Thread/context: a calendar holds a mutable ICU calendar; use one object from one thread at a
// time (copies are independent). Requires the shipped ICU zone data (platform/icu_setup.hpp).
// Nothing here raises: an instant outside ICU's range is clamped by ICU.

#include <memory>
#include <optional>

#include "core/values/date.hpp"
#include "core/values/time_zone.hpp"

#include <unicode/uversion.h>

U_NAMESPACE_BEGIN
class Calendar;
U_NAMESPACE_END

namespace ombrine {

// A day of the proleptic Gregorian calendar; month and day from 1.
struct CivilDay {
  int year = 2001;
  int month = 1;
  int day = 1;

  auto operator<=>(const CivilDay&) const = default;
};

// A wall-clock time of day.
struct WallTime {
  int hour = 0;
  int minute = 0;
  int second = 0;

  auto operator<=>(const WallTime&) const = default;
};

class TripCalendar {
 public:
  explicit TripCalendar(const TimeZone& zone);
  // The device's zone.
  static TripCalendar current();

  TripCalendar(const TripCalendar& other);
  TripCalendar& operator=(const TripCalendar& other);
  TripCalendar(TripCalendar&&) noexcept;
  TripCalendar& operator=(TripCalendar&&) noexcept;
  ~TripCalendar();

  const TimeZone& timeZone() const noexcept { return zone_; }

  // The day that holds `instant` in this calendar's zone.
  CivilDay day(Date instant) const;
  // The day that holds `instant` in `zone` (any zone; this calendar's fields are Gregorian).
  CivilDay day(Date instant, const TimeZone& zone) const;
  // The wall-clock time of `instant` in this calendar's zone.
  WallTime timeOfDay(Date instant) const;

  // The instant of `time` on `day` in this calendar's zone, by the wall-clock rules above.
  Date date(CivilDay day, WallTime time = {}) const;
  // Whether `time` exists on `day` in this calendar's zone (false inside a skipped hour).
  bool exists(CivilDay day, WallTime time) const;

  Date startOfDay(Date instant) const { return date(day(instant)); }
  // The start of the next day: the end of the day interval that holds `instant`.
  Date endOfDay(Date instant) const;
  // `instant` moved by `days` calendar days, wall-clock time kept.
  Date addingDays(Date instant, int days) const;
  // The same day with the wall-clock time replaced (the platform's bySettingHour).
  Date settingTime(Date instant, WallTime time) const { return date(day(instant), time); }
  // Whole calendar days from `from` to `to` (negative when `to` is earlier); a partial day does
  // not count, as a day difference of the platform's calendar.
  int wholeDays(Date from, Date to) const;

 private:
  TimeZone zone_;
  std::unique_ptr<icu::Calendar> calendar_;
};

}  // namespace ombrine
