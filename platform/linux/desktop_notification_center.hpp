#pragma once
// NotificationCenter for Linux: a spool folder shared by the user's processes, and the desktop's
// freedesktop notification server for what is due.
//
// Layout of the spool folder (by default "Library/Application Support/Notifications" in the
// container): "pending/<name>.json" holds a request until its trigger date, "delivered/<name>.json"
// what was shown (platform/linux/notification_spool.hpp), and every change happens under an
// exclusive `flock` on "spool.lock", so a removal that wins the lock before the trigger date
// always keeps the request from being shown, in this process or any other.
//
// Delivery: a due request is first moved to "delivered/" and then shown through the
// notification server, so a process killed in between leaves it delivered to the spool, never
// shown twice. Without a session bus or a notification server it is delivered to the spool only,
// and the first such delivery of this object says so in one line on stderr.
//
// Thread-safe, and safe across processes; usable in a forked child (no connection is kept).

#include <atomic>
#include <filesystem>

#include "platform/clock.hpp"
#include "platform/linux/desktop_notifier.hpp"
#include "platform/notification_center.hpp"

namespace ombrine {

class DesktopNotificationCenter final : public NotificationCenter {
 public:
  // "<container>/Library/Application Support/Notifications".
  static std::filesystem::path defaultSpoolFolder();

  DesktopNotificationCenter(Clock& clock, std::filesystem::path spoolFolder, DesktopNotifier notifier);

  void add(const NotificationRequest& request) override;
  void removePendingNotificationRequests(const std::set<std::string>& identifiers) override;
  void removeDeliveredNotifications(const std::set<std::string>& identifiers) override;
  std::vector<NotificationEntry> pendingNotificationRequests() override;
  std::vector<NotificationEntry> deliveredNotifications() override;
  void deliverDueRequests() override;
  std::optional<std::chrono::system_clock::time_point> nextTriggerDate() override;

  // Empties the spool: pending requests are dropped, delivered notifications closed on the
  // desktop. Returns how many entries were removed. Raises NotificationCenterError.
  std::size_t clear();

  const std::filesystem::path& spoolFolder() const { return folder_; }
  std::filesystem::path pendingFolder() const { return folder_ / "pending"; }
  std::filesystem::path deliveredFolder() const { return folder_ / "delivered"; }

 private:
  class SpoolLock;

  // Caller holds the spool lock.
  void deliverDueLocked();
  void closeOnDesktop(const std::filesystem::path& deliveredFile);
  std::vector<NotificationEntry> list(const std::filesystem::path& folder);

  Clock& clock_;
  std::filesystem::path folder_;
  DesktopNotifier notifier_;
  std::atomic<bool> toldUnavailable_{false};
};

}  // namespace ombrine
