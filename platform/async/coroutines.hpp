#pragma once
// Structured concurrency and cancellation on top of Asio coroutines.
//
// How a cancellation travels. A task started by `spawnCancellable` or a `TaskGroup` has its own
// cancellation signal; cancelling it emits a terminal cancellation on the task's executor, which
// interrupts the operation the task is suspended in and marks the task's coroutine thread as
// cancelled. Asio then reports the interrupted operation, and every later `co_await` in that
// thread (before it even starts), as boost::system::system_error with error::operation_aborted.
// The helpers below convert that to `CancellationError` wherever they hand an outcome back, so
// callers of a helper see the one cancellation type. Inside a coroutine treat both as the same
// thing (`isCancellation`, `rethrowIfCancellation`) and never swallow either.
//
// Serial executors. Asio's cancellation signals are not thread-safe: a signal is emitted on the
// executor its task runs on, and that executor must be serial. Helpers that start cancellable
// tasks therefore run each one on a strand: the given executor when it already is one,
// otherwise a new strand on it. Group and coordinator state shared between threads is guarded
// by a mutex that is never held across a `co_await`, a continuation or a user callback.

#include <boost/asio/associated_cancellation_slot.hpp>
#include <boost/asio/associated_executor.hpp>
#include <boost/asio/async_result.hpp>
#include <boost/asio/cancellation_type.hpp>
#include <boost/asio/post.hpp>

#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "platform/async/task.hpp"
#include "platform/errors.hpp"

namespace ombrine {

// Starts `task` on `executor` and forgets it. A failure is logged as "<name> failed: <what>";
// a cancellation ends quietly. Never lets an exception escape into the executor.
void spawn(Executor executor, Task<void> task, std::string name = "Detached task");

// `executor` itself when it is a strand, otherwise a new strand on it.
Executor serialExecutor(const Executor& executor);

// `error` with Asio's operation_aborted replaced by CancellationError; other errors (and null)
// unchanged.
std::exception_ptr asCancellationError(std::exception_ptr error);

// Raises a cancellation when the calling coroutine's thread has been cancelled, so that long
// stretches of work without suspension can stop early. Under Asio's default (a cancelled thread
// throws on `co_await`) the `co_await` of this call itself raises operation_aborted; with that
// default turned off it raises CancellationError. Either way the nearest helper boundary
// reports CancellationError.
Task<void> throwIfCancelled();

// A task started on a serial executor that any thread can cancel.
//
// `prepare` and `start` are separate so that an owner can record the handle (and cancel it)
// before the task runs; a task cancelled before it starts never runs its body and completes
// with CancellationError. Copies share the task. `cancel` is idempotent and does nothing once
// the task has finished.
class SpawnedTask {
 public:
  SpawnedTask() = default;

  static SpawnedTask prepare(const Executor& executor);

  // Starts the task (posted, never inline). `completion` runs once on the task's executor with
  // the task's failure (cancellation converted to CancellationError) or null. Call once.
  void start(Task<void> task, std::function<void(std::exception_ptr)> completion) const;

  // Thread-safe.
  void cancel() const;

  explicit operator bool() const noexcept { return static_cast<bool>(state_); }

  struct State;

 private:
  explicit SpawnedTask(std::shared_ptr<State> state) : state_(std::move(state)) {}
  std::shared_ptr<State> state_;
};

// prepare + start in one call.
SpawnedTask spawnCancellable(const Executor& executor, Task<void> task,
                             std::function<void(std::exception_ptr)> completion);

// What a suspended caller is resumed with: an error, or else a value (none for void).
template <class T>
struct Outcome {
  std::exception_ptr error;
  std::optional<T> value;

  static Outcome success(T result) { return Outcome{nullptr, std::move(result)}; }
  static Outcome failure(std::exception_ptr cause) { return Outcome{std::move(cause), {}}; }
};

template <>
struct Outcome<void> {
  std::exception_ptr error;

  static Outcome success() { return Outcome{}; }
  static Outcome failure(std::exception_ptr cause) { return Outcome{std::move(cause)}; }
};

// The suspended caller of `suspend`, resumable exactly once from any thread. Move-only: the
// one object that can resume the caller is the one that was handed out.
template <class T>
class Continuation {
 public:
  Continuation() = default;
  Continuation(Continuation&& other) noexcept : resume_(std::exchange(other.resume_, nullptr)) {}
  Continuation& operator=(Continuation&& other) noexcept {
    resume_ = std::exchange(other.resume_, nullptr);
    return *this;
  }
  Continuation(const Continuation&) = delete;
  Continuation& operator=(const Continuation&) = delete;

  // Wraps the completion handler of an `async_initiate` for signature void(Outcome<T>).
  template <class Handler>
  static Continuation fromHandler(Handler handler) {
    auto executor = asio::get_associated_executor(handler);
    auto shared = std::make_shared<Handler>(std::move(handler));
    Continuation continuation;
    continuation.resume_ = [executor, shared](Outcome<T> outcome) {
      auto resumeCaller = [shared, outcome = std::move(outcome)]() mutable { std::move (*shared)(std::move(outcome)); };
      asio::post(executor, std::move(resumeCaller));
    };
    return continuation;
  }

  explicit operator bool() const noexcept { return static_cast<bool>(resume_); }

  // Resumes the caller with `outcome`. The resumption is posted to the caller's executor, so it
  // never runs inside this call (nor under any lock the resumer holds). Empties this object.
  // Precondition: not empty.
  void resume(Outcome<T> outcome) {
    auto resumeCaller = std::move(resume_);
    resume_ = nullptr;
    resumeCaller(std::move(outcome));
  }

 private:
  std::function<void(Outcome<T>)> resume_;
};

namespace detail {

// Sits in the awaiting coroutine's cancellation slot while it is suspended in `suspend`.
class CancelHook {
 public:
  explicit CancelHook(std::function<void()> onCancel) : onCancel_(std::move(onCancel)) {}
  void operator()(asio::cancellation_type type) {
    if (type == asio::cancellation_type::none) return;
    // Run a copy: once the caller resumes, its slot (and this hook) may be destroyed.
    auto onCancel = onCancel_;
    onCancel();
  }

 private:
  std::function<void()> onCancel_;
};

}  // namespace detail

// Suspends the calling coroutine and hands its continuation to `install`, which arranges for it
// to be resumed exactly once, from any thread; the caller then returns the value or raises the
// error it was resumed with.
//
// `onCancel` runs when the caller is cancelled while suspended (on the thread that emits the
// cancellation, normally the caller's executor) and may run again later, so it must be
// idempotent; it must lead to the continuation being resumed, usually with CancellationError.
// If the caller's thread is already cancelled (possible only with Asio's throw-on-cancel turned
// off), `onCancel` runs first and `install` right after it, so `install` sees the cancellation.
//
// The caller may resume (on another thread) as soon as `install` has handed the continuation
// on; `install` runs as a copy, so it may go on using its own captures, but nothing that belongs
// to the caller's frame.
template <class T>
Task<T> suspend(std::function<void(Continuation<T>)> install, std::function<void()> onCancel) {
  auto cancellation = co_await asio::this_coro::cancellation_state;
  const bool cancelledAlready = cancellation.cancelled() != asio::cancellation_type::none;
  // While suspended here the outcome decides; Asio must not turn the wait itself into an error.
  const bool throwsOnCancel = co_await asio::this_coro::throw_if_cancelled();
  co_await asio::this_coro::throw_if_cancelled(false);
  auto initiation = [&install, &onCancel, cancelledAlready](auto handler) {
    // Once `install` has handed the continuation on, the caller may resume on another thread
    // and destroy this frame, so `install` runs as a copy on this stack.
    auto installHere = install;
    auto slot = asio::get_associated_cancellation_slot(handler);
    if (cancelledAlready) {
      onCancel();
    } else if (slot.is_connected()) {
      slot.template emplace<detail::CancelHook>(onCancel);
    }
    installHere(Continuation<T>::fromHandler(std::move(handler)));
  };
  Outcome<T> outcome =
      co_await asio::async_initiate<const asio::use_awaitable_t<>&, void(Outcome<T>)>(initiation, asio::use_awaitable);
  co_await asio::this_coro::throw_if_cancelled(throwsOnCancel);
  if (outcome.error) std::rethrow_exception(outcome.error);
  if constexpr (!std::is_void_v<T>) co_return std::move(*outcome.value);
}

// Structured concurrency: a set of child tasks that are always awaited together.
//
// `spawn` starts a child with its own cancellation signal, on the given executor (made serial)
// or the group's. `wait` suspends until every child has finished; if any child failed, the
// others are cancelled as soon as the failure is seen, and `wait` raises the first failure
// (a cancellation as CancellationError). If the coroutine awaiting `wait` is cancelled, every
// child is cancelled, `wait` still waits for all of them, then raises CancellationError. After
// `wait` returns or raises, the group is empty and can be used again.
//
// `wait` must be awaited on every path before the group is destroyed. Because Asio makes every
// `co_await` in a cancelled coroutine raise before it starts, a coroutine that awaits anything
// else between `spawn` and `wait` should use `withTaskGroup`, which always waits. Destroying a
// group with running children cancels them and, in debug builds, aborts after logging
// (unless the runtime is shutting down, which destroys suspended coroutines).
//
// Thread-safe: children may finish on any thread of the pool; `spawn` and `cancelAll` may be
// called from any thread, children included. One `wait` at a time.
class TaskGroup {
 public:
  explicit TaskGroup(Executor executor);
  TaskGroup(const TaskGroup&) = delete;
  TaskGroup& operator=(const TaskGroup&) = delete;
  ~TaskGroup();

  void spawn(Task<void> task);
  void spawn(const Executor& executor, Task<void> task);

  // Raises std::logic_error if another wait is in progress.
  Task<void> wait();

  // Cancels every running child; children spawned later until `wait` returns start cancelled.
  void cancelAll();

  std::size_t running() const;

  struct State;

 private:
  std::shared_ptr<State> state_;
};

// Runs `body` with a fresh group on the caller's executor and always waits for the group's
// children, even when `body` raises or the caller is cancelled. When `body` raises, the
// children are cancelled and the body's error is raised after they finished; otherwise the
// group's outcome as from `TaskGroup::wait`.
Task<void> withTaskGroup(std::function<Task<void>(TaskGroup&)> body);

namespace detail {

template <class T>
Task<void> storeResult(std::shared_ptr<std::vector<std::optional<T>>> results, std::size_t index, Task<T> task) {
  auto value = co_await std::move(task);
  (*results)[index].emplace(std::move(value));
}

}  // namespace detail

// Runs `tasks` concurrently as children of one group on the caller's executor and returns their
// results in the order of `tasks`. Failure and cancellation as for TaskGroup::wait.
template <class T>
Task<std::vector<T>> whenAll(std::vector<Task<T>> tasks) {
  auto executor = co_await asio::this_coro::executor;
  auto results = std::make_shared<std::vector<std::optional<T>>>(tasks.size());
  TaskGroup group(executor);
  for (std::size_t i = 0; i < tasks.size(); ++i) {
    group.spawn(detail::storeResult<T>(results, i, std::move(tasks[i])));
  }
  co_await group.wait();
  std::vector<T> values;
  values.reserve(results->size());
  for (auto& result : *results) values.push_back(std::move(*result));
  co_return values;
}

Task<void> whenAll(std::vector<Task<void>> tasks);

}  // namespace ombrine
