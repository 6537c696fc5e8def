#pragma once
// Tile bytes as images: decoding PNG bytes into a Cairo surface (which is also the check that
// bytes are an image), and recognising the flat grey placeholder a tile network sends for zoom
// levels it does not serve. Pure functions of their input; thread-safe.

#include <cairo.h>

#include <memory>
#include <string>
#include <string_view>

namespace ombrine {

struct CairoSurfaceDeleter {
  void operator()(cairo_surface_t* surface) const noexcept { cairo_surface_destroy(surface); }
};
using CairoSurface = std::unique_ptr<cairo_surface_t, CairoSurfaceDeleter>;

struct CairoContextDeleter {
  void operator()(cairo_t* context) const noexcept { cairo_destroy(context); }
};
using CairoContext = std::unique_ptr<cairo_t, CairoContextDeleter>;

// The image of PNG `bytes`; null when they are not a whole, readable image.
CairoSurface decodeTileImage(std::string_view bytes);

// True for an opaque image in which every pixel is grey (red, green and blue equal): what a
// tile network answers above its maximum zoom. Radar and map layers are transparent where there
// is nothing to show and coloured where there is, so this never matches real data.
bool isPlaceholderTile(cairo_surface_t* image);

// `surface` as PNG bytes. Raises std::runtime_error when Cairo cannot encode it.
std::string encodePng(cairo_surface_t* surface);

}  // namespace ombrine
