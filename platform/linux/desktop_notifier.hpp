#pragma once
// One client call to the freedesktop notification server ("org.freedesktop.Notifications" on the
// session bus) through sd-bus.
//
// The session bus address is $DBUS_SESSION_BUS_ADDRESS, else "unix:path=$XDG_RUNTIME_DIR/bus"
// when that socket exists (a systemd user timer starts programs without the session
// environment). Each call opens its own connection and closes it, so a notifier is safe to use
// from any thread and in a forked child. Calls wait at most `timeout` for the server.

#include <chrono>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>

#include "platform/notification_center.hpp"

namespace ombrine {

// The notification could not be shown or closed: no bus, no server on it, or an error reply.
// `what()` says which, for the one line the caller logs.
class DesktopNotificationError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The session bus address the environment gives, as described above; nothing when neither
// variable leads to one.
std::optional<std::string> sessionBusAddressFromEnvironment();

class DesktopNotifier {
 public:
  // `busAddress`: the session bus to use; nothing means no bus (every call raises).
  explicit DesktopNotifier(std::optional<std::string> busAddress,
                           std::chrono::milliseconds timeout = std::chrono::seconds(2));

  // Shows `content` as a notification of the application "Ombrine" and returns the server's
  // identifier for it. Raises DesktopNotificationError.
  std::uint32_t notify(const NotificationContent& content);
  // Closes a notification shown earlier. Raises DesktopNotificationError.
  void close(std::uint32_t serverIdentifier);

  const std::optional<std::string>& busAddress() const { return busAddress_; }

 private:
  std::optional<std::string> busAddress_;
  std::chrono::milliseconds timeout_;
};

}  // namespace ombrine
