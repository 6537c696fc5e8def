#include <gtest/gtest.h>

#include <cmath>

#include "tides/tide_format.hpp"

namespace ombrine {
namespace {

TEST(TideHeightTextTest, RoundsToTenthsTiesToEvenWithoutNegativeZero) {
  const icu::Locale english("en_US");
  struct Row {
    double meters;
    TideHeightUnit unit;
    const char* text;
  };
  const Row rows[] = {
      {-0.04, TideHeightUnit::meters, "0.0m"},  // no "-0.0"
      {0.25, TideHeightUnit::meters, "0.2m"},   // tie to even, down
      {0.75, TideHeightUnit::meters, "0.8m"},   // tie to even, up
      {1.716, TideHeightUnit::meters, "1.7m"},
      {-0.126, TideHeightUnit::meters, "-0.1m"},
      {0.3048 * 5.55, TideHeightUnit::feet, "5.6\u2032"},  // converted before rounding; narrow foot sign
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.meters);
    EXPECT_EQ(formattedTideHeight(Length::meters(row.meters), row.unit, english), row.text);
  }
  EXPECT_FALSE(std::signbit(roundedTideHeight(Length::meters(-0.04), TideHeightUnit::meters)));
  EXPECT_EQ(formattedTideHeight(Length::meters(1.25), TideHeightUnit::meters, icu::Locale("de_DE")), "1,2 m");
}

}  // namespace
}  // namespace ombrine
