#pragma once
// Air quality on the US AQI scale: the reading, its band, and the scale as a legend.
//
// Pure values and tables; thread-safe; nothing raises. Labels are localisation keys, shown
// as they are until the program carries translations. JSON (core/values/value_json.hpp): keys
// "time" and "AQI".

#include <array>
#include <string_view>

#include "core/values/date.hpp"

namespace ombrine {

// The six bands of the AQI scale, lowest first.
enum class AirQualityRange { good, moderate, sensitive, unhealthy, veryUnhealthy, hazardous };

inline constexpr std::array<AirQualityRange, 6> kAirQualityRanges = {
    AirQualityRange::good,      AirQualityRange::moderate,      AirQualityRange::sensitive,
    AirQualityRange::unhealthy, AirQualityRange::veryUnhealthy, AirQualityRange::hazardous};

// The band of an AQI value. Each band includes its upper bound: 50 is good, 51 moderate,
// 300 very unhealthy, 301 hazardous. Values below 0 are good.
AirQualityRange airQualityRange(int aqi) noexcept;

// "Good", "Moderate", "Unhealthy for Sensitive Groups", "Unhealthy", "Very Unhealthy",
// "Hazardous".
std::string_view label(AirQualityRange range) noexcept;

// The plain colour of the index: green, yellow, orange, red, purple, brown.
std::string_view colorName(AirQualityRange range) noexcept;

// The scale drawn as a gradient: eight stops, the two ends doubled so the outer bands get
// room at the edges.
inline constexpr std::array<AirQualityRange, 8> kAirQualityGradientStops = {
    AirQualityRange::good,      AirQualityRange::good,          AirQualityRange::moderate,  AirQualityRange::sensitive,
    AirQualityRange::unhealthy, AirQualityRange::veryUnhealthy, AirQualityRange::hazardous, AirQualityRange::hazardous};

// The title of the scale (a localisation key).
inline constexpr std::string_view kAirQualityScaleTitle = "Air Quality Scale";

// One reading: when, and the US AQI value.
struct AirQuality {
  Date time;
  int aqi = 0;

  AirQualityRange range() const noexcept { return airQualityRange(aqi); }
  bool operator==(const AirQuality&) const = default;
};

}  // namespace ombrine
