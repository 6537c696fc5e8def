#include "core/values/screen_words.hpp"

#include <gtest/gtest.h>

namespace ombrine {
namespace {

// The sign of each half picks its hemisphere, the magnitude is shown without it, and the digits
// and decimal mark are the locale's.
TEST(ScreenWordsTest, CoordinateHemispheresInTheReadersDigits) {
  struct Row {
    const char* locale;
    double latitude;
    double longitude;
    const char* expected;
  };
  const Row rows[] = {
      {"en_US", 48.137, 11.575, "48.14°N 11.58°E"},    {"en_US", -33.87, 151.21, "33.87°S 151.21°E"},
      {"en_US", 64.1466, -21.9426, "64.15°N 21.94°W"}, {"de_DE", -54.8, -68.3, "54,80°S 68,30°W"},
      {"en_US", 0.0, 180.0, "0.00°N 180.00°E"},        {"ar_EG", 25.77, -80.19, "٢٥٫٧٧°N ٨٠٫١٩°W"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.expected);
    EXPECT_EQ(ScreenWords(icu::Locale(row.locale)).hemispheres(row.latitude, row.longitude), row.expected);
  }
}

}  // namespace
}  // namespace ombrine
