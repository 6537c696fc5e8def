// `ombrine radar frames` run as a user runs it: a real process against the embedded simulator,
// in a container of its own, with the simulator's faults.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <string>

#include "core/value_json.hpp"

namespace ombrine {
namespace {

struct RadarRun {
  int exitCode = -1;
  std::string out;
};

class RadarCommandTest : public ::testing::Test {
 protected:
  void SetUp() override {
    home_ = std::filesystem::temp_directory_path() / ("ombrine-radar-e2e-" + std::to_string(::getpid()));
    std::filesystem::create_directories(home_);
  }
  void TearDown() override { std::filesystem::remove_all(home_); }

  // Each run gets a fresh container, so no cached reply or stored token carries over.
  RadarRun run(const std::string& arguments, const std::string& faults = "") {
    const std::string dir = (home_ / std::to_string(++runs_)).string();
    std::string command = "OMBRINE_CONTAINER=" + dir + "/container XDG_CACHE_HOME=" + dir +
                          "/cache XDG_CONFIG_HOME=" + dir + "/config XDG_DATA_HOME=" + dir +
                          "/data OMBRINE_SYNC_DIR=" + dir + "/sync LANG=en_US.UTF-8 ";
    if (!faults.empty()) command += "OMBRINE_SIM_FAULTS='" + faults + "' ";
    command += std::string(OMBRINE_PROGRAM) + " --services sim radar frames " + arguments + " 2>/dev/null";
    RadarRun result;
    FILE* pipe = ::popen(command.c_str(), "r");
    if (!pipe) return result;
    std::array<char, 4096> buffer;
    size_t n;
    while ((n = std::fread(buffer.data(), 1, buffer.size(), pipe)) > 0) result.out.append(buffer.data(), n);
    const int status = ::pclose(pipe);
    result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
  }

  std::filesystem::path home_;
  int runs_ = 0;
};

TEST_F(RadarCommandTest, ListsEveryLayerAndFallsBackWhenTheRadarFails) {
  struct Row {
    const char* name;
    const char* arguments;
    const char* faults;
    int exitCode;
    std::vector<std::string> layers;  // in order, with their source
    std::vector<std::string> sources;
    std::size_t radarFrames;  // 0: radar not listed
  };
  const Row rows[] = {
      {"everything",
       "--json",
       "",
       0,
       {"radar", "cloudCoverage", "temperature", "uvIndex", "airQuality"},
       {"service", "tile proxy", "tile proxy", "tile proxy", "tile proxy"},
       16},
      {"radar service failing",
       "--json",
       "rainviewer.*=status=503",
       0,
       {"radar", "cloudCoverage", "temperature", "uvIndex", "airQuality"},
       {"fallback", "tile proxy", "tile proxy", "tile proxy", "tile proxy"},
       13},
      {"one layer", "--layer uv --json", "", 0, {"uvIndex"}, {"tile proxy"}, 0},
      {"the layer asked for fails",
       "--layer clouds --json",
       "tileproxy.*=status=500",
       1,
       {"cloudCoverage"},
       {"tile proxy"},
       0},
      {"proxy failing keeps the radar",
       "--json",
       "tileproxy.capabilities=status=429",
       0,
       {"radar", "cloudCoverage", "temperature", "uvIndex", "airQuality"},
       {"service", "tile proxy", "tile proxy", "tile proxy", "tile proxy"},
       16},
      {"unknown layer", "--layer snow", "", 2, {}, {}, 0},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    const RadarRun result = run(row.arguments, row.faults);
    ASSERT_EQ(result.exitCode, row.exitCode) << result.out;
    if (row.layers.empty()) continue;
    const auto document = parseJson(result.out);
    const auto& layers = document.at("layers").as_array();
    ASSERT_EQ(layers.size(), row.layers.size());
    for (std::size_t i = 0; i < layers.size(); ++i) {
      const auto& layer = layers[i].as_object();
      EXPECT_EQ(layer.at("layer").as_string(), row.layers[i]);
      EXPECT_EQ(layer.at("source").as_string(), row.sources[i]);
      const auto& frames = layer.at("frames").as_array();
      if (layer.contains("error")) {
        EXPECT_TRUE(frames.empty());
        continue;
      }
      if (row.layers[i] == "radar") {
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
  const RadarRun plain = run("--layer radar", "rainviewer.maps=malformed");
  EXPECT_EQ(plain.exitCode, 0);
  EXPECT_NE(plain.out.find("radar (RainViewer, fallback: cannot decode"), std::string::npos) << plain.out;
}

}  // namespace
}  // namespace ombrine
