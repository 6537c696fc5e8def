#pragma once
// The Gregorian calendar in one named time zone (ICU), for local days and clock times.
//
// Local days start at 00:00, or at the first instant of the day when a daylight-saving change
// skips midnight. Adding days keeps the wall-clock time, as a calendar does, so that 06:00
// stays 06:00 across a change. Not thread-safe (an ICU calendar is mutable state): make one per
// computation; construction costs a few microseconds.

#include <memory>
#include <optional>

#include "core/values/date.hpp"
#include "core/values/time_zone.hpp"
#include "history/civil_date.hpp"

#include <unicode/uversion.h>

U_NAMESPACE_BEGIN
class Calendar;
U_NAMESPACE_END

namespace ombrine {

struct LocalTime {
  CivilDate date;
  int hour = 0;
  int minute = 0;
  int second = 0;
  int millisecond = 0;
};

class ZonedCalendar {
 public:
  // Nothing when ICU cannot make a calendar for the zone.
  static std::optional<ZonedCalendar> make(const TimeZone& zone);
  ~ZonedCalendar();
  ZonedCalendar(ZonedCalendar&&) noexcept;
  ZonedCalendar& operator=(ZonedCalendar&&) noexcept;

  // The first instant of a local day; nothing when the calendar cannot form it.
  std::optional<Date> startOfDay(CivilDate day);
  // The local date and clock time of an instant.
  std::optional<LocalTime> localTime(Date instant);
  // The same wall-clock time `days` local days later (or earlier, for a negative count).
  std::optional<Date> addingDays(Date instant, int days);

 private:
  explicit ZonedCalendar(std::unique_ptr<icu::Calendar> calendar);
  std::unique_ptr<icu::Calendar> calendar_;
};

}  // namespace ombrine
