#include "platform/testing/forked_child.hpp"

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>

namespace ombrine {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

fs::path scratchFile(const std::string& name) {
  return fs::temp_directory_path() / ("ombrine-forked-" + std::to_string(::getpid()) + "-" + name);
}

TEST(ForkedChildTest, ReportsTheBodysOutcomeAndBoundsAHang) {
  struct Case {
    const char* name;
    std::function<bool()> body;
    bool expected;
  };
  const Case cases[] = {
      {"true", [] { return true; }, true},
      {"false", [] { return false; }, false},
      {"throws", []() -> bool { throw std::runtime_error("x"); }, false},
      {"hangs",
       [] {
         ::pause();
         return true;
       },
       false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ForkedChild child(c.body);
    EXPECT_EQ(child.runAndWait(std::chrono::milliseconds(300)), c.expected);
  }
}

TEST(ForkedChildTest, WaitAndKillTellHowTheChildEnded) {
  enum class Then { wait, killAtOnce, killAfterItEnded };
  struct Case {
    const char* name;
    std::function<void()> body;  // void bodies: returning is success, raising is failure
    Then then;
    int expected;
  };
  const Case cases[] = {
      {"returns", [] {}, Then::wait, 0},
      {"raises", [] { throw std::runtime_error("x"); }, Then::wait, 1},
      {"ends with its own exit code", [] { ::_exit(7); }, Then::wait, 7},
      {"dies of a signal", [] { ::raise(SIGTERM); }, Then::wait, 128 + SIGTERM},
      {"hangs past the limit", [] { ::pause(); }, Then::wait, ForkedChild::kHung},
      {"killed while running", [] { ::pause(); }, Then::killAtOnce, 128 + SIGKILL},
      {"killed after it ended keeps its exit code", [] { ::_exit(3); }, Then::killAfterItEnded, 3},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ForkedChild child(c.body);
    child.release();
    int status = 0;
    switch (c.then) {
      case Then::wait: status = child.wait(300ms); break;
      case Then::killAtOnce: status = child.kill(); break;
      case Then::killAfterItEnded:
        std::this_thread::sleep_for(100ms);
        status = child.kill();
        break;
    }
    EXPECT_EQ(status, c.expected);
    EXPECT_EQ(child.wait(0ms), c.expected) << "a second answer differs";
  }
}

TEST(ForkedChildTest, WaitUntilReadySeesOnlyAReport) {
  struct Case {
    const char* name;
    std::function<void()> body;
    bool ready;
    int exit;  // after wait(), or kill() when the child is still running
  };
  const Case cases[] = {
      {"reports and stays",
       [] {
         ForkedChild::reportReady();
         ::pause();
       },
       true, 128 + SIGKILL},
      {"reports and ends", [] { ForkedChild::reportReady(); }, true, 0},
      {"ends without reporting", [] {}, false, 0},
      {"raises before reporting", [] { throw std::runtime_error("x"); }, false, 1},
      {"never reports", [] { ::pause(); }, false, 128 + SIGKILL},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ForkedChild child(c.body);
    child.release();
    EXPECT_EQ(child.waitUntilReady(300ms), c.ready);
    EXPECT_EQ(c.exit == 128 + SIGKILL ? child.kill() : child.wait(5s), c.exit);
  }
  // Outside a child the call has nobody to tell.
  ForkedChild::reportReady();
}

TEST(ForkedChildTest, BodyRunsOnlyWhenReleased) {
  const auto marker = scratchFile("released");
  fs::remove(marker);
  {
    ForkedChild released([&] { return std::ofstream(marker).good(); });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(fs::exists(marker));
    EXPECT_TRUE(released.runAndWait());
    EXPECT_TRUE(fs::exists(marker));
  }
  fs::remove(marker);
  {
    ForkedChild neverReleased([&] { return std::ofstream(marker).good(); });
  }
  EXPECT_FALSE(fs::exists(marker));
}

TEST(ForkedChildTest, ChildrenKeepTheirIndexAndAllAreWaitedFor) {
  auto children = forkChildren(4, [](int i) { return i != 2; });
  ASSERT_EQ(children.size(), 4u);
  EXPECT_FALSE(runAllAndWait(children, 5s));
  const int expected[] = {0, 0, 1, 0};
  for (int i = 0; i < 4; ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(children[static_cast<std::size_t>(i)].wait(0ms), expected[i]);
  }

  // One hung child spends the shared limit; the others are still waited for and pass.
  auto withAHang = forkChildren(3, [](int i) {
    if (i == 0) ::pause();
  });
  EXPECT_FALSE(runAllAndWait(withAHang, 300ms));
  EXPECT_EQ(withAHang[0].wait(0ms), ForkedChild::kHung);
  EXPECT_EQ(withAHang[1].wait(0ms), 0);
  EXPECT_EQ(withAHang[2].wait(0ms), 0);

  auto fine = forkChildren(3, [](int) {});
  EXPECT_TRUE(runAllAndWait(fine, 5s));
}

TEST(ForkedChildTest, RefusesToForkWhileAnotherThreadRuns) {
  std::optional<ForkedChild> child;
  {
    std::jthread other([](std::stop_token stop) {
      while (!stop.stop_requested()) std::this_thread::sleep_for(1ms);
    });
    EXPECT_THROW(child.emplace([] {}), std::logic_error);
  }
  EXPECT_NO_THROW(child.emplace([] {}));
  EXPECT_TRUE(child->runAndWait());
}

// A child whose parent dies without reaping it (a crashed test) does not outlive it.
TEST(ForkedChildTest, AnOrphanedChildIsKilled) {
  const auto pidFile = scratchFile("grandchild");
  fs::remove(pidFile);
  ForkedChild parent([&] {
    ForkedChild grandchild([] { ::pause(); });
    grandchild.release();
    std::ofstream(pidFile) << grandchild.pid();
    ::_exit(0);  // no destructor: the grandchild is left behind
  });
  ASSERT_TRUE(parent.runAndWait());
  pid_t orphan = 0;
  std::ifstream(pidFile) >> orphan;
  fs::remove(pidFile);
  ASSERT_GT(orphan, 0);
  const fs::path status = "/proc/" + std::to_string(orphan) + "/status";
  auto gone = [&] {
    std::ifstream in(status);
    std::string line;
    while (std::getline(in, line)) {
      if (line.starts_with("State:")) return line.find('Z') != std::string::npos;  // dead, not yet reaped
    }
    return true;
  };
  const auto deadline = std::chrono::steady_clock::now() + 10s;
  while (!gone() && std::chrono::steady_clock::now() < deadline) std::this_thread::sleep_for(5ms);
  EXPECT_TRUE(gone());
  if (!gone()) ::kill(orphan, SIGKILL);
}

}  // namespace
}  // namespace ombrine
