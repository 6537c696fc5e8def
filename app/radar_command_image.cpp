#include "app/radar_command_image.hpp"

#include <fmt/format.h>
#include <fontconfig/fontconfig.h>
#include <unistd.h>

#include <cmath>
#include <iostream>
#include <memory>

#include "app/commands.hpp"
#include "app/failure_text.hpp"
#include "app/global_options.hpp"
#include "app/place_query.hpp"
#include "core/fetch/geocoder.hpp"
#include "core/values/iso8601.hpp"
#include "core/values/value_json.hpp"
#include "platform/atomic_file.hpp"
#include "platform/log.hpp"
#include "radar/gif_writer.hpp"
#include "radar/radar_loader.hpp"
#include "radar/radar_picture.hpp"
#include "wiring/services.hpp"

namespace ombrine::app {

namespace {

struct ImageOptions {
  std::string place;
  std::string at;
  double zoom = 6.0;
  std::string size = "1024x768";
  std::string layer = "radar";
  std::string output;
  bool loop = false;
  bool json = false;
};

constexpr std::size_t kLoopFrames = 13;

}  // namespace

std::string radarLocalTime(Date date, const TimeZone& zone) {
  const auto seconds = static_cast<long long>(std::floor(date.unixSeconds() + zone.secondsFromGMT(date)));
  const std::chrono::sys_seconds local{std::chrono::seconds(seconds)};
  const auto day = std::chrono::floor<std::chrono::days>(local);
  const std::chrono::year_month_day ymd(day);
  const std::chrono::hh_mm_ss time(local - day);
  return fmt::format("{:04}-{:02}-{:02} {:02}:{:02}", static_cast<int>(ymd.year()), unsigned(ymd.month()),
                     unsigned(ymd.day()), time.hours().count(), time.minutes().count());
}

namespace {

std::pair<int, int> parseSize(const std::string& text) {
  int width = 0, height = 0;
  char separator = 0;
  if (std::sscanf(text.c_str(), "%d%c%d", &width, &separator, &height) != 3 || separator != 'x' || width < 64 ||
      height < 64 || width > 4096 || height > 4096) {
    throw InvalidPlaceQuery("--size takes WIDTHxHEIGHT in pixels, 64 to 4096 each, e.g. 1024x768");
  }
  return {width, height};
}

// The frames to draw and how to reach their tiles.
struct LayerFrames {
  std::vector<RadarFrame> frames;
  std::vector<std::shared_ptr<CachingTileOverlay>> overlays;
  std::string attribution;
};

LayerFrames radarFrames(Services& services, Date now, bool loop) {
  auto loading = services.radar().loadRainViewerFrames(now);
  const RainViewerFrames loaded = services.runtime().runBlocking(std::move(loading));
  if (!loaded.fromService) logDetail("radar frames: the computed timeline stands in ({})", loaded.fallbackReason);
  const auto& past = loaded.response.radar.past;
  LayerFrames layer{.attribution = "Radar: RainViewer · Map: Natural Earth"};
  const std::size_t count = loop ? std::min(kLoopFrames, past.size()) : std::min<std::size_t>(1, past.size());
  for (std::size_t i = past.size() - count; i < past.size(); ++i) {
    layer.frames.push_back(past[i]);
    layer.overlays.push_back(rainViewerOverlay(services.tileSession(), loaded.response.host, past[i]));
  }
  return layer;
}

LayerFrames forecaLayerFrames(Services& services, ForecaMapLayer which, Date now, bool loop) {
  RadarLoader& loader = services.radar();
  auto loading = loader.loadForecaCapabilities();
  const ForecaMapCapabilities capabilities = services.runtime().runBlocking(std::move(loading));
  const auto found = forecaFrames(which, capabilities, now);
  if (!found) throw std::runtime_error(fmt::format("the {} layer has no frames", textOf(which)));
  const std::string proxy(loader.endpoints().tileProxy.buffer());
  LayerFrames layer{.attribution = "Layer: Foreca · Map: Natural Earth"};
  const std::size_t half = loop ? kLoopFrames / 2 : 0;
  const std::size_t first = found->nowIndex >= half ? found->nowIndex - half : 0;
  const std::size_t last = std::min(found->frames.size(), first + (loop ? kLoopFrames : 1));
  for (std::size_t i = first; i < last; ++i) {
    const std::string urlTemplate = forecaTileTemplate(proxy, found->frames[i].path, found->forecaMapLayerImageID);
    layer.frames.push_back(found->frames[i]);
    layer.overlays.push_back(templateOverlay(services.tileSession(), urlTemplate, forecaTileSize(urlTemplate),
                                             static_cast<int>(found->forecaMapLayerMaximumZoom)));
  }
  return layer;
}

void printJson(const ImageOptions& options, const NamedPlace& place, const LayerFrames& layer,
               const std::vector<RadarPictureResult>& results) {
  std::string out;
  JsonWriter writer(out);
  writer.beginObject();
  writer.key("place");
  writer.string(place.name);
  writer.key("layer");
  writer.string(options.layer);
  writer.key("output");
  writer.string(options.output);
  writer.key("frames");
  writer.beginArray();
  for (std::size_t i = 0; i < results.size(); ++i) {
    const auto& result = results[i];
    writer.beginObject();
    writer.key("date");
    writer.string(iso8601String(layer.frames[i].time));
    writer.key("complete");
    writer.boolean(result.complete);
    for (const auto& [name, value] : {std::pair{"totalTiles", result.stats.totalTiles},
                                      {"cachedTiles", result.stats.cachedTiles},
                                      {"fallbackTiles", result.stats.fallbackTiles},
                                      {"missingTiles", result.stats.missingTiles}}) {
      writer.key(name);
      writer.integer(value);
    }
    writer.key("tiles");
    writer.beginArray();
    for (const auto& tile : result.tiles) {
      writer.beginObject();
      writer.key("z");
      writer.integer(tile.path.z);
      writer.key("x");
      writer.integer(tile.path.x);
      writer.key("y");
      writer.integer(tile.path.y);
      writer.key("state");
      writer.string(tile.state);
      if (tile.state == "fallback zoom") {
        writer.key("fallbackZoom");
        writer.integer(tile.sourceZoom);
      }
      writer.endObject();
    }
    writer.endArray();
    writer.endObject();
  }
  writer.endArray();
  writer.endObject();
  std::cout << out << "\n";
}

int run(const ImageOptions& options) {
  const auto [width, height] = parseSize(options.size);
  const std::string query = !options.at.empty() ? options.at : options.place;
  if (query.empty()) throw InvalidPlaceQuery("name a place (e.g. Munich) or give --at LAT,LON");
  const bool gif = options.output.ends_with(".gif");
  if (options.loop != gif) {
    throw InvalidPlaceQuery(options.loop ? "--loop writes an animated GIF: give -o FILE.gif"
                                         : "a single frame is written as PNG: give -o FILE.png (or --loop)");
  }
  ProgramServices program;
  Services& services = *program;
  const NamedPlace place = resolveNamedPlace(services, query, !options.at.empty());
  const Date now = Date::fromSystem(services.clock().now());
  LayerFrames layer;
  if (options.layer == "radar") {
    layer = radarFrames(services, now, options.loop);
  } else {
    static const std::map<std::string, ForecaMapLayer> names = {{"clouds", ForecaMapLayer::cloudCoverage},
                                                                {"temperature", ForecaMapLayer::temperature},
                                                                {"uv", ForecaMapLayer::uvIndex},
                                                                {"airquality", ForecaMapLayer::airQuality}};
    layer = forecaLayerFrames(services, names.at(options.layer), now, options.loop);
  }
  if (layer.frames.empty()) throw std::runtime_error(kNoRadarFramesMessage);

  RadarPictureRequest request{
      .viewport = {place.location.latitude(), place.location.longitude(), options.zoom, width, height},
      .placeName = place.name,
      .attribution = layer.attribution,
      .coast = sharedCoastTileIndex().get()};
  for (std::size_t i = 0; i < layer.frames.size(); ++i) {
    request.frames.push_back(
        {layer.overlays[i], fmt::format("{}  {}", options.layer, radarLocalTime(layer.frames[i].time, place.zone))});
  }
  const bool terminal = ::isatty(STDERR_FILENO) != 0;
  auto progress = [terminal](const RadarPictureProgress& step) {
    std::cerr << fmt::format("Loading tiles: {}/{} ready, {}/{} frames settled", step.tilesReady, step.tiles,
                             step.framesSettled, step.frames)
              << (terminal ? "\r" : "\n") << std::flush;
  };
  std::string bytes;
  int missing = 0, total = 0;
  std::size_t frames = 0;
  {
    auto results = drawRadarPictures(request, services.clock(), progress);
    if (terminal) std::cerr << "\n";
    if (gif) {
      std::vector<cairo_surface_t*> pictures;
      for (const auto& result : results) pictures.push_back(result.picture.get());
      bytes = encodeAnimatedGif(pictures, 50);
    } else {
      bytes = encodePng(results.back().picture.get());
    }
    if (options.json) printJson(options, place, layer, results);
    for (const auto& result : results) {
      missing += result.stats.missingTiles;
      total += result.stats.totalTiles;
    }
    frames = results.size();
  }
  // Cairo keeps its font map and fontconfig's configuration for the life of the process; the
  // command draws once, so hand them back (every picture is gone by now) rather than leave them
  // for the leak checker.
  request.frames.clear();
  layer.overlays.clear();
  cairo_debug_reset_static_data();
  FcFini();
  writeFileAtomically(options.output, bytes);
  if (!options.json) {
    std::cout << fmt::format("Wrote {} ({} frame{}, {} tile{} missing of {}).\n", options.output, frames,
                             frames == 1 ? "" : "s", missing, missing == 1 ? "" : "s", total);
  }
  if (total > 0 && missing == total) {
    logf("ombrine radar: no tile could be loaded; the picture shows the map only");
    return 1;
  }
  return 0;
}

}  // namespace

void addRadarImageOptions(CLI::App& radar) {
  auto options = std::make_shared<ImageOptions>();
  auto* place = radar.add_option("place", options->place, "A place name (\"Munich\", \"Paris, FR\")");
  radar.add_option("--at", options->at, "A coordinate, LAT,LON (e.g. 48.14,11.58)")->excludes(place);
  radar.add_option("--zoom", options->zoom, "Map zoom level, 2 to 12 (default 6)")->check(numberBetween(2, 12));
  radar.add_option("--size", options->size, "Picture size WIDTHxHEIGHT in pixels (default 1024x768)");
  radar.add_option("--layer", options->layer, "radar, clouds, temperature, uv or airquality (default radar)")
      ->check(CLI::IsMember({"radar", "clouds", "temperature", "uv", "airquality"}));
  radar.add_option("-o,--output", options->output, "The picture to write: FILE.png, or FILE.gif with --loop");
  radar.add_flag("--loop", options->loop, "An animated GIF of the last 13 frames");
  radar.add_flag("--json", options->json, "Print each frame's tiles and completeness as JSON");
  radar.callback([options, &radar] {
    if (!radar.get_subcommands().empty()) return;
    if (options->output.empty()) {
      logf("ombrine radar: give -o FILE.png (or --loop -o FILE.gif), or use `ombrine radar frames`");
      setExitCode(2);
      return;
    }
    try {
      setExitCode(run(*options));
    } catch (const InvalidPlaceQuery& error) {
      logf("ombrine radar: {}", error.what());
      setExitCode(2);
    } catch (const std::exception& error) {
      logf("ombrine radar: {}", failureText(std::current_exception(), "the radar service"));
      setExitCode(1);
    }
  });
}

}  // namespace ombrine::app
