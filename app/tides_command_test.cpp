// `ombrine tides` run as a user runs it: a real process against the embedded simulator, with
// its own empty container so that no earlier run's cache answers.

#include <gtest/gtest.h>

#include "platform/testing/program_sandbox.hpp"
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "core/tide_records_json.hpp"
#include "core/value_json.hpp"

namespace ombrine {
namespace {

ProgramRun runTides(const std::string& arguments) {
  static const ProgramSandbox sandbox("ombrine-tides-e2e");
  return sandbox.run(OMBRINE_PROGRAM, "--services sim tides " + arguments, "LANG=en_US.UTF-8");
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
    const ProgramRun run = runTides(row.arguments);
    EXPECT_EQ(run.exitCode, row.exitCode);
    EXPECT_NE(run.out.find(row.expectInOutput), std::string::npos) << run.out;
  }
}

TEST(TidesCommandTest, JsonIsTheTideRecord) {
  const ProgramRun run = runTides("--at 38.78,-75.12 --json");
  ASSERT_EQ(run.exitCode, 0);
  const TideData data = decodeTideData(parseJson(run.out), "");
  EXPECT_EQ(data.station.id, "8557380");
  EXPECT_GT(data.distance, 0.0);
  EXPECT_FALSE(data.extremes.empty());
  EXPECT_TRUE(std::is_sorted(data.chartPoints.begin(), data.chartPoints.end(), tideChartPointLess));
}

// Cold runs, each in a container of its own: the run caches both the station catalogue and the
// predictions it showed (the predictions, saved last, were once lost when the run ended).
TEST(TidesCommandTest, EveryColdRunCachesTheCatalogueAndThePredictions) {
  const std::filesystem::path root =
      std::filesystem::temp_directory_path() / ("ombrine-tides-cold-" + std::to_string(::getpid()));
  for (int run = 0; run < 4; ++run) {
    SCOPED_TRACE(run);
    std::filesystem::remove_all(root);
    const std::string command = "OMBRINE_CONTAINER=" + root.string() + " XDG_CONFIG_HOME=" + root.string() +
                                "/config XDG_CACHE_HOME=" + root.string() + "/cache " OMBRINE_PROGRAM
                                " --services sim tides Boston >/dev/null 2>&1";
    ASSERT_EQ(std::system(command.c_str()), 0);
    const std::filesystem::path tides = root / "Library" / "Caches" / "Tides";
    EXPECT_TRUE(std::filesystem::exists(tides / "noaaStations.json"));
    EXPECT_TRUE(std::filesystem::exists(tides / "noaa_8443970.json"));
  }
  std::filesystem::remove_all(root);
}

}  // namespace
}  // namespace ombrine
