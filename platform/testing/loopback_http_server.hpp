#pragma once
// An HTTP server for tests on 127.0.0.1 and a port the system picks, serving from a thread of
// its own: add routes to `server`, then `start`; `stop` (or the end of the object) ends it.
// Handlers run on the server's threads, so an owner whose handlers use its other members calls
// `stop` in its own destructor, before those members go. Header-only: the including target
// links cpp-httplib.

#include <httplib.h>

#include <boost/url/url.hpp>

#include <chrono>
#include <cstdint>
#include <string_view>
#include <thread>

namespace ombrine {

// http://127.0.0.1:<port><path>
inline boost::urls::url loopbackUrl(int port, std::string_view path) {
  boost::urls::url url;
  url.set_scheme("http");
  url.set_encoded_host("127.0.0.1");
  url.set_port_number(static_cast<std::uint16_t>(port));
  url.set_path(path);
  return url;
}

class LoopbackHttpServer {
 public:
  LoopbackHttpServer() = default;
  ~LoopbackHttpServer() { stop(); }
  LoopbackHttpServer(const LoopbackHttpServer&) = delete;
  LoopbackHttpServer& operator=(const LoopbackHttpServer&) = delete;

  // Binds and serves; returns once the server accepts connections.
  void start() {
    port_ = server.bind_to_any_port("127.0.0.1");
    thread_ = std::thread([this] { server.listen_after_bind(); });
    while (!server.is_running()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  void stop() {
    if (!thread_.joinable()) return;
    server.stop();
    thread_.join();
  }

  int port() const noexcept { return port_; }
  boost::urls::url url(std::string_view path) const { return loopbackUrl(port_, path); }

  httplib::Server server;

 private:
  int port_ = 0;
  std::thread thread_;
};

}  // namespace ombrine
