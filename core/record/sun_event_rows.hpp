#pragma once
// The sunrise and sunset rows every provider adds to its hourly forecast.
//
// For each event after `now` that falls in the wall-clock hour (in `zone`) of an hourly row, a
// copy of the first such row is added with `dt` the event, `sunStateChange` set and the single
// glyph "sunrise" (daylight) or "sunset" (not daylight), labelled
// "Sunrise" or "Sunset". Rows are then stably sorted by `dt` (an event on the full hour follows
// the regular row). Pure; nothing raises except std::bad_alloc.

#include <span>
#include <vector>

#include "core/record/one_call_weather.hpp"
#include "core/values/date.hpp"
#include "core/values/time_zone.hpp"

namespace ombrine {

// The start of the wall-clock hour in `zone` that holds `instant`.
Date startOfZoneHour(Date instant, const TimeZone& zone);
// The start of the calendar day in `zone` that holds `instant` (by the offset at `instant`).
Date startOfZoneDay(Date instant, const TimeZone& zone);

void addSunEventRows(std::vector<OneCallWeather::Hourly>& hourly, std::span<const SunStateChange> events, Date now,
                     const TimeZone& zone);

}  // namespace ombrine
