#pragma once
// What a screen shows for a day whose sun has no times: the texts of the daylight states.

#include <string_view>

#include "history/solar_events.hpp"

namespace ombrine {

// "Midnight sun", "Polar night", "Not available for this location"; empty for `normal`, whose
// times are shown instead.
std::string_view sunDaylightStateLabel(SunDaylightState state) noexcept;

// The state's name in JSON: "normal", "polarDay", "polarNight", "unavailable".
std::string_view sunDaylightStateName(SunDaylightState state) noexcept;

}  // namespace ombrine
