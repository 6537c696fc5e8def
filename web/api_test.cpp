// The server and its API against the simulator, over real HTTP on loopback: the answers'
// shapes, bad input (400 with a message), unknown addresses (404) and foreign Host or Origin
// headers (403).

#include <gtest/gtest.h>
#include <httplib.h>

#include <cstdlib>
#include <thread>

#include "core/values/value_json.hpp"
#include "platform/testing/program_sandbox.hpp"
#include "sim/sim_server.hpp"
#include "web/web_server.hpp"

namespace ombrine::web {
namespace {

// One server for the whole suite: the services are built once, as `ombrine serve` builds them.
class ApiTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    sandbox_ = new ProgramSandbox("ombrine-web-api");
    const std::string root = sandbox_->root().string();
    for (const auto& [name, folder] : {std::pair{"OMBRINE_CONTAINER", "/group"},
                                       {"XDG_CACHE_HOME", "/cache"},
                                       {"XDG_CONFIG_HOME", "/config"},
                                       {"XDG_DATA_HOME", "/data"},
                                       {"OMBRINE_SYNC_DIR", "/sync"},
                                       {"XDG_RUNTIME_DIR", "/runtime"}}) {
      ::setenv(name, (root + folder).c_str(), 1);
    }
    simulator_ = new sim::SimServer();
    ServicesOptions options;
    options.endpoints = ServiceEndpoints::simulator(simulator_->baseUrl());
    options.languageCode = "en";
    services_ = new Services(std::move(options));
    if (services_->simulatorWeatherKitPublicKey())
      simulator_->trustWeatherKitKey(*services_->simulatorWeatherKitPublicKey());
    server_ = new WebServer(*services_, {"127.0.0.1", 0, {}, OMBRINE_PAGE_DIR});
    server_->bind();
    thread_ = new std::thread([] { server_->run(); });
  }
  static void TearDownTestSuite() {
    server_->stop();
    thread_->join();
    delete thread_;
    delete server_;
    delete services_;
    delete simulator_;
    delete sandbox_;
  }

  static httplib::Result get(const std::string& path, const httplib::Headers& headers = {}) {
    httplib::Client client("127.0.0.1", server_->port());
    client.set_read_timeout(60, 0);
    return client.Get(path.c_str(), headers);
  }

  static inline ProgramSandbox* sandbox_ = nullptr;
  static inline sim::SimServer* simulator_ = nullptr;
  static inline Services* services_ = nullptr;
  static inline WebServer* server_ = nullptr;
  static inline std::thread* thread_ = nullptr;
};

TEST_F(ApiTest, AnswersHaveTheirShapes) {
  struct Case {
    std::string path;
    std::vector<std::string> keys;  // members of the answer's object
  };
  const Case cases[] = {
      {"/api/forecast?q=Munich", {"place", "source", "weather"}},
      {"/api/forecast?at=48.137,11.575", {"place", "source", "weather"}},
      {"/api/places", {"home", "favorites"}},
      {"/api/trips", {"trips", "days"}},
      {"/api/tides?at=38.78,-75.12", {"place", "tides"}},
      {"/api/sun?q=Oslo", {"place", "days"}},
      {"/api/storms", {"storms", "completeCoverage"}},
      {"/api/fires?bbox=-125,35,-115,42", {"list", "geojson"}},
      {"/api/radar", {"source", "frames", "nowIndex"}},
      {"/api/land?bbox=-10,40,10,60&zoom=4", {"type", "geometry"}},
      {"/api/threats?q=Miami", {"place", "threats", "sources"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.path);
    const auto answer = get(c.path);
    ASSERT_TRUE(answer);
    ASSERT_EQ(answer->status, 200) << answer->body;
    EXPECT_EQ(answer->get_header_value("Content-Type"), "application/json");
    const auto document = parseJson(answer->body);
    for (const auto& key : c.keys)
      EXPECT_TRUE(document.as_object().contains(key)) << key << ": " << answer->body.substr(0, 300);
  }
  const auto forecast = parseJson(get("/api/forecast?q=Munich")->body);
  EXPECT_EQ(forecast.at("source").at("state").as_string(), "live");
  EXPECT_FALSE(forecast.at("weather").at("hourly").as_array().empty());
  EXPECT_EQ(forecast.at("place").at("timeZone").as_string(), "Europe/Berlin");
}

TEST_F(ApiTest, RadarTilesComeThroughTheServer) {
  const auto frames = parseJson(get("/api/radar")->body).at("frames").as_array();
  ASSERT_FALSE(frames.empty());
  std::string tile(frames.back().at("tiles").as_string());
  for (auto [name, value] : {std::pair{"{z}", "3"}, {"{x}", "4"}, {"{y}", "2"}})
    tile.replace(tile.find(name), 3, value);
  const auto answer = get(tile);
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->status, 200) << answer->body;
  EXPECT_EQ(answer->body.substr(1, 3), "PNG");
  EXPECT_EQ(get("/tiles/radar/1/3/4/2.png")->status, 404);  // no frame at that time
}

TEST_F(ApiTest, BadInputUnknownAddressesAndForeignSites) {
  struct Case {
    std::string path;
    httplib::Headers headers;
    int status;
    std::string message;  // part of the answer's "error"
  };
  const Case cases[] = {
      {"/api/forecast", {}, 400, "q=NAME or at=LAT,LON"},
      {"/api/forecast?at=91,0", {}, 400, "latitude"},
      {"/api/forecast?q=Qqqxxzzy", {}, 404, "no place named"},
      {"/api/fires?bbox=1,2,3", {}, 400, "four numbers"},
      {"/api/fires?bbox=10,0,5,1", {}, 400, "west < east"},
      {"/api/land?bbox=-10,40,10,60&zoom=40", {}, 400, "zoom"},
      {"/api/threats?q=Miami&radius=abc", {}, 400, "radius must be a number"},
      {"/tiles/radar/1/99/0/0.png", {}, 400, "zoom 0...7"},
      {"/tiles/radar/1/2/9/0.png", {}, 400, "inside the world"},
      {"/api/storm?id=zz992026", {}, 404, "no active storm"},
      {"/api/nothing", {}, 404, "no such address"},
      {"/../CMakeLists.txt", {}, 404, ""},
      {"/.gitignore", {}, 404, "no such address"},
      {"/api/places", {{"Host", "attacker.example:80"}}, 403, "Host"},
      {"/", {{"Host", "rebound.example:" + std::to_string(server_->port())}}, 403, "Host"},
      {"/api/places", {{"Origin", "http://attacker.example"}}, 403, "Origin"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.path);
    const auto answer = get(c.path, c.headers);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->status, c.status) << answer->body;
    if (!c.message.empty()) EXPECT_NE(answer->body.find(c.message), std::string::npos) << answer->body;
  }
  EXPECT_EQ(get("/")->status, 200);
  EXPECT_EQ(get("/")->get_header_value("X-Frame-Options"), "DENY");
}

TEST(ApiTokenTest, BeyondLoopbackTheApiNeedsTheToken) {
  // The guard's policy as the server builds it for an outside address; the requests come from
  // loopback but name the outside address as their Host.
  const GuardPolicy policy = guardPolicyFor("10.1.2.3", 8765, "abc123");
  EXPECT_EQ(checkRequest(policy, "10.1.2.3:8765", std::nullopt, std::nullopt).status, 401);
  EXPECT_EQ(checkRequest(policy, "10.1.2.3:8765", "http://10.1.2.3:8765", "abc123").status, 200);
}

}  // namespace
}  // namespace ombrine::web
