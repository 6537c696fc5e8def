// `ombrine notify alerts`, `ombrine alerts` and `ombrine notifications` run as a user runs them:
// real processes against the embedded simulator, with their own container, data, config and
// runtime folders: without a session bus notifications land in the spool; with one in the runtime
// folder (as a systemd user timer finds it) they reach the desktop's notification server.

#include <gtest/gtest.h>

#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>
#include "platform/testing/program_sandbox.hpp"

#include <array>
#include <cstdio>
#include <filesystem>
#include <string>

#include "core/values/value_json.hpp"
#include "platform/testing/desktop_notification_server.hpp"

namespace ombrine {
namespace {

class Sandbox {
 public:
  // `phase` pins Miami's scripted warnings to one phase of their cycle.
  ProgramRun run(const std::string& arguments, int phase) const {
    return sandbox_.run(OMBRINE_PROGRAM, "--services sim " + arguments,
                        "OMBRINE_SIM_ALERT_PLACES=25.77,-80.19," + std::to_string(phase) + " LANG=en_US.UTF-8 TZ=UTC");
  }

  std::filesystem::path runtimeFolder() const { return sandbox_.root() / "runtime"; }

 private:
  ProgramSandbox sandbox_{"ombrine-alerts-e2e"};
};

TEST(AlertsCommandTest, EachLiveAlertIsAnnouncedOnce) {
  Sandbox sandbox;
  struct Step {
    const char* why;
    int phase;
    const char* expect;
  };
  const Step steps[] = {
      {"five live warnings, two of one event from two senders", 3, "Announced 5 weather alerts for Miami"},
      {"the same feed again", 3, "No new weather alerts for Miami"},
      {"reordered, an end moved", 4, "No new weather alerts for Miami"},
      {"the hurricane warning gone", 2, "No new weather alerts for Miami"},
      {"and back", 3, "No new weather alerts for Miami"},
  };
  for (const Step& step : steps) {
    SCOPED_TRACE(step.why);
    const ProgramRun run = sandbox.run("notify alerts Miami", step.phase);
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_NE(run.out.find(step.expect), std::string::npos) << run.out;
  }

  const ProgramRun listed = sandbox.run("notifications list --json", 3);
  ASSERT_EQ(listed.exitCode, 0);
  const auto entries = parseJson(listed.out).as_array();
  ASSERT_EQ(entries.size(), 1u) << listed.out;
  EXPECT_EQ(entries[0].at("state").as_string(), "delivered");
  EXPECT_EQ(entries[0].at("deliveredTo").as_string(), "spool");
  EXPECT_EQ(entries[0].at("title").as_string(), "Severe Weather Alert");
  EXPECT_TRUE(
      std::string(entries[0].at("body").as_string()).starts_with("Hurricane Warning and 4 more (NWS Miami FL)"));

  const ProgramRun alerts = sandbox.run("alerts Miami --json", 3);
  ASSERT_EQ(alerts.exitCode, 0);
  const auto shown = parseJson(alerts.out).at("alerts").as_array();
  ASSERT_EQ(shown.size(), 5u) << alerts.out;
  for (const auto& alert : shown) {
    EXPECT_EQ(alert.at("notification").at("state").as_string(), "notified") << alert;
    EXPECT_EQ(alert.at("notification").at("identifier"), entries[0].at("identifier"));
  }

  const ProgramRun cleared = sandbox.run("notifications clear", 3);
  EXPECT_NE(cleared.out.find("Removed 1 notification"), std::string::npos) << cleared.out;
  EXPECT_EQ(sandbox.run("notify alerts", 3).exitCode, 2);  // no place and no home place
  ASSERT_EQ(sandbox.run("places home Miami", 3).exitCode, 0);
  EXPECT_NE(sandbox.run("notify alerts", 3).out.find("No new weather alerts for Miami"), std::string::npos);
}

TEST(AlertsCommandTest, AnnouncesOnTheDesktopThroughTheRuntimeFolderBus) {
  Sandbox sandbox;
  // The program is given no bus address: it finds the bus at $XDG_RUNTIME_DIR/bus.
  PrivateSessionBus bus(sandbox.runtimeFolder());
  ASSERT_TRUE(bus.running()) << "dbus-daemon is needed (scripts/setup installs it)";
  RecordingNotificationServer server(bus.address());
  ASSERT_TRUE(server.ready());

  EXPECT_EQ(sandbox.run("notify alerts Miami", 0).exitCode, 0);
  EXPECT_NE(sandbox.run("notify alerts Miami", 0).out.find("No new weather alerts"), std::string::npos);
  const auto shown = server.shown();
  ASSERT_EQ(shown.size(), 1u);
  EXPECT_EQ(shown[0].appName, "Ombrine");
  EXPECT_EQ(shown[0].summary, "Severe Weather Alert");
  EXPECT_TRUE(shown[0].body.starts_with("Hurricane Warning and 1 more (NWS Miami FL)\nFrom ")) << shown[0].body;
  const ProgramRun listed = sandbox.run("notifications list --json", 0);
  EXPECT_EQ(parseJson(listed.out).as_array().at(0).at("deliveredTo").as_string(), "desktop") << listed.out;

  sandbox.run("notifications clear", 0);
  EXPECT_EQ(server.closed(), std::vector<std::uint32_t>{shown[0].id});
}

}  // namespace
}  // namespace ombrine
