// Fuzz target for the radar decoders (RainViewer maps, Foreca capabilities, the token reply):
// any bytes either decode or raise DecodingError, and what decodes yields frames and templates.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "core/values/errors.hpp"
#include "radar/foreca_map_capabilities.hpp"
#include "radar/radar_frames.hpp"
#include "radar/tile_token_manager.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const ombrine::Date now = ombrine::Date::fromUnix(1609402525);
  try {
    const auto response = ombrine::decodeRainViewerResponse(text, "https://tiles.example");
    (void)ombrine::rainViewerRejection(response, now);
    for (const auto& frame : ombrine::displayedFrames(response.radar)) {
      (void)ombrine::rainViewerTileTemplate(response.host, frame.path);
    }
  } catch (const ombrine::DecodingError&) {
  }
  try {
    const auto capabilities = ombrine::decodeForecaMapCapabilities(text);
    for (auto layer : {ombrine::ForecaMapLayer::cloudCoverage, ombrine::ForecaMapLayer::airQuality}) {
      (void)ombrine::forecaFrames(layer, capabilities, now);
    }
  } catch (const ombrine::DecodingError&) {
  }
  try {
    (void)ombrine::decodeTokenResponse(text);
  } catch (const ombrine::DecodingError&) {
  }
  return 0;
}
