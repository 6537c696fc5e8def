// Tile replies are outside bytes: the image check, the placeholder test and "Retry-After".
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "radar/tile_errors.hpp"
#include "radar/tile_image.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  if (auto image = ombrine::decodeTileImage(bytes)) ombrine::isPlaceholderTile(image.get());
  ombrine::parseRetryAfter(bytes.substr(0, 64), ombrine::Date::fromUnix(1'800'000'000));
  return 0;
}
