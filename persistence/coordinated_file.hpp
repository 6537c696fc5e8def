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
#include <string>
#include <thread>
#include <type_traits>
#include <utility>

#include "core/date.hpp"
#include "platform/coroutines.hpp"
#include "platform/errors.hpp"
#include "platform/task.hpp"

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

namespace detail {

// One write request: the private one-at-a-time worker that prepares the coordination file, waits
// for the lock and runs the operation, off the caller's thread.
template <class T>
struct CoordinatedWriteRequest {
  std::filesystem::path coordinationFile;
  std::function<T()> operation;
  std::atomic<bool> cancelled{false};

  void run(Continuation<T> continuation) {
    try {
      prepareCoordinationFile(coordinationFile);
      if (cancelled.load()) throw CancellationError();
      auto lock = CoordinationLock::acquire(coordinationFile, cancelled);
      if (!lock) throw CancellationError();
      // Once the lock is held the operation always runs to the end; a late cancellation no
      // longer interrupts it.
      if constexpr (std::is_void_v<T>) {
        operation();
        continuation.resume(Outcome<T>::success());
      } else {
        auto result = operation();
        continuation.resume(Outcome<T>::success(std::move(result)));
      }
    } catch (...) {
      continuation.resume(Outcome<T>::failure(std::current_exception()));
    }
  }
};

}  // namespace detail

// Runs `operation` while holding the exclusive lock of `coordinationFile` and yields its result.
//
// The coordination file (and its folder) is created first if missing. The wait and the operation
// run on a thread of the request's own, never on the caller's executor; `operation` may block on
// file input and output and may run on any thread. Cancellation of the awaiting task before the
// lock is granted ends the wait without running `operation` and raises CancellationError; an
// operation that has started is never interrupted, and its outcome is delivered. Errors of `operation` and FileError of the preparation reach
// the caller unchanged. Writes to different coordination files never wait for each other.
template <class T>
Task<T> performCoordinatedWrite(std::filesystem::path coordinationFile, std::function<T()> operation) {
  auto request = std::make_shared<detail::CoordinatedWriteRequest<T>>();
  request->coordinationFile = std::move(coordinationFile);
  request->operation = std::move(operation);
  std::function<void(Continuation<T>)> install = [request](Continuation<T> continuation) {
    auto work = [request, continuation = std::move(continuation)]() mutable {
      request->run(std::move(continuation));
    };
    std::thread(std::move(work)).detach();
  };
  std::function<void()> onCancel = [request] { request->cancelled.store(true); };
  if constexpr (std::is_void_v<T>) {
    co_await suspend<T>(install, onCancel);
  } else {
    co_return co_await suspend<T>(install, onCancel);
  }
}

}  // namespace ombrine
