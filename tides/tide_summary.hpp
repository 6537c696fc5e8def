#pragma once
// The tide lines the command shows: the station, how far it is, and the coming highs and lows in
// the place's local time, heights in the reader's unit (feet for the US measurement system,
// metres otherwise, as tides/tide_format.hpp writes them).
//
// Times are shown in the zone given (the place's), so a day on which daylight saving time
// begins or ends lists its tides at their true local clock times: two highs 12 h 25 min apart
// across a change read 11 h 25 min or 13 h 25 min apart on the clock.
//
// Words come from `words` (the reader's language), numbers and dates from its locale.
//
// Pure functions of their arguments (the clock is a parameter); thread-safe; they raise only
// std::runtime_error for an ICU failure.

#include <optional>
#include <string>
#include <vector>

#include <unicode/locid.h>

#include "core/record/tide_records.hpp"
#include "core/values/date.hpp"
#include "core/values/screen_words.hpp"
#include "core/values/time_zone.hpp"
#include "tides/tide_format.hpp"

namespace ombrine {

// Feet where the locale measures in US units, metres elsewhere.
TideHeightUnit tideHeightUnit(const icu::Locale& locale);

// "Lewes, DE · 5.2 km away" (or "· chosen directly" for a distance of 0), in the locale's
// units: kilometres or miles.
std::string describeTideStation(const TideData& data, const ScreenWords& words);

// One line per extreme from `now` on within `hours`: "Mon 23 Nov  3:12 PM  high  1.4 m".
std::vector<std::string> tideExtremeLines(const TideData& data, Date now, int hours, const TimeZone& zone,
                                          const ScreenWords& words);

// The forecast's one tide line: "Next tide: high 1.4 m at 3:12 PM (Lewes, DE)". Nothing when
// the record has no extreme.
std::optional<std::string> describeNextTide(const TideData& data, Date now, const TimeZone& zone,
                                            const ScreenWords& words);

}  // namespace ombrine
