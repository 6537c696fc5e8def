#pragma once
// Pictures of tile layers over the base map, as the map screen would show them: each frame's
// overlay drawn through its own CachingTileOverlayRenderer until every tile has arrived, failed
// for good or is waiting out a cool-down (or the time limit passes), then composed over the
// base map with the place's marker and the frame's caption. All frames load at once, so a loop
// costs one round of (paced) requests; a tile already cached costs none.
//
// Context: call from a thread outside the runtime (it plays the map's main context and blocks
// while tiles load). Raises nothing of the network: a tile that cannot load stays a fallback or
// a gap, and its state says so.

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/clock.hpp"
#include "radar/caching_tile_overlay_renderer.hpp"
#include "radar/map_viewport.hpp"
#include "radar/radar_caching_tile_overlay.hpp"
#include "radar/radar_frames.hpp"
#include "radar/tile_image.hpp"
#include "tides/coast_tile_index.hpp"

namespace ombrine {

struct RadarPictureFrame {
  std::shared_ptr<CachingTileOverlay> overlay;
  std::string caption;  // e.g. the frame's local time
};

struct RadarPictureRequest {
  MapViewport viewport;
  std::string placeName;
  std::vector<RadarPictureFrame> frames;
  std::string attribution;
  const CoastTileIndex* coast = nullptr;  // land and shore; none: a plain map with a graticule
  std::chrono::seconds timeLimit{90};
  double layerOpacity = 0.85;
};

// One tile place of a frame and where its picture came from: "disk" (the shared cache, first
// use in this process), "memory" (already used in this process), "network" (downloaded now),
// "fallback zoom" (a coarser or finer tile stands in), "missing", "no coverage" (the network's
// placeholder above its maximum zoom).
struct RadarTileState {
  TilePath path;
  std::string state;
  int sourceZoom = 0;
};

struct RadarPictureResult {
  CairoSurface picture;  // viewport-sized, opaque RGB
  std::vector<RadarTileState> tiles;
  CachingTileOverlayRenderer::RenderStats stats;
  bool complete = false;  // no tile missing and none drawn from another zoom
};

// How far loading has come, for progress lines.
struct RadarPictureProgress {
  int framesSettled = 0;
  int frames = 0;
  int tilesReady = 0;  // drawn from this frame's own zoom
  int tiles = 0;
};

// Draws every frame of `request`. `progress` (optional) is called on the calling thread each
// time the counts change.
std::vector<RadarPictureResult> drawRadarPictures(
    const RadarPictureRequest& request, const Clock& clock,
    const std::function<void(const RadarPictureProgress&)>& progress = {});

// The overlays of RainViewer frames and of Foreca frames (`urlTemplate` of radar/foreca...).
std::shared_ptr<CachingTileOverlay> rainViewerOverlay(TileSession& session, const std::string& host,
                                                      const RadarFrame& frame);
std::shared_ptr<CachingTileOverlay> templateOverlay(TileSession& session, const std::string& urlTemplate, int tileSize,
                                                    int maximumZoom);

}  // namespace ombrine
