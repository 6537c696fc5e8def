#include "platform/linux/file_cloud_key_value_store.hpp"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

#include "platform/atomic_file.hpp"
#include "platform/errors.hpp"
#include "platform/linux/file_key_value_store_support.hpp"
#include "platform/log.hpp"
#include "platform/paths.hpp"

namespace ombrine {

namespace {

[[noreturn]] void fail(const char* what, const std::filesystem::path& path, int error) {
  throw FileError(std::string(what) + " " + path.string() + ": " + std::strerror(error));
}

}  // namespace

std::filesystem::path FileCloudKeyValueStore::defaultSyncDirectory() {
  if (const char* dir = std::getenv("OMBRINE_SYNC_DIR"); dir && *dir == '/') return dir;
  return containerDirectory() / "Library" / "Synced Preferences";
}

FileCloudKeyValueStore::FileCloudKeyValueStore(std::filesystem::path syncDirectory, bool watchForChanges,
                                               Unreadable unreadable)
    : file_(syncDirectory / kFileName) {
  std::error_code ec;
  std::filesystem::create_directories(syncDirectory, ec);
  if (ec) fail("cannot create folder", syncDirectory, ec.value());
  if (watchForChanges) {
    inotify_ = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (inotify_ < 0) fail("cannot watch", syncDirectory, errno);
    // A rename over the file (atomic replacement) arrives as IN_MOVED_TO, an in-place rewrite as
    // IN_CLOSE_WRITE, a removal as IN_DELETE or IN_MOVED_FROM.
    const uint32_t events = IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE | IN_CREATE;
    if (::inotify_add_watch(inotify_, syncDirectory.c_str(), events) < 0) {
      const int error = errno;
      ::close(inotify_);
      fail("cannot watch", syncDirectory, error);
    }
    wake_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (wake_ < 0) {
      const int error = errno;
      ::close(inotify_);
      fail("cannot watch", syncDirectory, error);
    }
  }
  try {
    load(unreadable == Unreadable::raised);
  } catch (...) {
    if (inotify_ >= 0) ::close(inotify_);
    if (wake_ >= 0) ::close(wake_);
    throw;
  }
  if (watchForChanges) watcher_ = std::thread([this] { watch(); });
}

FileCloudKeyValueStore::~FileCloudKeyValueStore() {
  if (watcher_.joinable()) {
    const uint64_t one = 1;
    [[maybe_unused]] ssize_t n = ::write(wake_, &one, sizeof one);
    watcher_.join();
  }
  if (inotify_ >= 0) ::close(inotify_);
  if (wake_ >= 0) ::close(wake_);
}

StoreDictionary FileCloudKeyValueStore::exchange(const Merge& merge) {
  const detail::DictionaryFileLock lock(file_);
  detail::DictionaryFile read = detail::readDictionaryFile(file_, true);
  const StoreDictionary* remote = read.values ? &*read.values : nullptr;
  std::optional<StoreDictionary> merged = merge(remote);
  if (merged) {
    detail::writeDictionaryFile(file_, *merged);
    return std::move(*merged);
  }
  // Reads clean up too (writes do in writeDictionaryFile): a killed writer's temporary goes at the
  // next exchange after it is a minute old, whatever that exchange is for.
  removeStaleTemporaryFiles(file_, std::filesystem::file_time_type::clock::now());
  return std::move(read.values).value_or(StoreDictionary{});
}

void FileCloudKeyValueStore::watch() {
  alignas(inotify_event) char buffer[8192];
  const std::string name(kFileName);
  for (;;) {
    pollfd fds[2] = {{inotify_, POLLIN, 0}, {wake_, POLLIN, 0}};
    if (::poll(fds, 2, -1) < 0) {
      if (errno == EINTR) continue;
      logf("Cloud key-value store watcher stopped: {}", std::strerror(errno));
      return;
    }
    if (fds[1].revents != 0) return;
    bool ours = false;
    for (;;) {
      const ssize_t n = ::read(inotify_, buffer, sizeof buffer);
      if (n <= 0) break;
      for (ssize_t offset = 0; offset < n;) {
        const auto* event = reinterpret_cast<const inotify_event*>(buffer + offset);
        if (event->len > 0 && name == event->name) ours = true;
        if (event->mask & IN_Q_OVERFLOW) ours = true;
        offset += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
      }
    }
    if (ours) refresh();
  }
}

}  // namespace ombrine
