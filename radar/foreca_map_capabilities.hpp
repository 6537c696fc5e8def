#pragma once
// The Foreca map layers reached through the tile proxy: the capabilities record, the layer
// table (which image ids serve a user's layer choice), the frames of an image layer and their
// tile URL template. Pure functions; thread-safe.

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "core/values/date.hpp"
#include "radar/radar_frames.hpp"

namespace ombrine {

struct ForecaMapCapabilities {
  struct ImageLayer {
    struct Times {
      std::optional<std::string> updated;
      std::vector<std::string> available;
      std::optional<std::int64_t> current;
    };
    struct Extent {
      double minLat = 0.0;
      double maxLat = 0.0;
      double minLon = 0.0;
      double maxLon = 0.0;
      std::int64_t minZoom = 0;
      std::int64_t maxZoom = 0;
    };

    std::int64_t id = 0;
    std::optional<std::string> attribution;
    std::string title;
    std::optional<std::string> description;
    std::optional<std::vector<std::string>> formats;
    std::optional<std::vector<std::string>> colorschemes;
    Times times;
    std::optional<std::string> analysis;
    Extent extent;
  };

  std::vector<ImageLayer> images;
};

// Raises DecodingError naming where the document is wrong.
ForecaMapCapabilities decodeForecaMapCapabilities(std::string_view json);

// The user's supplemental layer choice.
enum class ForecaMapLayer { cloudCoverage, temperature, uvIndex, airQuality };

// "cloudCoverage", "temperature", "uvIndex", "airQuality".
std::string_view textOf(ForecaMapLayer layer);
std::optional<ForecaMapLayer> forecaMapLayerFromText(std::string_view text);
// The image ids that serve `layer`, in order of preference.
std::span<const std::int64_t> imageIDsOf(ForecaMapLayer layer);

// The chosen image layer's frames, with the frame nearest now.
struct ForecaLayerFrames {
  std::int64_t forecaMapLayerImageID = 0;
  std::int64_t forecaMapLayerMaximumZoom = 0;
  std::vector<RadarFrame> frames;
  std::size_t nowIndex = 0;
};

// The first image (in the table's order of ids) that serves `layer`, and its frames up to 36
// hours after `now`; nothing when no image serves it or no frame remains (the layer failed).
std::optional<ForecaLayerFrames> forecaFrames(ForecaMapLayer layer, const ForecaMapCapabilities& capabilities,
                                              Date now);

// "<proxy>/api/v1/image/tile/{z}/{x}/{y}/<path>/<image id>".
std::string forecaTileTemplate(std::string_view proxy, std::string_view path, std::int64_t imageID);
// 512 when the template holds "/512/", else 256.
int forecaTileSize(std::string_view tileTemplate);

}  // namespace ombrine
