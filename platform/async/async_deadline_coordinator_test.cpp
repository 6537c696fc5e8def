#include "platform/async/async_deadline_coordinator.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <memory>
#include <thread>

#include "platform/runtime.hpp"
#include "platform/testing/async_testing.hpp"
#include "platform/testing/fake_clock.hpp"

namespace ombrine {
namespace {

using namespace std::chrono_literals;

enum class Kind { value, exceeded, cancelled, other };

struct Result {
  Kind kind = Kind::other;
  int value = 0;
  std::string message;
};

Result classify(std::exception_ptr error, int value) {
  if (!error) return {Kind::value, value, {}};
  try {
    std::rethrow_exception(error);
  } catch (const AsyncDeadlineError& e) {
    EXPECT_EQ(e.which(), AsyncDeadlineError::exceeded);
    return {Kind::exceeded, 0, e.what()};
  } catch (const CancellationError&) {
    return {Kind::cancelled, 0, {}};
  } catch (const std::exception& e) {
    return {Kind::other, 0, e.what()};
  }
}

// One run() on the pool, cancellable from the test thread; the outcome arrives exactly once
// (a second set_value would throw inside the completion and fail the test loudly).
struct Race {
  SpawnedTask task;
  std::shared_ptr<std::atomic<int>> value;
  std::shared_future<std::exception_ptr> outcome;

  Result get() { return classify(outcome.get(), value->load()); }
};

Task<void> runWithDeadline(Clock& clock, AsyncDeadlineCoordinator<int>::Operation operation, Clock::Duration deadline,
                           std::shared_ptr<std::atomic<int>> out) {
  AsyncDeadlineCoordinator<int> coordinator(clock);
  *out = co_await coordinator.run(std::move(operation), deadline);
}

Race startRace(Runtime& runtime, Clock& clock, AsyncDeadlineCoordinator<int>::Operation operation,
               Clock::Duration deadline) {
  auto value = std::make_shared<std::atomic<int>>(0);
  auto started = startTask(runtime.executor(), runWithDeadline(clock, std::move(operation), deadline, value));
  return Race{started.task, value, started.outcome};
}

struct OperationLog {
  std::atomic<bool> cancelled{false};
  std::atomic<bool> finished{false};
};

// Sleeps on `clock`, then returns `value` or raises `failure`.
AsyncDeadlineCoordinator<int>::Operation sleepingOperation(Clock& clock, Clock::Duration duration, int value,
                                                           std::string failure, std::shared_ptr<OperationLog> log) {
  return [&clock, duration, value, failure, log]() -> Task<int> {
    return [](Clock& clock, Clock::Duration duration, int value, std::string failure,
              std::shared_ptr<OperationLog> log) -> Task<int> {
      try {
        co_await clock.sleep(duration);
      } catch (...) {
        log->cancelled = isCancellation(std::current_exception());
        throw;
      }
      log->finished = true;
      if (failure == "abort") throw boost::system::system_error(asio::error::operation_aborted);
      if (!failure.empty()) throw std::runtime_error(failure);
      co_return value;
    }(clock, duration, value, failure, log);
  };
}

struct DeadlineCase {
  const char* name;
  int operationSeconds;
  int deadlineSeconds;
  std::string failure;  // "" = returns 7; "abort" = raises Asio's operation_aborted
  bool cancelCaller;
  Kind expected;
  bool operationCancelled;
};

TEST(AsyncDeadlineCoordinatorTest, FinishVersusDeadlineVersusCancel) {
  const DeadlineCase cases[] = {
      {"operation first", 1, 5, "", false, Kind::value, false},
      {"deadline first cancels the operation", 10, 5, "", false, Kind::exceeded, true},
      {"operation failure is raised", 1, 5, "no route", false, Kind::other, false},
      {"operation's own abort is a cancellation", 1, 5, "abort", false, Kind::cancelled, false},
      {"caller cancellation cancels both", 10, 5, "", true, Kind::cancelled, true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Runtime runtime(2);
    FakeClock clock;
    auto log = std::make_shared<OperationLog>();
    auto operation = sleepingOperation(clock, std::chrono::seconds(c.operationSeconds), 7, c.failure, log);
    auto race = startRace(runtime, clock, operation, std::chrono::seconds(c.deadlineSeconds));
    ASSERT_TRUE(clock.waitForSleepers(2));
    if (c.cancelCaller) {
      race.task.cancel();
    } else {
      clock.advance(std::chrono::seconds(std::min(c.operationSeconds, c.deadlineSeconds)));
    }
    auto result = race.get();
    EXPECT_EQ(result.kind, c.expected);
    if (c.expected == Kind::value) EXPECT_EQ(result.value, 7);
    if (c.expected == Kind::other) EXPECT_EQ(result.message, c.failure);
    // The loser is cancelled, not left sleeping until its own time.
    EXPECT_TRUE(eventually([&] { return clock.pendingSleepers() == 0; }));
    if (c.operationCancelled) EXPECT_TRUE(eventually([&] { return log->cancelled.load(); }));
  }
}

// The result and the deadline become due in the same advance(): one outcome, never both.
TEST(AsyncDeadlineCoordinatorTest, DeadlineAtTheSameMomentAsTheResultGivesOneOutcome) {
  Runtime runtime(2);
  int values = 0;
  int exceeded = 0;
  for (int iteration = 0; iteration < 300; ++iteration) {
    FakeClock clock;
    auto log = std::make_shared<OperationLog>();
    auto race = startRace(runtime, clock, sleepingOperation(clock, 5s, iteration, "", log), 5s);
    ASSERT_TRUE(clock.waitForSleepers(2));
    clock.advance(5s);
    auto result = race.get();
    ASSERT_TRUE(result.kind == Kind::value || result.kind == Kind::exceeded);
    if (result.kind == Kind::value) {
      EXPECT_EQ(result.value, iteration);
      ++values;
    } else {
      ++exceeded;
    }
  }
  EXPECT_EQ(values + exceeded, 300);
}

// Nothing to wait for at all: an immediate result, a zero deadline (which only yields) and,
// every other time, the caller's cancellation race on two threads.
TEST(AsyncDeadlineCoordinatorTest, ImmediateOutcomesRaceSafely) {
  Runtime runtime(2);
  FakeClock clock;
  for (int iteration = 0; iteration < 300; ++iteration) {
    AsyncDeadlineCoordinator<int>::Operation operation = [iteration]() -> Task<int> {
      return [](int value) -> Task<int> { co_return value; }(iteration);
    };
    auto race = startRace(runtime, clock, operation, 0s);
    if (iteration % 2 == 0) race.task.cancel();
    auto result = race.get();
    ASSERT_TRUE(result.kind != Kind::other) << result.message;
    if (result.kind == Kind::value) EXPECT_EQ(result.value, iteration);
  }
}

// An operation that ignores cancellation does not hold the caller past the deadline.
TEST(AsyncDeadlineCoordinatorTest, DeadlineHoldsForAnOperationThatIgnoresCancellation) {
  Runtime runtime(2);
  FakeClock clock;
  auto parked = std::make_shared<std::promise<Continuation<int>>>();
  auto handedOver = parked->get_future();
  AsyncDeadlineCoordinator<int>::Operation operation = [parked]() -> Task<int> {
    std::function<void(Continuation<int>)> install = [parked](Continuation<int> continuation) {
      parked->set_value(std::move(continuation));
    };
    std::function<void()> ignoreCancellation = [] {};
    return suspend<int>(std::move(install), std::move(ignoreCancellation));
  };
  auto race = startRace(runtime, clock, operation, 3s);
  auto continuation = handedOver.get();
  ASSERT_TRUE(clock.waitForSleepers(1));
  clock.advance(3s);
  EXPECT_EQ(race.get().kind, Kind::exceeded);
  // Its late result goes nowhere.
  continuation.resume(Outcome<int>::success(1));
}

TEST(AsyncDeadlineCoordinatorTest, OneRunPerCoordinator) {
  Runtime runtime(1);
  FakeClock clock;
  auto body = [](FakeClock& clock) -> Task<void> {
    AsyncDeadlineCoordinator<void> coordinator(clock);
    AsyncDeadlineCoordinator<void>::Operation operation = []() -> Task<void> { co_return; };
    co_await coordinator.run(operation, 1s);
    EXPECT_THROW(co_await coordinator.run(operation, 1s), std::logic_error);
  };
  runtime.runBlocking(body(clock));
}

}  // namespace
}  // namespace ombrine
