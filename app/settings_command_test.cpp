// `ombrine settings` and `ombrine places save|list|remove|home` run as a user runs them: real
// processes sharing one container, so every step also proves the stores persist across runs.

#include <gtest/gtest.h>

#include "platform/testing/program_sandbox.hpp"
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <string>

#include <boost/json.hpp>

namespace ombrine {
namespace {

namespace fs = std::filesystem;

class StoreCommandsTest : public testing::Test {
 protected:
  // Runs the program with `arguments` (shell words) in the test's sandbox.
  ProgramRun run(const std::string& arguments) const { return sandbox_.run(OMBRINE_PROGRAM, arguments); }

  ProgramSandbox sandbox_{"ombrine-store-commands"};
};

TEST_F(StoreCommandsTest, SettingsSetGetAndErrors) {
  struct Row {
    const char* arguments;
    int exitCode;
    const char* out;  // exact stdout
  };
  const Row rows[] = {
      {"settings get showHourlyPrecipitation", 0, "true\n"},  // absent: shown
      {"settings get preferredWeatherProvider", 0, "dynamic\n"},
      {"settings set preferredWeatherProvider foreca", 0, ""},
      {"settings get preferredWeatherProvider --json", 0, "\"foreca\"\n"},
      {"settings set preferredWeatherProvider 3", 0, ""},
      {"settings get preferredWeatherProvider", 0, "ow\n"},
      {"settings set showHourlyPrecipitation off", 0, ""},
      {"settings get showHourlyPrecipitation --json", 0, "false\n"},
      {"settings set preferredAdditionalHourlyData windAndGust", 0, ""},
      {"settings get preferredAdditionalHourlyData", 0, "windAndGust\n"},
      {"settings get nosuchkey", 2, ""},
      {"settings set hideTides maybe", 2, ""},
      {"settings set preferredWeatherProvider 4", 2, ""},
      {"settings set preferredAdditionalHourlyData pollen", 2, ""},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.arguments);
    const ProgramRun result = run(row.arguments);
    EXPECT_EQ(result.exitCode, row.exitCode);
    EXPECT_EQ(result.out, row.out);
  }
  const ProgramRun list = run("settings list --json");
  ASSERT_EQ(list.exitCode, 0);
  EXPECT_EQ(boost::json::parse(list.out),
            boost::json::parse(R"({"hideWeatherAlerts":false,"hideTides":false,"preferFeelsLike":false,)"
                               R"("isBriskoModeEnabled":false,"preferredWeatherProvider":"ow",)"
                               R"("showHourlyPrecipitation":false,"preferredAdditionalHourlyData":"windAndGust"})"));
}

TEST_F(StoreCommandsTest, PlacesSaveListHomeRemoveAndBackup) {
  ASSERT_EQ(run("places save Bergen --name Rainy").exitCode, 0);
  ASSERT_EQ(run("places save --at -18.14,178.44").exitCode, 0);  // across the date line
  ProgramRun list = run("places list --json");
  ASSERT_EQ(list.exitCode, 0);
  auto saved = boost::json::parse(list.out).as_object();
  ASSERT_EQ(saved["favorites"].as_array().size(), 2u);
  const auto& bergen = saved["favorites"].as_array()[0].as_object();
  EXPECT_EQ(bergen.at("displayName"), "Rainy");
  EXPECT_EQ(bergen.at("region"), "NO");
  EXPECT_EQ(saved["favorites"].as_array()[1].as_object().at("timeZone"), "Pacific/Fiji");
  EXPECT_TRUE(saved["home"].is_null());

  EXPECT_EQ(run("places home rainy").exitCode, 0);  // a saved place, by its own name
  ProgramRun home = run("places home --json");
  EXPECT_EQ(boost::json::parse(home.out).as_object().at("id"), bergen.at("id"));

  EXPECT_EQ(run("places remove Nowhere").exitCode, 1);
  EXPECT_EQ(run("places save").exitCode, 2);
  EXPECT_EQ(run("places remove Rainy").exitCode, 0);
  list = run("places list --json");
  saved = boost::json::parse(list.out).as_object();
  EXPECT_EQ(saved["favorites"].as_array().size(), 1u);
  EXPECT_FALSE(saved["home"].is_null());  // removing a saved place leaves home alone

  // Every run opens the stores and so makes the day's backup: the first found the store empty
  // and made none, the second backed up the list holding Bergen alone. Restoring brings it back.
  ProgramRun backup = run("settings backup --json");
  ASSERT_EQ(backup.exitCode, 0);
  EXPECT_EQ(boost::json::parse(backup.out).as_object().at("latest").as_object().at("keyCount"), 1);
  EXPECT_EQ(run("settings restore").exitCode, 0);
  saved = boost::json::parse(run("places list --json").out).as_object();
  ASSERT_EQ(saved["favorites"].as_array().size(), 1u);
  EXPECT_EQ(saved["favorites"].as_array()[0].as_object().at("displayName"), "Rainy");
}

}  // namespace
}  // namespace ombrine
