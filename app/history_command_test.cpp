// `ombrine history` run as a user runs it: a real process against the embedded simulator, with
// its own empty container and history folder.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "core/values/value_json.hpp"
#include "platform/testing/program_sandbox.hpp"

namespace ombrine {
namespace {

// Every run asks the services afresh: a sandbox of its own.
ProgramRun runHistory(const std::string& arguments, const std::string& faults = "") {
  const ProgramSandbox sandbox("ombrine-history-e2e");
  return sandbox.runSimulated(OMBRINE_PROGRAM, "history " + arguments, faults);
}

TEST(HistoryCommandTest, TablesAndFailures) {
  struct Row {
    const char* arguments;
    const char* faults;
    int exitCode;
    std::vector<std::string> expectInOutput;
  };
  const Row rows[] = {
      {"Munich --compare Tromsø",
       "",
       0,
       {"Each place uses its own local time.", "Midnight sun", "Polar night", "Jul "}},
      {"78.22,15.65", "", 0, {"Longyearbyen"}},                            // a coordinate, named
      {"Munich", "meteostat.point_normals=status=503", 0, {"Jan "}},       // NASA POWER alone
      {"Munich", "meteostat.*=status=429", 1, {}},                         // the API limit
      {"Munich", "meteostat.*=status=503;nasapower.*=status=500", 1, {}},  // nothing answers
      {"", "", 2, {}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::string(row.arguments) + " " + row.faults);
    const ProgramRun run = runHistory(row.arguments, row.faults);
    EXPECT_EQ(run.exitCode, row.exitCode);
    for (const auto& text : row.expectInOutput) EXPECT_NE(run.out.find(text), std::string::npos) << text;
  }
}

TEST(HistoryCommandTest, JsonSeriesKeepTwelveMonths) {
  const ProgramRun run = runHistory("Munich --compare Tromsø --json");
  ASSERT_EQ(run.exitCode, 0);
  const auto document = parseJson(run.out);
  EXPECT_EQ(document.at("comparison").at("name").as_string(), "Tromsø");
  const auto& temperature = document.at("series").at("temperature").as_array();
  ASSERT_EQ(temperature.size(), 4u);
  EXPECT_EQ(temperature[0].at("kind").as_string(), "maximum");
  EXPECT_EQ(temperature[3].at("role").as_string(), "comparison");
  for (const auto& series : temperature) EXPECT_EQ(series.at("values").as_array().size(), 12u);
  const auto& days = document.at("sun").at("days").as_array();
  EXPECT_GE(days.size(), 365u);
  EXPECT_TRUE(days[0].as_object().contains("comparison"));
}

TEST(HistoryCommandTest, ChartFiles) {
  const ProgramSandbox folder("ombrine-history-charts");
  struct Row {
    const char* name;
    int exitCode;
    const char* signature;  // the file's first bytes; "": no file
  };
  const Row rows[] = {
      {"chart.png", 0, "\x89PNG"},
      {"chart.SVG", 0, "<?xml"},
      {"chart.gif", 2, ""},  // refused before any service is asked
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const auto file = folder.root() / row.name;
    EXPECT_EQ(runHistory("Munich --compare Tromsø -o " + file.string()).exitCode, row.exitCode);
    EXPECT_EQ(std::filesystem::exists(file), *row.signature != 0);
    EXPECT_TRUE(readTextFile(file).starts_with(row.signature));
  }
}

}  // namespace
}  // namespace ombrine
