#pragma once
// The 16-point compass of a wind direction.
//
// index = truncate(degrees / 22), clamped to 0...15. A sector is the integer 360 / 16 = 22
// degrees wide, not 22.5: the sectors deliberately do not close the circle, so everything
// from 330 degrees on is NNW and 352 degrees is NNW, not N. Pure and thread-safe.

#include <optional>
#include <string_view>

#include "core/values/measurements.hpp"
#include "platform/compass_points.hpp"

namespace ombrine {

// North first, clockwise.
enum class CompassDirection {
  north,
  northNorthEast,
  northEast,
  eastNorthEast,
  east,
  eastSouthEast,
  southEast,
  southSouthEast,
  south,
  southSouthWest,
  southWest,
  westSouthWest,
  west,
  westNorthWest,
  northWest,
  northNorthWest,
};

// The points' abbreviations (kCompassAbbreviations) and kCompassPointCount come from
// platform/compass_points.hpp, in the same order.

// The point index (0 = N ... 15 = NNW) of a direction in degrees. A direction below 0 or not
// a number is N; one of 330 or more is NNW.
int compassIndex(double degrees) noexcept;

CompassDirection compassDirection(Angle direction) noexcept;

// "N", "NNE", ...
std::string_view abbreviation(CompassDirection direction) noexcept;

// The abbreviation of the nearest point to a bearing or heading (nearestCompassIndex: sectors of
// 22.5 degrees centred on each point, so 11.2 is "N", 11.3 "NNE" and 350 "N"). Unlike the wind
// rule above, the sectors close the circle. Not a number is "N".
std::string_view nearestCompassAbbreviation(double degrees) noexcept;

// The point an abbreviation names ("nne" too); nothing for anything else.
std::optional<CompassDirection> compassDirection(std::string_view abbreviation) noexcept;

}  // namespace ombrine
