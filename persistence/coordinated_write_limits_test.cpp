// The bounds of a coordinated write: a lock wait with a time limit against a holder in another
// process, the end of the runtime while writes wait or run, and the removal of temporary files
// that killed writers left beside the value file.

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <optional>
#include <thread>

#include "persistence/coordinated_file.hpp"
#include "persistence/persistence_test_support.hpp"
#include "platform/atomic_file.hpp"
#include "platform/linux/system_clock.hpp"
#include "platform/runtime.hpp"
#include "platform/testing/async_testing.hpp"
#include "platform/testing/forked_child.hpp"

namespace ombrine {
namespace {

using namespace testing_support;
using namespace std::chrono_literals;

// The body of a process that takes the lock of a coordination file, reports once it holds it,
// and holds it for `holdFor` (until killed when zero).
std::function<void()> lockHolder(const fs::path& coordination, std::chrono::milliseconds holdFor) {
  return [coordination, holdFor] {
    prepareCoordinationFile(coordination);
    auto lock = CoordinationLock::tryAcquire(coordination);
    if (!lock) throw std::runtime_error("the lock is taken");
    ForkedChild::reportReady();
    if (holdFor.count() > 0) {
      std::this_thread::sleep_for(holdFor);
      return;
    }
    for (;;) ::pause();
  };
}

class CoordinatedWriteLimitsTest : public ScratchFolderTest {
 protected:
  fs::path coordination() const { return dir_ / "value.coordination"; }
  SystemClock clock_;
};

// The longest a released lock takes to be noticed by a polling waiter, with margin.
constexpr auto kPollSlack = 60ms;

TEST_F(CoordinatedWriteLimitsTest, LockWaitLimitAgainstAHolderInAnotherProcess) {
  enum class Expect { ran, timedOut, cancelled };
  struct Case {
    const char* what;
    std::chrono::milliseconds holdFor;  // zero: until killed
    std::chrono::milliseconds limit;
    std::optional<std::chrono::milliseconds> cancelAfter;
    Expect expect;
  };
  const Case cases[] = {
      {"holder lets go within the limit", 80ms, 5000ms, std::nullopt, Expect::ran},
      {"holder outlasts the limit", 0ms, 150ms, std::nullopt, Expect::timedOut},
      {"caller cancels before the limit", 0ms, 5000ms, 60ms, Expect::cancelled},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    ForkedChild holder(lockHolder(coordination(), c.holdFor));  // before the runtime's threads
    Runtime runtime(2);
    holder.release();
    ASSERT_TRUE(holder.waitUntilReady()) << "the holder did not get the lock";
    std::atomic<bool> ran{false};
    std::function<void()> operation = [&ran] { ran = true; };
    const CoordinatedWriteLimit limit{&clock_, c.limit};
    const auto started = std::chrono::steady_clock::now();
    auto write = startTask(runtime.executor(), performCoordinatedWrite<void>(coordination(), operation, limit));
    if (c.cancelAfter) {
      std::this_thread::sleep_for(*c.cancelAfter);
      write.task.cancel();
    }
    ASSERT_EQ(write.outcome.wait_for(10s), std::future_status::ready);
    const auto waited = std::chrono::steady_clock::now() - started;
    const std::exception_ptr error = write.outcome.get();
    switch (c.expect) {
      case Expect::ran:
        EXPECT_EQ(error, nullptr) << messageOf(error);
        EXPECT_TRUE(ran);
        break;
      case Expect::timedOut: {
        EXPECT_FALSE(ran);
        EXPECT_GE(waited, c.limit);
        EXPECT_LT(waited, c.limit + 2s);
        bool isTimeout = false;
        try {
          std::rethrow_exception(error);
        } catch (const CoordinationTimeoutError& timeout) {
          isTimeout = true;
          EXPECT_NE(std::string(timeout.what()).find("value.coordination"), std::string::npos) << timeout.what();
          EXPECT_NE(std::string(timeout.what()).find("150 ms"), std::string::npos) << timeout.what();
        } catch (...) {
        }
        EXPECT_TRUE(isTimeout) << messageOf(error);
        break;
      }
      case Expect::cancelled:
        EXPECT_TRUE(isCancellationError(error)) << messageOf(error);
        EXPECT_FALSE(ran);
        break;
    }
    // Whatever the outcome, this process holds no lock afterwards and has no waiter that could
    // still take it: once the holder is gone the lock is free, and stays so.
    holder.kill();
    std::this_thread::sleep_for(kPollSlack);
    EXPECT_TRUE(CoordinationLock::tryAcquire(coordination()).has_value());
    if (c.expect != Expect::ran) EXPECT_FALSE(ran);
  }
}

// The runtime ends while one write waits for the lock and another runs its operation. The waiter
// is cancelled and never runs (nor resumes anybody on the dead context: the sanitizers would see
// it), the running operation is waited for and finishes.
TEST_F(CoordinatedWriteLimitsTest, RuntimeEndCancelsWaitersAndWaitsForRunningOperations) {
  prepareCoordinationFile(coordination());
  auto held = CoordinationLock::tryAcquire(coordination());
  ASSERT_TRUE(held);
  std::atomic<bool> waiterRan{false};
  std::atomic<bool> slowStarted{false};
  std::atomic<bool> slowFinished{false};
  std::function<void()> waiterOperation = [&waiterRan] { waiterRan = true; };
  std::function<void()> slowOperation = [&] {
    slowStarted = true;
    std::this_thread::sleep_for(150ms);
    slowFinished = true;
  };
  const auto started = std::chrono::steady_clock::now();
  {
    Runtime runtime(2);
    startTask(runtime.executor(), performCoordinatedWrite<void>(coordination(), waiterOperation));
    startTask(runtime.executor(), performCoordinatedWrite<void>(dir_ / "other.coordination", slowOperation));
    ASSERT_TRUE(eventually([&] { return slowStarted.load(); }));
  }
  EXPECT_TRUE(slowFinished) << "the runtime ended before a running operation did";
  EXPECT_LT(std::chrono::steady_clock::now() - started, 5s);
  // A waiter that survived would take the lock now and run.
  held.reset();
  std::this_thread::sleep_for(kPollSlack);
  EXPECT_FALSE(waiterRan);
  EXPECT_TRUE(CoordinationLock::tryAcquire(coordination()).has_value());
}

// Under the lock, before the operation, leftovers of killed writers of the value file go; a
// live writer's file, a young one and another file's stay.
TEST_F(CoordinatedWriteLimitsTest, CoordinatedWriteRemovesStaleTemporaryFilesOfItsValue) {
  const auto now = fs::file_time_type::clock::now();
  struct Leftover {
    const char* name;
    std::chrono::seconds age;
    bool held;
    bool removed;
  };
  const Leftover leftovers[] = {
      {".value.k1LLed", 120s, false, true},
      {".value.sl0wer", 120s, true, false},
      {".value.y0ung1", 5s, false, false},
      {".other.k1LLed", 120s, false, false},
  };
  std::vector<int> writers;
  for (const Leftover& leftover : leftovers) {
    writeFileAtomically(dir_ / leftover.name, "partial");
    fs::last_write_time(dir_ / leftover.name, now - leftover.age);
    if (leftover.held) {
      writers.push_back(::open((dir_ / leftover.name).c_str(), O_RDONLY));
      ASSERT_EQ(::flock(writers.back(), LOCK_EX), 0);
    }
  }
  Runtime runtime(1);
  std::atomic<bool> sawLeftover{true};
  std::function<void()> operation = [&] { sawLeftover = fs::exists(dir_ / ".value.k1LLed"); };
  runtime.runBlocking(performCoordinatedWrite<void>(coordination(), operation));
  EXPECT_FALSE(sawLeftover) << "cleaned after the operation instead of before";
  for (const Leftover& leftover : leftovers) {
    EXPECT_EQ(fs::exists(dir_ / leftover.name), !leftover.removed) << leftover.name;
  }
  for (int fd : writers) ::close(fd);
}

}  // namespace
}  // namespace ombrine
