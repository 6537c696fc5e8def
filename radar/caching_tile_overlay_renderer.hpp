#pragma once
// Draws one tile layer without ever waiting for the network. A tile in the caches is drawn; a
// missing one is filled from up to two coarser zoom levels (a cropped quarter or sixteenth) or
// else from up to two finer ones (composed children), and is requested in the background; the
// view redraws its place when it arrives (or, after a failure with a scheduled retry, when the
// back-off ends). A draw reports how complete the frame is (no missing and no fallback tiles)
// whenever that answer changes, unless the content changed meanwhile (`renderGeneration`).
// A tile network's flat grey placeholder is "no coverage": resolved, and not drawn.
//
// Context: `draw` may run on several threads at once; the renderer's state sits behind one lock
// per structure (request regions, render state, the retry state) and no lock is held while
// drawing, calling the overlay or calling back. Drawing touches only the Cairo context it is
// given. The overlay and the view must outlive the renderer's loads (hold the renderer in a
// shared_ptr: loads hold it weakly).

#include <cairo.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "core/values/uuid.hpp"
#include "platform/clock.hpp"
#include "radar/atomic_set.hpp"
#include "radar/caching_tile_overlay.hpp"
#include "radar/map_rect.hpp"
#include "radar/tile_load_retry_state.hpp"

namespace ombrine {

// What the renderer needs of the map view showing it.
class TileMapView {
 public:
  virtual ~TileMapView() = default;
  // Asks for `rect` (map points) to be drawn again; any thread.
  virtual void setNeedsDisplay(const MapRect& rect) = 0;
  // Runs `work` on the view's main context after `delaySeconds` (0: as soon as possible).
  virtual void runOnMain(double delaySeconds, std::function<void()> work) = 0;
  // Device pixels per point.
  virtual double contentScaleFactor() const = 0;
};

// The tile zoom for a zoom scale (pixels per map point) and the overlay's tile size and zoom
// range: log2 of the scale rounded, plus log2(world width / tile size), held within the range
// (a maximum below 1 or above 22 means 22). The minimum for a scale that is not positive.
int tileZoomForScale(double zoomScale, int tileSize, int minimumZ, int maximumZ);

class CachingTileOverlayRenderer : public std::enable_shared_from_this<CachingTileOverlayRenderer> {
 public:
  struct RenderStats {
    int totalTiles = 0;
    int cachedTiles = 0;
    int fallbackTiles = 0;
    int missingTiles = 0;
    int loadingTiles = 0;
    bool operator==(const RenderStats&) const = default;
  };

  struct TileRequestRegions {
    Uuid identifier;
    std::vector<MapRect> mapRects;
  };

  // How a draw filled one tile place.
  enum class TileFill { cached, coarserFallback, finerFallback, missing, noCoverage };
  struct DrawnTile {
    TilePath path;
    std::string key;
    TileFill fill = TileFill::missing;
    int sourceZoom = 0;    // the zoom level drawn (that of the fallback for a fallback)
    bool loading = false;  // a load of the tile is running
  };

  CachingTileOverlayRenderer(std::shared_ptr<CachingTileOverlay> overlay, TileMapView& view, const Clock& clock);

  // Draws the tiles covering `mapRect` at `zoomScale` into `context`, whose user space is map
  // points. Requests the tiles it could not draw from the caches. When `drawn` is given, one
  // entry per tile place is appended to it.
  void draw(const MapRect& mapRect, double zoomScale, cairo_t* context, std::vector<DrawnTile>* drawn = nullptr);
  bool canDraw() const { return true; }

  // Asks the view to redraw the whole overlay.
  void setNeedsDisplay();
  // The content changed (a new frame): draws that began before make no report.
  void incrementRenderGeneration();
  std::uint64_t renderGeneration() const;
  // Called on the view's main context when a draw's completeness answer changes.
  void setOnRender(std::function<void(const RenderStats&)> onRender);
  void setUseSeamlessTileRendering(bool seamless);

  TileLoadRetryState& tileLoadState() { return tileLoadState_; }
  const std::shared_ptr<CachingTileOverlay>& overlay() const { return overlay_; }
  // Keys whose background load delivered bytes.
  const AtomicSet<std::string>& loadedKeys() const { return loadedKeys_; }

 private:
  void requestTile(const TilePath& path, const std::string& key, const MapRect& rect);
  void tileArrived(const std::string& key, const Uuid& identifier, std::exception_ptr error);

  const std::shared_ptr<CachingTileOverlay> overlay_;
  TileMapView& view_;
  const Clock& clock_;
  TileLoadRetryState tileLoadState_;
  AtomicSet<std::string> loadedKeys_;

  std::mutex tileRequestRegionsLock_;
  std::unordered_map<std::string, TileRequestRegions> tileRequestRegions_;

  mutable std::mutex renderStateLock_;
  std::uint64_t renderGeneration_ = 0;
  bool lastReportedFullyRendered_ = false;
  bool useSeamlessTileRendering_ = false;
  std::function<void(const RenderStats&)> onRender_;
};

}  // namespace ombrine
