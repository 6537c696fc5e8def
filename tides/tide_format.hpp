#pragma once
// Display text of tide heights.
//
// A height is shown in the unit the caller chose (convert first: the user's unit, not the
// stored metres), with one fractional digit, narrow unit width and the reader's locale. The
// value is first rounded to tenths with ties to even, and a result of zero shows as positive
// zero: -0.04 m reads "0.0 m", never "-0.0 m".
//
// Thread-safe; raises std::runtime_error when ICU reports a failure.

#include <string>

#include <unicode/locid.h>

#include "core/record/tide_records.hpp"

namespace ombrine {

enum class TideHeightUnit { meters, feet };

// The value `height` has in `unit`, rounded to tenths (ties to even), with -0.0 made 0.0.
double roundedTideHeight(Length height, TideHeightUnit unit);

std::string formattedTideHeight(Length height, TideHeightUnit unit, const icu::Locale& locale);

}  // namespace ombrine
