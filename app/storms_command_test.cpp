// `ombrine storms` run as a user runs it: a real process against the embedded simulator, whose
// season is wherever the wall clock has put it, so each check holds whatever storms are active.

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

struct StormsRun {
  int exitCode = -1;
  std::string out;
};

class StormsCommandTest : public ::testing::Test {
 protected:
  void SetUp() override {
    home_ = std::filesystem::temp_directory_path() / ("ombrine-storms-e2e-" + std::to_string(::getpid()));
    std::filesystem::create_directories(home_);
  }
  void TearDown() override { std::filesystem::remove_all(home_); }

  StormsRun run(const std::string& arguments, const std::string& faults = "") {
    const std::string dir = home_.string();
    std::string command = "OMBRINE_CONTAINER=" + dir + "/container XDG_CACHE_HOME=" + dir + "/cache XDG_CONFIG_HOME=" + dir +
                          "/config NO_COLOR=1 LANG=en_US.UTF-8 ";
    if (!faults.empty()) command += "OMBRINE_SIM_FAULTS='" + faults + "' ";
    command += std::string(OMBRINE_PROGRAM) + " --services sim storms " + arguments + " 2>/dev/null";
    StormsRun result;
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
};

TEST_F(StormsCommandTest, ListShowAndGeoJSON) {
  const StormsRun listed = run("--json");
  ASSERT_EQ(listed.exitCode, 0);
  const auto document = parseJson(listed.out);
  EXPECT_EQ(document.at("completeCoverage").as_array().size(), 6u);  // every basin answered
  const auto& storms = document.at("storms").as_array();
  const StormsRun plain = run("");
  EXPECT_EQ(plain.exitCode, 0);
  if (storms.empty()) {
    EXPECT_NE(plain.out.find("No active tropical storms."), std::string::npos) << plain.out;
    return;
  }
  for (const auto& storm : storms) {
    const std::string id(storm.at("id").as_string());
    SCOPED_TRACE(id);
    EXPECT_NE(plain.out.find(id), std::string::npos) << plain.out;
    const StormsRun shown = run("show " + id);
    EXPECT_EQ(shown.exitCode, 0);
    EXPECT_NE(shown.out.find("Forecast track:"), std::string::npos) << shown.out;
    EXPECT_NE(shown.out.find("now"), std::string::npos) << shown.out;
    const StormsRun geojson = run("show " + id + " --geojson");
    ASSERT_EQ(geojson.exitCode, 0);
    const auto features = parseJson(geojson.out).at("features").as_array();
    EXPECT_FALSE(features.empty());
  }
  const StormsRun near = run("--near Tokyo --radius 40000");
  EXPECT_EQ(near.exitCode, 0);
  EXPECT_NE(near.out.find(" km"), std::string::npos) << near.out;
}

TEST_F(StormsCommandTest, FailuresAndUsage) {
  struct Row {
    const char* arguments;
    const char* faults;
    int exitCode;
  };
  const Row rows[] = {
      {"", "nhc.storms=status=503;jtwc.rss=status=503", 1},  // no usable data is not "no storms"
      {"--json", "nhc.storms=malformed;jtwc.rss=error200", 1},
      {"show xx9999", "", 1},
      {"--radius 10", "", 2},                                // a radius needs a place
      {"--near Tokyo --radius -5", "", 2},
      {"show", "", 2},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::string(row.arguments) + " " + row.faults);
    const StormsRun result = run(row.arguments, row.faults);
    EXPECT_EQ(result.exitCode, row.exitCode) << result.out;
  }
}

}  // namespace
}  // namespace ombrine
