// `ombrine daemon` as a real process against the embedded simulator, in a container of its own,
// with a minute of the refresh delays shortened to 20 ms (a pass every 1.2 s): passes follow
// their requests, SIGTERM stops it cleanly, and a restarted daemon honours the request the first
// one left, so no pass is lost or run twice.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <boost/json.hpp>

#include "platform/testing/program_sandbox.hpp"

#include <chrono>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace ombrine {
namespace {

using namespace std::chrono_literals;
namespace json = boost::json;

constexpr double kIntervalSeconds = 60 * 0.020;
const std::string kTask = "com.quillfernhollowarts.weather.precipitation";

class Sandbox {
 public:
  Sandbox() {
    std::filesystem::create_directories(sandbox_.root() / "config/ombrine");
    std::ofstream(sandbox_.root() / "config/ombrine/location.json")
        << R"({"latitude": 48.8566, "longitude": 2.3522, "name": "Paris", "timeZone": "Europe/Paris", "region": "FR"})";
  }

  // Starts `ombrine --services sim ARGS...` with stdout and stderr to files; returns its pid.
  pid_t start(const std::vector<std::string>& arguments, const std::string& log) const {
    std::vector<std::string> words{"--services", "sim"};
    words.insert(words.end(), arguments.begin(), arguments.end());
    return sandbox_.start(OMBRINE_PROGRAM, words,
                          {"OMBRINE_BACKGROUND_MINUTE_MS=" + std::to_string(minuteMs), "LANG=en_US.UTF-8"}, log);
  }

  static int wait(pid_t pid) { return ProgramSandbox::waitForExit(pid); }

  std::string read(const std::string& name) const { return readTextFile(sandbox_.root() / name); }

  // How long a minute of the refresh delays lasts.
  int minuteMs = 20;

  std::filesystem::path tasks() const { return sandbox_.container() / "Library/Application Support/Background Tasks"; }

  json::array passes() const {
    boost::system::error_code error;
    auto value = json::parse(readTextFile(tasks() / (kTask + ".passes.json")), error);
    return !error && value.is_array() ? value.as_array() : json::array();
  }

  std::optional<double> standingRequest() const {
    const std::string text = readTextFile(tasks() / (kTask + ".request.json"));
    if (text.empty()) return std::nullopt;
    return json::parse(text).at("earliestBeginDate").to_number<double>();
  }

  // Waits until `count` passes have ended; false after `limit`.
  bool waitForEndedPasses(std::size_t count, std::chrono::seconds limit) const {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (std::chrono::steady_clock::now() < deadline) {
      const auto list = passes();
      if (list.size() >= count && !list[count - 1].at("ended").is_null()) return true;
      std::this_thread::sleep_for(20ms);
    }
    return false;
  }

 private:
  ProgramSandbox sandbox_{"ombrine-daemon-e2e"};
};

TEST(DaemonCommandTest, PassesFollowTheirRequestsAcrossSigtermAndRestart) {
  Sandbox sandbox;
  const pid_t first = sandbox.start({"daemon", "--poll", "0.1"}, "first");
  ASSERT_GT(first, 0);
  ASSERT_TRUE(sandbox.waitForEndedPasses(3, 20s)) << sandbox.read("first.err");
  ::kill(first, SIGTERM);
  EXPECT_EQ(Sandbox::wait(first), 0) << sandbox.read("first.err");
  EXPECT_NE(sandbox.read("first.out").find("Stopping (SIGTERM)"), std::string::npos) << sandbox.read("first.out");
  const auto leftBehind = sandbox.standingRequest();
  ASSERT_TRUE(leftBehind) << "a stopped daemon leaves its next request standing";
  const std::size_t before = sandbox.passes().size();

  const pid_t second = sandbox.start({"daemon", "--poll", "0.1"}, "second");
  ASSERT_TRUE(sandbox.waitForEndedPasses(before + 2, 20s)) << sandbox.read("second.err");
  ::kill(second, SIGTERM);
  EXPECT_EQ(Sandbox::wait(second), 0) << sandbox.read("second.err");

  const auto passes = sandbox.passes();
  ASSERT_GE(passes.size(), before + 2);
  // The first pass after the restart honoured the request the first daemon left.
  EXPECT_DOUBLE_EQ(passes[before].at("requestedFor").to_number<double>(), *leftBehind);
  std::optional<double> previousRequest;
  for (std::size_t i = 0; i < passes.size(); ++i) {
    SCOPED_TRACE("pass " + std::to_string(i + 1));
    const auto& pass = passes[i].as_object();
    EXPECT_EQ(pass.at("number").to_number<std::uint64_t>(), i + 1);
    const std::string result(pass.at("result").as_string());
    // A pass stopped by SIGTERM is expired; every other one ran whole.
    EXPECT_TRUE(result == "success" || result == "expired") << result;
    if (i == 0) continue;  // the launch asked for the first one at once
    const double requested = pass.at("requestedFor").to_number<double>();
    EXPECT_GE(pass.at("started").to_number<double>(), requested - 0.001) << "never before its request";
    if (previousRequest) EXPECT_GE(requested - *previousRequest, kIntervalSeconds * 0.9) << "no pass twice";
    previousRequest = requested;
  }
  EXPECT_TRUE(sandbox.standingRequest());
}

TEST(DaemonCommandTest, OncePassAndStatusAndUnits) {
  Sandbox sandbox;
  sandbox.minuteMs = 1000;
  const pid_t once = sandbox.start({"daemon", "--once"}, "once");
  EXPECT_EQ(Sandbox::wait(once), 0) << sandbox.read("once.err");
  EXPECT_NE(sandbox.read("once.out").find("pass 1 started"), std::string::npos) << sandbox.read("once.out");
  // Not due yet: a second run does nothing.
  const pid_t again = sandbox.start({"daemon", "--once"}, "again");
  EXPECT_EQ(Sandbox::wait(again), 0);
  EXPECT_NE(sandbox.read("again.out").find("Next pass due"), std::string::npos) << sandbox.read("again.out");
  EXPECT_EQ(sandbox.passes().size(), 1u);

  const pid_t status = sandbox.start({"daemon", "status"}, "status");
  EXPECT_EQ(Sandbox::wait(status), 0);
  const std::string shown = sandbox.read("status.out");
  EXPECT_NE(shown.find("last pass: pass 1"), std::string::npos) << shown;
  EXPECT_NE(shown.find("location: 48.8566, 2.3522 (Paris) from"), std::string::npos) << shown;

  const pid_t install = sandbox.start({"daemon", "install"}, "install");
  EXPECT_EQ(Sandbox::wait(install), 0);
  EXPECT_NE(sandbox.read("install.out")
                .find("systemctl --user daemon-reload && systemctl --user enable --now "
                      "ombrine-refresh.timer"),
            std::string::npos);
  const std::string timer = sandbox.read("config/systemd/user/ombrine-refresh.timer");
  EXPECT_NE(timer.find("OnUnitActiveSec=60s"), std::string::npos) << timer;
  EXPECT_NE(sandbox.read("config/systemd/user/ombrine-refresh.service").find("\"daemon\" \"--once\""),
            std::string::npos);
  const pid_t uninstall = sandbox.start({"daemon", "uninstall"}, "uninstall");
  EXPECT_EQ(Sandbox::wait(uninstall), 0);
  EXPECT_EQ(sandbox.read("config/systemd/user/ombrine-refresh.timer"), "");
}

}  // namespace
}  // namespace ombrine
