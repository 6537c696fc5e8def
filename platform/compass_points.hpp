#pragma once
// The 16 points of the compass and the point nearest to a bearing: the one rounding rule shared
// by the library's bearings and headings and by the simulator's feeds. Pure and thread-safe.

#include <array>
#include <cmath>
#include <string_view>

namespace ombrine {

inline constexpr int kCompassPointCount = 16;

// The point abbreviations, north first and clockwise: "N", "NNE", "NE", ... "NNW".
inline constexpr std::array<std::string_view, kCompassPointCount> kCompassAbbreviations = {
    "N", "NNE", "NE", "ENE", "E", "ESE", "SE", "SSE", "S", "SSW", "SW", "WSW", "W", "WNW", "NW", "NNW"};

// The index (0 = N ... 15 = NNW) of the point nearest to a bearing or heading in degrees, any
// angle wrapped into 0...360: sectors of 22.5 degrees centred on each point, so 11.2 is N, 11.3
// NNE, 350 N and -20 NNW. A value that is not a finite number is N.
inline int nearestCompassIndex(double degrees) noexcept {
  if (!std::isfinite(degrees)) return 0;
  const double normalised = std::fmod(std::fmod(degrees, 360.0) + 360.0, 360.0);
  return static_cast<int>(std::floor(normalised / 22.5 + 0.5)) % kCompassPointCount;
}

}  // namespace ombrine
