#include "history/sun_labels.hpp"

namespace ombrine {

std::string_view sunDaylightStateLabel(SunDaylightState state) noexcept {
  switch (state) {
    case SunDaylightState::normal: return "";
    case SunDaylightState::polarDay: return "Midnight sun";
    case SunDaylightState::polarNight: return "Polar night";
    case SunDaylightState::unavailable: return "Not available for this location";
  }
  return "";
}

std::string_view sunDaylightStateName(SunDaylightState state) noexcept {
  switch (state) {
    case SunDaylightState::normal: return "normal";
    case SunDaylightState::polarDay: return "polarDay";
    case SunDaylightState::polarNight: return "polarNight";
    case SunDaylightState::unavailable: return "unavailable";
  }
  return "unavailable";
}

}  // namespace ombrine
