// `ombrine history` run as a user runs it: a real process against the embedded simulator, with
// its own empty container and history folder.

#include <gtest/gtest.h>

#include "platform/testing/program_sandbox.hpp"
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>

#include "core/value_json.hpp"

namespace ombrine {
namespace {

// Every run asks the services afresh: a sandbox of its own.
ProgramRun runHistory(const std::string& arguments, const std::string& faults = "") {
  const ProgramSandbox sandbox("ombrine-history-e2e");
  return sandbox.run(OMBRINE_PROGRAM, "--services sim history " + arguments,
                     "LANG=en_US.UTF-8 OMBRINE_SIM_FAULTS='" + faults + "'");
}

TEST(HistoryCommandTest, TablesAndFailures) {
  struct Row {
    const char* arguments;
    const char* faults;
    int exitCode;
    const char* expectInOutput;
  };
  const Row rows[] = {
      {"Munich --compare Tromsø", "", 0, "Each place uses its own local time."},
      {"Munich --compare Tromsø", "", 0, "Midnight sun"},
      {"Munich --compare Tromsø", "", 0, "Polar night"},
      {"Munich", "", 0, "Jul "},
      {"78.22,15.65", "", 0, "Longyearbyen"},                                     // a coordinate, named
      {"Munich", "meteostat.point_normals=status=503", 0, "Jan "},             // NASA POWER alone
      {"Munich", "meteostat.*=status=429", 1, ""},                             // the API limit
      {"Munich", "meteostat.*=status=503;nasapower.*=status=500", 1, ""},      // nothing answers
      {"", "", 2, ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::string(row.arguments) + " " + row.faults);
    const ProgramRun run = runHistory(row.arguments, row.faults);
    EXPECT_EQ(run.exitCode, row.exitCode);
    EXPECT_NE(run.out.find(row.expectInOutput), std::string::npos) << run.out;
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
  const auto folder = std::filesystem::temp_directory_path() / ("ombrine-history-charts-" + std::to_string(::getpid()));
  std::filesystem::create_directories(folder);
  struct Row {
    const char* name;
    int exitCode;
    const char* signature;  // the file's first bytes
  };
  const Row rows[] = {
      {"chart.png", 0, "\x89PNG"},
      {"chart.SVG", 0, "<?xml"},
      {"chart.gif", 2, nullptr},  // refused before any service is asked
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const auto file = folder / row.name;
    const ProgramRun run = runHistory("Munich --compare Tromsø -o " + file.string());
    EXPECT_EQ(run.exitCode, row.exitCode);
    if (!row.signature) {
      EXPECT_FALSE(std::filesystem::exists(file));
      continue;
    }
    FILE* in = std::fopen(file.c_str(), "rb");
    ASSERT_TRUE(in);
    std::array<char, 5> head{};
    EXPECT_EQ(std::fread(head.data(), 1, std::strlen(row.signature), in), std::strlen(row.signature));
    std::fclose(in);
    EXPECT_EQ(std::string(head.data(), std::strlen(row.signature)), row.signature);
  }
  std::filesystem::remove_all(folder);
}

}  // namespace
}  // namespace ombrine
