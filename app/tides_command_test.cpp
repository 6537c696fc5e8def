// `ombrine tides` run as a user runs it: a real process against the embedded simulator, with
// its own empty container so that no earlier run's cache answers.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <string>

#include "core/tide_records_json.hpp"
#include "core/value_json.hpp"

namespace ombrine {
namespace {

struct TidesRun {
  int exitCode = -1;
  std::string out;
};

// One folder for every run of this test program (container, caches, config, sync folder), so
// nothing reaches the user's own files; removed when the program ends.
const std::filesystem::path& scratch() {
  static const struct Folder {
    std::filesystem::path path =
        std::filesystem::temp_directory_path() / ("ombrine-tides-e2e-" + std::to_string(::getpid()));
    ~Folder() { std::filesystem::remove_all(path); }
  } folder;
  return folder.path;
}

TidesRun runTides(const std::string& arguments) {
  const std::string root = scratch().string();
  const std::string command = "OMBRINE_CONTAINER=" + root + "/group XDG_CACHE_HOME=" + root + "/cache XDG_CONFIG_HOME=" +
                              root + "/config XDG_DATA_HOME=" + root + "/data OMBRINE_SYNC_DIR=" + root +
                              "/sync NO_COLOR=1 LANG=en_US.UTF-8 " OMBRINE_PROGRAM " --services sim tides " + arguments +
                              " 2>/dev/null";
  TidesRun run;
  FILE* pipe = ::popen(command.c_str(), "r");
  if (!pipe) return run;
  std::array<char, 4096> buffer;
  size_t n;
  while ((n = std::fread(buffer.data(), 1, buffer.size(), pipe)) > 0) run.out.append(buffer.data(), n);
  const int status = ::pclose(pipe);
  run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return run;
}

TEST(TidesCommandTest, StationDistanceAndComingTides) {
  struct Row {
    const char* arguments;
    int exitCode;
    const char* expectInOutput;
  };
  const Row rows[] = {
      {"--at 38.78,-75.12", 0, "Station: Lewes, DE"},
      {"--at 38.78,-75.12", 0, "America/New_York"},
      {"--station 8557380", 0, "chosen directly"},
      {"--station 07795", 0, "Point Atkinson, BC"},      // a CHS station by its code
      {"--at 38.78,-75.12 --hours 24", 0, "high"},
      {"Dover", 1, ""},                                  // Dover, England: no tide service there
      {"--at 48.137,11.575", 1, ""},                     // Munich: inland and outside the regions
      {"--station 123", 2, ""},                          // no such station
      {"", 2, ""},                                       // nothing asked
      {"--at 38.78,-75.12 --hours 0", 2, ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.arguments);
    const TidesRun run = runTides(row.arguments);
    EXPECT_EQ(run.exitCode, row.exitCode);
    EXPECT_NE(run.out.find(row.expectInOutput), std::string::npos) << run.out;
  }
}

TEST(TidesCommandTest, JsonIsTheTideRecord) {
  const TidesRun run = runTides("--at 38.78,-75.12 --json");
  ASSERT_EQ(run.exitCode, 0);
  const TideData data = decodeTideData(parseJson(run.out), "");
  EXPECT_EQ(data.station.id, "8557380");
  EXPECT_GT(data.distance, 0.0);
  EXPECT_FALSE(data.extremes.empty());
  EXPECT_TRUE(std::is_sorted(data.chartPoints.begin(), data.chartPoints.end(), tideChartPointLess));
}

}  // namespace
}  // namespace ombrine
