#include "radar/tile_image.hpp"

#include <cstdint>
#include <cstring>
#include <stdexcept>

namespace ombrine {

namespace {

struct Reader {
  std::string_view bytes;
  std::size_t offset = 0;
};

cairo_status_t readFromMemory(void* closure, unsigned char* data, unsigned int length) {
  auto* reader = static_cast<Reader*>(closure);
  if (reader->bytes.size() - reader->offset < length) return CAIRO_STATUS_READ_ERROR;
  std::memcpy(data, reader->bytes.data() + reader->offset, length);
  reader->offset += length;
  return CAIRO_STATUS_SUCCESS;
}

cairo_status_t appendToString(void* closure, const unsigned char* data, unsigned int length) {
  static_cast<std::string*>(closure)->append(reinterpret_cast<const char*>(data), length);
  return CAIRO_STATUS_SUCCESS;
}

}  // namespace

CairoSurface decodeTileImage(std::string_view bytes) {
  if (bytes.empty()) return nullptr;
  Reader reader{bytes};
  CairoSurface image(cairo_image_surface_create_from_png_stream(readFromMemory, &reader));
  if (cairo_surface_status(image.get()) != CAIRO_STATUS_SUCCESS) return nullptr;
  if (cairo_image_surface_get_width(image.get()) <= 0 || cairo_image_surface_get_height(image.get()) <= 0) {
    return nullptr;
  }
  return image;
}

bool isPlaceholderTile(cairo_surface_t* image) {
  if (!image || cairo_surface_get_type(image) != CAIRO_SURFACE_TYPE_IMAGE) return false;
  cairo_surface_flush(image);
  const cairo_format_t format = cairo_image_surface_get_format(image);
  if (format != CAIRO_FORMAT_ARGB32 && format != CAIRO_FORMAT_RGB24) return false;
  const int width = cairo_image_surface_get_width(image);
  const int height = cairo_image_surface_get_height(image);
  const int stride = cairo_image_surface_get_stride(image);
  const unsigned char* data = cairo_image_surface_get_data(image);
  for (int row = 0; row < height; ++row) {
    const auto* pixels = reinterpret_cast<const std::uint32_t*>(data + static_cast<std::ptrdiff_t>(row) * stride);
    for (int column = 0; column < width; ++column) {
      const std::uint32_t pixel = pixels[column];
      const std::uint32_t alpha = format == CAIRO_FORMAT_RGB24 ? 0xFF : pixel >> 24;
      const std::uint32_t red = (pixel >> 16) & 0xFF, green = (pixel >> 8) & 0xFF, blue = pixel & 0xFF;
      if (alpha != 0xFF || red != green || green != blue) return false;
    }
  }
  return true;
}

std::string encodePng(cairo_surface_t* surface) {
  std::string out;
  if (cairo_surface_write_to_png_stream(surface, appendToString, &out) != CAIRO_STATUS_SUCCESS) {
    throw std::runtime_error("cannot encode the image as PNG");
  }
  return out;
}

}  // namespace ombrine
