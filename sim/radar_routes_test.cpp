#include "sim/radar_routes.hpp"

#include <gtest/gtest.h>

#include <boost/json/parse.hpp>

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

}  // namespace
}  // namespace ombrine::sim
