#include "radar/caching_tile_overlay_renderer.hpp"

#include <algorithm>
#include <cmath>

#include "platform/log.hpp"
#include "radar/tile_errors.hpp"
#include "radar/tile_image.hpp"

namespace ombrine {

namespace {

constexpr int kFallbackLevels = 2;

// A decoded tile that can be drawn, and whether it is a placeholder for "no coverage".
struct Usable {
  CairoSurface image;
  bool placeholder = false;
};

Usable decodeUsable(const std::optional<std::string>& bytes) {
  if (!bytes) return {};
  CairoSurface image = decodeTileImage(*bytes);
  if (!image) return {};
  const bool placeholder = isPlaceholderTile(image.get());
  return {std::move(image), placeholder};
}

// The part of a coarser tile `levels` up that covers x, y, as a view into it.
CairoSurface cropped(cairo_surface_t* parent, std::int64_t x, std::int64_t y, int levels) {
  const int parts = 1 << levels;
  const double width = cairo_image_surface_get_width(parent) / static_cast<double>(parts);
  const double height = cairo_image_surface_get_height(parent) / static_cast<double>(parts);
  const auto column = static_cast<double>(x - ((x >> levels) << levels));
  const auto row = static_cast<double>(y - ((y >> levels) << levels));
  return CairoSurface(cairo_surface_create_for_rectangle(parent, column * width, row * height, width, height));
}

void drawImage(cairo_t* context, cairo_surface_t* image, const MapRect& rect, bool seamless) {
  double left = 0, top = 0, right = 0, bottom = 0;
  // A view made by cropping has no size of its own; take its extents.
  if (cairo_surface_get_type(image) == CAIRO_SURFACE_TYPE_IMAGE) {
    right = cairo_image_surface_get_width(image);
    bottom = cairo_image_surface_get_height(image);
  } else {
    CairoContext probe(cairo_create(image));
    cairo_clip_extents(probe.get(), &left, &top, &right, &bottom);
  }
  const double width = right - left, height = bottom - top;
  if (!(width > 0 && height > 0)) return;
  cairo_save(context);
  cairo_rectangle(context, rect.x, rect.y, rect.width, rect.height);
  cairo_clip(context);
  cairo_translate(context, rect.x, rect.y);
  cairo_scale(context, rect.width / width, rect.height / height);
  cairo_set_source_surface(context, image, -left, -top);
  cairo_pattern_t* pattern = cairo_get_source(context);
  cairo_pattern_set_extend(pattern, CAIRO_EXTEND_PAD);
  if (seamless) {
    cairo_pattern_set_filter(pattern, CAIRO_FILTER_NEAREST);
    cairo_set_antialias(context, CAIRO_ANTIALIAS_NONE);
  } else {
    cairo_pattern_set_filter(pattern, CAIRO_FILTER_GOOD);
  }
  cairo_paint(context);
  cairo_restore(context);
}

}  // namespace

int tileZoomForScale(double zoomScale, int tileSize, int minimumZ, int maximumZ) {
  const int minZoom = std::clamp(minimumZ, 0, 22);
  if (!(std::isfinite(zoomScale) && zoomScale > 0) || tileSize <= 0) return minZoom;
  const int maxZoom = (maximumZ < 1 || maximumZ > 22) ? 22 : std::max(minZoom, maximumZ);
  const double z = std::floor(std::log2(zoomScale) + 0.5) + std::log2(kMapWorldSize / tileSize);
  if (!std::isfinite(z)) return minZoom;
  return static_cast<int>(std::clamp(z, static_cast<double>(minZoom), static_cast<double>(maxZoom)));
}

CachingTileOverlayRenderer::CachingTileOverlayRenderer(std::shared_ptr<CachingTileOverlay> overlay, TileMapView& view,
                                                       const Clock& clock)
    : overlay_(std::move(overlay)), view_(view), clock_(clock) {}

void CachingTileOverlayRenderer::draw(const MapRect& mapRect, double zoomScale, cairo_t* context,
                                      std::vector<DrawnTile>* drawn) {
  std::optional<std::uint64_t> generation;
  bool seamless = false;
  {
    std::lock_guard guard(renderStateLock_);
    if (onRender_) generation = renderGeneration_;
    seamless = useSeamlessTileRendering_;
  }
  const int size = overlay_->tileSize();
  const int z = tileZoomForScale(zoomScale, size, overlay_->minimumZ(), overlay_->maximumZ());
  if (z > 62) return;
  const std::int64_t tiles = std::max<std::int64_t>(std::int64_t{1} << z, 1);
  const MapRect bounds = overlay_->boundingMapRect();
  const double tileWidth = bounds.width / static_cast<double>(tiles);
  if (!(std::isfinite(tileWidth) && tileWidth > 0)) return;
  const auto firstColumn = static_cast<std::int64_t>(std::floor((mapRect.minX() - bounds.minX()) / tileWidth));
  const auto lastColumn = static_cast<std::int64_t>(std::ceil((mapRect.maxX() - bounds.minX()) / tileWidth)) - 1;
  const auto firstRow =
      std::max<std::int64_t>(static_cast<std::int64_t>(std::floor((mapRect.minY() - bounds.minY()) / tileWidth)), 0);
  const auto lastRow = std::min<std::int64_t>(
      static_cast<std::int64_t>(std::ceil((mapRect.maxY() - bounds.minY()) / tileWidth)) - 1, tiles - 1);
  const double scale = view_.contentScaleFactor();

  RenderStats stats;
  for (std::int64_t x = firstColumn; x <= lastColumn; ++x) {
    for (std::int64_t y = firstRow; y <= lastRow; ++y) {
      ++stats.totalTiles;
      const TilePath path{x, y, z, scale};
      const MapRect rect{bounds.minX() + static_cast<double>(x) * tileWidth,
                         bounds.minY() + static_cast<double>(y) * tileWidth, tileWidth, tileWidth};
      const std::string key = overlay_->tileKey(path);
      DrawnTile tile{path, key, TileFill::missing, z, false};
      if (Usable own = decodeUsable(overlay_->cachedTile(path)); own.image) {
        ++stats.cachedTiles;
        tile.fill = own.placeholder ? TileFill::noCoverage : TileFill::cached;
        if (!own.placeholder) drawImage(context, own.image.get(), rect, seamless);
        if (drawn) drawn->push_back(std::move(tile));
        continue;
      }
      // Coarser first: a quarter, then a sixteenth of an ancestor.
      CairoSurface fallback;
      for (int up = 1; up <= kFallbackLevels && z - up >= 0 && !fallback; ++up) {
        Usable parent = decodeUsable(overlay_->cachedTile(TilePath{x >> up, y >> up, z - up, scale}));
        if (!parent.image || parent.placeholder) continue;
        fallback = cropped(parent.image.get(), x, y, up);
        if (fallback) {
          tile.fill = TileFill::coarserFallback;
          tile.sourceZoom = z - up;
          drawImage(context, fallback.get(), rect, seamless);
        }
      }
      for (int down = 1; down <= kFallbackLevels && !fallback && z + down <= 62; ++down) {
        const int parts = 1 << down;
        const int pixels = std::max(1, static_cast<int>(std::lround(size * scale)));
        CairoSurface composed(cairo_image_surface_create(CAIRO_FORMAT_ARGB32, pixels, pixels));
        CairoContext composer(cairo_create(composed.get()));
        const double cell = static_cast<double>(pixels) / parts;
        bool any = false;
        for (int i = 0; i < parts; ++i) {
          for (int j = 0; j < parts; ++j) {
            Usable child = decodeUsable(overlay_->cachedTile(TilePath{parts * x + i, parts * y + j, z + down, scale}));
            if (!child.image || child.placeholder) continue;
            drawImage(composer.get(), child.image.get(), MapRect{i * cell, j * cell, cell, cell}, seamless);
            any = true;
          }
        }
        if (!any) continue;
        cairo_surface_flush(composed.get());
        fallback = std::move(composed);
        tile.fill = TileFill::finerFallback;
        tile.sourceZoom = z + down;
        drawImage(context, fallback.get(), rect, seamless);
      }
      if (fallback) {
        ++stats.fallbackTiles;
      } else {
        ++stats.missingTiles;
      }
      requestTile(path, key, rect);
      tile.loading = tileLoadState_.isLoading(key);
      if (tile.loading) ++stats.loadingTiles;
      if (drawn) drawn->push_back(std::move(tile));
    }
  }

  if (!generation) return;
  const bool fullyRendered = stats.missingTiles == 0 && stats.fallbackTiles == 0;
  std::function<void(const RenderStats&)> onRender;
  {
    std::lock_guard guard(renderStateLock_);
    if (renderGeneration_ != *generation || fullyRendered == lastReportedFullyRendered_) return;
    lastReportedFullyRendered_ = fullyRendered;
    onRender = onRender_;
  }
  if (!onRender) return;
  std::weak_ptr<CachingTileOverlayRenderer> weak = weak_from_this();
  view_.runOnMain(0.0, [weak, onRender = std::move(onRender), stats] {
    if (weak.lock()) onRender(stats);
  });
}

void CachingTileOverlayRenderer::requestTile(const TilePath& path, const std::string& key, const MapRect& rect) {
  const auto identifier = tileLoadState_.beginLoading(key, Date::fromSystem(clock_.now()));
  if (!identifier) {
    std::lock_guard guard(tileRequestRegionsLock_);
    if (const auto found = tileRequestRegions_.find(key); found != tileRequestRegions_.end()) {
      found->second.mapRects.push_back(rect);
    }
    return;
  }
  {
    std::lock_guard guard(tileRequestRegionsLock_);
    tileRequestRegions_[key] = TileRequestRegions{*identifier, {rect}};
  }
  std::weak_ptr<CachingTileOverlayRenderer> weak = weak_from_this();
  auto arrived = [weak, key, id = *identifier](std::optional<std::string>, std::exception_ptr error) {
    if (auto self = weak.lock()) self->tileArrived(key, id, std::move(error));
  };
  overlay_->loadTile(path, key, std::move(arrived));
}

void CachingTileOverlayRenderer::tileArrived(const std::string& key, const Uuid& identifier, std::exception_ptr error) {
  std::vector<MapRect> rects;
  bool current = false;
  {
    std::lock_guard guard(tileRequestRegionsLock_);
    const auto found = tileRequestRegions_.find(key);
    current = found != tileRequestRegions_.end() && found->second.identifier == identifier;
    if (current) {
      rects = std::move(found->second.mapRects);
      tileRequestRegions_.erase(found);
    }
  }
  const Date now = Date::fromSystem(clock_.now());
  if (!current) {
    tileLoadState_.finishLoading(key, identifier, std::make_exception_ptr(TileURLError(TileURLError::cancelled)), now);
    return;
  }
  if (!error) loadedKeys_.insert(key);
  if (error) {
    try {
      std::rethrow_exception(error);
    } catch (const std::exception& failure) {
      logDetail("tile {} failed: {}", key, failure.what());
    }
  }
  const auto delay = tileLoadState_.finishLoading(key, identifier, error, now);
  if (delay) {
    std::weak_ptr<CachingTileOverlayRenderer> weak = weak_from_this();
    view_.runOnMain(*delay, [weak, rects] {
      if (auto self = weak.lock()) {
        for (const MapRect& rect : rects) self->view_.setNeedsDisplay(rect);
      }
    });
  }
  if (!error) {
    for (const MapRect& rect : rects) view_.setNeedsDisplay(rect);
  }
}

void CachingTileOverlayRenderer::setNeedsDisplay() { view_.setNeedsDisplay(overlay_->boundingMapRect()); }

void CachingTileOverlayRenderer::incrementRenderGeneration() {
  std::lock_guard guard(renderStateLock_);
  ++renderGeneration_;
}

std::uint64_t CachingTileOverlayRenderer::renderGeneration() const {
  std::lock_guard guard(renderStateLock_);
  return renderGeneration_;
}

void CachingTileOverlayRenderer::setOnRender(std::function<void(const RenderStats&)> onRender) {
  std::lock_guard guard(renderStateLock_);
  onRender_ = std::move(onRender);
}

void CachingTileOverlayRenderer::setUseSeamlessTileRendering(bool seamless) {
  std::lock_guard guard(renderStateLock_);
  useSeamlessTileRendering_ = seamless;
}

}  // namespace ombrine
