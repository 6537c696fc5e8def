// `ombrine settings` and `ombrine places save|list|remove|home` run as a user runs them: real
// processes sharing one container, so every step also proves the stores persist across runs.

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>

#include <boost/json.hpp>

#include "platform/testing/program_sandbox.hpp"

namespace ombrine {
namespace {

namespace fs = std::filesystem;

class StoreCommandsTest : public testing::Test {
 protected:
  // Runs the program with `arguments` (shell words) in the test's sandbox, the synced store in
  // its default place inside the container. `asNobody`: as user nobody (the test runs as root).
  ProgramRun run(const std::string& arguments, bool asNobody = false) const {
    const std::string program =
        std::string(asNobody ? "setpriv --reuid=65534 --regid=65534 --clear-groups " : "") + OMBRINE_PROGRAM;
    return sandbox_.run(program, arguments, "OMBRINE_SYNC_DIR=");
  }

  ProgramSandbox sandbox_{"ombrine-store-commands"};
  const fs::path container_ = sandbox_.container();
};

TEST_F(StoreCommandsTest, SettingsSetGetAndErrors) {
  struct Row {
    const char* arguments;
    int exitCode;
    const char* out;  // exact stdout
  };
  const Row rows[] = {
      {"settings get showHourlyPrecipitation", 0, "true\n"},  // absent: shown
      {"settings set preferredWeatherProvider foreca", 0, ""},
      {"settings get preferredWeatherProvider --json", 0, "\"foreca\"\n"},
      {"settings set preferredWeatherProvider 3", 0, ""},
      {"settings get preferredWeatherProvider", 0, "ow\n"},
      {"settings set showHourlyPrecipitation off", 0, ""},
      {"settings get showHourlyPrecipitation --json", 0, "false\n"},
      {"settings set preferredAdditionalHourlyData windAndGust", 0, ""},
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

  // A backup taken now holds what changed since the day's first snapshot; restoring it after an
  // experiment brings that state back.
  ProgramRun backup = run("settings backup before-experiment --json");
  ASSERT_EQ(backup.exitCode, 0);
  EXPECT_EQ(boost::json::parse(backup.out).as_object().at("keyCount"), 2);  // favorites and home
  EXPECT_EQ(run("settings backup latest").exitCode, 2);
  const std::string fiji(saved["favorites"].as_array()[0].as_object().at("id").as_string());
  ASSERT_EQ(run("places remove " + fiji).exitCode, 0);
  const ProgramRun listed = run("settings restore --json");
  ASSERT_EQ(listed.exitCode, 0);
  bool named = false;
  const boost::json::value backups = boost::json::parse(listed.out);
  for (const auto& row : backups.as_array()) named = named || row.at("name") == "before-experiment";
  EXPECT_TRUE(named) << listed.out;
  EXPECT_EQ(run("settings restore nosuch").exitCode, 1);
  EXPECT_EQ(run("settings restore before-experiment").exitCode, 0);
  saved = boost::json::parse(run("places list --json").out).as_object();
  ASSERT_EQ(saved["favorites"].as_array().size(), 1u);
  EXPECT_EQ(saved["favorites"].as_array()[0].as_object().at("timeZone"), "Pacific/Fiji");
}

// The saved-place commands as a user types them: ids shown and accepted by prefix, no duplicate
// on a second save, conflicting home options refused, typed names shown harmlessly.
TEST_F(StoreCommandsTest, PlacesIdsDuplicatesHomeOptionsAndUnsafeNames) {
  ASSERT_EQ(run("places save Bergen").exitCode, 0);
  ASSERT_EQ(run("places save Oslo").exitCode, 0);
  const auto favorites = boost::json::parse(run("places list --json").out).at("favorites").as_array();
  ASSERT_EQ(favorites.size(), 2u);
  const std::string bergen(favorites[0].at("id").as_string());
  const std::string oslo(favorites[1].at("id").as_string());
  const std::string longQuery(100'000, 'q');

  struct Row {
    std::string arguments;
    int exitCode;
    std::string inOut;  // stdout contains this ("" = anything)
    std::string inErr;  // stderr contains this ("" = must be empty)
  };
  const Row rows[] = {
      {"places at -14.2781,-170.7025", 0, "time zone  Pacific/Pago_Pago", ""},  // not Samoa, a day ahead
      {"places list", 0, bergen.substr(0, 8) + "  Bergen", ""},
      {"places save Bergen", 0, "already saved Bergen", ""},
      {"places remove 1", 1, "", "no saved place is named \"1\""},
      {"places home Oslo --clear", 2, "", "usage: ombrine places home"},
      {"places home --clear --name X", 2, "", "--clear takes no place"},
      {"places home --name X", 2, "", "--name names the place being set"},
      {"places search " + longQuery, 1, "", "no place matches \"" + std::string(60, 'q') + "…\""},
      {"places save --at 1,2 --name \"$(printf 'evil\\033[31m\\342\\200\\256')\"", 0, "evil\uFFFD[31m\uFFFD", ""},
      {"places remove " + oslo.substr(0, 6), 0, "removed Oslo", ""},
      {"places remove " + bergen, 0, "removed Bergen", ""},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.arguments.substr(0, 80));
    const ProgramRun result = run(row.arguments);
    EXPECT_EQ(result.exitCode, row.exitCode) << result.err;
    EXPECT_NE(result.out.find(row.inOut), std::string::npos) << result.out;
    if (row.inErr.empty()) {
      EXPECT_EQ(result.err, "");
    } else {
      EXPECT_NE(result.err.find(row.inErr), std::string::npos) << result.err;
      EXPECT_LT(result.err.size(), 400u) << "one short line";
    }
  }
  EXPECT_EQ(boost::json::parse(run("places list --json").out).at("favorites").as_array().size(), 1u);
}

// Moving a trip to another place keeps what the user called it and its symbol; the trip list
// written by the edit still holds a trip another run added.
TEST_F(StoreCommandsTest, TripsEditMovesThePlaceKeepingNameAndSymbol) {
  ASSERT_EQ(run("places home --at 48.85,2.35").exitCode, 0);
  ASSERT_EQ(run("trips add Rome --from 2031-03-01 --to 2031-03-05 --name Weekend --symbol tram").exitCode, 0);
  ASSERT_EQ(run("trips add Oslo --from 2031-04-01").exitCode, 0);
  ASSERT_EQ(run("trips edit weekend --place Milan").exitCode, 0);
  const auto trips = boost::json::parse(run("trips list --json").out).as_array();
  ASSERT_EQ(trips.size(), 2u);
  const auto& destination = trips[0].at("trip").at("destination").as_object();
  EXPECT_EQ(destination.at("name"), "Milan");
  EXPECT_EQ(destination.at("displayName"), "Weekend");
  EXPECT_EQ(destination.at("symbolName"), "tram");
}

// Every way the stores and caches can refuse a write, as a user meets them: the command's exit
// code and what it says. A refused write is never confirmed: one line on stderr and exit 1. A
// cache that cannot be written never fails the forecast, and -v names it.
TEST_F(StoreCommandsTest, UnwritableCorruptAndMisplacedFiles) {
  const fs::path synced = container_ / "Library" / "Synced Preferences";
  const fs::path store = synced / "ubiquitous-key-value-store.json";
  const fs::path caches = container_ / "Library" / "Caches";
  struct Row {
    const char* name;
    std::function<void()> arrange;
    bool asNobody;  // root reads a mode-000 file anyway
    const char* arguments;
    int exitCode;
    const char* stderrHas;
    bool oneLine;
  };
  const auto directoryStore = [&] { fs::create_directories(store); };
  const auto lockedStore = [&] {
    fs::create_directories(synced);
    std::ofstream(store) << "{}";
    fs::permissions(store, fs::perms::none);
  };
  const Row rows[] = {
      {"store is a folder", directoryStore, false, "places save --at 1,2", 1, "Is a directory", true},
      {"store is a folder", directoryStore, false, "settings set hideTides true", 1, "Is a directory", true},
      {"store is a folder", directoryStore, false, "trips add Paris --from 2030-01-01", 1, "Is a directory", true},
      {"store is mode 000", lockedStore, true, "places save --at 1,2", 1, "Permission denied", true},
      {"store is mode 000", lockedStore, true, "settings set hideTides true", 1, "Permission denied", true},
      {"store is garbage",
       [&] {
         fs::create_directories(synced);
         std::ofstream(store) << "{\"favorites\": tru";
       },
       false, "places save --at 1,2", 0, "kept aside", true},
      {"weather cache is a folder", [&] { fs::create_directories(caches / "latestWeatherCache"); }, false,
       "--services sim forecast Boston -v", 0, "Could not write the weather cache", false},
      {"tide predictions file is a folder", [&] { fs::create_directories(caches / "Tides" / "noaa_8443970.json"); },
       false, "--services sim forecast Boston -v", 0, "Could not write the tide cache", false},
      {"caches folder is a file",
       [&] {
         fs::create_directories(caches.parent_path());
         std::ofstream(caches) << "x";
       },
       false, "--services sim forecast Boston", 0, "nothing is cached", true},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(std::string(row.name) + ": " + row.arguments);
    fs::remove_all(container_);
    fs::create_directories(container_);
    row.arrange();
    if (row.asNobody) {
      if (::geteuid() != 0) continue;
      for (const auto& entry : fs::recursive_directory_iterator(container_)) {
        if (entry.is_directory()) fs::permissions(entry.path(), fs::perms::all);
      }
      fs::permissions(container_, fs::perms::all);
      fs::permissions(sandbox_.root(), fs::perms::all);
    }
    const ProgramRun result = run(row.arguments, row.asNobody);
    EXPECT_EQ(result.exitCode, row.exitCode) << result.err;
    EXPECT_NE(result.err.find(row.stderrHas), std::string::npos) << result.err;
    if (row.oneLine) EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
  }
}

}  // namespace
}  // namespace ombrine
