#pragma once
// A real desktop notification setup for tests: a private session bus (dbus-daemon on a socket in
// a folder of the test) and a notification server on it that records what it is asked.
//
// PrivateSessionBus starts `dbus-daemon --session` (Debian package dbus-daemon) and kills it on
// destruction; `running()` is false when it could not be started. RecordingNotificationServer
// owns "org.freedesktop.Notifications" on that bus and answers Notify (ids 1, 2, ...) and
// CloseNotification on a thread of its own until destroyed. Start threads of your own (and
// this server) only after forking any ForkedChild. Thread-safe readers.

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

struct sd_bus;
struct sd_bus_slot;

namespace ombrine {

class PrivateSessionBus {
 public:
  explicit PrivateSessionBus(const std::filesystem::path& folder);
  ~PrivateSessionBus();
  PrivateSessionBus(const PrivateSessionBus&) = delete;
  PrivateSessionBus& operator=(const PrivateSessionBus&) = delete;
  bool running() const { return pid_ > 0; }
  // "unix:path=<folder>/bus".
  const std::string& address() const { return address_; }

 private:
  pid_t pid_ = -1;
  std::string address_;
};

class RecordingNotificationServer {
 public:
  struct Shown {
    std::string appName, summary, body;
    std::uint32_t id;
    bool withSound;
  };

  explicit RecordingNotificationServer(const std::string& address);
  ~RecordingNotificationServer();
  RecordingNotificationServer(const RecordingNotificationServer&) = delete;
  RecordingNotificationServer& operator=(const RecordingNotificationServer&) = delete;
  // True once the server owns its name on the bus.
  bool ready() const { return ready_; }
  std::vector<Shown> shown();
  std::vector<std::uint32_t> closed();

 private:
  struct Handlers;

  sd_bus* bus_ = nullptr;
  sd_bus_slot* slot_ = nullptr;
  std::thread thread_;
  std::atomic<bool> stop_{false};
  bool ready_ = false;
  std::mutex mutex_;
  std::vector<Shown> shown_;
  std::vector<std::uint32_t> closed_;
};

}  // namespace ombrine
