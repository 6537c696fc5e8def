#include "platform/atomic_file.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "platform/errors.hpp"

namespace ombrine {

namespace {

[[noreturn]] void fail(const char* what, const std::filesystem::path& path, int error) {
  throw FileError(std::string(what) + " " + path.string() + ": " + std::strerror(error));
}

// Owns a file descriptor so every exit path closes it.
class Fd {
 public:
  explicit Fd(int fd) : fd_(fd) {}
  Fd(const Fd&) = delete;
  Fd& operator=(const Fd&) = delete;
  ~Fd() {
    if (fd_ >= 0) ::close(fd_);
  }
  int get() const { return fd_; }
  int release() {
    int fd = fd_;
    fd_ = -1;
    return fd;
  }

 private:
  int fd_;
};

void writeAll(int fd, std::string_view bytes, const std::filesystem::path& path) {
  const char* data = bytes.data();
  size_t left = bytes.size();
  while (left > 0) {
    ssize_t n = ::write(fd, data, left);
    if (n < 0) {
      if (errno == EINTR) continue;
      fail("cannot write", path, errno);
    }
    data += n;
    left -= static_cast<size_t>(n);
  }
}

}  // namespace

void writeFileAtomically(const std::filesystem::path& path, std::string_view bytes, unsigned mode,
                         Durability durability) {
  const bool syncs = durability == Durability::powerLoss;
  std::filesystem::path folder = path.parent_path();
  if (folder.empty()) folder = ".";
  std::error_code ec;
  std::filesystem::create_directories(folder, ec);
  if (ec) fail("cannot create folder", folder, ec.value());

  std::string temp = (folder / ("." + path.filename().string() + ".XXXXXX")).string();
  Fd fd(::mkstemp(temp.data()));
  if (fd.get() < 0) fail("cannot create temporary file for", path, errno);
  try {
    // Marks the temporary file as in use, so that removeStaleTemporaryFiles in another process
    // never takes a slow writer's file for a dead one. A fresh file is locked by nobody else.
    if (::flock(fd.get(), LOCK_EX | LOCK_NB) != 0) fail("cannot lock temporary file for", path, errno);
    if (::fchmod(fd.get(), static_cast<mode_t>(mode)) != 0) fail("cannot set mode of", path, errno);
    writeAll(fd.get(), bytes, path);
    if (syncs && ::fsync(fd.get()) != 0) fail("cannot sync", path, errno);
    if (::close(fd.release()) != 0) fail("cannot close", path, errno);
    if (::rename(temp.c_str(), path.c_str()) != 0) fail("cannot replace", path, errno);
  } catch (...) {
    ::unlink(temp.c_str());
    throw;
  }
  if (!syncs) return;
  Fd dir(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (dir.get() < 0 || ::fsync(dir.get()) != 0) fail("cannot sync folder", folder, errno);
}

namespace {

constexpr std::size_t kTemporarySuffixLength = 6;  // mkstemp's "XXXXXX"

bool isTemporaryNameOf(const std::string& candidate, const std::string& target) {
  return candidate.size() == target.size() + 2 + kTemporarySuffixLength && candidate[0] == '.' &&
         candidate.compare(1, target.size(), target) == 0 && candidate[target.size() + 1] == '.';
}

// Removes the file when nobody holds its lock. A writer locks its temporary file right after
// creating it; the short unlocked moment in between is covered by the age test of the caller,
// since a file that young is never looked at.
bool removeIfUnheld(const std::filesystem::path& file) {
  Fd fd(::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
  if (fd.get() < 0) return false;
  if (::flock(fd.get(), LOCK_EX | LOCK_NB) != 0) return false;
  return ::unlink(file.c_str()) == 0;
}

}  // namespace

std::size_t removeStaleTemporaryFiles(const std::filesystem::path& path, std::filesystem::file_time_type now,
                                      std::chrono::seconds minimumAge) {
  std::filesystem::path folder = path.parent_path();
  if (folder.empty()) folder = ".";
  const std::string target = path.filename().string();
  std::size_t removed = 0;
  std::error_code ec;
  std::filesystem::directory_iterator entries(folder, ec);
  if (ec) return 0;
  for (auto entry = entries; entry != std::filesystem::directory_iterator(); entry.increment(ec)) {
    if (ec) break;
    if (!isTemporaryNameOf(entry->path().filename().string(), target)) continue;
    std::error_code timeError;
    const auto modified = std::filesystem::last_write_time(entry->path(), timeError);
    if (timeError || now - modified < minimumAge) continue;
    if (removeIfUnheld(entry->path())) ++removed;
  }
  return removed;
}

std::optional<std::string> readFileIfExists(const std::filesystem::path& path) {
  Fd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (fd.get() < 0) {
    if (errno == ENOENT) return std::nullopt;
    fail("cannot open", path, errno);
  }
  std::string content;
  char buffer[65536];
  for (;;) {
    ssize_t n = ::read(fd.get(), buffer, sizeof buffer);
    if (n < 0) {
      if (errno == EINTR) continue;
      fail("cannot read", path, errno);
    }
    if (n == 0) break;
    content.append(buffer, static_cast<size_t>(n));
  }
  return content;
}

}  // namespace ombrine
