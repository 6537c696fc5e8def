#include "tides/tide_format.hpp"

#include <cfenv>
#include <cmath>
#include <stdexcept>

#include <unicode/measunit.h>
#include <unicode/numberformatter.h>

namespace ombrine {

double roundedTideHeight(Length height, TideHeightUnit unit) {
  const double value = unit == TideHeightUnit::feet ? height.inFeet() : height.inMeters();
  // std::nearbyint follows the current rounding mode, which the program leaves at its default,
  // nearest with ties to even.
  const double rounded = std::nearbyint(value * 10.0) / 10.0;
  return rounded == 0.0 ? 0.0 : rounded;
}

std::string formattedTideHeight(Length height, TideHeightUnit unit, const icu::Locale& locale) {
  using icu::number::NumberFormatter;
  using icu::number::Precision;
  const icu::MeasureUnit measureUnit =
      unit == TideHeightUnit::feet ? icu::MeasureUnit::getFoot() : icu::MeasureUnit::getMeter();
  const auto formatter = NumberFormatter::withLocale(locale)
                             .unit(measureUnit)
                             .unitWidth(UNUM_UNIT_WIDTH_NARROW)
                             .precision(Precision::fixedFraction(1))
                             .roundingMode(UNUM_ROUND_HALFEVEN);
  UErrorCode status = U_ZERO_ERROR;
  const icu::UnicodeString text = formatter.formatDouble(roundedTideHeight(height, unit), status).toString(status);
  if (U_FAILURE(status)) throw std::runtime_error(std::string("ICU number formatting failed: ") + u_errorName(status));
  std::string out;
  text.toUTF8String(out);
  return out;
}

}  // namespace ombrine
