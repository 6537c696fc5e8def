#pragma once
// The Gregorian calendar of a forecast place, for the calendar arithmetic of the Foreca
// decoders and conversion: days and clock hours as the place counts them.
//
// Day boundaries follow the zone's rules (daylight saving included): a day may be 23 or 25
// hours long, and a wall time skipped by a transition resolves to the first instant after
// the gap. A clock hour is the hour of the place's wall clock, so in a zone with a 30 or 45
// minute offset it does not start on a full UTC hour.
//
// Not thread-safe: one calendar holds ICU state that every call mutates. Make one per
// conversion; construction is cheap next to a conversion. Nothing raises except
// std::bad_alloc.

#include <memory>

#include "core/values/date.hpp"
#include "core/values/time_zone.hpp"

#include <unicode/uversion.h>

U_NAMESPACE_BEGIN
class Calendar;
U_NAMESPACE_END

namespace ombrine {

struct CivilDay {
  int year = 0;
  int month = 0;  // 1 to 12
  int day = 0;    // 1 to 31
  bool operator==(const CivilDay&) const = default;
};

class PlaceCalendar {
 public:
  explicit PlaceCalendar(const TimeZone& zone);
  PlaceCalendar(const PlaceCalendar&) = delete;
  PlaceCalendar& operator=(const PlaceCalendar&) = delete;
  ~PlaceCalendar();

  // The instant of the wall time `hour`:`minute` on `day`. Out-of-range fields roll over
  // (day 32 is the first of the next month).
  Date date(CivilDay day, int hour = 0, int minute = 0) const;
  // The place's calendar day of `instant`.
  CivilDay day(Date instant) const;

  Date startOfDay(Date instant) const;
  // The start of the following day, which is where `instant`'s day ends.
  Date endOfDay(Date instant) const;
  // The start of the wall-clock hour that holds `instant`.
  Date startOfHour(Date instant) const;
  bool isSameHour(Date a, Date b) const { return startOfHour(a) == startOfHour(b); }

 private:
  TimeZone zone_;
  std::unique_ptr<icu::Calendar> calendar_;
};

}  // namespace ombrine
