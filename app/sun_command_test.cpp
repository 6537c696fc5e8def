// `ombrine sun` run as a user runs it: a real process, with its own empty container.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core/values/value_json.hpp"
#include "platform/testing/program_sandbox.hpp"

namespace ombrine {
namespace {

ProgramRun runSun(const std::string& arguments) {
  static const ProgramSandbox sandbox("ombrine-sun-e2e");
  return sandbox.run(OMBRINE_PROGRAM, "sun " + arguments, "LANG=en_US.UTF-8");
}

TEST(SunCommandTest, DaysAndTheirStates) {
  struct Row {
    const char* arguments;
    int exitCode;
    std::vector<std::string> expectInOutput;
  };
  const Row rows[] = {
      {"Tromsø --date 2026-06-21", 0, {"Midnight sun"}},
      {"Tromsø --date 2026-12-21", 0, {"Polar night", "Europe/Oslo"}},
      {"--at 48.137,11.575 --date 2026-06-21",
       0,
       {"Sunrise            05:1", "Daylight           16 h"}},  // summer time
      {"Tromsø --year 2026", 0, {"2026-06-21  Midnight sun"}},
      {"--at 48.137,11.575 --date 2026-02-30", 2, {}},  // no such day
      {"--at 48.137,11.575 --date 21.06.2026", 2, {}},
      {"Tromsø --year 2026 --date 2026-06-21", 2, {}},
      {"--at 91,0", 2, {}},
      {"", 2, {}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.arguments);
    const ProgramRun run = runSun(row.arguments);
    EXPECT_EQ(run.exitCode, row.exitCode);
    for (const auto& text : row.expectInOutput) EXPECT_NE(run.out.find(text), std::string::npos) << text;
  }
}

TEST(SunCommandTest, JsonYearHasEveryLocalDay) {
  const ProgramRun run = runSun("--at 69.6492,18.9553 --year 2024 --json");
  ASSERT_EQ(run.exitCode, 0);
  const auto document = parseJson(run.out);
  const auto& days = document.at("days").as_array();
  ASSERT_EQ(days.size(), 366u);
  EXPECT_EQ(document.at("timeZone").as_string(), "Europe/Oslo");
  const auto& midsummer = days[172].as_object();  // 21 June in a leap year
  EXPECT_EQ(midsummer.at("date").as_string(), "2024-06-21");
  EXPECT_EQ(midsummer.at("daylightState").as_string(), "polarDay");
  EXPECT_FALSE(midsummer.contains("sunrise"));
  EXPECT_EQ(midsummer.at("daylightDuration").to_number<double>(), 86400.0);
}

}  // namespace
}  // namespace ombrine
