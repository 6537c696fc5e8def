#pragma once

#include <algorithm>
#include <cmath>

namespace ombrine {

// The whole part of a number a service sent, as an int: truncated toward zero, held at the
// int range, 0 for NaN. Services send wild numbers now and then, and casting one that does not
// fit an int is undefined behaviour.
inline int saturatingInt(double value) {
  if (std::isnan(value)) return 0;
  return static_cast<int>(std::clamp(value, -2147483648.0, 2147483647.0));
}

}  // namespace ombrine
