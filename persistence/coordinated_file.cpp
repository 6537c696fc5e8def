#include "persistence/coordinated_file.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>

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
  return Date::fromUnix(static_cast<double>(info.st_mtim.tv_sec) +
                        static_cast<double>(info.st_mtim.tv_nsec) / 1e9);
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

}  // namespace ombrine
