#pragma once
// Helpers for tests of asynchronous code: start a cancellable task and await its outcome from
// the test thread, capture a task's failure as a value, poll for a condition.

#include <chrono>
#include <exception>
#include <future>
#include <string>
#include <thread>

#include "platform/async/coroutines.hpp"
#include "platform/runtime.hpp"

namespace ombrine {

// A task started on the pool with its own cancellation handle; `outcome` becomes ready once,
// with the task's failure (cancellation as CancellationError) or null.
struct StartedTask {
  SpawnedTask task;
  std::shared_future<std::exception_ptr> outcome;
};

StartedTask startTask(const Executor& executor, Task<void> task);

// Runs `task` to its end (Runtime::runBlocking) and returns its failure, or null.
std::exception_ptr errorOf(Runtime& runtime, Task<void> task);

// Awaits `task` and returns its failure, or null, instead of raising it.
Task<std::exception_ptr> captureError(Task<void> task);

// True when `error` holds a CancellationError (Asio's operation_aborted does not count: the
// helpers under test must have converted it).
bool isCancellationError(const std::exception_ptr& error);

// what() of the exception in `error`; "" for null or a non-std exception.
std::string messageOf(const std::exception_ptr& error);

// Polls `condition` every millisecond until it holds or `timeout` of real time has passed.
template <class Condition>
bool eventually(Condition condition, std::chrono::milliseconds timeout = std::chrono::seconds(10)) {
  const auto giveUp = std::chrono::steady_clock::now() + timeout;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > giveUp) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

}  // namespace ombrine
