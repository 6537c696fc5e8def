#include "core/air_quality.hpp"

#include <gtest/gtest.h>

namespace ombrine {
namespace {

using R = AirQualityRange;

TEST(AirQualityTest, EachBandIncludesItsUpperBound) {
  const std::pair<int, R> rows[] = {
      {-1, R::good},          {0, R::good},          {50, R::good},
      {51, R::moderate},      {100, R::moderate},    {101, R::sensitive},
      {150, R::sensitive},    {151, R::unhealthy},   {200, R::unhealthy},
      {201, R::veryUnhealthy}, {300, R::veryUnhealthy}, {301, R::hazardous},
      {999, R::hazardous},
  };
  for (const auto& [aqi, range] : rows) {
    EXPECT_EQ(airQualityRange(aqi), range) << aqi;
    EXPECT_EQ((AirQuality{Date{}, aqi}.range()), range) << aqi;
  }
}

TEST(AirQualityTest, LabelsAndColoursPerBand) {
  struct Row {
    R range;
    std::string_view label;
    std::string_view color;
  };
  const Row rows[] = {
      {R::good, "Good", "green"},
      {R::moderate, "Moderate", "yellow"},
      {R::sensitive, "Unhealthy for Sensitive Groups", "orange"},
      {R::unhealthy, "Unhealthy", "red"},
      {R::veryUnhealthy, "Very Unhealthy", "purple"},
      {R::hazardous, "Hazardous", "brown"},
  };
  ASSERT_EQ(std::size(rows), kAirQualityRanges.size());
  for (size_t i = 0; i < kAirQualityRanges.size(); ++i) {
    EXPECT_EQ(kAirQualityRanges[i], rows[i].range);  // lowest band first
    EXPECT_EQ(label(rows[i].range), rows[i].label);
    EXPECT_EQ(colorName(rows[i].range), rows[i].color);
  }
  // The gradient doubles both ends of the scale.
  EXPECT_EQ(kAirQualityGradientStops[0], R::good);
  EXPECT_EQ(kAirQualityGradientStops[1], R::good);
  EXPECT_EQ(kAirQualityGradientStops[6], R::hazardous);
  EXPECT_EQ(kAirQualityGradientStops[7], R::hazardous);
}

}  // namespace
}  // namespace ombrine
