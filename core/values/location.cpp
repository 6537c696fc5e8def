#include "core/values/location.hpp"

#include <cmath>
#include <numbers>

namespace ombrine {

double Location::distance(const Location& other) const noexcept {
  constexpr double kEarthRadius = 6371009.0;
  constexpr double kRadians = std::numbers::pi / 180.0;
  const double lat1 = latitude_ * kRadians;
  const double lat2 = other.latitude_ * kRadians;
  const double dLat = lat2 - lat1;
  const double dLon = (other.longitude_ - longitude_) * kRadians;
  const double a = std::sin(dLat / 2) * std::sin(dLat / 2) +
                   std::cos(lat1) * std::cos(lat2) * std::sin(dLon / 2) * std::sin(dLon / 2);
  return 2.0 * kEarthRadius * std::asin(std::min(1.0, std::sqrt(a)));
}

}  // namespace ombrine
