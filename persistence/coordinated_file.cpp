#include "persistence/coordinated_file.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <unordered_set>

#include <fmt/format.h>

#include "platform/async/async_deadline_coordinator.hpp"
#include "platform/atomic_file.hpp"

namespace ombrine {

namespace {

[[noreturn]] void fail(const char* what, const std::filesystem::path& path, int error) {
  throw FileError(std::string(what) + " " + path.string() + ": " + std::strerror(error));
}

}  // namespace

std::filesystem::path coordinationFilePath(const std::filesystem::path& valueFile) {
  std::filesystem::path result = valueFile;
  result += ".coordination";
  return result;
}

void prepareCoordinationFile(const std::filesystem::path& coordinationFile) {
  const std::filesystem::path folder = coordinationFile.parent_path();
  if (!folder.empty()) {
    std::error_code ec;
    std::filesystem::create_directories(folder, ec);
    if (ec) fail("cannot create folder", folder, ec.value());
  }
  // O_EXCL: an existing file, and the lock somebody may hold on it, is never touched.
  const int fd = ::open(coordinationFile.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
  if (fd >= 0) {
    ::close(fd);
    return;
  }
  const int error = errno;
  struct stat info {};
  if (::stat(coordinationFile.c_str(), &info) == 0) return;
  fail("cannot create coordination file", coordinationFile, error);
}

std::optional<Date> fileModificationDate(const std::filesystem::path& file) {
  struct stat info {};
  if (::stat(file.c_str(), &info) != 0) return std::nullopt;
  return Date::fromUnix(static_cast<double>(info.st_mtim.tv_sec) + static_cast<double>(info.st_mtim.tv_nsec) / 1e9);
}

void CoordinationLock::release() noexcept {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
}

namespace {

int openCoordinationFile(const std::filesystem::path& coordinationFile) {
  const int fd = ::open(coordinationFile.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) fail("cannot open coordination file", coordinationFile, errno);
  return fd;
}

// True when the lock was granted, false when another open file holds it.
bool tryLock(int fd, const std::filesystem::path& coordinationFile) {
  for (;;) {
    if (::flock(fd, LOCK_EX | LOCK_NB) == 0) return true;
    if (errno == EINTR) continue;
    if (errno == EWOULDBLOCK) return false;
    fail("cannot lock coordination file", coordinationFile, errno);
  }
}

}  // namespace

std::optional<CoordinationLock> CoordinationLock::tryAcquire(const std::filesystem::path& coordinationFile) {
  CoordinationLock lock(openCoordinationFile(coordinationFile));
  if (!tryLock(lock.fd_, coordinationFile)) return std::nullopt;
  return lock;
}

std::optional<CoordinationLock> CoordinationLock::acquire(const std::filesystem::path& coordinationFile,
                                                          const std::atomic<bool>& cancelled) {
  using namespace std::chrono_literals;
  CoordinationLock lock(openCoordinationFile(coordinationFile));
  // Short first retries keep an uncontended hand-over quick; the cap bounds both the idle wake-ups
  // of a long wait and the delay before a cancellation is noticed.
  std::chrono::microseconds pause = 100us;
  while (!cancelled.load()) {
    if (tryLock(lock.fd_, coordinationFile)) return lock;
    std::this_thread::sleep_for(pause);
    pause = std::min<std::chrono::microseconds>(pause * 2, 10ms);
  }
  return std::nullopt;
}

CoordinationTimeoutError::CoordinationTimeoutError(const std::filesystem::path& coordinationFile, Clock::Duration limit)
    : std::runtime_error(fmt::format("gave up after {} ms waiting for the lock on {}: another writer holds it",
                                     std::chrono::duration_cast<std::chrono::milliseconds>(limit).count(),
                                     coordinationFile.string())) {}

namespace detail {

namespace {

// The request threads of one execution context, shared with the threads themselves so that a
// thread finishing after the context is gone touches nothing that is gone with it.
struct RequestRegistry {
  std::mutex mutex;
  std::condition_variable idle;
  std::unordered_set<std::shared_ptr<std::atomic<bool>>> waiting;
  bool closed = false;

  // False once the context shuts down: the request then starts already cancelled.
  void enter(const std::shared_ptr<std::atomic<bool>>& cancelled) {
    std::lock_guard guard(mutex);
    if (closed) cancelled->store(true);
    waiting.insert(cancelled);
  }

  void leave(const std::shared_ptr<std::atomic<bool>>& cancelled) {
    std::lock_guard guard(mutex);
    waiting.erase(cancelled);
    if (waiting.empty()) idle.notify_all();
  }

  void closeAndWait() {
    std::unique_lock guard(mutex);
    closed = true;
    for (const auto& cancelled : waiting) cancelled->store(true);
    idle.wait(guard, [this] { return waiting.empty(); });
  }
};

// Lives as long as the execution context; Asio shuts services down in the reverse order of
// their creation, so this one (created by the first write, after the context's scheduler and
// strands) waits for its threads while their resumptions can still be queued.
class RequestThreads : public asio::execution_context::service {
 public:
  using key_type = RequestThreads;
  static asio::execution_context::id id;

  explicit RequestThreads(asio::execution_context& context)
      : asio::execution_context::service(context), registry_(std::make_shared<RequestRegistry>()) {}

  const std::shared_ptr<RequestRegistry>& registry() const noexcept { return registry_; }

 private:
  void shutdown() override { registry_->closeAndWait(); }

  std::shared_ptr<RequestRegistry> registry_;
};

asio::execution_context::id RequestThreads::id;

}  // namespace

void startRequestThread(asio::execution_context& context, std::shared_ptr<std::atomic<bool>> cancelled,
                        std::function<void()> body) {
  std::shared_ptr<RequestRegistry> registry = asio::use_service<RequestThreads>(context).registry();
  registry->enter(cancelled);
  try {
    std::thread([registry, cancelled, body = std::move(body)] {
      body();
      registry->leave(cancelled);
    }).detach();
  } catch (...) {
    registry->leave(cancelled);
    throw;
  }
}

CoordinationLock lockForWrite(const std::filesystem::path& coordinationFile, const std::atomic<bool>& cancelled) {
  prepareCoordinationFile(coordinationFile);
  if (cancelled.load()) throw CancellationError();
  auto lock = CoordinationLock::acquire(coordinationFile, cancelled);
  if (!lock) throw CancellationError();
  return std::move(*lock);
}

void removeStaleTemporaryFilesOfValue(const std::filesystem::path& coordinationFile) noexcept {
  try {
    if (coordinationFile.extension() != ".coordination") return;
    std::filesystem::path valueFile = coordinationFile;
    valueFile.replace_extension();
    removeStaleTemporaryFiles(valueFile, std::filesystem::file_time_type::clock::now());
  } catch (const std::exception&) {
    // Cleaning up is a courtesy to the disk; it never fails the write.
  }
}

Task<std::shared_ptr<CoordinationLock>> lockForWriteWithin(std::filesystem::path coordinationFile,
                                                           CoordinatedWriteLimit limit) {
  using LockHandle = std::shared_ptr<CoordinationLock>;
  if (limit.clock == nullptr) throw std::invalid_argument("a lock wait limit needs a clock");
  // A lock granted after the deadline won reaches nobody: the coordinator drops that outcome,
  // and with it the last reference to the lock, which releases it.
  std::function<Task<LockHandle>()> wait = [coordinationFile] {
    std::function<LockHandle(const std::atomic<bool>&)> body = [coordinationFile](const std::atomic<bool>& cancelled) {
      return std::make_shared<CoordinationLock>(lockForWrite(coordinationFile, cancelled));
    };
    return onRequestThread<LockHandle>(std::move(body));
  };
  bool timedOut = false;
  try {
    co_return co_await withDeadline<LockHandle>(*limit.clock, limit.lockWait, wait);
  } catch (const AsyncDeadlineError&) {
    timedOut = true;
  }
  if (timedOut) throw CoordinationTimeoutError(coordinationFile, limit.lockWait);
  co_return nullptr;
}

}  // namespace detail

}  // namespace ombrine
