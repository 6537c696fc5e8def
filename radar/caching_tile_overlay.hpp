#pragma once
// What a tile renderer needs of its tile source: synchronous cache lookups for drawing, one
// background load per request delivered exactly once, the tile's key, and the tile geometry.
// Implementations are thread-safe: every member may be called from any thread at any time.

#include <exception>
#include <functional>
#include <optional>
#include <string>

#include "radar/map_rect.hpp"
#include "radar/tile_path.hpp"

namespace ombrine {

// Called once per load, on any thread: the bytes, or the failure (TileHTTPError, TileURLError,
// HttpError, the token's failures).
using TileCompletion = std::function<void(std::optional<std::string> data, std::exception_ptr error)>;

class CachingTileOverlay {
 public:
  virtual ~CachingTileOverlay() = default;

  // Cached bytes of the tile, never touching the network; nothing for a miss or an invalid path.
  virtual std::optional<std::string> cachedTile(const TilePath& path) = 0;
  // Loads the tile in the background. When `expectedKey` is given and is no longer this path's
  // key (the frame changed under the caller), delivers TileURLError `cancelled`.
  virtual void loadTile(const TilePath& path, std::optional<std::string> expectedKey, TileCompletion completion) = 0;
  virtual std::string tileKey(const TilePath& path) = 0;

  // Points on a tile's side, and the zoom levels the source serves (a maximum below 1 or above
  // 22 means no limit below 22).
  virtual int tileSize() const = 0;
  virtual int minimumZ() const = 0;
  virtual int maximumZ() const = 0;
  virtual MapRect boundingMapRect() const { return MapRect::world(); }
};

}  // namespace ombrine
