#include "sim/radar_routes.hpp"

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/parse.hpp>

#include <fmt/format.h>

#include <algorithm>
#include <optional>

#include "sim/json_writer.hpp"
#include "sim/radar_tiles.hpp"
#include "sim/sim_time.hpp"

namespace ombrine::sim {

namespace {

namespace json = boost::json;
using namespace std::chrono;

constexpr seconds kFrameStep{600};
constexpr int kPastFrames = 13;
constexpr int kNowcastFrames = 3;
constexpr seconds kTokenLifetime{900};
constexpr int kRainViewerMaximumZoom = 7;

std::uint64_t fnv1a(std::string_view text) {
  std::uint64_t hash = 1469598103934665603ull;
  for (unsigned char c : text) hash = (hash ^ c) * 1099511628211ull;
  return hash;
}

SimResponse jsonAnswer(int status, std::string body) { return SimResponse{.status = status, .body = std::move(body)}; }

std::string rainViewerError(int status, std::string_view message) {
  return writeJson(json::object{{"code", status}, {"error", message}});
}

std::string proxyError(int status, std::string_view message) {
  return writeJson(json::object{{"error", json::object{{"code", status}, {"message", message}}}});
}

json::object frame(Instant time, std::string path) {
  return json::object{{"time", time.time_since_epoch().count()}, {"path", std::move(path)}};
}

Instant newestFrame(Instant now) { return floor<minutes>(now) - (floor<minutes>(now).time_since_epoch() % kFrameStep); }

std::string nowcastPath(Instant time) {
  return fmt::format("/v2/radar/nowcast_{:012x}",
                     fnv1a(fmt::format("nc{}", time.time_since_epoch().count())) & 0xFFFFFFFFFFFFull);
}

SimResponse weatherMaps(const SimRequest& request) {
  const Instant newest = newestFrame(request.now);
  json::array past, nowcast, infrared;
  for (int k = kPastFrames - 1; k >= 0; --k) {
    const Instant time = newest - kFrameStep * k;
    past.push_back(frame(time, fmt::format("/v2/radar/{}", time.time_since_epoch().count())));
    infrared.push_back(
        frame(time, fmt::format("/v2/satellite/{:012x}",
                                fnv1a(fmt::format("ir{}", time.time_since_epoch().count())) & 0xFFFFFFFFFFFFull)));
  }
  for (int k = 1; k <= kNowcastFrames; ++k) {
    const Instant time = newest + kFrameStep * k;
    nowcast.push_back(
        frame(time, fmt::format("/v2/radar/nowcast_{:012x}",
                                fnv1a(fmt::format("nc{}", time.time_since_epoch().count())) & 0xFFFFFFFFFFFFull)));
  }
  const std::string host =
      request.host.empty() ? "https://tilecache.rainviewer.com" : "http://" + request.host + "/rainviewer-tiles";
  json::object body{{"version", "2.0"},
                    {"generated", request.now.time_since_epoch().count()},
                    {"host", host},
                    {"radar", json::object{{"past", std::move(past)}, {"nowcast", std::move(nowcast)}}},
                    {"satellite", json::object{{"infrared", std::move(infrared)}}}};
  SimResponse response = jsonAnswer(200, writeJson(body));
  response.headers.emplace_back("Cache-Control", "public, max-age=60");
  return response;
}

bool isCompactJws(std::string_view text) {
  int parts = 0;
  std::size_t start = 0;
  while (true) {
    const std::size_t dot = text.find('.', start);
    const std::string_view part =
        text.substr(start, dot == std::string_view::npos ? std::string_view::npos : dot - start);
    const bool base64Url = !part.empty() && std::all_of(part.begin(), part.end(), [](char c) {
      return std::isalnum(static_cast<unsigned char>(c)) || c == '-' || c == '_';
    });
    if (!base64Url) return false;
    ++parts;
    if (dot == std::string_view::npos) break;
    start = dot + 1;
  }
  return parts == 3;
}

SimResponse mintToken(const SimRequest& request) {
  if (request.method != "POST") return jsonAnswer(405, proxyError(405, "Use POST"));
  std::string credential;
  try {
    const json::value body = json::parse(request.body);
    credential = std::string(body.at("appTransactionJws").as_string());
  } catch (const std::exception&) {
    return jsonAnswer(400, proxyError(400, "Expected {\"appTransactionJws\": string}"));
  }
  if (!isCompactJws(credential)) return jsonAnswer(401, proxyError(401, "Credential refused"));
  const auto issued = request.now.time_since_epoch().count();
  const std::string token = fmt::format("sim-tile-{:016x}", fnv1a(fmt::format("{}@{}", credential, issued)));
  return jsonAnswer(200,
                    writeJson(json::object{{"token", token},
                                           {"expiresAt", (request.now + kTokenLifetime).time_since_epoch().count()}}));
}

struct ImageRow {
  int id;
  const char* title;
  const char* description;
  int maxZoom;
};

constexpr ImageRow kImages[] = {
    {130, "Cloud cover", "Total cloud cover, percent", 7},
    {2, "Temperature", "Air temperature at 2 metres", 8},
    {9, "UV index", "Clear-sky UV index", 7},
    {79, "Air quality", "Air quality index", 7},
};

SimResponse capabilities(const SimRequest& request) {
  const auto token = request.header("X-Ombrine-Tile-Token");
  if (!token || !token->starts_with("sim-tile-")) return jsonAnswer(401, proxyError(401, "Tile token required"));
  const Instant hour = floor<hours>(request.now);
  json::array images;
  for (const ImageRow& row : kImages) {
    json::array available;
    for (int h = -6; h <= 48; ++h) available.push_back(json::value(formatUtc(hour + hours(h))));
    images.push_back(json::object{
        {"id", row.id},
        {"attribution", "Foreca"},
        {"title", row.title},
        {"description", row.description},
        {"formats", json::array{"png"}},
        {"colorschemes", json::array{"default"}},
        {"times", json::object{{"updated", formatUtc(hour)}, {"available", std::move(available)}, {"current", 6}}},
        {"analysis", formatUtc(hour)},
        {"extent", json::object{{"minLat", -85.0511},
                                {"maxLat", 85.0511},
                                {"minLon", -180},
                                {"maxLon", 180},
                                {"minZoom", 1},
                                {"maxZoom", row.maxZoom}}},
    });
  }
  return jsonAnswer(200, writeJson(json::object{{"images", std::move(images)}}));
}

SimResponse pngAnswer(std::string body, const char* cacheControl) {
  SimResponse response{.status = 200, .contentType = "image/png", .body = std::move(body)};
  response.headers.emplace_back("Cache-Control", cacheControl);
  return response;
}

std::optional<int> number(const std::string& text) {
  if (text.empty() || text.size() > 9) return std::nullopt;
  return std::stoi(text);
}

// Captures: frame, size, z, x, y (colour scheme and options are accepted as they come).
SimResponse rainViewerTile(const SimRequest& request) {
  const std::string& frame = request.captures[0];
  const int size = *number(request.captures[1]);
  const auto z = number(request.captures[2]), x = number(request.captures[3]), y = number(request.captures[4]);
  if (!z || !x || !y || *z > 20 || *x >= (1 << *z) || *y >= (1 << *z))
    return jsonAnswer(404, rainViewerError(404, "No such tile"));
  std::optional<Instant> time;
  if (frame.starts_with("nowcast_")) {
    for (int k = 1; k <= kNowcastFrames; ++k) {
      const Instant candidate = newestFrame(request.now) + kFrameStep * k;
      if (nowcastPath(candidate) == "/v2/radar/" + frame) time = candidate;
    }
  } else if (frame.size() <= 12) {
    time = Instant(seconds(std::stoll(frame)));
  }
  if (!time) return jsonAnswer(404, rainViewerError(404, "No such frame"));
  if (*z > kRainViewerMaximumZoom) return pngAnswer(placeholderTilePng(size), "public, max-age=3600");
  return pngAnswer(renderTilePng(TileLayer::radar, *z, *x, *y, *time, size), "public, max-age=600");
}

std::optional<TileLayer> layerOfImage(int id) {
  switch (id) {
    case 130:
    case 14:
    case 4: return TileLayer::clouds;
    case 2: return TileLayer::temperature;
    case 9: return TileLayer::uv;
    case 79: return TileLayer::airQuality;
    default: return std::nullopt;
  }
}

// Captures: z, x, y, time text, image id.
SimResponse forecaTile(const SimRequest& request) {
  const auto token = request.header("X-Ombrine-Tile-Token");
  if (!token || !token->starts_with("sim-tile-")) return jsonAnswer(401, proxyError(401, "Tile token required"));
  const auto z = number(request.captures[0]), x = number(request.captures[1]), y = number(request.captures[2]);
  const auto time = parseUtc(request.captures[3]);
  const auto id = number(request.captures[4]);
  const auto layer = id ? layerOfImage(*id) : std::nullopt;
  if (!z || !x || !y || *z > 20 || *x >= (1 << *z) || *y >= (1 << *z) || !time || !layer) {
    return jsonAnswer(404, proxyError(404, "No such tile"));
  }
  return pngAnswer(renderTilePng(*layer, *z, *x, *y, *time, 256), "public, max-age=600");
}

}  // namespace

std::vector<SimRoute> radarRoutes() {
  return {
      SimRoute{"rainviewer.maps", std::regex("/rainviewer/public/weather-maps\\.json"), weatherMaps, rainViewerError},
      SimRoute{"rainviewer.tile",
               std::regex("/rainviewer-tiles/v2/radar/([0-9]+|nowcast_[0-9a-f]+)/(256|512)/([0-9]+)/([0-9]+)/([0-9]+)/"
                          "([0-9])/([01])_([01])\\.png"),
               rainViewerTile, rainViewerError},
      SimRoute{"tileproxy.token", std::regex("/tileproxy/token"), mintToken, proxyError},
      SimRoute{"tileproxy.capabilities", std::regex("/tileproxy/api/v1/capabilities"), capabilities, proxyError},
      SimRoute{"tileproxy.tile", std::regex("/tileproxy/api/v1/image/tile/([0-9]+)/([0-9]+)/([0-9]+)/([^/]+)/([0-9]+)"),
               forecaTile, proxyError},
  };
}

}  // namespace ombrine::sim
