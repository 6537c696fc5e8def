#include "sim/radar_routes.hpp"

#include <gtest/gtest.h>

#include <boost/json/parse.hpp>

#include <cmath>

#include "sim/radar_tiles.hpp"

namespace ombrine::sim {
namespace {

namespace json = boost::json;

SimResponse answer(const SimRequest& prototype, const std::string& target) {
  static const std::vector<SimRoute> routes = radarRoutes();
  SimRequest request = requestFor(target, prototype.now);
  request.method = prototype.method;
  request.headers = prototype.headers;
  request.body = prototype.body;
  request.host = "127.0.0.1:9";
  const SimRoute* route = matchRoute(routes, request.path, request.captures);
  if (!route) return SimResponse{.status = 404};
  return route->answer(request);
}

TEST(RadarRoutesTest, MapsMoveWithTheClock) {
  // 2026-11-24T17:53:20Z: the newest past frame is 17:50:00.
  const Instant now{std::chrono::seconds(1795542800)};
  const SimResponse response = answer(SimRequest{.now = now}, "/rainviewer/public/weather-maps.json");
  ASSERT_EQ(response.status, 200);
  const json::value body = json::parse(response.body);
  const auto& past = body.at("radar").at("past").as_array();
  ASSERT_EQ(past.size(), 13u);
  EXPECT_EQ(past.back().at("time").as_int64(), 1795542600);
  EXPECT_EQ(past.back().at("path").as_string(), "/v2/radar/1795542600");
  EXPECT_EQ(past.front().at("time").as_int64(), 1795542600 - 7200);
  const auto& nowcast = body.at("radar").at("nowcast").as_array();
  ASSERT_EQ(nowcast.size(), 3u);
  EXPECT_EQ(nowcast.front().at("time").as_int64(), 1795543200);
  EXPECT_TRUE(std::string(nowcast.front().at("path").as_string()).starts_with("/v2/radar/nowcast_"));
  EXPECT_EQ(body.at("host").as_string(), "http://127.0.0.1:9/rainviewer-tiles");
  const SimResponse later =
      answer(SimRequest{.now = now + std::chrono::minutes(10)}, "/rainviewer/public/weather-maps.json");
  EXPECT_EQ(json::parse(later.body).at("radar").at("past").as_array().back().at("time").as_int64(), 1795543200);
}

TEST(RadarRoutesTest, TokenMintAndCapabilities) {
  const Instant now{std::chrono::seconds(1795542800)};
  struct Row {
    const char* name;
    std::string method;
    std::string body;
    int status;
  };
  const Row rows[] = {
      {"compact JWS", "POST", R"({"appTransactionJws":"aGVhZA.Ym9keQ.c2ln"})", 200},
      {"two parts", "POST", R"({"appTransactionJws":"aGVhZA.Ym9keQ"})", 401},
      {"padding is not base64url", "POST", R"({"appTransactionJws":"aGVhZA==.Ym9keQ.c2ln"})", 401},
      {"no credential", "POST", R"({})", 400},
      {"GET", "GET", "", 405},
  };
  std::string token;
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    const SimResponse response =
        answer(SimRequest{.now = now, .method = row.method, .body = row.body}, "/tileproxy/token");
    EXPECT_EQ(response.status, row.status);
    if (response.status != 200) continue;
    const json::value body = json::parse(response.body);
    token = std::string(body.at("token").as_string());
    EXPECT_EQ(body.at("expiresAt").as_int64(), 1795542800 + 900);
  }
  EXPECT_EQ(answer(SimRequest{.now = now}, "/tileproxy/api/v1/capabilities").status, 401);
  const SimResponse capabilities =
      answer(SimRequest{.now = now, .headers = {{"x-ombrine-tile-token", token}}}, "/tileproxy/api/v1/capabilities");
  ASSERT_EQ(capabilities.status, 200);
  const json::value document = json::parse(capabilities.body);
  const auto& images = document.at("images").as_array();
  ASSERT_EQ(images.size(), 4u);
  const auto& available = images[0].at("times").at("available").as_array();
  EXPECT_EQ(available.size(), 55u);
  EXPECT_EQ(available[6].as_string(), "2026-11-24T17:00:00Z");
}

// Width and height from a PNG's IHDR chunk; nothing when `bytes` is not a PNG.
std::optional<std::pair<int, int>> pngSize(const std::string& bytes) {
  if (bytes.size() < 24 || bytes.compare(0, 8, "\x89PNG\r\n\x1a\n") != 0 || bytes.compare(12, 4, "IHDR") != 0)
    return std::nullopt;
  auto be32 = [&](std::size_t at) {
    return (static_cast<unsigned char>(bytes[at]) << 24) | (static_cast<unsigned char>(bytes[at + 1]) << 16) |
           (static_cast<unsigned char>(bytes[at + 2]) << 8) | static_cast<unsigned char>(bytes[at + 3]);
  };
  return std::pair<int, int>(be32(16), be32(20));
}

TEST(RadarRoutesTest, TilesMoveWithTheirFrameAndStopAtTheMaximumZoom) {
  const Instant now{std::chrono::seconds(1795542800)};
  const SimRequest get{.now = now};
  struct Row {
    const char* name;
    std::string target;
    int status;
    int size;  // 0: not an image
  };
  const Row rows[] = {
      {"radar", "/rainviewer-tiles/v2/radar/1795542600/512/3/3/2/2/1_1.png", 200, 512},
      {"a nowcast frame",
       "/rainviewer-tiles/v2/radar/" +
           std::string(json::parse(answer(get, "/rainviewer/public/weather-maps.json").body)
                           .at("radar")
                           .at("nowcast")
                           .at(0)
                           .at("path")
                           .as_string())
               .substr(10) +
           "/256/2/1/1/0/0_0.png",
       200, 256},
      {"unknown nowcast", "/rainviewer-tiles/v2/radar/nowcast_000000000000/512/3/3/2/2/1_1.png", 404, 0},
      {"outside the zoom level", "/rainviewer-tiles/v2/radar/1795542600/512/3/8/2/2/1_1.png", 404, 0},
      {"above the maximum zoom", "/rainviewer-tiles/v2/radar/1795542600/512/8/130/80/2/1_1.png", 200, 512},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    const SimResponse response = answer(get, row.target);
    EXPECT_EQ(response.status, row.status);
    if (row.size == 0) continue;
    EXPECT_EQ(response.contentType, "image/png");
    EXPECT_EQ(pngSize(response.body), std::pair(row.size, row.size));
  }
  EXPECT_EQ(answer(get, "/rainviewer-tiles/v2/radar/1795542600/512/8/130/80/2/1_1.png").body, placeholderTilePng(512));
  // The field moves: the same tile differs an hour later; rain where a cell is, none far away.
  const double hours = static_cast<double>(now.time_since_epoch().count()) / 3600.0;
  // The cell at home at 51 N, 2 W, on its day-long pass.
  const double cellLongitude = -2.0 + 0.36 * (std::fmod(hours, 24.0) - 12.0);
  EXPECT_GT(simulatedReflectivity(51.0, cellLongitude, now), 15.0);
  const int x = static_cast<int>((cellLongitude + 180.0) / 360.0 * 8.0);  // zoom 3; 51 N is in row 2
  EXPECT_NE(renderTilePng(TileLayer::radar, 3, x, 2, now, 64),
            renderTilePng(TileLayer::radar, 3, x, 2, now + std::chrono::hours(3), 64));
  EXPECT_EQ(simulatedReflectivity(-80.0, 0.0, now), 0.0);

  EXPECT_EQ(answer(get, "/tileproxy/api/v1/image/tile/2/1/1/2026-11-24T17:00:00Z/130").status, 401);
  const SimRequest authorised{.now = now, .headers = {{"X-Ombrine-Tile-Token", "sim-tile-0"}}};
  const SimResponse clouds = answer(authorised, "/tileproxy/api/v1/image/tile/2/1/1/2026-11-24T17:00:00Z/130");
  EXPECT_EQ(clouds.status, 200);
  EXPECT_EQ(pngSize(clouds.body), std::pair(256, 256));
  EXPECT_EQ(answer(authorised, "/tileproxy/api/v1/image/tile/2/1/1/2026-11-24T17:00:00Z/77").status, 404);
}

}  // namespace
}  // namespace ombrine::sim
