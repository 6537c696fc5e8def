// `ombrine radar frames` run as a user runs it: a real process against the embedded simulator,
// in a container of its own, with the simulator's faults.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core/values/value_json.hpp"
#include "platform/testing/program_sandbox.hpp"

namespace ombrine {
namespace {

// Each run gets a fresh container, so no cached reply or stored token carries over.
ProgramRun runFrames(const std::string& arguments, const std::string& faults = "") {
  const ProgramSandbox sandbox("ombrine-radar-e2e");
  return sandbox.runSimulated(OMBRINE_PROGRAM, "radar frames " + arguments, faults);
}

TEST(RadarCommandTest, ListsEveryLayerAndFallsBackWhenTheRadarFails) {
  const std::vector<std::string> all = {"radar", "cloudCoverage", "temperature", "uvIndex", "airQuality"};
  struct Row {
    const char* name;
    const char* arguments;
    const char* faults;
    int exitCode;
    std::vector<std::string> layers;  // in order
    const char* radarSource;
    std::size_t radarFrames;
  };
  const Row rows[] = {
      {"everything", "--json", "", 0, all, "service", 16},
      {"radar service failing", "--json", "rainviewer.*=status=503", 0, all, "fallback", 13},
      {"proxy failing keeps the radar", "--json", "tileproxy.capabilities=status=429", 0, all, "service", 16},
      {"the layer asked for fails", "--layer clouds --json", "tileproxy.*=status=500", 1, {"cloudCoverage"}, "", 0},
      {"unknown layer", "--layer snow", "", 2, {}, "", 0},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    const ProgramRun result = runFrames(row.arguments, row.faults);
    ASSERT_EQ(result.exitCode, row.exitCode) << result.err;
    if (row.layers.empty()) continue;
    const auto document = parseJson(result.out);
    const auto& layers = document.at("layers").as_array();
    ASSERT_EQ(layers.size(), row.layers.size());
    for (std::size_t i = 0; i < layers.size(); ++i) {
      const auto& layer = layers[i].as_object();
      const bool radar = row.layers[i] == "radar";
      EXPECT_EQ(layer.at("layer").as_string(), row.layers[i]);
      EXPECT_EQ(layer.at("source").as_string(), radar ? row.radarSource : "tile proxy");
      const auto& frames = layer.at("frames").as_array();
      if (layer.contains("error")) {
        EXPECT_TRUE(frames.empty());
      } else if (radar) {
        EXPECT_EQ(frames.size(), row.radarFrames);
        const std::string url(frames.back().at("tileURL").as_string());
        EXPECT_TRUE(url.ends_with("/512/{z}/{x}/{y}/2/1_1.png")) << url;
      } else {
        EXPECT_EQ(frames.size(), 43u);  // hourly, 6 hours back to 36 hours ahead
        const std::string url(frames.front().at("tileURL").as_string());
        EXPECT_NE(url.find("/tileproxy/api/v1/image/tile/{z}/{x}/{y}/"), std::string::npos) << url;
      }
    }
  }
  const ProgramRun plain = runFrames("--layer radar", "rainviewer.maps=malformed");
  EXPECT_EQ(plain.exitCode, 0);
  EXPECT_NE(plain.out.find("radar (RainViewer, fallback: cannot decode"), std::string::npos) << plain.out;
}

}  // namespace
}  // namespace ombrine
