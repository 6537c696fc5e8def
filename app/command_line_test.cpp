// How the `ombrine` program answers mistakes and failures, run as a user runs it: one line on
// stderr per failure and the exit codes of the README (0 ok, 1 failure, 2 usage, 3 shown from
// the last good data).

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>

#include "platform/testing/program_sandbox.hpp"

namespace ombrine {
namespace {

TEST(CommandLineTest, OneLineAndTheAgreedExitCode) {
  struct Row {
    const char* arguments;
    const char* environment;
    int exitCode;
    const char* line;  // part of the one stderr line; nullptr: stderr stays empty
  };
  const Row rows[] = {
      // Malformed coordinates are usage errors, never searched for as names ("Nan" is a town).
      {"forecast --at nan,nan", "", 2, "\"nan,nan\" is not a coordinate"},
      {"forecast --at abc,def", "", 2, "\"abc,def\" is not a coordinate"},
      {"forecast --at inf,0", "", 2, "\"inf,0\" is not a coordinate"},
      {"forecast --at 1e400,0", "", 2, "\"1e400,0\" is not a coordinate"},
      {"forecast --at 91,0", "", 2, "latitude 91 is outside -90 to 90"},
      {"sun --at nan,nan", "", 2, "ombrine sun: \"nan,nan\" is not a coordinate"},
      {"tides --at 0,181", "", 2, "longitude 181 is outside -180 to 180"},
      // The parser's own texts.
      {"forecst Munich", "", 2, "ombrine: unknown command \"forecst\" (did you mean forecast?)"},
      {"trips forcast", "", 2, "ombrine trips: unknown command \"forcast\" (did you mean forecast?)"},
      {"", "", 2, "ombrine: name a command"},
      {"trips hourly --hours 0", "", 2, "--hours: must be a number greater than 0"},
      {"forecast Munich --hours 3", "", 2, "ombrine forecast: unknown option \"--hours\""},
      {"radar Munich --zoom 13 -o x.png", "", 2, "ombrine: --zoom: must be a number from 2 to 12"},
      {"forecast --at 48.137,11.575 --services sim", "", 0, nullptr},
      // Failed fetches: what a person understands, no addresses or internal names.
      {"--services sim forecast --at 48.1,11.5", "OMBRINE_SIM_FAULTS='*=status=503'", 1,
       "ombrine forecast: the weather service is not answering (HTTP 503)"},
      {"--services sim forecast --at 48.1,11.5", "OMBRINE_SIM_FAULTS='foreca.current=status=429'", 1,
       "ombrine forecast: Sorry! There are currently way more people"},
      {"--services sim tides --at 38.78,-75.12", "OMBRINE_SIM_FAULTS='*=status=503'", 1,
       "ombrine tides: the tide service"},
      {"--services sim trips forecast nonesuch", "", 1, "no trip matches \"nonesuch\""},
      {"sun Nowhereville", "", 1, "ombrine sun: no place named \"Nowhereville\""},
      {"places save Nowhereville", "", 1, "no place matches \"Nowhereville\""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.arguments + std::string(" ") + row.environment);
    const ProgramSandbox sandbox("ombrine-command-line-test");
    const ProgramRun run = sandbox.run(OMBRINE_PROGRAM, row.arguments, row.environment);
    EXPECT_EQ(run.exitCode, row.exitCode) << run.err;
    if (row.line == nullptr) {
      EXPECT_EQ(run.err, "");
      continue;
    }
    EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
    EXPECT_NE(run.err.find(row.line), std::string::npos) << run.err;
    for (const char* internal : {"Error.", "error 5001", "error 6000", "http://"}) {
      EXPECT_EQ(run.err.find(internal), std::string::npos) << run.err;
    }
  }
}

// The environment comes first: a credentials file others can read is refused only when it is
// the source the run would use.
TEST(CommandLineTest, TokenInTheEnvironmentPassesOverAnUnsafeCredentialsFile) {
  const ProgramSandbox sandbox("ombrine-command-line-test");
  const auto directory = sandbox.root() / "config/ombrine";
  std::filesystem::create_directories(directory);
  std::ofstream(directory / "credentials") << "foreca_token = from-file\n";
  ::chmod((directory / "credentials").c_str(), 0644);
  const std::string arguments = "--services sim forecast --at 48.137,11.575";
  const ProgramRun refused = sandbox.run(OMBRINE_PROGRAM, arguments, "OMBRINE_FORECA_TOKEN=");
  EXPECT_EQ(refused.exitCode, 1);
  EXPECT_NE(refused.err.find("chmod 600"), std::string::npos) << refused.err;
  const ProgramRun passed = sandbox.run(OMBRINE_PROGRAM, arguments, "OMBRINE_FORECA_TOKEN=from-env");
  EXPECT_EQ(passed.exitCode, 0) << passed.err;
}

}  // namespace
}  // namespace ombrine
