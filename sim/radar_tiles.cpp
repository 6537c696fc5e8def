#include "sim/radar_tiles.hpp"

#include <png.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <stdexcept>
#include <vector>

namespace ombrine::sim {

namespace {

struct Rgba {
  std::uint8_t r, g, b, a;
};

// Storm cells: a start position, a radius (degrees) and a peak reflectivity.
struct Cell {
  double latitude, longitude, radius, peak;
};

constexpr std::array<Cell, 7> kCells = {{
    {51.0, -2.0, 2.5, 55.0},
    {40.5, -80.0, 3.0, 60.0},
    {-33.0, 150.0, 2.0, 50.0},
    {35.0, 135.0, 3.5, 45.0},
    {48.0, 10.0, 2.0, 40.0},
    {47.2, 12.0, 1.2, 52.0},
    {5.0, -60.0, 4.0, 58.0},
}};

double hoursOf(Instant time) { return static_cast<double>(time.time_since_epoch().count()) / 3600.0; }

// Web-mercator pixel centre to latitude and longitude.
std::pair<double, double> coordinateOf(int z, int x, int y, int px, int py, int size) {
  const double n = std::ldexp(1.0, z);
  const double fx = (x + (px + 0.5) / size) / n;
  const double fy = (y + (py + 0.5) / size) / n;
  const double longitude = fx * 360.0 - 180.0;
  const double latitude = std::atan(std::sinh(std::numbers::pi * (1.0 - 2.0 * fy))) * 180.0 / std::numbers::pi;
  return {latitude, longitude};
}

Rgba radarColour(double dbz) {
  // Colour scheme 2: light blue through deep blue, yellow, red to magenta.
  static constexpr std::array<std::pair<double, Rgba>, 7> kScale = {{
      {10, {136, 221, 238, 160}},
      {20, {0, 153, 204, 190}},
      {30, {0, 85, 170, 210}},
      {40, {255, 238, 0, 220}},
      {50, {255, 136, 0, 230}},
      {55, {221, 0, 0, 240}},
      {60, {255, 0, 255, 250}},
  }};
  if (dbz < kScale.front().first) return {0, 0, 0, 0};
  Rgba colour = kScale.front().second;
  for (const auto& [threshold, rgba] : kScale) {
    if (dbz >= threshold) colour = rgba;
  }
  return colour;
}

Rgba rampColour(double value, Rgba low, Rgba high) {
  const double t = std::clamp(value, 0.0, 1.0);
  auto mix = [t](std::uint8_t a, std::uint8_t b) { return static_cast<std::uint8_t>(std::lround(a + (b - a) * t)); };
  return {mix(low.r, high.r), mix(low.g, high.g), mix(low.b, high.b), mix(low.a, high.a)};
}

Rgba pixel(TileLayer layer, double latitude, double longitude, Instant time) {
  const double hours = hoursOf(time);
  switch (layer) {
    case TileLayer::radar: return radarColour(simulatedReflectivity(latitude, longitude, time));
    case TileLayer::clouds: {
      const double cover = 0.5 + 0.5 * std::sin(longitude / 9.0 + hours / 5.0) * std::cos(latitude / 7.0);
      return rampColour(cover, {255, 255, 255, 0}, {235, 235, 240, 220});
    }
    case TileLayer::temperature: {
      const double celsius = 30.0 * std::cos(latitude * std::numbers::pi / 180.0) - 5.0 +
                             6.0 * std::sin((longitude / 15.0 + hours) * std::numbers::pi / 12.0);
      return rampColour((celsius + 30.0) / 65.0, {40, 60, 200, 150}, {220, 40, 30, 150});
    }
    case TileLayer::uv: {
      const double uv = std::max(0.0, 11.0 * std::cos(latitude * std::numbers::pi / 180.0) *
                                          std::sin((longitude / 15.0 + hours - 6.0) * std::numbers::pi / 12.0));
      return rampColour(uv / 11.0, {60, 180, 60, 120}, {150, 40, 160, 170});
    }
    case TileLayer::airQuality: {
      const double index = 0.5 + 0.5 * std::sin(latitude / 5.0 + hours / 9.0) * std::sin(longitude / 6.0);
      return rampColour(index, {80, 200, 90, 110}, {140, 30, 50, 170});
    }
  }
  return {0, 0, 0, 0};
}

void appendBytes(png_structp png, png_bytep data, png_size_t length) {
  auto* out = static_cast<std::string*>(png_get_io_ptr(png));
  out->append(reinterpret_cast<const char*>(data), length);
}

std::string encodePng(const std::vector<Rgba>& pixels, int size) {
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png ? png_create_info_struct(png) : nullptr;
  if (!png || !info) {
    png_destroy_write_struct(&png, &info);
    throw std::runtime_error("cannot encode a PNG");
  }
  std::string out;
  if (setjmp(png_jmpbuf(png))) {
    png_destroy_write_struct(&png, &info);
    throw std::runtime_error("cannot encode a PNG");
  }
  png_set_write_fn(png, &out, appendBytes, nullptr);
  png_set_IHDR(png, info, static_cast<png_uint_32>(size), static_cast<png_uint_32>(size), 8, PNG_COLOR_TYPE_RGBA,
               PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  png_set_compression_level(png, 3);
  png_write_info(png, info);
  for (int row = 0; row < size; ++row) {
    png_write_row(png, reinterpret_cast<png_const_bytep>(&pixels[static_cast<std::size_t>(row) * size]));
  }
  png_write_end(png, nullptr);
  png_destroy_write_struct(&png, &info);
  return out;
}

}  // namespace

double simulatedReflectivity(double latitude, double longitude, Instant time) {
  const double hours = hoursOf(time);
  double dbz = 0.0;
  for (const Cell& cell : kCells) {
    // 40 km/h eastward, about 0.36 degrees of longitude an hour at mid latitudes, through a
    // day-long pass over the cell's home (from 4.3 degrees west of it to 4.3 east), so that each
    // region keeps its weather whatever the date.
    const double drift = 0.36 * (std::fmod(hours, 24.0) - 12.0);
    double east = std::fmod(longitude - (cell.longitude + drift), 360.0);
    if (east > 180.0) east -= 360.0;
    if (east < -180.0) east += 360.0;
    const double north = latitude - cell.latitude;
    const double distance2 = (east * east + north * north) / (cell.radius * cell.radius);
    const double strength = cell.peak * (0.75 + 0.25 * std::sin(hours * 2.0 * std::numbers::pi / 9.0 + cell.longitude));
    // Bands and showers inside the cell, as a real echo is never a smooth dome.
    const double texture = 0.8 + 0.2 * std::sin(latitude * 9.0 + east * 4.0) * std::sin(longitude * 7.0 - north * 5.0);
    dbz = std::max(dbz, strength * texture * std::exp(-distance2));
  }
  return dbz < 1.0 ? 0.0 : dbz;  // far from every cell it is dry, not a trace
}

std::string renderTilePng(TileLayer layer, int z, int x, int y, Instant time, int size) {
  std::vector<Rgba> pixels(static_cast<std::size_t>(size) * size);
  for (int py = 0; py < size; ++py) {
    for (int px = 0; px < size; ++px) {
      const auto [latitude, longitude] = coordinateOf(z, x, y, px, py, size);
      pixels[static_cast<std::size_t>(py) * size + px] = pixel(layer, latitude, longitude, time);
    }
  }
  return encodePng(pixels, size);
}

std::string placeholderTilePng(int size) {
  std::vector<Rgba> pixels(static_cast<std::size_t>(size) * size, Rgba{128, 128, 128, 255});
  return encodePng(pixels, size);
}

}  // namespace ombrine::sim
