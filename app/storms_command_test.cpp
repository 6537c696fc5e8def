// `ombrine storms` run as a user runs it: a real process against the embedded simulator, whose
// season is wherever the wall clock has put it, so each check holds whatever storms are active.

#include <gtest/gtest.h>

#include <string>

#include "core/values/value_json.hpp"
#include "platform/testing/program_sandbox.hpp"

namespace ombrine {
namespace {

class StormsCommandTest : public ::testing::Test {
 protected:
  ProgramRun run(const std::string& arguments, const std::string& faults = "") {
    return sandbox_.runSimulated(OMBRINE_PROGRAM, "storms " + arguments, faults);
  }

  ProgramSandbox sandbox_{"ombrine-storms-e2e"};
};

TEST_F(StormsCommandTest, ListShowAndGeoJSON) {
  const ProgramRun listed = run("--json");
  ASSERT_EQ(listed.exitCode, 0);
  const auto document = parseJson(listed.out);
  EXPECT_EQ(document.at("completeCoverage").as_array().size(), 6u);  // every basin answered
  const auto& storms = document.at("storms").as_array();
  const ProgramRun plain = run("");
  EXPECT_EQ(plain.exitCode, 0);
  if (storms.empty()) {
    EXPECT_NE(plain.out.find("No active tropical storms."), std::string::npos) << plain.out;
    return;
  }
  for (const auto& storm : storms) {
    const std::string id(storm.at("id").as_string());
    SCOPED_TRACE(id);
    EXPECT_NE(plain.out.find(id), std::string::npos) << plain.out;
    const ProgramRun shown = run("show " + id);
    EXPECT_EQ(shown.exitCode, 0);
    EXPECT_NE(shown.out.find("Forecast track:"), std::string::npos) << shown.out;
    EXPECT_NE(shown.out.find("now"), std::string::npos) << shown.out;
    const ProgramRun geojson = run("show " + id + " --geojson");
    ASSERT_EQ(geojson.exitCode, 0);
    const auto features = parseJson(geojson.out).at("features").as_array();
    EXPECT_FALSE(features.empty());
  }
  const ProgramRun near = run("--near Tokyo --radius 40000");
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
      {"--radius 10", "", 2},  // a radius needs a place
      {"--near Tokyo --radius -5", "", 2},
      {"show", "", 2},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::string(row.arguments) + " " + row.faults);
    const ProgramRun result = run(row.arguments, row.faults);
    EXPECT_EQ(result.exitCode, row.exitCode) << result.out;
  }
}

}  // namespace
}  // namespace ombrine
