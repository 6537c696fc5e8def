#include "platform/testing/desktop_notification_server.hpp"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <chrono>
#include <string_view>

extern char** environ;

namespace ombrine {

using namespace std::chrono_literals;

PrivateSessionBus::PrivateSessionBus(const std::filesystem::path& folder) {
  const std::string socket = (folder / "bus").string();
  address_ = "unix:path=" + socket;
  const std::string addressArgument = "--address=" + address_;
  const char* argv[] = {"dbus-daemon", "--session", "--nofork", "--nopidfile", addressArgument.c_str(), nullptr};
  // Its complaints (no permission to raise the fd limit) are not the test's output.
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  if (::posix_spawnp(&pid_, "dbus-daemon", &actions, nullptr, const_cast<char* const*>(argv), environ) != 0) pid_ = -1;
  posix_spawn_file_actions_destroy(&actions);
  for (int i = 0; i < 200 && pid_ > 0 && !std::filesystem::exists(socket); ++i) std::this_thread::sleep_for(10ms);
}

PrivateSessionBus::~PrivateSessionBus() {
  if (pid_ <= 0) return;
  ::kill(pid_, SIGTERM);
  int status = 0;
  ::waitpid(pid_, &status, 0);
}

struct RecordingNotificationServer::Handlers {
  static int notify(sd_bus_message* message, void* self, sd_bus_error*) {
    auto& server = *static_cast<RecordingNotificationServer*>(self);
    const char *app = nullptr, *icon = nullptr, *summary = nullptr, *body = nullptr;
    std::uint32_t replaces = 0;
    sd_bus_message_read(message, "susss", &app, &replaces, &icon, &summary, &body);
    sd_bus_message_skip(message, "as");
    bool sound = false;
    sd_bus_message_enter_container(message, 'a', "{sv}");
    while (sd_bus_message_enter_container(message, 'e', "sv") > 0) {
      const char* key = nullptr;
      sd_bus_message_read(message, "s", &key);
      if (std::string_view(key) == "sound-name") sound = true;
      sd_bus_message_skip(message, "v");
      sd_bus_message_exit_container(message);
    }
    sd_bus_message_exit_container(message);
    std::lock_guard lock(server.mutex_);
    const auto id = static_cast<std::uint32_t>(server.shown_.size() + 1);
    server.shown_.push_back({app, summary, body, id, sound});
    return sd_bus_reply_method_return(message, "u", id);
  }
  static int closeNotification(sd_bus_message* message, void* self, sd_bus_error*) {
    auto& server = *static_cast<RecordingNotificationServer*>(self);
    std::uint32_t id = 0;
    sd_bus_message_read(message, "u", &id);
    std::lock_guard lock(server.mutex_);
    server.closed_.push_back(id);
    return sd_bus_reply_method_return(message, "");
  }
  static constexpr sd_bus_vtable kVtable[] = {
      SD_BUS_VTABLE_START(0), SD_BUS_METHOD("Notify", "susssasa{sv}i", "u", notify, SD_BUS_VTABLE_UNPRIVILEGED),
      SD_BUS_METHOD("CloseNotification", "u", "", closeNotification, SD_BUS_VTABLE_UNPRIVILEGED), SD_BUS_VTABLE_END};
};

RecordingNotificationServer::RecordingNotificationServer(const std::string& address) {
  sd_bus_new(&bus_);
  sd_bus_set_address(bus_, address.c_str());
  sd_bus_set_bus_client(bus_, 1);
  if (sd_bus_start(bus_) < 0) return;
  sd_bus_add_object_vtable(bus_, &slot_, "/org/freedesktop/Notifications", "org.freedesktop.Notifications",
                           Handlers::kVtable, this);
  if (sd_bus_request_name(bus_, "org.freedesktop.Notifications", 0) < 0) return;
  ready_ = true;
  thread_ = std::thread([this] {
    while (!stop_) {
      while (sd_bus_process(bus_, nullptr) > 0) {
      }
      sd_bus_wait(bus_, 20'000);
    }
  });
}

RecordingNotificationServer::~RecordingNotificationServer() {
  stop_ = true;
  if (thread_.joinable()) thread_.join();
  sd_bus_slot_unref(slot_);
  sd_bus_flush_close_unref(bus_);
}

std::vector<RecordingNotificationServer::Shown> RecordingNotificationServer::shown() {
  std::lock_guard lock(mutex_);
  return shown_;
}

std::vector<std::uint32_t> RecordingNotificationServer::closed() {
  std::lock_guard lock(mutex_);
  return closed_;
}

}  // namespace ombrine
