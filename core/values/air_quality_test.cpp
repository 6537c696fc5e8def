#include "core/values/air_quality.hpp"

#include <gtest/gtest.h>

namespace ombrine {
namespace {

using R = AirQualityRange;

TEST(AirQualityTest, EachBandIncludesItsUpperBound) {
  const std::pair<int, R> rows[] = {
      {-1, R::good},           {0, R::good},        {50, R::good},       {51, R::moderate},   {100, R::moderate},
      {101, R::sensitive},     {150, R::sensitive}, {151, R::unhealthy}, {200, R::unhealthy}, {201, R::veryUnhealthy},
      {300, R::veryUnhealthy}, {301, R::hazardous}, {999, R::hazardous},
  };
  for (const auto& [aqi, range] : rows) {
    EXPECT_EQ(airQualityRange(aqi), range) << aqi;
    EXPECT_EQ((AirQuality{Date{}, aqi}.range()), range) << aqi;
  }
}

}  // namespace
}  // namespace ombrine
