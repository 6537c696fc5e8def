#include "radar/radar_picture.hpp"

#include "radar/base_map.hpp"
#include "radar/headless_map_view.hpp"

namespace ombrine {

namespace {

struct FrameDrawing {
  std::shared_ptr<CachingTileOverlayRenderer> renderer;
  CairoSurface layer;
  std::vector<CachingTileOverlayRenderer::DrawnTile> tiles;
  CachingTileOverlayRenderer::RenderStats stats;
  bool settled = false;
};

void drawLayer(FrameDrawing& frame, const MapViewport& viewport) {
  frame.layer.reset(cairo_image_surface_create(CAIRO_FORMAT_ARGB32, viewport.width, viewport.height));
  CairoContext context(cairo_create(frame.layer.get()));
  viewport.applyTransform(context.get());
  frame.tiles.clear();
  frame.stats = {};
  frame.renderer->draw(viewport.mapRect(), viewport.zoomScale(), context.get(), &frame.tiles);
  for (const auto& tile : frame.tiles) {
    ++frame.stats.totalTiles;
    switch (tile.fill) {
      case CachingTileOverlayRenderer::TileFill::cached:
      case CachingTileOverlayRenderer::TileFill::noCoverage: ++frame.stats.cachedTiles; break;
      case CachingTileOverlayRenderer::TileFill::coarserFallback:
      case CachingTileOverlayRenderer::TileFill::finerFallback: ++frame.stats.fallbackTiles; break;
      case CachingTileOverlayRenderer::TileFill::missing: ++frame.stats.missingTiles; break;
    }
    if (tile.loading) ++frame.stats.loadingTiles;
  }
}

std::string stateName(const CachingTileOverlayRenderer::DrawnTile& tile, CachingTileOverlayRenderer& renderer,
                      AtomicSet<std::string>& seen) {
  using Fill = CachingTileOverlayRenderer::TileFill;
  switch (tile.fill) {
    case Fill::cached:
      // Stored by a download of this run whose delivery may still be on its way.
      if (renderer.loadedKeys().contains(tile.key) || renderer.tileLoadState().isLoading(tile.key)) return "network";
      return seen.insert(tile.key) ? "disk" : "memory";
    case Fill::noCoverage: return "no coverage";
    case Fill::coarserFallback:
    case Fill::finerFallback: return "fallback zoom";
    case Fill::missing: return "missing";
  }
  return "missing";
}

}  // namespace

std::vector<RadarPictureResult> drawRadarPictures(const RadarPictureRequest& request, const Clock& clock,
                                                  const std::function<void(const RadarPictureProgress&)>& progress) {
  const MapViewport& viewport = request.viewport;
  HeadlessMapView view(clock);
  std::vector<FrameDrawing> frames(request.frames.size());
  AtomicSet<std::string> seen;
  // Which tiles each frame found cached before any load of this run: "disk" or "memory".
  std::vector<std::vector<std::string>> firstStates(frames.size());
  for (std::size_t i = 0; i < frames.size(); ++i) {
    frames[i].renderer = std::make_shared<CachingTileOverlayRenderer>(request.frames[i].overlay, view, clock);
    drawLayer(frames[i], viewport);
    for (const auto& tile : frames[i].tiles) firstStates[i].push_back(stateName(tile, *frames[i].renderer, seen));
  }
  const Clock::Uptime deadline = clock.uptime() + request.timeLimit;
  RadarPictureProgress last{-1, 0, 0, 0};
  while (true) {
    RadarPictureProgress now{0, static_cast<int>(frames.size()), 0, 0};
    for (auto& frame : frames) {
      frame.settled = frame.stats.loadingTiles == 0;
      now.framesSettled += frame.settled ? 1 : 0;
      now.tilesReady += frame.stats.cachedTiles;
      now.tiles += frame.stats.totalTiles;
    }
    if (progress && (now.framesSettled != last.framesSettled || now.tilesReady != last.tilesReady)) progress(now);
    last = now;
    const bool retriesAhead = view.scheduledCount() > 0;
    // A tile that arrived between a draw's request and its count still asks for a redraw; a
    // failed load asks for none, so a frame still loading is drawn again now and then to see.
    const bool settled = now.framesSettled == now.frames && !retriesAhead;
    if (!settled && clock.uptime() < deadline) {
      view.waitForWork(std::min<Clock::Duration>(deadline - clock.uptime(), std::chrono::milliseconds(250)));
    }
    const bool redraw = view.runPending();
    if ((!redraw && settled) || clock.uptime() >= deadline) break;
    for (auto& frame : frames) {
      if (frame.stats.cachedTiles < frame.stats.totalTiles && (redraw || !frame.settled)) drawLayer(frame, viewport);
    }
  }

  CairoSurface base(cairo_image_surface_create(CAIRO_FORMAT_RGB24, viewport.width, viewport.height));
  {
    CairoContext context(cairo_create(base.get()));
    drawBaseMap(context.get(), viewport, request.coast);
  }
  std::vector<RadarPictureResult> results;
  for (std::size_t i = 0; i < frames.size(); ++i) {
    FrameDrawing& frame = frames[i];
    RadarPictureResult result;
    result.picture.reset(cairo_image_surface_create(CAIRO_FORMAT_RGB24, viewport.width, viewport.height));
    CairoContext context(cairo_create(result.picture.get()));
    cairo_set_source_surface(context.get(), base.get(), 0, 0);
    cairo_paint(context.get());
    cairo_set_source_surface(context.get(), frame.layer.get(), 0, 0);
    cairo_paint_with_alpha(context.get(), request.layerOpacity);
    drawPlaceMarker(context.get(), viewport, viewport.latitude, viewport.longitude, request.placeName);
    drawCaption(context.get(), viewport, request.frames[i].caption, request.attribution);
    cairo_surface_flush(result.picture.get());
    for (std::size_t t = 0; t < frame.tiles.size(); ++t) {
      const auto& tile = frame.tiles[t];
      std::string state = stateName(tile, *frame.renderer, seen);
      // A tile cached from the start keeps the tier it was first found in.
      if (state != "network" && t < firstStates[i].size() &&
          tile.fill == CachingTileOverlayRenderer::TileFill::cached && firstStates[i][t] != "missing" &&
          firstStates[i][t] != "fallback zoom") {
        state = firstStates[i][t];
      }
      result.tiles.push_back({tile.path, std::move(state), tile.sourceZoom});
    }
    result.stats = frame.stats;
    result.complete = frame.stats.missingTiles == 0 && frame.stats.fallbackTiles == 0;
    results.push_back(std::move(result));
  }
  return results;
}

std::shared_ptr<CachingTileOverlay> rainViewerOverlay(TileSession& session, const std::string& host,
                                                      const RadarFrame& frame) {
  return std::make_shared<AnimatedRadarTileOverlay>(session, host, frame.path, true, kRainViewerMaximumZoom);
}

std::shared_ptr<CachingTileOverlay> templateOverlay(TileSession& session, const std::string& urlTemplate, int tileSize,
                                                    int maximumZoom) {
  return std::make_shared<AnimatedTemplateTileOverlay>(session, urlTemplate, tileSize, 0, maximumZoom);
}

}  // namespace ombrine
