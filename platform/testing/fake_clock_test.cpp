#include "platform/testing/fake_clock.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/async/coroutines.hpp"
#include "platform/errors.hpp"
#include "platform/runtime.hpp"
#include "platform/testing/async_testing.hpp"

namespace ombrine {
namespace {

using namespace std::chrono_literals;

struct WakeLog {
  std::mutex lock;
  std::vector<int> order;
  std::atomic<int> onOwnStrand{0};
};

Task<void> sleepThenLog(FakeClock& clock, Clock::Duration duration, int id, Strand strand,
                        std::shared_ptr<WakeLog> log) {
  co_await clock.sleep(duration);
  if (strand.running_in_this_thread()) ++log->onOwnStrand;
  std::lock_guard guard(log->lock);
  log->order.push_back(id);
}

TEST(FakeClockTest, TimeMovesOnlyWhenTheTestMovesIt) {
  FakeClock clock;
  const auto wall = clock.now();
  const auto up = clock.uptime();
  EXPECT_EQ(clock.now(), wall);
  clock.advance(90s);
  EXPECT_EQ(clock.now() - wall, 90s);
  EXPECT_EQ(clock.uptime() - up, 90s);
  // A wall-clock change is not continuous time.
  clock.setNow(wall - 24h);
  EXPECT_EQ(clock.now(), wall - 24h);
  EXPECT_EQ(clock.uptime() - up, 90s);
  EXPECT_THROW(clock.advance(-1s), std::invalid_argument);
  EXPECT_EQ(std::chrono::system_clock::to_time_t(FakeClock().now()), 1704067200);
}

struct WakeCase {
  const char* name;
  std::vector<int> sleepSeconds;  // registered in this order; the index is the sleeper's id
  std::vector<int> advances;      // seconds per advance() call
  std::vector<int> expectedOrder;
  std::size_t expectedPending;
};

TEST(FakeClockTest, WakesDueSleepersInDueTimeThenRegistrationOrder) {
  const WakeCase cases[] = {
      {"due order, ties by registration", {30, 10, 20, 10}, {30}, {1, 3, 2, 0}, 0},
      {"only the due ones wake", {30, 10, 20, 10}, {15}, {1, 3}, 2},
      {"the due time itself counts as passed", {10, 11}, {10}, {0}, 1},
      {"several advances add up", {5, 25}, {10, 10, 5}, {0, 1}, 0},
      {"nothing due", {5}, {4}, {}, 1},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Runtime runtime(2);
    auto clock = std::make_unique<FakeClock>();
    auto strand = runtime.makeStrand();
    auto log = std::make_shared<WakeLog>();
    std::vector<StartedTask> sleepers;
    for (std::size_t id = 0; id < c.sleepSeconds.size(); ++id) {
      auto duration = std::chrono::seconds(c.sleepSeconds[id]);
      sleepers.push_back(startTask(strand, sleepThenLog(*clock, duration, static_cast<int>(id), strand, log)));
      ASSERT_TRUE(clock->waitForSleepers(id + 1));
    }
    for (int seconds : c.advances) clock->advance(std::chrono::seconds(seconds));
    for (std::size_t i = 0; i < c.expectedOrder.size(); ++i) {
      EXPECT_EQ(sleepers[c.expectedOrder[i]].outcome.get(), nullptr);
    }
    {
      std::lock_guard guard(log->lock);
      EXPECT_EQ(log->order, c.expectedOrder);
    }
    EXPECT_EQ(log->onOwnStrand.load(), static_cast<int>(c.expectedOrder.size()));
    EXPECT_EQ(clock->pendingSleepers(), c.expectedPending);
    // Destroying the clock wakes whoever still sleeps, as cancelled.
    clock.reset();
    for (auto& sleeper : sleepers) {
      auto error = sleeper.outcome.get();
      if (error) EXPECT_TRUE(isCancellationError(error));
    }
  }
}

TEST(FakeClockTest, CancellingASleeperRemovesItAndRaisesAtOnce) {
  Runtime runtime(2);
  FakeClock clock;
  auto log = std::make_shared<WakeLog>();
  auto strand = runtime.makeStrand();
  auto sleeper = startTask(strand, sleepThenLog(clock, 1h, 0, strand, log));
  ASSERT_TRUE(clock.waitForSleepers(1));
  sleeper.task.cancel();
  EXPECT_TRUE(isCancellationError(sleeper.outcome.get()));
  EXPECT_EQ(clock.pendingSleepers(), 0u);
  clock.advance(2h);
  std::lock_guard guard(log->lock);
  EXPECT_TRUE(log->order.empty());
}

TEST(FakeClockTest, ZeroSleepOnlyYields) {
  Runtime runtime(1);
  FakeClock clock;
  auto body = [](FakeClock& c) -> Task<void> {
    co_await c.sleep(0s);
    co_await c.sleep(-5s);
  };
  runtime.runBlocking(body(clock));
  EXPECT_EQ(clock.pendingSleepers(), 0u);
  EXPECT_FALSE(clock.waitForSleepers(1, 1ms));
}

// advance() on the test thread racing with the sleeper's cancellation on the pool: exactly one
// outcome each time and no sleeper left behind.
TEST(FakeClockTest, AdvanceRacingCancellationGivesOneOutcome) {
  Runtime runtime(2);
  FakeClock clock;
  int woke = 0;
  int cancelled = 0;
  for (int iteration = 0; iteration < 300; ++iteration) {
    auto log = std::make_shared<WakeLog>();
    auto strand = runtime.makeStrand();
    auto sleeper = startTask(strand, sleepThenLog(clock, 1s, iteration, strand, log));
    ASSERT_TRUE(clock.waitForSleepers(1));
    std::thread canceller([&] { sleeper.task.cancel(); });
    clock.advance(1s);
    canceller.join();
    auto error = sleeper.outcome.get();
    std::lock_guard guard(log->lock);
    if (error) {
      ASSERT_TRUE(isCancellationError(error));
      EXPECT_TRUE(log->order.empty());
      ++cancelled;
    } else {
      EXPECT_EQ(log->order, std::vector<int>{iteration});
      ++woke;
    }
    EXPECT_EQ(clock.pendingSleepers(), 0u);
  }
  EXPECT_EQ(woke + cancelled, 300);
}

}  // namespace
}  // namespace ombrine
