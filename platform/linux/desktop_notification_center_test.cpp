#include "platform/linux/desktop_notification_center.hpp"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>

#include "platform/linux/notification_spool.hpp"
#include "platform/testing/desktop_notification_server.hpp"
#include "platform/testing/fake_clock.hpp"
#include "platform/testing/scratch_folder.hpp"

namespace ombrine {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

NotificationRequest request(std::string identifier, std::chrono::milliseconds delay = 5s) {
  return NotificationRequest{identifier,
                             NotificationContent{"Severe Weather Alert", "Gale (FMI)\nFrom 9:00 AM", true, ""}, delay};
}

std::vector<std::string> identifiers(const std::vector<NotificationEntry>& entries) {
  std::vector<std::string> ids;
  for (const auto& entry : entries) ids.push_back(entry.identifier);
  return ids;
}

TEST(DesktopNotificationCenterTest, DesktopServerShowsDueRequestsAndClosesRemovedOnes) {
  const ScratchFolder folder("ombrine-notify");
  PrivateSessionBus bus(folder.path());
  ASSERT_TRUE(bus.running()) << "dbus-daemon is needed (scripts/setup installs it)";
  RecordingNotificationServer server(bus.address());
  ASSERT_TRUE(server.ready());
  FakeClock clock;
  DesktopNotificationCenter center(clock, folder.path() / "spool", DesktopNotifier(bus.address()));

  center.add(request("a:1"));
  center.add(request("b:2"));
  clock.advance(4s);
  center.deliverDueRequests();
  EXPECT_TRUE(server.shown().empty()) << "nothing is shown before its trigger date";
  center.removePendingNotificationRequests({"b:2"});
  clock.advance(1s);
  center.deliverDueRequests();

  const auto shown = server.shown();
  ASSERT_EQ(shown.size(), 1u);
  EXPECT_EQ(shown[0].appName, "Ombrine");
  EXPECT_EQ(shown[0].summary, "Severe Weather Alert");
  EXPECT_EQ(shown[0].body, "Gale (FMI)\nFrom 9:00 AM");
  EXPECT_TRUE(shown[0].withSound);
  const auto delivered = center.deliveredNotifications();
  ASSERT_EQ(identifiers(delivered), std::vector<std::string>{"a:1"});
  EXPECT_EQ(delivered[0].deliveredTo, "desktop");
  EXPECT_TRUE(center.pendingNotificationRequests().empty());

  center.removeDeliveredNotifications({"a:1", "unknown"});
  EXPECT_EQ(server.closed(), std::vector<std::uint32_t>{shown[0].id});
  EXPECT_TRUE(center.deliveredNotifications().empty());
}

TEST(DesktopNotificationCenterTest, WithoutServerDeliversToSpoolAndSaysSoOnce) {
  struct Case {
    const char* name;
    bool busWithoutServer;
  };
  for (const Case& c : {Case{"no session bus", false}, Case{"bus without notification server", true}}) {
    SCOPED_TRACE(c.name);
    const ScratchFolder folder("ombrine-notify");
    std::optional<PrivateSessionBus> bus;
    std::optional<std::string> address;
    if (c.busWithoutServer) {
      bus.emplace(folder.path());
      ASSERT_TRUE(bus->running());
      address = bus->address();
    }
    FakeClock clock;
    DesktopNotificationCenter center(clock, folder.path() / "spool", DesktopNotifier(address));
    testing::internal::CaptureStderr();
    center.add(request("x", 0ms));
    center.add(request("y", 0ms));
    const std::string err = testing::internal::GetCapturedStderr();
    EXPECT_NE(err.find("Desktop notifications are unavailable"), std::string::npos) << err;
    EXPECT_EQ(err.find("unavailable"), err.rfind("unavailable")) << "said once: " << err;
    const auto delivered = center.deliveredNotifications();
    EXPECT_EQ(identifiers(delivered), (std::vector<std::string>{"x", "y"}));
    for (const auto& entry : delivered) EXPECT_EQ(entry.deliveredTo, "spool");
  }
}

TEST(DesktopNotificationCenterTest, PendingRequestIsSharedThroughTheSpool) {
  const ScratchFolder folder("ombrine-notify");
  FakeClock clock;
  DesktopNotificationCenter adder(clock, folder.path(), DesktopNotifier(std::nullopt));
  DesktopNotificationCenter other(clock, folder.path(), DesktopNotifier(std::nullopt));
  testing::internal::CaptureStderr();
  adder.add(request("cancelled"));
  adder.add(request("kept"));
  EXPECT_EQ(identifiers(other.pendingNotificationRequests()), (std::vector<std::string>{"cancelled", "kept"}));
  EXPECT_EQ(other.nextTriggerDate(), clock.now() + 5s);
  other.removePendingNotificationRequests({"cancelled"});
  clock.advance(5s);
  // Whichever process touches the spool after the trigger date delivers.
  EXPECT_EQ(identifiers(other.deliveredNotifications()), std::vector<std::string>{"kept"});
  EXPECT_EQ(identifiers(adder.deliveredNotifications()), std::vector<std::string>{"kept"});
  // Adding again replaces the delivered one.
  adder.add(request("kept"));
  EXPECT_TRUE(adder.deliveredNotifications().empty());
  EXPECT_EQ(adder.clear(), 1u);
  EXPECT_TRUE(adder.pendingNotificationRequests().empty());
  testing::internal::GetCapturedStderr();
}

TEST(DesktopNotificationCenterTest, SessionBusAddressFromEnvironment) {
  const ScratchFolder folder("ombrine-notify");
  PrivateSessionBus bus(folder.path());
  ASSERT_TRUE(bus.running());
  const std::string withSocket = folder.path().string();
  const std::string withoutSocket = (folder.path() / "none").string();
  struct Case {
    const char* dbus;
    const char* runtime;
    std::optional<std::string> expected;
  };
  const Case cases[] = {
      {"unix:path=/x", withSocket.c_str(), "unix:path=/x"},               // the session's own wins
      {nullptr, withSocket.c_str(), "unix:path=" + withSocket + "/bus"},  // a systemd timer's case
      {"", withSocket.c_str(), "unix:path=" + withSocket + "/bus"},       // empty counts as missing
      {nullptr, withoutSocket.c_str(), std::nullopt},                     // no socket there
      {nullptr, nullptr, std::nullopt},
  };
  const char* savedBus = std::getenv("DBUS_SESSION_BUS_ADDRESS");
  const char* savedRuntime = std::getenv("XDG_RUNTIME_DIR");
  const std::string busCopy = savedBus ? savedBus : "", runtimeCopy = savedRuntime ? savedRuntime : "";
  for (const Case& c : cases) {
    c.dbus ? ::setenv("DBUS_SESSION_BUS_ADDRESS", c.dbus, 1) : ::unsetenv("DBUS_SESSION_BUS_ADDRESS");
    c.runtime ? ::setenv("XDG_RUNTIME_DIR", c.runtime, 1) : ::unsetenv("XDG_RUNTIME_DIR");
    EXPECT_EQ(sessionBusAddressFromEnvironment(), c.expected);
  }
  savedBus ? ::setenv("DBUS_SESSION_BUS_ADDRESS", busCopy.c_str(), 1) : ::unsetenv("DBUS_SESSION_BUS_ADDRESS");
  savedRuntime ? ::setenv("XDG_RUNTIME_DIR", runtimeCopy.c_str(), 1) : ::unsetenv("XDG_RUNTIME_DIR");
}

TEST(NotificationSpoolTest, EntriesAndNames) {
  SpoolEntry entry;
  entry.entry = {"weather-alert-notification-v2:abc",
                 {"T", "line\n\"quoted\"", false, ""},
                 std::chrono::system_clock::time_point(1700000000500ms),
                 "desktop"};
  entry.desktopId = 42;
  EXPECT_EQ(decodeSpoolEntry(encodeSpoolEntry(entry)), entry);

  const std::pair<const char*, const char*> bad[] = {
      {"[]", "not a JSON object"},
      {R"({"identifier":"","title":"","body":"","defaultSound":true,"triggerDate":0})", "identifier: empty"},
      {R"({"identifier":"a","title":"","body":"","defaultSound":1,"triggerDate":0})", "defaultSound"},
      {R"({"identifier":"a","title":"","body":"","defaultSound":true,"triggerDate":1e300})", "triggerDate"},
      {R"({"identifier":"a","title":"","body":"","defaultSound":true,"triggerDate":0,"desktopId":-1})", "desktopId"},
      {R"({"identifier":"a","title":"","body":"","defaultSound":true})", "triggerDate: missing"},
  };
  for (const auto& [text, message] : bad) {
    try {
      decodeSpoolEntry(text);
      ADD_FAILURE() << text;
    } catch (const SpoolDecodingError& error) {
      EXPECT_NE(std::string(error.what()).find(message), std::string::npos) << error.what();
    }
  }

  const std::pair<const char*, const char*> names[] = {
      {"weather-alert-notification-v2:0a1b", "weather-alert-notification-v2:0a1b.json"},
      {"../x", "%2E.%2Fx.json"},      // no way out of the folder
      {".hidden", "%2Ehidden.json"},  // never mistaken for a temporary file
      {"a b%", "a%20b%25.json"},
  };
  for (const auto& [identifier, name] : names) EXPECT_EQ(spoolFileName(identifier), name);
}

}  // namespace
}  // namespace ombrine
