// `ombrine fires` run as a user runs it: a real process against the embedded simulator, in a
// container of its own, with each service failing in turn.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>
#include <string>

#include "core/values/value_json.hpp"
#include "platform/testing/program_sandbox.hpp"

namespace ombrine {
namespace {

class FiresCommandTest : public ::testing::Test {
 protected:
  ProgramRun run(const std::string& arguments, const std::string& faults = "") {
    return sandbox_.runSimulated(OMBRINE_PROGRAM, "fires " + arguments, faults);
  }

  static std::map<std::string, std::string> states(const boost::json::value& document) {
    std::map<std::string, std::string> result;
    for (const auto& source : document.at("sources").as_array()) {
      result[std::string(source.at("service").as_string())] = std::string(source.at("state").as_string());
    }
    return result;
  }

  ProgramSandbox sandbox_{"ombrine-fires-e2e"};
};

TEST_F(FiresCommandTest, NorthernCaliforniaFromEveryUSService) {
  const ProgramRun text = run("--at 39.5,-121.5 --radius 300");
  ASSERT_EQ(text.exitCode, 0) << text.out;
  EXPECT_NE(text.out.find("Dixon  wildfire"), std::string::npos) << text.out;
  EXPECT_NE(text.out.find("Cedar Fire  wildfire"), std::string::npos) << text.out;  // CAL FIRE only
  EXPECT_EQ(text.out.find("Dixon Fire"), std::string::npos) << text.out;            // merged into NIFC's record
  EXPECT_NE(text.out.find("1 polygon, 1 hole"), std::string::npos) << text.out;
  const ProgramRun json = run("--at 39.5,-121.5 --radius 300 --json");
  ASSERT_EQ(json.exitCode, 0);
  const auto document = parseJson(json.out);
  for (const auto& [service, state] : states(document)) EXPECT_EQ(state, "complete") << service;
  std::set<std::string> ids;
  for (const auto& incident : document.at("incidents").as_array())
    ids.insert(std::string(incident.at("id").as_string()));
  EXPECT_TRUE(std::any_of(ids.begin(), ids.end(), [](auto& id) { return id.starts_with("calfire-incident:"); }));
  EXPECT_TRUE(std::any_of(ids.begin(), ids.end(), [](auto& id) { return !id.starts_with("calfire-incident:"); }));
  const ProgramRun geojson = run("--at 39.5,-121.5 --radius 300 --geojson");
  ASSERT_EQ(geojson.exitCode, 0);
  EXPECT_GE(parseJson(geojson.out).at("features").as_array().size(), 8u);
}

TEST_F(FiresCommandTest, BritishColumbiaNamesItsFires) {
  const ProgramRun text = run("--at 50.5,-120.5");
  ASSERT_EQ(text.exitCode, 0);
  EXPECT_NE(text.out.find("Tranquille Creek  wildfire"), std::string::npos) << text.out;
  EXPECT_NE(text.out.find("outOfControl"), std::string::npos) << text.out;
  EXPECT_NE(text.out.find("https://wildfiresituation.nrs.gov.bc.ca/incidents"), std::string::npos) << text.out;
  EXPECT_NE(text.out.find("CAL FIRE perimeters: not asked"), std::string::npos) << text.out;
}

TEST_F(FiresCommandTest, OneFailingServiceLeavesTheOthers) {
  struct Case {
    const char* faults;
    std::set<std::string> failing;
    const char* state;
  };
  const Case cases[] = {
      {"nifc.*=status=503", {"NIFC incidents", "NIFC perimeters"}, "coolingDown"},
      {"cwfis.*=error200", {"CWFIS active fires", "CWFIS perimeters"}, "failed"},
      {"nifc.perimeters=truncate", {"NIFC perimeters"}, "failed"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.faults);
    const ProgramRun json = run("--at 39.5,-121.5 --radius 300 --json", c.faults);
    ASSERT_EQ(json.exitCode, 0) << json.out;
    for (const auto& [service, state] : states(parseJson(json.out))) {
      EXPECT_EQ(state, c.failing.count(service) ? c.state : "complete") << service;
    }
  }
  const ProgramRun text = run("--at 39.5,-121.5 --radius 300", "nifc.*=status=429,retry-after=120");
  EXPECT_NE(text.out.find("NIFC incidents: cooling down until"), std::string::npos) << text.out;
  EXPECT_NE(text.out.find("Cedar Fire"), std::string::npos) << text.out;
  // Every service down: nothing answered.
  EXPECT_EQ(run("--at 39.5,-121.5", "*=status=500").exitCode, 1);
  EXPECT_EQ(run("--at 95,0").exitCode, 2);
  EXPECT_EQ(run("").exitCode, 2);
}

}  // namespace
}  // namespace ombrine
