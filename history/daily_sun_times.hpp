#pragma once
// Sunrise and sunset for each local day of a year at a coordinate, in a named time zone.
//
// Each local day is handed to the solar calculation (history/solar_events.hpp) as the same
// calendar date at 00:00 UTC, so the day number is the local day's. The events that come back
// are then moved by whole calendar days, keeping their clock time, onto the local day (the first
// of sunrise and sunset that exists decides the move). Clock seconds count from the local day's
// midnight and may fall outside 0 to 86,400 when an event lies on a neighbouring day.
//
// Nothing raises: what cannot be computed is absent or `unavailable`. Pure; callable from any
// thread (each call makes its own calendar).

#include <optional>
#include <vector>

#include "core/values/date.hpp"
#include "core/values/location.hpp"
#include "core/values/time_zone.hpp"
#include "history/civil_date.hpp"
#include "history/solar_events.hpp"

namespace ombrine {

struct DailySunTimes {
  Date date;  // the start of the local day
  std::optional<Date> sunrise;
  std::optional<Date> sunset;
  std::optional<double> sunriseClockSeconds;
  std::optional<double> sunsetClockSeconds;
  std::optional<double> daylightDuration;  // seconds
  SunDaylightState daylightState = SunDaylightState::unavailable;

  bool operator==(const DailySunTimes&) const = default;
};

// One entry per local day of `year` in `timeZone`: 365 or 366 entries, whatever the length of
// each day. Empty when no calendar can be made for the zone; it ends early at a day the calendar
// cannot form.
std::vector<DailySunTimes> dailySunTimes(int year, const Location& coordinate, const TimeZone& timeZone);

// The entry of one local day; nothing when no calendar can be made for the zone or the day
// cannot be formed.
std::optional<DailySunTimes> dailySunTimes(CivilDate day, const Location& coordinate, const TimeZone& timeZone);

// The entry of the local day in `timeZone` that holds `instant`.
std::optional<DailySunTimes> dailySunTimesContaining(Date instant, const Location& coordinate,
                                                     const TimeZone& timeZone);

// One local day with all eight events of the day, each moved by the same whole days as sunrise
// and sunset, so that twilights sit around the day's own sunrise and sunset.
struct LocalSolarDay {
  DailySunTimes day;
  Solar events;
};
std::optional<LocalSolarDay> localSolarDay(CivilDate day, const Location& coordinate, const TimeZone& timeZone);

// The day's length for a state and its aligned events: 86,400 for polar day, 0 for polar night,
// sunset - sunrise brought into 0...86,400 for a normal day with both events, else nothing.
std::optional<double> daylightDuration(SunDaylightState state, std::optional<Date> sunrise, std::optional<Date> sunset);

}  // namespace ombrine
