// The `ombrine` program run as a user runs it: a real process, against the embedded simulator.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <string>

#include "core/one_call_weather_json.hpp"
#include "platform/icu_setup.hpp"

namespace ombrine {
namespace {

struct ProgramRun {
  int exitCode = -1;
  std::string out;
};

// Runs the program with `arguments` (shell words), stdout captured, stderr discarded.
ProgramRun runOmbrine(const std::string& arguments, const std::string& environment = "") {
  const std::string command = environment + " NO_COLOR=1 " OMBRINE_PROGRAM " " + arguments + " 2>/dev/null";
  ProgramRun run;
  FILE* pipe = ::popen(command.c_str(), "r");
  if (!pipe) return run;
  std::array<char, 4096> buffer;
  size_t n;
  while ((n = std::fread(buffer.data(), 1, buffer.size(), pipe)) > 0) run.out.append(buffer.data(), n);
  const int status = ::pclose(pipe);
  run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return run;
}

TEST(ForecastCommandTest, JsonIsACompleteRecordForTheAskedPlace) {
  useShippedTimeZoneData();
  const ProgramRun run = runOmbrine("--services sim forecast --provider foreca --at 48.137,11.575 --json");
  ASSERT_EQ(run.exitCode, 0);
  const OneCallWeather weather = decodeOneCallWeather(run.out);
  EXPECT_DOUBLE_EQ(weather.lat, 48.137);
  EXPECT_DOUBLE_EQ(weather.lon, 11.575);
  EXPECT_EQ(weather.timeZone.identifier(), "Europe/Berlin");
  EXPECT_GE(weather.hourly.size(), 24u);
  EXPECT_GE(weather.daily.size(), 10u);
  ASSERT_TRUE(weather.attribution);
}

TEST(ForecastCommandTest, ExitCodesAndScreen) {
  struct Row {
    const char* arguments;
    int exitCode;
    const char* expectInOutput;
  };
  const Row rows[] = {
      {"--services sim forecast Munich", 0, "Munich"},
      {"--services sim forecast --at -33.87,151.21 --provider foreca", 0, "Days"},
      // Across the date line: Fiji's forecast is named and shown in its own zone.
      {"--services sim forecast --at -18.14,178.44 --provider foreca", 0, "Pacific/Fiji"},
      {"--services sim forecast --at 91,200", 2, ""},       // malformed coordinate: usage error
      {"--services sim forecast", 2, ""},                   // no place at all
      {"--services sim forecast Munich --provider nope", 2, ""},
      {"--services sim forecast --at 48.1,11.5 --provider ow", 1, ""},  // not in this build
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.arguments);
    const ProgramRun run = runOmbrine(row.arguments);
    EXPECT_EQ(run.exitCode, row.exitCode);
    EXPECT_NE(run.out.find(row.expectInOutput), std::string::npos);
    if (row.exitCode != 0) EXPECT_EQ(run.out, "");  // errors never go to stdout
  }
}

TEST(ForecastCommandTest, HumanScreenFitsEightyColumnsInEveryLocale) {
  for (const char* locale : {"en_US.UTF-8", "de_DE.UTF-8", "fi_FI.UTF-8", "ja_JP.UTF-8", "fr_CA.UTF-8"}) {
    SCOPED_TRACE(locale);
    const ProgramRun run = runOmbrine("--services sim forecast Helsinki", std::string("LC_ALL=") + locale);
    ASSERT_EQ(run.exitCode, 0);
    size_t start = 0;
    while (start < run.out.size()) {
      size_t end = run.out.find('\n', start);
      if (end == std::string::npos) end = run.out.size();
      std::string_view line(run.out.data() + start, end - start);
      size_t columns = 0;
      for (unsigned char c : line) columns += (c & 0xC0) != 0x80;
      EXPECT_LE(columns, 80u) << line;
      EXPECT_EQ(line.find('\x1b'), std::string_view::npos) << "colour despite NO_COLOR";
      start = end + 1;
    }
  }
}

}  // namespace
}  // namespace ombrine
