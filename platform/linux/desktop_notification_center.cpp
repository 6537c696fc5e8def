#include "platform/linux/desktop_notification_center.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <fmt/format.h>

#include "platform/atomic_file.hpp"
#include "platform/linux/notification_spool.hpp"
#include "platform/log.hpp"
#include "platform/paths.hpp"

namespace ombrine {

namespace fs = std::filesystem;

// The exclusive spool lock, held for one change of the spool.
class DesktopNotificationCenter::SpoolLock {
 public:
  explicit SpoolLock(const fs::path& folder) {
    std::error_code error;
    fs::create_directories(folder / "pending", error);
    if (!error) fs::create_directories(folder / "delivered", error);
    if (error) throw NotificationCenterError(fmt::format("{}: {}", folder.string(), error.message()));
    const fs::path file = folder / "spool.lock";
    fd_ = ::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd_ < 0) throw NotificationCenterError(fmt::format("{}: {}", file.string(), std::strerror(errno)));
    while (::flock(fd_, LOCK_EX) != 0) {
      if (errno == EINTR) continue;
      const int saved = errno;
      ::close(fd_);
      throw NotificationCenterError(fmt::format("{}: {}", file.string(), std::strerror(saved)));
    }
  }
  ~SpoolLock() {
    ::flock(fd_, LOCK_UN);
    ::close(fd_);
  }
  SpoolLock(const SpoolLock&) = delete;
  SpoolLock& operator=(const SpoolLock&) = delete;

 private:
  int fd_ = -1;
};

namespace {

std::optional<SpoolEntry> readEntry(const fs::path& file) {
  try {
    auto text = readFileIfExists(file);
    if (!text) return std::nullopt;
    return decodeSpoolEntry(*text);
  } catch (const std::exception& error) {
    logf("Notification spool entry {} is unreadable: {}", file.string(), error.what());
    return std::nullopt;
  }
}

std::vector<fs::path> entryFiles(const fs::path& folder) {
  std::vector<fs::path> files;
  std::error_code error;
  for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error)) {
    const fs::path& path = it->path();
    // Temporary files of an atomic write start with a dot.
    if (path.extension() == ".json" && path.filename().string().front() != '.') files.push_back(path);
  }
  std::sort(files.begin(), files.end());
  return files;
}

void removeFile(const fs::path& file) {
  std::error_code error;
  fs::remove(file, error);
  if (error) logf("Notification spool entry {} could not be removed: {}", file.string(), error.message());
}

}  // namespace

fs::path DesktopNotificationCenter::defaultSpoolFolder() { return applicationSupportDirectory() / "Notifications"; }

DesktopNotificationCenter::DesktopNotificationCenter(Clock& clock, fs::path spoolFolder, DesktopNotifier notifier)
    : clock_(clock), folder_(std::move(spoolFolder)), notifier_(std::move(notifier)) {}

void DesktopNotificationCenter::add(const NotificationRequest& request) {
  if (request.identifier.empty()) throw NotificationCenterError("a notification request needs an identifier");
  SpoolEntry spooled;
  spooled.entry.identifier = request.identifier;
  spooled.entry.content = request.content;
  // To the millisecond, as the spool keeps it.
  spooled.entry.triggerDate = std::chrono::time_point_cast<std::chrono::milliseconds>(clock_.now()) + request.delay;
  const std::string name = spoolFileName(request.identifier);
  {
    SpoolLock lock(folder_);
    try {
      writeFileAtomically(pendingFolder() / name, encodeSpoolEntry(spooled), 0600);
    } catch (const std::exception& error) {
      throw NotificationCenterError(error.what());
    }
    if (fs::exists(deliveredFolder() / name)) {
      closeOnDesktop(deliveredFolder() / name);
      removeFile(deliveredFolder() / name);
    }
    deliverDueLocked();
  }
}

void DesktopNotificationCenter::removePendingNotificationRequests(const std::set<std::string>& identifiers) {
  try {
    SpoolLock lock(folder_);
    deliverDueLocked();
    for (const auto& identifier : identifiers) {
      if (!identifier.empty()) removeFile(pendingFolder() / spoolFileName(identifier));
    }
  } catch (const std::exception& error) {
    logf("Pending notifications could not be removed: {}", error.what());
  }
}

void DesktopNotificationCenter::removeDeliveredNotifications(const std::set<std::string>& identifiers) {
  try {
    SpoolLock lock(folder_);
    deliverDueLocked();
    for (const auto& identifier : identifiers) {
      if (identifier.empty()) continue;
      const fs::path file = deliveredFolder() / spoolFileName(identifier);
      if (!fs::exists(file)) continue;
      closeOnDesktop(file);
      removeFile(file);
    }
  } catch (const std::exception& error) {
    logf("Delivered notifications could not be removed: {}", error.what());
  }
}

std::vector<NotificationEntry> DesktopNotificationCenter::pendingNotificationRequests() {
  SpoolLock lock(folder_);
  deliverDueLocked();
  return list(pendingFolder());
}

std::vector<NotificationEntry> DesktopNotificationCenter::deliveredNotifications() {
  SpoolLock lock(folder_);
  deliverDueLocked();
  return list(deliveredFolder());
}

void DesktopNotificationCenter::deliverDueRequests() {
  try {
    SpoolLock lock(folder_);
    deliverDueLocked();
  } catch (const std::exception& error) {
    logf("Due notifications could not be delivered: {}", error.what());
  }
}

std::optional<std::chrono::system_clock::time_point> DesktopNotificationCenter::nextTriggerDate() {
  std::optional<std::chrono::system_clock::time_point> next;
  try {
    for (const auto& entry : pendingNotificationRequests()) {
      if (!next || entry.triggerDate < *next) next = entry.triggerDate;
    }
  } catch (const std::exception& error) {
    logf("Pending notifications could not be read: {}", error.what());
  }
  return next;
}

std::size_t DesktopNotificationCenter::clear() {
  SpoolLock lock(folder_);
  std::size_t removed = 0;
  for (const auto& file : entryFiles(pendingFolder())) {
    removeFile(file);
    ++removed;
  }
  for (const auto& file : entryFiles(deliveredFolder())) {
    closeOnDesktop(file);
    removeFile(file);
    ++removed;
  }
  return removed;
}

void DesktopNotificationCenter::deliverDueLocked() {
  const auto now = clock_.now();
  for (const auto& file : entryFiles(pendingFolder())) {
    auto spooled = readEntry(file);
    if (!spooled || spooled->entry.triggerDate > now) continue;
    const fs::path delivered = deliveredFolder() / file.filename();
    // A process killed between the two steps below left both files: it was delivered then.
    if (fs::exists(delivered)) {
      removeFile(file);
      continue;
    }
    spooled->entry.deliveredTo = "spool";
    try {
      writeFileAtomically(delivered, encodeSpoolEntry(*spooled), 0600);
    } catch (const std::exception& error) {
      logf("Notification {} could not be delivered: {}", spooled->entry.identifier, error.what());
      continue;
    }
    removeFile(file);
    try {
      spooled->desktopId = notifier_.notify(spooled->entry.content);
      spooled->entry.deliveredTo = "desktop";
      writeFileAtomically(delivered, encodeSpoolEntry(*spooled), 0600);
    } catch (const DesktopNotificationError& error) {
      if (!toldUnavailable_.exchange(true)) {
        logf("Desktop notifications are unavailable ({}); notifications are delivered to {} only", error.what(),
             deliveredFolder().string());
      }
    } catch (const std::exception& error) {
      logf("Notification {} was shown but not recorded: {}", spooled->entry.identifier, error.what());
    }
  }
}

void DesktopNotificationCenter::closeOnDesktop(const fs::path& deliveredFile) {
  const auto spooled = readEntry(deliveredFile);
  if (!spooled || !spooled->desktopId) return;
  try {
    notifier_.close(*spooled->desktopId);
  } catch (const DesktopNotificationError&) {
    // Already dismissed by the user, or the server is gone: nothing left to close.
  }
}

std::vector<NotificationEntry> DesktopNotificationCenter::list(const fs::path& folder) {
  std::vector<NotificationEntry> entries;
  for (const auto& file : entryFiles(folder)) {
    if (auto spooled = readEntry(file)) entries.push_back(std::move(spooled->entry));
  }
  std::stable_sort(entries.begin(), entries.end(),
                   [](const auto& a, const auto& b) { return a.triggerDate < b.triggerDate; });
  return entries;
}

}  // namespace ombrine
