#pragma once
// Cross-process coordinated writes of cache files in the shared container.
//
// The application and its background processes share one container and may write the same cache
// file at any moment; any of them may be killed mid-write. Writers therefore serialise on an
// exclusive `flock` of a companion coordination file ("<value file>.coordination": the value
// file's own extension stays in the name), which is empty, never deleted, and never replaced, so
// the lock survives the atomic replacement of the value file. The kernel drops the lock when its
// holder dies. Readers never lock: value files are only ever replaced atomically
// (writeFileAtomically), so a reader sees the old or the new file, and a moved modification date
// tells it that somebody else wrote.

#include <sys/file.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>

#include <boost/asio/execution/context.hpp>
#include <boost/asio/execution_context.hpp>
#include <boost/asio/query.hpp>

#include "core/values/date.hpp"
#include "platform/async/coroutines.hpp"
#include "platform/async/task.hpp"
#include "platform/clock.hpp"
#include "platform/errors.hpp"

namespace ombrine {

// "<file>.coordination" beside `valueFile`.
std::filesystem::path coordinationFilePath(const std::filesystem::path& valueFile);

// Creates the parent folder (with intermediate folders) and an empty coordination file, never
// touching one that exists. Two processes racing to create it both succeed. Raises FileError when
// the folder cannot be created, or the file cannot be created and does not exist.
void prepareCoordinationFile(const std::filesystem::path& coordinationFile);

// The modification date of `file`, or nothing when its attributes cannot be read.
std::optional<Date> fileModificationDate(const std::filesystem::path& file);

// An exclusive lock held on a coordination file; released when destroyed (or when the process
// dies). Locks are per open file, so two holders in the same process exclude each other too.
class CoordinationLock {
 public:
  CoordinationLock(CoordinationLock&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  CoordinationLock& operator=(CoordinationLock&& other) noexcept {
    if (this != &other) {
      release();
      fd_ = std::exchange(other.fd_, -1);
    }
    return *this;
  }
  CoordinationLock(const CoordinationLock&) = delete;
  ~CoordinationLock() { release(); }

  // The lock if it is free now, else nothing; never waits. Precondition: the file exists
  // (prepareCoordinationFile). Raises FileError when the file cannot be opened or locked.
  static std::optional<CoordinationLock> tryAcquire(const std::filesystem::path& coordinationFile);

  // Waits until the lock is granted or `cancelled` becomes true (then nothing). Polls with a
  // short, growing back-off rather than blocking in the kernel, so a wait can be given up.
  // Blocks the calling thread. Raises FileError as tryAcquire.
  static std::optional<CoordinationLock> acquire(const std::filesystem::path& coordinationFile,
                                                 const std::atomic<bool>& cancelled);

 private:
  explicit CoordinationLock(int fd) : fd_(fd) {}
  // Closing the last descriptor of the open file releases the flock.
  void release() noexcept;
  int fd_ = -1;
};

// A coordinated write gave up waiting for its lock: another writer held it for longer than the
// caller's limit. No lock is held and the operation did not run.
class CoordinationTimeoutError : public std::runtime_error {
 public:
  CoordinationTimeoutError(const std::filesystem::path& coordinationFile, Clock::Duration limit);
};

// How long a coordinated write may wait for its lock. Without a limit it waits until the lock is
// granted or the caller is cancelled. The limit bounds the wait only: once the lock is held the
// operation always runs to its end. `clock` (continuous time) must outlive the write.
struct CoordinatedWriteLimit {
  Clock* clock = nullptr;
  Clock::Duration lockWait{};
};

namespace detail {

// Runs `body` on a thread of its own that the execution context of the caller knows about:
// destroying that context (the end of a Runtime) first sets `cancelled`, so waits for a lock end
// promptly, and then waits for every such thread to finish, so none of them resumes a caller on
// a context that is gone. An operation that already holds its lock is waited for, not cut short.
// `body` must resume its continuation before it returns.
void startRequestThread(asio::execution_context& context, std::shared_ptr<std::atomic<bool>> cancelled,
                        std::function<void()> body);

// Suspends the caller while `body(cancelled)` runs on a request thread (startRequestThread) and
// yields what it returns or raises. Cancelling the caller sets the flag; `body` decides what
// that means.
template <class T>
Task<T> onRequestThread(std::function<T(const std::atomic<bool>& cancelled)> body) {
  auto executor = co_await asio::this_coro::executor;
  asio::execution_context& context = asio::query(executor, asio::execution::context);
  auto cancelled = std::make_shared<std::atomic<bool>>(false);
  std::function<void(Continuation<T>)> install = [&context, cancelled, body](Continuation<T> continuation) {
    auto shared = std::make_shared<Continuation<T>>(std::move(continuation));
    std::function<void()> work = [cancelled, body, shared] {
      try {
        if constexpr (std::is_void_v<T>) {
          body(*cancelled);
          shared->resume(Outcome<T>::success());
        } else {
          auto result = body(*cancelled);
          shared->resume(Outcome<T>::success(std::move(result)));
        }
      } catch (...) {
        shared->resume(Outcome<T>::failure(std::current_exception()));
      }
    };
    startRequestThread(context, cancelled, std::move(work));
  };
  std::function<void()> onCancel = [cancelled] { cancelled->store(true); };
  if constexpr (std::is_void_v<T>) {
    co_await suspend<T>(install, onCancel);
  } else {
    co_return co_await suspend<T>(install, onCancel);
  }
}

// Prepares the coordination file and waits for its lock; CancellationError when `cancelled` is
// set before the lock is granted. Blocks the calling thread.
CoordinationLock lockForWrite(const std::filesystem::path& coordinationFile, const std::atomic<bool>& cancelled);

// Removes what writers of the value file killed mid-replacement left behind. Runs under the lock,
// before the operation; never raises.
void removeStaleTemporaryFilesOfValue(const std::filesystem::path& coordinationFile) noexcept;

// The lock of `coordinationFile`, waited for at most `limit`. Raises CoordinationTimeoutError,
// CancellationError, or FileError of the preparation.
Task<std::shared_ptr<CoordinationLock>> lockForWriteWithin(std::filesystem::path coordinationFile,
                                                           CoordinatedWriteLimit limit);

}  // namespace detail

// Runs `operation` while holding the exclusive lock of `coordinationFile` and yields its result.
//
// The coordination file (and its folder) is created first if missing. Temporary files that a
// killed writer of the value file (the coordination file's path without ".coordination") left
// beside it are removed under the lock (removeStaleTemporaryFiles). The wait and the operation
// run on a thread of the request's own, never on the caller's executor; `operation` may block on
// file input and output and may run on any thread. Cancellation of the awaiting task before the
// lock is granted ends the wait without running `operation` and raises CancellationError; an
// operation that has started is never interrupted, and its outcome is delivered. With `limit`,
// a wait longer than `limit.lockWait` raises CoordinationTimeoutError and leaves no lock held.
// Errors of `operation` and FileError of the preparation reach the caller unchanged. Writes to
// different coordination files never wait for each other. Destroying the caller's io_context
// cancels writes still waiting and waits for those that run (see startRequestThread).
template <class T>
Task<T> performCoordinatedWrite(std::filesystem::path coordinationFile, std::function<T()> operation,
                                std::optional<CoordinatedWriteLimit> limit = std::nullopt) {
  if (!limit) {
    // One thread does it all: the common case costs one thread start.
    std::function<T(const std::atomic<bool>&)> body = [coordinationFile,
                                                       operation](const std::atomic<bool>& cancelled) {
      const CoordinationLock lock = detail::lockForWrite(coordinationFile, cancelled);
      detail::removeStaleTemporaryFilesOfValue(coordinationFile);
      return operation();
    };
    if constexpr (std::is_void_v<T>) {
      co_await detail::onRequestThread<T>(std::move(body));
      co_return;
    } else {
      co_return co_await detail::onRequestThread<T>(std::move(body));
    }
  }
  std::shared_ptr<CoordinationLock> lock = co_await detail::lockForWriteWithin(coordinationFile, *limit);
  // The lock is held: the operation runs whatever happens to the caller from here on.
  std::function<T(const std::atomic<bool>&)> body = [coordinationFile, operation, lock](const std::atomic<bool>&) {
    detail::removeStaleTemporaryFilesOfValue(coordinationFile);
    return operation();
  };
  if constexpr (std::is_void_v<T>) {
    co_await detail::onRequestThread<T>(std::move(body));
  } else {
    co_return co_await detail::onRequestThread<T>(std::move(body));
  }
}

}  // namespace ombrine
