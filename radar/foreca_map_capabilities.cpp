#include "radar/foreca_map_capabilities.hpp"

#include <fmt/format.h>

#include <array>
#include <cmath>
#include <tuple>

#include "core/values/iso8601.hpp"
#include "core/values/value_json.hpp"

namespace ombrine {

using Image = ForecaMapCapabilities::ImageLayer;

constexpr auto jsonMembers(const Image::Times*) {
  return std::make_tuple(jsonMember("updated", &Image::Times::updated),
                         jsonMember("available", &Image::Times::available),
                         jsonMember("current", &Image::Times::current));
}

constexpr auto jsonMembers(const Image::Extent*) {
  return std::make_tuple(jsonMember("minLat", &Image::Extent::minLat), jsonMember("maxLat", &Image::Extent::maxLat),
                         jsonMember("minLon", &Image::Extent::minLon), jsonMember("maxLon", &Image::Extent::maxLon),
                         jsonMember("minZoom", &Image::Extent::minZoom),
                         jsonMember("maxZoom", &Image::Extent::maxZoom));
}

constexpr auto jsonMembers(const Image*) {
  return std::make_tuple(jsonMember("id", &Image::id), jsonMember("attribution", &Image::attribution),
                         jsonMember("title", &Image::title), jsonMember("description", &Image::description),
                         jsonMember("formats", &Image::formats), jsonMember("colorschemes", &Image::colorschemes),
                         jsonMember("times", &Image::times), jsonMember("analysis", &Image::analysis),
                         jsonMember("extent", &Image::extent));
}

constexpr auto jsonMembers(const ForecaMapCapabilities*) {
  return std::make_tuple(jsonMember("images", &ForecaMapCapabilities::images));
}

ForecaMapCapabilities decodeForecaMapCapabilities(std::string_view json) {
  const boost::json::value document = parseJson(json);
  const JsonPath root;
  ForecaMapCapabilities capabilities;
  decodeJson(document, root, capabilities);
  return capabilities;
}

namespace {

struct LayerRow {
  ForecaMapLayer layer;
  std::string_view text;
  std::span<const std::int64_t> ids;
};

constexpr std::array<std::int64_t, 3> kCloudIDs = {130, 14, 4};
constexpr std::array<std::int64_t, 1> kTemperatureIDs = {2};
constexpr std::array<std::int64_t, 1> kUVIDs = {9};
constexpr std::array<std::int64_t, 1> kAirQualityIDs = {79};

constexpr std::array<LayerRow, 4> kLayers = {{
    {ForecaMapLayer::cloudCoverage, "cloudCoverage", kCloudIDs},
    {ForecaMapLayer::temperature, "temperature", kTemperatureIDs},
    {ForecaMapLayer::uvIndex, "uvIndex", kUVIDs},
    {ForecaMapLayer::airQuality, "airQuality", kAirQualityIDs},
}};

const LayerRow& rowOf(ForecaMapLayer layer) {
  for (const auto& row : kLayers) {
    if (row.layer == layer) return row;
  }
  return kLayers.front();
}

}  // namespace

std::string_view textOf(ForecaMapLayer layer) { return rowOf(layer).text; }

std::optional<ForecaMapLayer> forecaMapLayerFromText(std::string_view text) {
  for (const auto& row : kLayers) {
    if (row.text == text) return row.layer;
  }
  return std::nullopt;
}

std::span<const std::int64_t> imageIDsOf(ForecaMapLayer layer) { return rowOf(layer).ids; }

std::optional<ForecaLayerFrames> forecaFrames(ForecaMapLayer layer, const ForecaMapCapabilities& capabilities,
                                              Date now) {
  const Image* chosen = nullptr;
  for (const std::int64_t id : imageIDsOf(layer)) {
    for (const auto& image : capabilities.images) {
      if (image.id == id) {
        chosen = &image;
        break;
      }
    }
    if (chosen) break;
  }
  if (!chosen) return std::nullopt;
  ForecaLayerFrames result{.forecaMapLayerImageID = chosen->id, .forecaMapLayerMaximumZoom = chosen->extent.maxZoom};
  for (const std::string& text : chosen->times.available) {
    std::optional<Date> date = parseInternetDateTime(text, false);
    if (!date) date = parseInternetDateTime(text, true);
    if (!date || *date > now + kForecaTimelineForecastLimit) continue;
    result.frames.push_back(RadarFrame{*date, text});
  }
  if (result.frames.empty()) return std::nullopt;
  double nearest = std::fabs(result.frames.front().time - now);
  for (std::size_t i = 1; i < result.frames.size(); ++i) {
    const double distance = std::fabs(result.frames[i].time - now);
    if (distance < nearest) nearest = distance, result.nowIndex = i;
  }
  return result;
}

std::string forecaTileTemplate(std::string_view proxy, std::string_view path, std::int64_t imageID) {
  while (!proxy.empty() && proxy.back() == '/') proxy.remove_suffix(1);
  return fmt::format("{}/api/v1/image/tile/{{z}}/{{x}}/{{y}}/{}/{}", proxy, path, imageID);
}

int forecaTileSize(std::string_view tileTemplate) {
  return tileTemplate.find("/512/") != std::string_view::npos ? 512 : 256;
}

}  // namespace ombrine
