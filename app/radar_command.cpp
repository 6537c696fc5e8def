#include "app/radar_command.hpp"

#include <fmt/format.h>

#include <cmath>
#include <iostream>
#include <map>
#include <memory>

#include "app/commands.hpp"
#include "app/failure_text.hpp"
#include "app/global_options.hpp"
#include "app/radar_command_image.hpp"
#include "core/values/iso8601.hpp"
#include "core/values/time_zone.hpp"
#include "core/values/value_json.hpp"
#include "platform/exception_message.hpp"
#include "platform/log.hpp"
#include "radar/radar_loader.hpp"
#include "wiring/services.hpp"

namespace ombrine::app {

namespace {

struct RadarOptions {
  std::string layer;  // empty: all
  bool json = false;
};

// The command's layer names and the supplemental layers they stand for.
const std::map<std::string, ForecaMapLayer>& supplementalNames() {
  static const std::map<std::string, ForecaMapLayer> names = {{"clouds", ForecaMapLayer::cloudCoverage},
                                                              {"temperature", ForecaMapLayer::temperature},
                                                              {"uv", ForecaMapLayer::uvIndex},
                                                              {"airquality", ForecaMapLayer::airQuality}};
  return names;
}

struct LayerListing {
  std::string name;    // "radar" or the supplemental text form
  std::string source;  // "service", "fallback", "tile proxy"
  std::string note;    // the fallback's reason, or the layer's failure
  bool failed = false;
  std::vector<RadarFrame> frames;
  std::vector<std::string> kinds;  // "past", "nowcast", or "" for Foreca frames
  std::vector<std::string> templates;
  std::optional<std::size_t> nowIndex;
  std::optional<std::int64_t> imageID;
  std::int64_t maximumZoom = 0;
  int tileSize = 512;
};

LayerListing radarListing(const RainViewerFrames& loaded) {
  LayerListing listing{.name = "radar",
                       .source = loaded.fromService ? "service" : "fallback",
                       .note = loaded.fallbackReason,
                       .maximumZoom = kRainViewerMaximumZoom};
  const RadarData& radar = loaded.response.radar;
  listing.frames = displayedFrames(radar);
  for (std::size_t i = 0; i < listing.frames.size(); ++i) {
    listing.kinds.push_back(i < radar.past.size() ? "past" : "nowcast");
    listing.templates.push_back(rainViewerTileTemplate(loaded.response.host, listing.frames[i].path));
  }
  if (!radar.past.empty()) listing.nowIndex = radar.past.size() - 1;
  return listing;
}

LayerListing forecaListing(ForecaMapLayer layer, const ForecaMapCapabilities* capabilities, const std::string& failure,
                           const std::string& proxy, Date now) {
  LayerListing listing{.name = std::string(textOf(layer)), .source = "tile proxy", .tileSize = 256};
  if (!capabilities) {
    listing.failed = true;
    listing.note = failure;
    return listing;
  }
  const auto frames = forecaFrames(layer, *capabilities, now);
  if (!frames) {
    listing.failed = true;
    listing.note = "no image layer of the service has frames for it";
    return listing;
  }
  listing.frames = frames->frames;
  listing.nowIndex = frames->nowIndex;
  listing.imageID = frames->forecaMapLayerImageID;
  listing.maximumZoom = frames->forecaMapLayerMaximumZoom;
  for (const auto& frame : listing.frames) {
    listing.kinds.emplace_back();
    listing.templates.push_back(forecaTileTemplate(proxy, frame.path, frames->forecaMapLayerImageID));
  }
  if (!listing.templates.empty()) listing.tileSize = forecaTileSize(listing.templates.front());
  return listing;
}

void writeListing(JsonWriter& writer, const LayerListing& listing) {
  writer.beginObject();
  writer.key("layer");
  writer.string(listing.name);
  writer.key("source");
  writer.string(listing.source);
  if (!listing.note.empty()) {
    writer.key(listing.failed ? "error" : "fallbackReason");
    writer.string(listing.note);
  }
  if (listing.imageID) {
    writer.key("imageID");
    writer.integer(*listing.imageID);
  }
  if (!listing.failed) {
    writer.key("maximumZoom");
    writer.integer(listing.maximumZoom);
    writer.key("tileSize");
    writer.integer(listing.tileSize);
    if (listing.nowIndex) {
      writer.key("nowIndex");
      writer.integer(static_cast<std::int64_t>(*listing.nowIndex));
    }
    if (listing.frames.empty()) {
      writer.key("message");
      writer.string(kNoRadarFramesMessage);
    }
  }
  writer.key("frames");
  writer.beginArray();
  for (std::size_t i = 0; i < listing.frames.size(); ++i) {
    writer.beginObject();
    writer.key("time");
    writer.integer(static_cast<std::int64_t>(std::floor(listing.frames[i].time.unixSeconds())));
    writer.key("date");
    writer.string(iso8601String(listing.frames[i].time));
    writer.key("path");
    writer.string(listing.frames[i].path);
    if (!listing.kinds[i].empty()) {
      writer.key("kind");
      writer.string(listing.kinds[i]);
    }
    writer.key("tileURL");
    writer.string(listing.templates[i]);
    writer.endObject();
  }
  writer.endArray();
  writer.endObject();
}

void printListing(const LayerListing& listing, const TimeZone& zone) {
  if (listing.failed) {
    std::cout << listing.name << ": unavailable (" << listing.note << ")\n\n";
    return;
  }
  std::string origin = listing.name == "radar"
                           ? "RainViewer, " + listing.source
                           : "Foreca image " + std::to_string(*listing.imageID) + " through the tile proxy";
  if (!listing.note.empty()) origin += ": " + listing.note;
  std::cout << listing.name << " (" << origin << ")\n";
  if (listing.frames.empty()) {
    std::cout << "  " << kNoRadarFramesMessage << "\n\n";
    return;
  }
  std::cout << fmt::format("  {} frames, maximum zoom {}, {}-point tiles\n", listing.frames.size(), listing.maximumZoom,
                           listing.tileSize);
  for (std::size_t i = 0; i < listing.frames.size(); ++i) {
    const std::string marker = listing.nowIndex == i ? "now" : listing.kinds[i];
    std::cout << fmt::format("  {}  {:<7}  {}\n", radarLocalTime(listing.frames[i].time, zone), marker,
                             listing.templates[i]);
  }
  std::cout << "\n";
}

int run(const RadarOptions& options) {
  ProgramServices program;
  Services& services = *program;
  RadarLoader& loader = services.radar();
  const Date now = Date::fromSystem(services.clock().now());
  std::vector<LayerListing> listings;
  if (options.layer.empty() || options.layer == "radar") {
    auto loading = loader.loadRainViewerFrames(now);
    listings.push_back(radarListing(services.runtime().runBlocking(std::move(loading))));
  }
  std::vector<ForecaMapLayer> layers;
  if (options.layer.empty()) {
    layers = {ForecaMapLayer::cloudCoverage, ForecaMapLayer::temperature, ForecaMapLayer::uvIndex,
              ForecaMapLayer::airQuality};
  } else if (auto found = supplementalNames().find(options.layer); found != supplementalNames().end()) {
    layers = {found->second};
  }
  if (!layers.empty()) {
    std::optional<ForecaMapCapabilities> capabilities;
    std::string failure;
    try {
      auto loading = loader.loadForecaCapabilities();
      capabilities = services.runtime().runBlocking(std::move(loading));
    } catch (const CancellationError&) {
      throw;
    } catch (...) {
      failure = exceptionMessage(std::current_exception());
    }
    const std::string proxy(loader.endpoints().tileProxy.buffer());
    for (ForecaMapLayer layer : layers) {
      listings.push_back(forecaListing(layer, capabilities ? &*capabilities : nullptr, failure, proxy, now));
    }
  }
  bool failed = false;
  for (const auto& listing : listings) {
    if (!listing.failed) continue;
    logf("ombrine radar: {} unavailable: {}", listing.name, listing.note);
    failed = true;
  }
  if (options.json) {
    std::string out;
    JsonWriter writer(out);
    writer.beginObject();
    writer.key("layers");
    writer.beginArray();
    for (const auto& listing : listings) writeListing(writer, listing);
    writer.endArray();
    writer.endObject();
    std::cout << out << "\n";
  } else {
    const TimeZone zone = TimeZone::current();
    for (const auto& listing : listings) printListing(listing, zone);
    std::cout << "Times in " << zone.identifier() << ".\n";
  }
  return failed && !options.layer.empty() ? 1 : 0;
}

}  // namespace

void addRadarCommand(CLI::App& app) {
  CLI::App* radar = app.add_subcommand("radar", "Radar pictures and loops over a map, and the layer timelines");
  radar->require_subcommand(0, 1);
  auto options = std::make_shared<RadarOptions>();
  CLI::App* frames = radar->add_subcommand("frames", "List the frames and their tile URL templates");
  frames->add_option("--layer", options->layer, "radar, clouds, temperature, uv or airquality (default: all)")
      ->check(CLI::IsMember({"radar", "clouds", "temperature", "uv", "airquality"}));
  frames->add_flag("--json", options->json, "Print the listing as JSON");
  addRadarImageOptions(*radar);
  frames->callback([options] {
    try {
      setExitCode(run(*options));
    } catch (const std::exception&) {
      logf("ombrine radar: {}", failureText(std::current_exception(), "the radar service"));
      setExitCode(1);
    }
  });
}

}  // namespace ombrine::app
