#include "platform/async/cancellable_callback_coordinator.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <memory>
#include <optional>
#include <random>
#include <thread>
#include <vector>

#include "platform/runtime.hpp"
#include "platform/testing/async_testing.hpp"

namespace ombrine {
namespace {

using namespace std::chrono_literals;
using Coordinator = CancellableCallbackCoordinator<int>;

// What the request side saw.
struct RequestLog {
  std::atomic<int> starts{0};
  std::atomic<int> cancels{0};
  std::atomic<bool> insideStart{false};
  std::atomic<bool> cancelledInsideStart{false};
  std::mutex lock;
  std::optional<Coordinator::Completion> completion;
  std::vector<std::thread> threads;

  ~RequestLog() {
    for (auto& thread : threads) thread.join();
  }

  Coordinator::Cancel cancelRequest() {
    return [this] {
      if (insideStart) cancelledInsideStart = true;
      ++cancels;
    };
  }
};

struct RunOutcome {
  std::exception_ptr error;
  int value = 0;
};

Task<void> runCoordinator(std::shared_ptr<Coordinator> coordinator, Coordinator::Start start,
                          Coordinator::Cancel cancel, std::shared_ptr<int> out) {
  *out = co_await coordinator->run(std::move(start), std::move(cancel));
}

struct Running {
  SpawnedTask task;
  std::shared_ptr<int> value;
  std::shared_future<std::exception_ptr> done;

  RunOutcome get() { return {done.get(), *value}; }
};

Running run(Runtime& runtime, std::shared_ptr<Coordinator> coordinator, Coordinator::Start start,
            Coordinator::Cancel cancel) {
  auto value = std::make_shared<int>(0);
  auto started = startTask(runtime.executor(), runCoordinator(coordinator, start, cancel, value));
  return Running{started.task, value, started.outcome};
}

struct CompletionCase {
  const char* name;
  bool synchronous;   // completes inside start, before the continuation could resume
  bool fromThread;    // completes from a plain thread
  int firstValue;     // < 0: first call delivers an error
  bool secondCall;    // a second, different call that must be ignored
  int expectedValue;  // < 0: expect the error
};

TEST(CancellableCallbackCoordinatorTest, DeliversTheFirstCompletionOnce) {
  const CompletionCase cases[] = {
      {"synchronous value inside start", true, false, 5, false, 5},
      {"value from another thread", false, true, 6, false, 6},
      {"error from another thread", false, true, -1, false, -1},
      {"completion called twice: value then error", true, false, 8, true, 8},
      {"completion called twice from a thread: error then value", false, true, -1, true, -1},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Runtime runtime(2);
    auto log = std::make_shared<RequestLog>();
    auto coordinator = std::make_shared<Coordinator>();
    Coordinator::Start start = [log, c](Coordinator::Completion completion) {
      ++log->starts;
      auto deliver = [c, completion] {
        if (c.firstValue >= 0) {
          completion(c.firstValue);
        } else {
          completion(std::make_exception_ptr(std::runtime_error("lookup failed")));
        }
        if (!c.secondCall) return;
        if (c.firstValue >= 0) {
          completion(std::make_exception_ptr(std::runtime_error("second")));
        } else {
          completion(99);
        }
      };
      if (c.synchronous) {
        deliver();
      } else {
        std::lock_guard guard(log->lock);
        log->threads.emplace_back(deliver);
      }
    };
    auto outcome = run(runtime, coordinator, start, log->cancelRequest()).get();
    if (c.expectedValue >= 0) {
      EXPECT_EQ(outcome.error, nullptr);
      EXPECT_EQ(outcome.value, c.expectedValue);
    } else {
      ASSERT_TRUE(outcome.error);
      EXPECT_EQ(messageOf(outcome.error), "lookup failed");
    }
    EXPECT_EQ(log->starts.load(), 1);
    EXPECT_EQ(log->cancels.load(), 0);
  }
}

// cancel() arrives while start is still running (from inside it, or from another thread that
// start waits for): the request is cancelled exactly once, after start returned.
TEST(CancellableCallbackCoordinatorTest, CancellationDuringStartCancelsOnceAfterStart) {
  for (bool fromOtherThread : {false, true}) {
    SCOPED_TRACE(fromOtherThread ? "from another thread" : "from inside start");
    Runtime runtime(2);
    auto log = std::make_shared<RequestLog>();
    auto coordinator = std::make_shared<Coordinator>();
    std::weak_ptr<Coordinator> weak = coordinator;
    Coordinator::Start start = [log, weak, fromOtherThread](Coordinator::Completion completion) {
      log->insideStart = true;
      ++log->starts;
      {
        std::lock_guard guard(log->lock);
        log->completion = completion;
      }
      if (fromOtherThread) {
        std::thread canceller([weak] { weak.lock()->cancel(); });
        canceller.join();
      } else {
        weak.lock()->cancel();
      }
      EXPECT_EQ(log->cancels.load(), 0);
      log->insideStart = false;
    };
    auto outcome = run(runtime, coordinator, start, log->cancelRequest()).get();
    EXPECT_TRUE(isCancellationError(outcome.error));
    EXPECT_EQ(log->cancels.load(), 1);
    EXPECT_FALSE(log->cancelledInsideStart.load());
    // The request's late answer is dropped; so is a call after the coordinator is gone.
    std::optional<Coordinator::Completion> late;
    {
      std::lock_guard guard(log->lock);
      late = log->completion;
    }
    (*late)(3);
    coordinator->cancel();
    EXPECT_EQ(log->cancels.load(), 1);
    coordinator.reset();
    (*late)(4);
  }
}

TEST(CancellableCallbackCoordinatorTest, CallerCancellationCancelsTheStartedRequest) {
  Runtime runtime(2);
  auto log = std::make_shared<RequestLog>();
  auto coordinator = std::make_shared<Coordinator>();
  Coordinator::Start start = [log](Coordinator::Completion completion) {
    std::lock_guard guard(log->lock);
    log->completion = completion;
    ++log->starts;
  };
  auto running = run(runtime, coordinator, start, log->cancelRequest());
  ASSERT_TRUE(eventually([&] { return log->starts == 1; }));
  running.task.cancel();
  auto outcome = running.get();
  EXPECT_TRUE(isCancellationError(outcome.error));
  EXPECT_EQ(log->cancels.load(), 1);
}

TEST(CancellableCallbackCoordinatorTest, CancelledBeforeRunNeverStarts) {
  Runtime runtime(2);
  auto log = std::make_shared<RequestLog>();
  auto coordinator = std::make_shared<Coordinator>();
  coordinator->cancel();
  Coordinator::Start start = [log](Coordinator::Completion) { ++log->starts; };
  auto outcome = run(runtime, coordinator, start, log->cancelRequest()).get();
  EXPECT_TRUE(isCancellationError(outcome.error));
  EXPECT_EQ(log->starts.load(), 0);
  EXPECT_EQ(log->cancels.load(), 0);
}

TEST(CancellableCallbackCoordinatorTest, VoidResultsAndAsioAbortsConvert) {
  Runtime runtime(2);
  auto body = []() -> Task<void> {
    CancellableCallbackCoordinator<void> done;
    CancellableCallbackCoordinator<void>::Start succeed = [](auto completion) { completion(); };
    CancellableCallbackCoordinator<void>::Cancel nothing = [] {};
    co_await done.run(succeed, nothing);

    CancellableCallbackCoordinator<void> aborted;
    CancellableCallbackCoordinator<void>::Start abort = [](auto completion) {
      completion(std::make_exception_ptr(boost::system::system_error(asio::error::operation_aborted)));
    };
    EXPECT_THROW(co_await aborted.run(abort, nothing), CancellationError);
  };
  runtime.runBlocking(body());
}

// Completion from a thread, cancel() from another, the caller's cancellation from the test
// thread, in random order. The request is never cancelled twice nor while start runs, a
// started request whose run ended cancelled was cancelled, and the run ends exactly once.
TEST(CancellableCallbackCoordinatorTest, CompletionCancelAndStartRaceSafely) {
  Runtime runtime(2);
  std::mt19937 random(11);
  for (int iteration = 0; iteration < 300; ++iteration) {
    SCOPED_TRACE(iteration);
    auto log = std::make_shared<RequestLog>();
    auto coordinator = std::make_shared<Coordinator>();
    const int pattern = static_cast<int>(random() % 4);
    Coordinator::Start start = [log, iteration](Coordinator::Completion completion) {
      log->insideStart = true;
      ++log->starts;
      {
        std::lock_guard guard(log->lock);
        log->threads.emplace_back([completion, iteration] { completion(iteration); });
      }
      std::this_thread::yield();
      log->insideStart = false;
    };
    auto running = run(runtime, coordinator, start, log->cancelRequest());
    std::thread canceller;
    if (pattern & 1) canceller = std::thread([coordinator] { coordinator->cancel(); });
    if (pattern & 2) running.task.cancel();
    auto outcome = running.get();
    if (canceller.joinable()) canceller.join();
    {
      std::lock_guard guard(log->lock);
      for (auto& thread : log->threads) thread.join();
      log->threads.clear();
    }
    EXPECT_LE(log->cancels.load(), 1);
    EXPECT_FALSE(log->cancelledInsideStart.load());
    if (!outcome.error) {
      EXPECT_EQ(outcome.value, iteration);
    } else {
      ASSERT_TRUE(isCancellationError(outcome.error));
      if (log->starts == 1) EXPECT_EQ(log->cancels.load(), 1);
    }
    if (pattern == 0) EXPECT_EQ(outcome.error, nullptr);
  }
}

}  // namespace
}  // namespace ombrine
