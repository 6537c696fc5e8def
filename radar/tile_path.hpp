#pragma once
// Which tile: column, row, zoom and the display's content scale; and its normal form, in which
// columns wrap around the date line and a row outside the world makes the path invalid.
// Pure functions; thread-safe.

#include <cstdint>
#include <optional>
#include <string>

namespace ombrine {

struct TilePath {
  std::int64_t x = 0;
  std::int64_t y = 0;
  int z = 0;
  double contentScaleFactor = 1.0;

  bool operator==(const TilePath&) const = default;
};

// For z up to 62: nothing when y >= 2^z; x wrapped into 0 ... 2^z - 1. From z = 63 on, as given.
std::optional<TilePath> normalizedTilePath(const TilePath& path);

// "invalid/<z>/<x>/<y>", the key of a path outside the world.
std::string invalidTileKey(const TilePath& path);

// The scale as text the way keys carry it: "1.0", "2.0", "1.5".
std::string scaleText(double scale);

}  // namespace ombrine
