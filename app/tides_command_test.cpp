// `ombrine tides` run as a user runs it: a real process against the embedded simulator, with
// its own empty container so that no earlier run's cache answers.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "core/record/tide_records_json.hpp"
#include "core/values/value_json.hpp"
#include "platform/testing/program_sandbox.hpp"

namespace ombrine {
namespace {

ProgramRun runTides(const std::string& arguments) {
  static const ProgramSandbox sandbox("ombrine-tides-e2e");
  return sandbox.runSimulated(OMBRINE_PROGRAM, "tides " + arguments);
}

TEST(TidesCommandTest, StationDistanceAndComingTides) {
  struct Row {
    const char* arguments;
    int exitCode;
    std::vector<std::string> expectInOutput;
  };
  const Row rows[] = {
      {"--at 38.78,-75.12 --hours 24", 0, {"Station: Lewes, DE", "America/New_York", "high"}},
      {"--station 8557380", 0, {"chosen directly"}},
      {"--station 07795", 0, {"Point Atkinson, BC"}},  // a CHS station by its code
      {"Dover", 1, {}},                                // Dover, England: no tide service there
      {"--at 48.137,11.575", 1, {}},                   // Munich: inland and outside the regions
      {"--station 123", 2, {}},                        // no such station
      {"", 2, {}},                                     // nothing asked
      {"--at 38.78,-75.12 --hours 0", 2, {}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.arguments);
    const ProgramRun run = runTides(row.arguments);
    EXPECT_EQ(run.exitCode, row.exitCode);
    for (const auto& text : row.expectInOutput) EXPECT_NE(run.out.find(text), std::string::npos) << text;
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
  for (int run = 0; run < 4; ++run) {
    SCOPED_TRACE(run);
    const ProgramSandbox sandbox("ombrine-tides-cold");
    ASSERT_EQ(sandbox.runSimulated(OMBRINE_PROGRAM, "tides Boston").exitCode, 0);
    const std::filesystem::path tides = sandbox.container() / "Library" / "Caches" / "Tides";
    EXPECT_TRUE(std::filesystem::exists(tides / "noaaStations.json"));
    EXPECT_TRUE(std::filesystem::exists(tides / "noaa_8443970.json"));
  }
}

}  // namespace
}  // namespace ombrine
