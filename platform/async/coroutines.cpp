#include "platform/async/coroutines.hpp"

#include <boost/asio/bind_cancellation_slot.hpp>
#include <boost/asio/cancellation_signal.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/strand.hpp>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <mutex>
#include <stdexcept>

#include "platform/exception_message.hpp"
#include "platform/log.hpp"
#include "platform/thread_annotations.hpp"

namespace ombrine {

namespace {

// True when `executor` leads to an io_context that has been stopped (the runtime is shutting
// down and destroys suspended coroutines instead of resuming them).
bool contextStopped(const Executor& executor) {
  using IoExecutor = asio::io_context::executor_type;
  if (const auto* io = executor.target<IoExecutor>()) return io->context().stopped();
  if (const auto* strand = executor.target<Strand>()) {
    return strand->get_inner_executor().context().stopped();
  }
  if (const auto* strand = executor.target<asio::strand<Executor>>()) {
    return contextStopped(strand->get_inner_executor());
  }
  return false;
}

}  // namespace

void spawn(Executor executor, Task<void> task, std::string name) {
  auto completion = [name = std::move(name)](std::exception_ptr error) {
    if (!error || isCancellation(error)) return;
    logf("{} failed: {}", name, exceptionMessage(error));
  };
  asio::co_spawn(executor, std::move(task), std::move(completion));
}

Executor serialExecutor(const Executor& executor) {
  if (executor.target<Strand>() != nullptr) return executor;
  if (executor.target<asio::strand<Executor>>() != nullptr) return executor;
  return asio::make_strand(executor);
}

std::exception_ptr asCancellationError(std::exception_ptr error) {
  if (error && isCancellation(error)) return std::make_exception_ptr(CancellationError());
  return error;
}

Task<void> throwIfCancelled() {
  auto cancellation = co_await asio::this_coro::cancellation_state;
  if (cancellation.cancelled() != asio::cancellation_type::none) throw CancellationError();
}

// ---------------------------------------------------------------------------------------------
// SpawnedTask

struct SpawnedTask::State {
  explicit State(Executor serial) : executor(std::move(serial)) {}

  const Executor executor;
  std::atomic<bool> cancelRequested{false};
  // Both touched only on `executor`: Asio's signals are not thread-safe.
  asio::cancellation_signal signal;
  bool finished = false;
};

namespace {

Task<void> runUnlessCancelled(std::shared_ptr<SpawnedTask::State> state, Task<void> task) {
  if (state->cancelRequested.load(std::memory_order_acquire)) throw CancellationError();
  co_await std::move(task);
}

}  // namespace

SpawnedTask SpawnedTask::prepare(const Executor& executor) {
  return SpawnedTask(std::make_shared<State>(serialExecutor(executor)));
}

void SpawnedTask::start(Task<void> task, std::function<void(std::exception_ptr)> completion) const {
  auto state = state_;
  // co_spawn fills the signal's slot, so it runs on the task's executor like every emit.
  auto launch = [state, task = std::move(task), completion = std::move(completion)]() mutable {
    auto body = runUnlessCancelled(state, std::move(task));
    auto finish = [state, completion = std::move(completion)](std::exception_ptr error) {
      state->finished = true;
      completion(asCancellationError(error));
    };
    auto slot = state->signal.slot();
    asio::co_spawn(state->executor, std::move(body), asio::bind_cancellation_slot(slot, std::move(finish)));
  };
  asio::post(state->executor, std::move(launch));
}

void SpawnedTask::cancel() const {
  if (!state_) return;
  if (state_->cancelRequested.exchange(true, std::memory_order_acq_rel)) return;
  auto emit = [state = state_] {
    if (!state->finished) state->signal.emit(asio::cancellation_type::terminal);
  };
  asio::post(state_->executor, std::move(emit));
}

SpawnedTask spawnCancellable(const Executor& executor, Task<void> task,
                             std::function<void(std::exception_ptr)> completion) {
  auto spawned = SpawnedTask::prepare(executor);
  spawned.start(std::move(task), std::move(completion));
  return spawned;
}

// ---------------------------------------------------------------------------------------------
// TaskGroup

struct TaskGroup::State {
  explicit State(Executor groupExecutor) : executor(std::move(groupExecutor)) {}

  const Executor executor;

  mutable Mutex lock;
  std::map<std::uint64_t, SpawnedTask> children GUARDED_BY(lock);
  std::uint64_t nextChild GUARDED_BY(lock) = 0;
  std::size_t running GUARDED_BY(lock) = 0;
  std::exception_ptr firstError GUARDED_BY(lock);
  bool cancelled GUARDED_BY(lock) = false;
  bool waiting GUARDED_BY(lock) = false;
  bool waiterCancelled GUARDED_BY(lock) = false;
  // Counts finished waits, so that a late cancellation of an earlier wait is recognised.
  std::uint64_t cycle GUARDED_BY(lock) = 0;
  Continuation<void> waiter GUARDED_BY(lock);

  // The caller cancels the returned children after unlocking.
  std::vector<SpawnedTask> cancelLocked() REQUIRES(lock) {
    cancelled = true;
    std::vector<SpawnedTask> toCancel;
    toCancel.reserve(children.size());
    for (auto& [id, child] : children) toCancel.push_back(child);
    return toCancel;
  }

  // Once no child runs: the outcome of the wait, and a fresh group.
  Outcome<void> finishWaitLocked() REQUIRES(lock) {
    auto outcome = waiterCancelled ? Outcome<void>::failure(std::make_exception_ptr(CancellationError()))
                                   : Outcome<void>::failure(firstError);
    firstError = nullptr;
    cancelled = false;
    waiting = false;
    waiterCancelled = false;
    ++cycle;
    return outcome;
  }

  void childFinished(std::uint64_t id, std::exception_ptr error) {
    std::vector<SpawnedTask> toCancel;
    Continuation<void> continuation;
    std::optional<Outcome<void>> outcome;
    {
      MutexLock guard(lock);
      children.erase(id);
      --running;
      if (error && !firstError) {
        firstError = error;
        if (!cancelled) toCancel = cancelLocked();
      }
      if (running == 0 && waiter) {
        continuation = std::move(waiter);
        outcome = finishWaitLocked();
      }
    }
    for (auto& child : toCancel) child.cancel();
    if (continuation) continuation.resume(std::move(*outcome));
  }
};

TaskGroup::TaskGroup(Executor executor) : state_(std::make_shared<State>(std::move(executor))) {}

TaskGroup::~TaskGroup() {
  std::size_t running = 0;
  std::vector<SpawnedTask> toCancel;
  {
    MutexLock guard(state_->lock);
    running = state_->running;
    if (running > 0) toCancel = state_->cancelLocked();
  }
  if (running == 0) return;
  for (auto& child : toCancel) child.cancel();
  if (contextStopped(state_->executor)) return;
  logf("TaskGroup destroyed with {} running tasks: wait() was not awaited", running);
#ifndef NDEBUG
  std::abort();
#endif
}

void TaskGroup::spawn(Task<void> task) { spawn(state_->executor, std::move(task)); }

void TaskGroup::spawn(const Executor& executor, Task<void> task) {
  auto state = state_;
  auto child = SpawnedTask::prepare(executor);
  std::uint64_t id = 0;
  bool cancelNow = false;
  {
    MutexLock guard(state->lock);
    id = state->nextChild++;
    state->children.emplace(id, child);
    ++state->running;
    cancelNow = state->cancelled;
  }
  if (cancelNow) child.cancel();
  auto completion = [state, id](std::exception_ptr error) { state->childFinished(id, error); };
  child.start(std::move(task), std::move(completion));
}

Task<void> TaskGroup::wait() {
  auto state = state_;
  std::uint64_t cycle = 0;
  {
    MutexLock guard(state->lock);
    if (state->waiting) throw std::logic_error("TaskGroup::wait awaited twice at the same time");
    state->waiting = true;
    cycle = state->cycle;
  }
  std::function<void(Continuation<void>)> install = [state](Continuation<void> continuation) {
    std::optional<Outcome<void>> outcome;
    {
      MutexLock guard(state->lock);
      if (state->running == 0) {
        outcome = state->finishWaitLocked();
      } else {
        state->waiter = std::move(continuation);
      }
    }
    if (outcome) continuation.resume(std::move(*outcome));
  };
  std::function<void()> onCancel = [state, cycle] {
    std::vector<SpawnedTask> toCancel;
    {
      MutexLock guard(state->lock);
      if (state->cycle != cycle) return;
      state->waiterCancelled = true;
      toCancel = state->cancelLocked();
    }
    for (auto& child : toCancel) child.cancel();
  };
  co_await suspend<void>(std::move(install), std::move(onCancel));
}

void TaskGroup::cancelAll() {
  std::vector<SpawnedTask> toCancel;
  {
    MutexLock guard(state_->lock);
    toCancel = state_->cancelLocked();
  }
  for (auto& child : toCancel) child.cancel();
}

std::size_t TaskGroup::running() const {
  MutexLock guard(state_->lock);
  return state_->running;
}

Task<void> withTaskGroup(std::function<Task<void>(TaskGroup&)> body) {
  auto executor = co_await asio::this_coro::executor;
  TaskGroup group(executor);
  std::exception_ptr bodyError;
  try {
    co_await body(group);
  } catch (...) {
    bodyError = asCancellationError(std::current_exception());
  }
  if (bodyError) group.cancelAll();
  // A cancelled caller must still reach the wait: turn off Asio's throw-on-await around it.
  const bool throwsOnCancel = co_await asio::this_coro::throw_if_cancelled();
  co_await asio::this_coro::throw_if_cancelled(false);
  std::exception_ptr waitError;
  try {
    co_await group.wait();
  } catch (...) {
    waitError = std::current_exception();
  }
  co_await asio::this_coro::throw_if_cancelled(throwsOnCancel);
  if (bodyError) std::rethrow_exception(bodyError);
  if (waitError) std::rethrow_exception(waitError);
}

Task<void> whenAll(std::vector<Task<void>> tasks) {
  auto executor = co_await asio::this_coro::executor;
  TaskGroup group(executor);
  for (auto& task : tasks) group.spawn(std::move(task));
  co_await group.wait();
}

}  // namespace ombrine
