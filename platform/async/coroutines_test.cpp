#include "platform/async/coroutines.hpp"

#include <gtest/gtest.h>

#include <boost/asio/steady_timer.hpp>

#include <atomic>
#include <chrono>
#include <future>
#include <random>
#include <stdexcept>
#include <thread>

#include "platform/runtime.hpp"
#include "platform/testing/async_testing.hpp"

namespace ombrine {
namespace {

using namespace std::chrono_literals;

// Ends only when cancelled, through Asio's own operation_aborted.
Task<void> sleepUntilCancelled() {
  auto executor = co_await asio::this_coro::executor;
  asio::steady_timer timer(executor, 1h);
  co_await timer.async_wait(asio::use_awaitable);
}

struct Counters {
  std::atomic<int> started{0};
  std::atomic<int> cancelled{0};
  std::atomic<int> completed{0};
};

// Counts its start, then sleeps until cancelled and counts that.
Task<void> cancellableChild(std::shared_ptr<Counters> counters) {
  ++counters->started;
  try {
    co_await sleepUntilCancelled();
  } catch (...) {
    if (isCancellation(std::current_exception())) ++counters->cancelled;
    throw;
  }
}

Task<void> failAfterStart(std::shared_ptr<Counters> counters, std::string message) {
  ++counters->started;
  throw std::runtime_error(message);
  co_return;
}

Task<void> finishAfterStart(std::shared_ptr<Counters> counters) {
  ++counters->started;
  ++counters->completed;
  co_return;
}

TEST(SpawnTest, LogsFailureAndEndsQuietlyOnCancellation) {
  asio::io_context io;
  testing::internal::CaptureStderr();
  auto failing = []() -> Task<void> {
    throw std::runtime_error("disk full");
    co_return;
  };
  auto cancelled = []() -> Task<void> {
    throw boost::system::system_error(asio::error::operation_aborted);
    co_return;
  };
  spawn(io.get_executor(), failing(), "Cache write");
  spawn(io.get_executor(), cancelled(), "Refresh");
  io.run();
  auto logged = testing::internal::GetCapturedStderr();
  EXPECT_EQ(logged, "Cache write failed: disk full\n");
}

TEST(SpawnedTaskTest, CancelledBeforeStartNeverRunsItsBody) {
  Runtime runtime(2);
  auto counters = std::make_shared<Counters>();
  auto promise = std::make_shared<std::promise<std::exception_ptr>>();
  auto outcome = promise->get_future();
  auto task = SpawnedTask::prepare(runtime.executor());
  task.cancel();
  task.start(finishAfterStart(counters), [promise](std::exception_ptr error) { promise->set_value(error); });
  EXPECT_TRUE(isCancellationError(outcome.get()));
  EXPECT_EQ(counters->started.load(), 0);
}

TEST(SpawnedTaskTest, CancellationConvertsAsioAbortAndLateCancelIsHarmless) {
  Runtime runtime(2);
  auto counters = std::make_shared<Counters>();
  auto running = startTask(runtime.executor(), cancellableChild(counters));
  ASSERT_TRUE(eventually([&] { return counters->started == 1; }));
  running.task.cancel();
  running.task.cancel();
  EXPECT_TRUE(isCancellationError(running.outcome.get()));
  EXPECT_EQ(counters->cancelled.load(), 1);

  auto finished = startTask(runtime.executor(), finishAfterStart(counters));
  EXPECT_EQ(finished.outcome.get(), nullptr);
  finished.task.cancel();
}

TEST(ThrowIfCancelledTest, RaisesOnceTheTaskIsCancelled) {
  Runtime runtime(2);
  auto sawCancellationError = std::make_shared<std::atomic<bool>>(false);
  auto iterations = std::make_shared<std::atomic<int>>(0);
  // Yielding through post (which ignores cancellation) lets the cancellation land between
  // steps; only throwIfCancelled notices it. With throw-on-await off it raises our type.
  auto loop = [](std::shared_ptr<std::atomic<bool>> saw, std::shared_ptr<std::atomic<int>> count) -> Task<void> {
    co_await asio::this_coro::throw_if_cancelled(false);
    auto executor = co_await asio::this_coro::executor;
    for (;;) {
      ++*count;
      co_await asio::post(executor, asio::use_awaitable);
      try {
        co_await throwIfCancelled();
      } catch (const CancellationError&) {
        *saw = true;
        throw;
      }
    }
  };
  auto running = startTask(runtime.executor(), loop(sawCancellationError, iterations));
  ASSERT_TRUE(eventually([&] { return *iterations > 3; }));
  running.task.cancel();
  EXPECT_TRUE(isCancellationError(running.outcome.get()));
  EXPECT_TRUE(*sawCancellationError);
}

TEST(SuspendTest, ResumesFromAPlainThread) {
  Runtime runtime(2);
  // Resumed by a plain thread.
  auto resumed = [](std::shared_ptr<std::thread> worker) -> Task<int> {
    std::function<void(Continuation<int>)> install = [worker](Continuation<int> continuation) {
      *worker = std::thread(
          [continuation = std::move(continuation)]() mutable { continuation.resume(Outcome<int>::success(42)); });
    };
    std::function<void()> onCancel = [] {};
    co_return co_await suspend<int>(std::move(install), std::move(onCancel));
  };
  auto worker = std::make_shared<std::thread>();
  EXPECT_EQ(runtime.runBlocking(resumed(worker)), 42);
  worker->join();
}

TEST(TaskGroupTest, WaitsForAllChildren) {
  Runtime runtime(2);
  auto counters = std::make_shared<Counters>();
  auto body = [](std::shared_ptr<Counters> c) -> Task<void> {
    auto executor = co_await asio::this_coro::executor;
    TaskGroup group(executor);
    for (int i = 0; i < 8; ++i) group.spawn(finishAfterStart(c));
    co_await group.wait();
    EXPECT_EQ(c->completed.load(), 8);
    EXPECT_EQ(group.running(), 0u);
  };
  runtime.runBlocking(body(counters));
}

struct FailureCase {
  const char* name;
  int sleepers;
  std::vector<std::string> failures;  // children that fail at once, in spawn order
  bool failLateOnCancel;              // a sibling that raises its own error when cancelled
  std::string expected;               // "" = CancellationError
};

Task<void> failDifferentlyWhenCancelled(std::shared_ptr<Counters> counters) {
  ++counters->started;
  std::exception_ptr error;
  try {
    co_await sleepUntilCancelled();
  } catch (...) {
    error = std::current_exception();
  }
  if (error) throw std::runtime_error("late");
}

TEST(TaskGroupTest, FirstFailureCancelsSiblingsAndIsRaisedAfterAllFinished) {
  const FailureCase cases[] = {
      {"one failure among sleepers", 3, {"boom"}, false, "boom"},
      // The sibling's own error arrives after the failure cancelled it: the first one wins.
      {"later error does not replace the first", 1, {"first"}, true, "first"},
      // A child that fails with Asio's abort is reported as our cancellation.
      {"cancellation from a child", 2, {"abort"}, false, ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Runtime runtime(2);
    auto counters = std::make_shared<Counters>();
    auto sleepers = std::make_shared<Counters>();
    auto body = [](std::shared_ptr<Counters> counters, std::shared_ptr<Counters> sleepers,
                   FailureCase c) -> Task<void> {
      auto executor = co_await asio::this_coro::executor;
      TaskGroup group(executor);
      for (int i = 0; i < c.sleepers; ++i) group.spawn(cancellableChild(sleepers));
      if (c.failLateOnCancel) group.spawn(failDifferentlyWhenCancelled(counters));
      for (const auto& failure : c.failures) {
        if (failure == "abort") {
          auto aborting = []() -> Task<void> {
            throw boost::system::system_error(asio::error::operation_aborted);
            co_return;
          };
          group.spawn(aborting());
        } else {
          group.spawn(failAfterStart(counters, failure));
        }
      }
      co_await group.wait();
    };
    auto error = errorOf(runtime, body(counters, sleepers, c));
    ASSERT_TRUE(error);
    if (c.expected.empty()) {
      EXPECT_TRUE(isCancellationError(error));
    } else {
      EXPECT_EQ(messageOf(error), c.expected);
    }
    // Every sleeper that got to run was cancelled and had unwound before wait() returned
    // (one cancelled before it started never runs at all).
    EXPECT_EQ(sleepers->cancelled.load(), sleepers->started.load());
  }
}

// The parent of three children is cancelled: while suspended in TaskGroup::wait, or (with
// withTaskGroup) while awaiting work of its own. Either way every child is cancelled and has
// unwound before the parent's await ends.
Task<void> spawnThenWait(std::function<Task<void>(TaskGroup&)> spawnAll) {
  auto executor = co_await asio::this_coro::executor;
  TaskGroup group(executor);
  co_await spawnAll(group);
  co_await group.wait();
}

Task<void> cancelledParent(std::shared_ptr<Counters> counters, std::shared_ptr<std::atomic<bool>> allDone,
                           bool ownWork) {
  std::function<Task<void>(TaskGroup&)> body = [counters, ownWork](TaskGroup& group) -> Task<void> {
    for (int i = 0; i < 3; ++i) group.spawn(cancellableChild(counters));
    if (ownWork) co_await sleepUntilCancelled();
  };
  auto waiting = ownWork ? withTaskGroup(std::move(body)) : spawnThenWait(std::move(body));
  auto error = co_await captureError(std::move(waiting));
  *allDone = counters->cancelled == 3;
  if (error) std::rethrow_exception(error);
}

TEST(TaskGroupTest, CancelledParentCancelsAndAwaitsEveryChild) {
  for (bool ownWork : {false, true}) {
    SCOPED_TRACE(ownWork ? "withTaskGroup, parent busy" : "parent in wait()");
    Runtime runtime(2);
    auto counters = std::make_shared<Counters>();
    auto allDone = std::make_shared<std::atomic<bool>>(false);
    auto parent = startTask(runtime.executor(), cancelledParent(counters, allDone, ownWork));
    ASSERT_TRUE(eventually([&] { return counters->started == 3; }));
    parent.task.cancel();
    EXPECT_TRUE(isCancellationError(parent.outcome.get()));
    EXPECT_TRUE(*allDone) << "the parent went on before every child had finished";
  }
}

TEST(TaskGroupTest, CancelAllCancelsChildrenAndLaterSpawnsUntilWaitReturns) {
  Runtime runtime(2);
  auto counters = std::make_shared<Counters>();
  auto body = [](std::shared_ptr<Counters> c) -> Task<void> {
    auto executor = co_await asio::this_coro::executor;
    TaskGroup group(executor);
    group.spawn(cancellableChild(c));
    group.cancelAll();
    group.spawn(finishAfterStart(c));
    auto waiting = group.wait();
    auto first = co_await captureError(std::move(waiting));
    EXPECT_TRUE(isCancellation(first));
    // The group is fresh again after wait.
    group.spawn(finishAfterStart(c));
    co_await group.wait();
  };
  runtime.runBlocking(body(counters));
  EXPECT_EQ(counters->completed.load(), 1);
}

TEST(TaskGroupTest, WithTaskGroupAwaitsChildrenWhenTheBodyFails) {
  Runtime runtime(2);
  auto counters = std::make_shared<Counters>();
  auto outer = [](std::shared_ptr<Counters> c) -> Task<void> {
    std::function<Task<void>(TaskGroup&)> body = [c](TaskGroup& group) -> Task<void> {
      group.spawn(cancellableChild(c));
      group.spawn(cancellableChild(c));
      auto executor = co_await asio::this_coro::executor;
      while (c->started < 2) co_await asio::post(executor, asio::use_awaitable);
      throw std::runtime_error("body failed");
    };
    co_await withTaskGroup(std::move(body));
  };
  auto error = errorOf(runtime, outer(counters));
  EXPECT_EQ(messageOf(error), "body failed");
  EXPECT_EQ(counters->cancelled.load(), 2);
}

Task<int> valueAfter(int value, std::chrono::milliseconds delay) {
  auto executor = co_await asio::this_coro::executor;
  asio::steady_timer timer(executor, delay);
  co_await timer.async_wait(asio::use_awaitable);
  co_return value;
}

TEST(WhenAllTest, KeepsTheOrderOfTheTasksNotOfTheirCompletion) {
  Runtime runtime(2);
  auto body = []() -> Task<std::vector<int>> {
    std::vector<Task<int>> tasks;
    tasks.push_back(valueAfter(1, 30ms));
    tasks.push_back(valueAfter(2, 0ms));
    tasks.push_back(valueAfter(3, 15ms));
    tasks.push_back(valueAfter(4, 5ms));
    tasks.push_back(valueAfter(5, 1ms));
    tasks.push_back(valueAfter(6, 20ms));
    co_return co_await whenAll(std::move(tasks));
  };
  EXPECT_EQ(runtime.runBlocking(body()), (std::vector<int>{1, 2, 3, 4, 5, 6}));
  auto none = []() -> Task<std::vector<int>> {
    std::vector<Task<int>> tasks;
    co_return co_await whenAll(std::move(tasks));
  };
  EXPECT_TRUE(runtime.runBlocking(none()).empty());
}

Task<int> failingValue() {
  throw std::runtime_error("provider down");
  co_return 0;
}

Task<int> valueUntilCancelled(std::shared_ptr<Counters> counters) {
  co_await cancellableChild(counters);
  co_return 1;
}

TEST(WhenAllTest, OneFailureCancelsTheOthersAndIsRaised) {
  Runtime runtime(2);
  auto counters = std::make_shared<Counters>();
  auto body = [](std::shared_ptr<Counters> c) -> Task<void> {
    std::vector<Task<int>> tasks;
    tasks.push_back(valueUntilCancelled(c));
    tasks.push_back(failingValue());
    tasks.push_back(valueUntilCancelled(c));
    co_await whenAll(std::move(tasks));
  };
  auto error = errorOf(runtime, body(counters));
  EXPECT_EQ(messageOf(error), "provider down");
  EXPECT_EQ(counters->cancelled.load(), counters->started.load());
}

// Children finishing, failing and being cancelled from another thread, all at once. The
// invariants: wait() completes exactly once, only after every child ended, with an outcome
// that matches what happened.
TEST(TaskGroupTest, RacesBetweenCompletionFailureAndCancellation) {
  Runtime runtime(2);
  std::mt19937 random(7);
  for (int iteration = 0; iteration < 300; ++iteration) {
    SCOPED_TRACE(iteration);
    const int finishing = static_cast<int>(random() % 4);
    const bool failing = random() % 2 == 0;
    const bool cancelFromOutside = random() % 2 == 0;
    auto counters = std::make_shared<Counters>();
    auto allDone = std::make_shared<std::atomic<bool>>(false);
    auto body = [](std::shared_ptr<Counters> c, std::shared_ptr<std::atomic<bool>> done, int finishing,
                   bool failing) -> Task<void> {
      auto executor = co_await asio::this_coro::executor;
      TaskGroup group(executor);
      for (int i = 0; i < finishing; ++i) group.spawn(finishAfterStart(c));
      if (failing) group.spawn(failAfterStart(c, "failed"));
      group.spawn(cancellableChild(c));
      auto waiting = group.wait();
      auto error = co_await captureError(std::move(waiting));
      *done = group.running() == 0;
      if (error) std::rethrow_exception(error);
    };
    auto parent = startTask(runtime.executor(), body(counters, allDone, finishing, failing));
    if (cancelFromOutside) {
      parent.task.cancel();
    } else if (!failing) {
      ASSERT_TRUE(eventually([&] { return counters->started == finishing + 1; }));
      parent.task.cancel();
    }
    auto error = parent.outcome.get();
    ASSERT_TRUE(error);
    EXPECT_TRUE(*allDone || counters->started == 0);
    if (!cancelFromOutside && failing) EXPECT_EQ(messageOf(error), "failed");
    if (!failing) EXPECT_TRUE(isCancellationError(error));
  }
}

}  // namespace
}  // namespace ombrine
