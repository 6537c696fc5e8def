#include "platform/linux/file_background_scheduler.hpp"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstdio>
#include <thread>

#include "platform/atomic_file.hpp"
#include "platform/linux/system_clock.hpp"
#include "platform/linux/systemd_user_units.hpp"
#include "platform/testing/fake_clock.hpp"
#include "platform/testing/scratch_folder.hpp"

namespace ombrine {
namespace {

using namespace std::chrono_literals;
using Outcome = FileBackgroundScheduler::PassOutcome;

const std::string kId = "refresh";

TEST(FileBackgroundScheduler, HonoursTheStandingRequest) {
  // How a handler ends its task: completes it, fails it, completes it only when expired, never.
  enum class Handler { succeed, fail, completeOnExpiry, never, throws };
  struct Row {
    const char* name;
    bool submit;
    std::chrono::seconds dueIn;
    Handler handler;
    Outcome outcome;
    std::string result;
  };
  const Row rows[] = {
      {"nothing stands", false, 0s, Handler::succeed, Outcome::noRequest, ""},
      {"not yet due", true, 30s, Handler::succeed, Outcome::notDue, ""},
      {"due: success", true, 0s, Handler::succeed, Outcome::ran, "success"},
      {"due: failure", true, -5s, Handler::fail, Outcome::ran, "failure"},
      {"overrun, then reports failure on expiry", true, 0s, Handler::completeOnExpiry, Outcome::ran, "expired"},
      {"never completes", true, 0s, Handler::never, Outcome::ran, "unfinished"},
      {"handler raises", true, 0s, Handler::throws, Outcome::ran, "failure"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const ScratchFolder folder("ombrine-scheduler");
    FakeClock clock(std::chrono::system_clock::time_point(1'750'000'000s));
    FileBackgroundScheduler scheduler(clock, folder.path(), {50ms, 50ms});
    EXPECT_EQ(scheduler.runDuePass(kId).outcome, Outcome::noHandler);
    std::shared_ptr<BackgroundTask> launched;
    ASSERT_TRUE(scheduler.registerForTask(kId, [&](std::shared_ptr<BackgroundTask> task) {
      launched = task;
      switch (row.handler) {
        case Handler::succeed: task->setTaskCompleted(true); break;
        case Handler::fail: task->setTaskCompleted(false); break;
        case Handler::completeOnExpiry: task->setExpirationHandler([task] { task->setTaskCompleted(false); }); break;
        case Handler::never: break;
        case Handler::throws: throw std::runtime_error("no pass today");
      }
    }));
    EXPECT_FALSE(scheduler.registerForTask(kId, [](auto) {}));
    if (row.submit) scheduler.submit({kId, clock.now() + row.dueIn});
    const auto pass = scheduler.runDuePass(kId);
    EXPECT_EQ(pass.outcome, row.outcome);
    if (row.outcome == Outcome::notDue) EXPECT_EQ(pass.due, clock.now() + row.dueIn);
    if (row.outcome != Outcome::ran) {
      EXPECT_TRUE(scheduler.passHistory(kId).empty());
      continue;
    }
    // The request was consumed; the pass is on record.
    EXPECT_FALSE(scheduler.pendingRequest(kId));
    EXPECT_EQ(pass.record->result, row.result);
    const auto history = scheduler.passHistory(kId);
    ASSERT_EQ(history.size(), 1u);
    EXPECT_EQ(history.front(), *pass.record);
    EXPECT_EQ(history.front().number, 1u);
  }
}

TEST(FileBackgroundScheduler, OnePassAtATimeAcrossSchedulersAndInterruptedPassesAreKnown) {
  const ScratchFolder folder("ombrine-scheduler");
  SystemClock clock;
  FileBackgroundScheduler first(clock, folder.path(), {2s, 1s});
  FileBackgroundScheduler second(clock, folder.path(), {2s, 1s});
  std::atomic<bool> release{false};
  first.registerForTask(kId, [&](std::shared_ptr<BackgroundTask> task) {
    std::thread([task, &release] {
      while (!release) std::this_thread::sleep_for(1ms);
      task->setTaskCompleted(true);
    }).detach();
  });
  second.registerForTask(kId, [](std::shared_ptr<BackgroundTask> task) { task->setTaskCompleted(true); });
  first.submit({kId, std::nullopt});
  std::thread running([&] { first.runDuePass(kId); });
  while (first.passHistory(kId).empty()) std::this_thread::sleep_for(1ms);
  second.submit({kId, std::nullopt});
  EXPECT_EQ(second.runDuePass(kId).outcome, Outcome::busy);
  release = true;
  running.join();
  EXPECT_EQ(second.runDuePass(kId).outcome, Outcome::ran);
  auto history = second.passHistory(kId);
  ASSERT_EQ(history.size(), 2u);
  EXPECT_EQ(history[1].number, 2u);

  // A pass left "running" by a process that died is marked interrupted by the next taker.
  writeFileAtomically(
      folder.path() / (kId + ".passes.json"),
      R"([{"number":3,"started":1750000000,"ended":null,"requestedFor":null,"result":"running","pid":1}])");
  EXPECT_EQ(second.runDuePass(kId).outcome, Outcome::noRequest);
  EXPECT_EQ(second.passHistory(kId).back().result, "interrupted");
}

TEST(FileBackgroundScheduler, StopExpiresTheRunningPassAndEndsServe) {
  const ScratchFolder folder("ombrine-scheduler");
  SystemClock clock;
  FileBackgroundScheduler scheduler(clock, folder.path(), {10s, 2s});
  std::atomic<int> launches{0};
  scheduler.registerForTask(kId, [&](std::shared_ptr<BackgroundTask> task) {
    ++launches;
    // Runs until expired; then asks for the next pass and reports failure.
    task->setExpirationHandler([&scheduler, &clock, task] {
      scheduler.submit({kId, clock.now() + 1h});
      task->setTaskCompleted(false);
    });
  });
  scheduler.submit({kId, clock.now()});
  std::thread serving([&] { scheduler.serve(kId, 20ms); });
  while (launches == 0) std::this_thread::sleep_for(1ms);
  const auto stopAt = std::chrono::steady_clock::now();
  scheduler.stop();
  serving.join();
  EXPECT_LT(std::chrono::steady_clock::now() - stopAt, 5s);
  EXPECT_EQ(launches, 1);
  EXPECT_EQ(scheduler.passHistory(kId).back().result, "expired");
  EXPECT_TRUE(scheduler.pendingRequest(kId));
}

TEST(SystemdUserUnits, GeneratedUnitsPassVerification) {
  const ScratchFolder folder("ombrine-scheduler");
  const auto units =
      makeRefreshUnits({"/usr/bin/true", "daemon", "--once"}, {{"OMBRINE_CONTAINER", "/tmp/a b/%c$x"}}, 3600s);
  EXPECT_NE(units.timer.find("OnUnitActiveSec=3600s\n"), std::string::npos);
  EXPECT_NE(units.timer.find("Persistent=true\n"), std::string::npos);
  EXPECT_NE(units.service.find("ExecStart=\"/usr/bin/true\" \"daemon\" \"--once\"\n"), std::string::npos);
  EXPECT_NE(units.service.find("Environment=\"OMBRINE_CONTAINER=/tmp/a b/%%c$x\"\n"), std::string::npos);
  const auto written = installRefreshUnits(units, folder.path());
  ASSERT_EQ(written.size(), 2u);
  if (std::system("systemd-analyze --version >/dev/null 2>&1") != 0) {
    GTEST_SKIP() << "systemd-analyze cannot run here";
  }
  const std::string command = "cd '" + folder.path().string() +
                              "' && XDG_RUNTIME_DIR=\"$PWD\" SYSTEMD_LOG_LEVEL=warning systemd-analyze --user "
                              "verify ombrine-refresh.timer ombrine-refresh.service 2>&1";
  std::string output;
  FILE* pipe = ::popen(command.c_str(), "r");
  ASSERT_NE(pipe, nullptr);
  char buffer[512];
  while (std::fgets(buffer, sizeof buffer, pipe)) output += buffer;
  const int status = ::pclose(pipe);
  if (output.find("Failed to initialize manager") != std::string::npos) {
    GTEST_SKIP() << "systemd-analyze cannot verify in this sandbox: " << output;
  }
  EXPECT_EQ(status, 0) << output;
  EXPECT_EQ(output, "");
  EXPECT_EQ(uninstallRefreshUnits(folder.path()).size(), 2u);
  EXPECT_TRUE(uninstallRefreshUnits(folder.path()).empty());
}

}  // namespace
}  // namespace ombrine
