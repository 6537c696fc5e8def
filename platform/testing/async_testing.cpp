#include "platform/testing/async_testing.hpp"

#include <memory>

namespace ombrine {

StartedTask startTask(const Executor& executor, Task<void> task) {
  auto promise = std::make_shared<std::promise<std::exception_ptr>>();
  std::shared_future<std::exception_ptr> outcome = promise->get_future().share();
  auto completion = [promise](std::exception_ptr error) { promise->set_value(error); };
  return StartedTask{spawnCancellable(executor, std::move(task), completion), outcome};
}

std::exception_ptr errorOf(Runtime& runtime, Task<void> task) {
  try {
    runtime.runBlocking(std::move(task));
  } catch (...) {
    return std::current_exception();
  }
  return nullptr;
}

Task<std::exception_ptr> captureError(Task<void> task) {
  std::exception_ptr error;
  try {
    co_await std::move(task);
  } catch (...) {
    error = std::current_exception();
  }
  co_return error;
}

bool isCancellationError(const std::exception_ptr& error) {
  if (!error) return false;
  try {
    std::rethrow_exception(error);
  } catch (const CancellationError&) {
    return true;
  } catch (...) {
    return false;
  }
}

std::string messageOf(const std::exception_ptr& error) {
  if (!error) return {};
  try {
    std::rethrow_exception(error);
  } catch (const std::exception& e) {
    return e.what();
  } catch (...) {
    return {};
  }
}

}  // namespace ombrine
