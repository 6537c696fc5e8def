#include "radar/gif_writer.hpp"

#include <gif_lib.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <numeric>
#include <stdexcept>

namespace ombrine {

namespace {

constexpr int kBins = 4096;  // 4 bits of each of red, green, blue

struct Rgb {
  int r, g, b;
};

Rgb rgbOf(std::uint32_t pixel) {
  // Cairo keeps premultiplied ARGB; the pictures are opaque, so the channels are plain.
  return {static_cast<int>((pixel >> 16) & 0xFF), static_cast<int>((pixel >> 8) & 0xFF),
          static_cast<int>(pixel & 0xFF)};
}

int binOf(const Rgb& c) { return (c.r >> 4) << 8 | (c.g >> 4) << 4 | (c.b >> 4); }

template <class Visit>
void forEachPixel(cairo_surface_t* frame, Visit visit) {
  cairo_surface_flush(frame);
  const int width = cairo_image_surface_get_width(frame), height = cairo_image_surface_get_height(frame);
  const int stride = cairo_image_surface_get_stride(frame);
  const unsigned char* data = cairo_image_surface_get_data(frame);
  for (int row = 0; row < height; ++row) {
    const auto* pixels = reinterpret_cast<const std::uint32_t*>(data + static_cast<std::ptrdiff_t>(row) * stride);
    for (int column = 0; column < width; ++column) visit(row * width + column, rgbOf(pixels[column]));
  }
}

int writeToString(GifFileType* gif, const GifByteType* data, int length) {
  static_cast<std::string*>(gif->UserData)
      ->append(reinterpret_cast<const char*>(data), static_cast<std::size_t>(length));
  return length;
}

void check(int status, GifFileType* gif, const char* what) {
  if (status == GIF_ERROR) {
    int error = 0;
    EGifCloseFile(gif, &error);
    throw std::runtime_error(std::string("cannot write the animation: ") + what);
  }
}

}  // namespace

std::string encodeAnimatedGif(const std::vector<cairo_surface_t*>& frames, int delayCentiseconds) {
  if (frames.empty()) throw std::runtime_error("cannot write an animation without frames");
  const int width = cairo_image_surface_get_width(frames.front());
  const int height = cairo_image_surface_get_height(frames.front());
  // The palette: the mean colour of each of the 256 most used bins.
  std::vector<std::array<long long, 4>> bins(kBins, {0, 0, 0, 0});
  for (cairo_surface_t* frame : frames) {
    if (cairo_image_surface_get_width(frame) != width || cairo_image_surface_get_height(frame) != height) {
      throw std::runtime_error("cannot write an animation of pictures of different sizes");
    }
    forEachPixel(frame, [&](int, const Rgb& c) {
      auto& bin = bins[static_cast<std::size_t>(binOf(c))];
      bin[0] += c.r, bin[1] += c.g, bin[2] += c.b, bin[3] += 1;
    });
  }
  std::vector<int> order(kBins);
  std::iota(order.begin(), order.end(), 0);
  std::sort(order.begin(), order.end(), [&](int a, int b) { return bins[a][3] > bins[b][3]; });
  std::vector<GifColorType> palette;
  for (int bin : order) {
    if (palette.size() == 256 || bins[bin][3] == 0) break;
    const auto& sum = bins[static_cast<std::size_t>(bin)];
    palette.push_back({static_cast<GifByteType>(sum[0] / sum[3]), static_cast<GifByteType>(sum[1] / sum[3]),
                       static_cast<GifByteType>(sum[2] / sum[3])});
  }
  while (palette.size() < 256) palette.push_back({0, 0, 0});
  // Each bin maps to the nearest palette colour.
  std::vector<GifByteType> nearest(kBins);
  for (int bin = 0; bin < kBins; ++bin) {
    const Rgb centre{((bin >> 8) & 0xF) * 17, ((bin >> 4) & 0xF) * 17, (bin & 0xF) * 17};
    const Rgb mean =
        bins[bin][3] ? Rgb{static_cast<int>(bins[bin][0] / bins[bin][3]), static_cast<int>(bins[bin][1] / bins[bin][3]),
                           static_cast<int>(bins[bin][2] / bins[bin][3])}
                     : centre;
    int best = 0, bestDistance = 1 << 30;
    for (int i = 0; i < 256; ++i) {
      const int dr = mean.r - palette[i].Red, dg = mean.g - palette[i].Green, db = mean.b - palette[i].Blue;
      const int distance = dr * dr * 3 + dg * dg * 4 + db * db * 2;
      if (distance < bestDistance) best = i, bestDistance = distance;
    }
    nearest[bin] = static_cast<GifByteType>(best);
  }

  std::string out;
  int error = 0;
  GifFileType* gif = EGifOpen(&out, writeToString, &error);
  if (!gif) throw std::runtime_error("cannot write the animation");
  ColorMapObject* colours = GifMakeMapObject(256, palette.data());
  EGifSetGifVersion(gif, true);
  const int screen = EGifPutScreenDesc(gif, width, height, 8, 0, colours);
  GifFreeMapObject(colours);
  check(screen, gif, "screen");
  unsigned char loop[3] = {1, 0, 0};  // repeat forever
  check(EGifPutExtensionLeader(gif, APPLICATION_EXT_FUNC_CODE), gif, "loop");
  check(EGifPutExtensionBlock(gif, 11, "NETSCAPE2.0"), gif, "loop");
  check(EGifPutExtensionBlock(gif, 3, loop), gif, "loop");
  check(EGifPutExtensionTrailer(gif), gif, "loop");
  std::vector<GifByteType> indexes(static_cast<std::size_t>(width) * height);
  for (cairo_surface_t* frame : frames) {
    GraphicsControlBlock control{DISPOSE_DO_NOT, false, delayCentiseconds, NO_TRANSPARENT_COLOR};
    GifByteType extension[4];
    const std::size_t length = EGifGCBToExtension(&control, extension);
    check(EGifPutExtension(gif, GRAPHICS_EXT_FUNC_CODE, static_cast<int>(length), extension), gif, "timing");
    check(EGifPutImageDesc(gif, 0, 0, width, height, false, nullptr), gif, "frame");
    forEachPixel(frame, [&](int index, const Rgb& c) { indexes[static_cast<std::size_t>(index)] = nearest[binOf(c)]; });
    for (int row = 0; row < height; ++row) {
      check(EGifPutLine(gif, indexes.data() + static_cast<std::ptrdiff_t>(row) * width, width), gif, "pixels");
    }
  }
  if (EGifCloseFile(gif, &error) == GIF_ERROR) throw std::runtime_error("cannot finish the animation");
  return out;
}

}  // namespace ombrine
