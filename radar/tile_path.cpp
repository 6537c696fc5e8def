#include "radar/tile_path.hpp"

#include <fmt/format.h>

#include <cmath>

namespace ombrine {

std::optional<TilePath> normalizedTilePath(const TilePath& path) {
  if (path.z < 0) return std::nullopt;
  if (path.z > 62) return path;
  const std::int64_t n = std::int64_t{1} << path.z;
  if (path.y >= n) return std::nullopt;
  TilePath normal = path;
  normal.x = ((path.x % n) + n) % n;
  return normal;
}

std::string invalidTileKey(const TilePath& path) { return fmt::format("invalid/{}/{}/{}", path.z, path.x, path.y); }

std::string scaleText(double scale) {
  if (std::isfinite(scale) && scale == std::floor(scale) && std::fabs(scale) < 1e15)
    return fmt::format("{:.1f}", scale);
  return fmt::format("{}", scale);
}

}  // namespace ombrine
