#include "platform/linux/desktop_notifier.hpp"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <stdexcept>

#include <fmt/format.h>

#include "platform/linux/sd_bus_library.hpp"

namespace ombrine {

namespace {

constexpr const char* kService = "org.freedesktop.Notifications";
constexpr const char* kPath = "/org/freedesktop/Notifications";
constexpr const char* kInterface = "org.freedesktop.Notifications";

struct BusCloser {
  void operator()(sd_bus* bus) const { sdBusLibrary().flush_close_unref(bus); }
};
struct MessageUnref {
  void operator()(sd_bus_message* message) const { sdBusLibrary().message_unref(message); }
};
using BusPointer = std::unique_ptr<sd_bus, BusCloser>;
using MessagePointer = std::unique_ptr<sd_bus_message, MessageUnref>;

[[noreturn]] void fail(std::string_view what, int negativeErrno) {
  throw DesktopNotificationError(fmt::format("{}: {}", what, std::strerror(-negativeErrno)));
}

// The library, or the notifier's failure when it cannot be loaded (the center then spools).
const SdBusLibrary& library() {
  try {
    return sdBusLibrary();
  } catch (const std::runtime_error& error) {
    throw DesktopNotificationError(error.what());
  }
}

BusPointer connect(const std::optional<std::string>& address) {
  if (!address) throw DesktopNotificationError("no session bus");
  const SdBusLibrary& sd = library();
  sd_bus* raw = nullptr;
  int result = sd.bus_new(&raw);
  if (result < 0) fail("cannot create a bus connection", result);
  BusPointer bus(raw);
  if ((result = sd.set_address(raw, address->c_str())) < 0) fail("bad session bus address", result);
  if ((result = sd.set_bus_client(raw, 1)) < 0) fail("cannot set up the bus connection", result);
  if ((result = sd.start(raw)) < 0) fail("cannot connect to the session bus", result);
  return bus;
}

// Sends `message` and waits for the reply; an error reply raises with the server's words.
MessagePointer call(sd_bus* bus, sd_bus_message* message, std::chrono::milliseconds timeout) {
  const SdBusLibrary& sd = library();
  sd_bus_error error{};
  sd_bus_message* reply = nullptr;
  const auto usec = static_cast<std::uint64_t>(timeout.count()) * 1000u;
  const int result = sd.call(bus, message, usec, &error, &reply);
  if (result < 0) {
    const std::string text = error.message ? fmt::format("{} ({})", error.message, error.name ? error.name : "")
                                           : std::string(std::strerror(-result));
    sd.error_free(&error);
    throw DesktopNotificationError("the notification server did not answer: " + text);
  }
  return MessagePointer(reply);
}

}  // namespace

std::optional<std::string> sessionBusAddressFromEnvironment() {
  if (const char* address = std::getenv("DBUS_SESSION_BUS_ADDRESS"); address && *address) return std::string(address);
  const char* runtime = std::getenv("XDG_RUNTIME_DIR");
  if (!runtime || !*runtime) return std::nullopt;
  const std::filesystem::path socket = std::filesystem::path(runtime) / "bus";
  std::error_code error;
  if (!std::filesystem::is_socket(socket, error)) return std::nullopt;
  return "unix:path=" + socket.string();
}

DesktopNotifier::DesktopNotifier(std::optional<std::string> busAddress, std::chrono::milliseconds timeout)
    : busAddress_(std::move(busAddress)), timeout_(timeout) {}

std::uint32_t DesktopNotifier::notify(const NotificationContent& content) {
  BusPointer bus = connect(busAddress_);
  const SdBusLibrary& sd = library();
  sd_bus_message* raw = nullptr;
  int result = sd.message_new_method_call(bus.get(), &raw, kService, kPath, kInterface, "Notify");
  if (result < 0) fail("cannot build the notification", result);
  MessagePointer message(raw);
  // The notification protocol has no subtitle: it leads the body.
  const std::string body = content.subtitle.empty() ? content.body : content.subtitle + "\n" + content.body;
  // app_name, replaces_id, app_icon, summary, body, actions
  result =
      sd.message_append(raw, "susssas", "Ombrine", 0u, "weather-severe-alert", content.title.c_str(), body.c_str(), 0);
  if (result >= 0) result = sd.message_open_container(raw, 'a', "{sv}");
  if (result >= 0) result = sd.message_append(raw, "{sv}", "urgency", "y", static_cast<std::uint8_t>(1));
  if (result >= 0 && content.defaultSound) {
    result = sd.message_append(raw, "{sv}", "sound-name", "s", "message-new-instant");
  }
  if (result >= 0) result = sd.message_close_container(raw);
  // -1: the server's default expiry.
  if (result >= 0) result = sd.message_append(raw, "i", -1);
  if (result < 0) fail("cannot build the notification", result);
  MessagePointer reply = call(bus.get(), raw, timeout_);
  std::uint32_t identifier = 0;
  if ((result = sd.message_read(reply.get(), "u", &identifier)) < 0) fail("unexpected answer to Notify", result);
  return identifier;
}

void DesktopNotifier::close(std::uint32_t serverIdentifier) {
  BusPointer bus = connect(busAddress_);
  const SdBusLibrary& sd = library();
  sd_bus_message* raw = nullptr;
  int result = sd.message_new_method_call(bus.get(), &raw, kService, kPath, kInterface, "CloseNotification");
  if (result < 0) fail("cannot build the request", result);
  MessagePointer message(raw);
  if ((result = sd.message_append(raw, "u", serverIdentifier)) < 0) fail("cannot build the request", result);
  call(bus.get(), raw, timeout_);
}

}  // namespace ombrine
