#pragma once
// Local notifications the user sees on the desktop: requests that fire after a delay, kept
// cancellable by identifier until they fire, and delivered notifications removable by
// identifier.
//
// The Linux implementation (platform/linux/desktop_notification_center.hpp) keeps pending
// requests in a spool folder shared by every process of the user, so a request added by one
// process can be removed by another until its trigger time, and is shown by whichever process
// is alive then.
//
// Context: every member may be called from any thread, and from several processes at once.
// Members block the calling thread for file work and, when a notification is shown or closed,
// one bounded call to the desktop's notification server; none holds a lock across a callback.

#include <chrono>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

namespace ombrine {

struct NotificationContent {
  std::string title;
  std::string body;
  // Play the desktop's default sound when shown.
  bool defaultSound = true;
  // A second line under the title; empty when there is none.
  std::string subtitle;
  bool operator==(const NotificationContent&) const = default;
};

// A request whose trigger is a time interval from the moment it is added, not repeating.
struct NotificationRequest {
  std::string identifier;
  NotificationContent content;
  std::chrono::milliseconds delay{0};
  bool operator==(const NotificationRequest&) const = default;
};

// A request as the center holds it: before its trigger time (pending) or after (delivered).
struct NotificationEntry {
  std::string identifier;
  NotificationContent content;
  std::chrono::system_clock::time_point triggerDate;
  // Delivered only: where it went ("desktop" when the notification server showed it, "spool"
  // when there was none).
  std::string deliveredTo;
  bool operator==(const NotificationEntry&) const = default;
};

// Raised by `add` when the request cannot be kept (the spool cannot be written, or the identifier
// is empty). The request is then not pending.
class NotificationCenterError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class NotificationCenter {
 public:
  virtual ~NotificationCenter() = default;

  // Keeps `request` pending until `delay` has passed, replacing a pending or delivered one with
  // the same identifier. Durable when it returns. Raises NotificationCenterError.
  virtual void add(const NotificationRequest& request) = 0;
  // Removes the pending requests with these identifiers; unknown ones are ignored. Never raises
  // (a failure is logged): a request that could not be removed may still fire.
  virtual void removePendingNotificationRequests(const std::set<std::string>& identifiers) = 0;
  // Removes (closes on the desktop) the delivered notifications with these identifiers; unknown
  // ones are ignored. Never raises (a failure is logged).
  virtual void removeDeliveredNotifications(const std::set<std::string>& identifiers) = 0;
  // What is pending and what was delivered, each sorted by trigger date. Raises
  // NotificationCenterError when the spool cannot be read.
  virtual std::vector<NotificationEntry> pendingNotificationRequests() = 0;
  virtual std::vector<NotificationEntry> deliveredNotifications() = 0;

  // Shows every pending request whose trigger date has come. Every member above does this
  // first, so any live process that touches the center delivers what is due; a process that
  // must see its own request delivered calls this at `nextTriggerDate()`. Never raises.
  virtual void deliverDueRequests() = 0;
  // The earliest trigger date of a pending request, or nothing.
  virtual std::optional<std::chrono::system_clock::time_point> nextTriggerDate() = 0;
};

}  // namespace ombrine
