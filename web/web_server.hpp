#pragma once
// The local web server of `ombrine serve`: the page's files from one folder and the JSON API
// (web/api.hpp), over HTTP/1.1 on one address.
//
// Every request first passes the guard (web/request_guard.hpp): a foreign Host or Origin is
// refused with 403, and beyond loopback the API asks for the token. Only GET and HEAD are
// answered. Nothing else is served: the page's files are listed once at start (regular files
// whose names do not start with a dot), and a path outside that list and the API is 404.
//
// `run` blocks the calling thread and serves on the server's own threads until `stop` (from
// any thread). Raises std::runtime_error when the address cannot be bound.

#include <atomic>
#include <filesystem>
#include <map>
#include <memory>
#include <string>

#include "platform/http_server.hpp"
#include "web/api.hpp"
#include "web/request_guard.hpp"

namespace ombrine::web {

struct WebServerOptions {
  std::string bindAddress = "127.0.0.1";
  int port = 8765;  // 0: any free port
  // Needed beyond loopback; empty there: made at random.
  std::string token;
  std::filesystem::path pageFolder;  // resources/web
};

class WebServer {
 public:
  WebServer(Services& services, WebServerOptions options);
  ~WebServer();
  WebServer(const WebServer&) = delete;
  WebServer& operator=(const WebServer&) = delete;

  // Binds the address; the port is known afterwards.
  void bind();
  int port() const noexcept { return port_; }
  // The token requests must carry (empty on loopback).
  const std::string& token() const noexcept { return policy_.token; }
  // The address to open: "http://127.0.0.1:8765/" (with "?token=..." when one is needed).
  std::string pageAddress() const;

  void run();
  void stop();

 private:
  void answer(const HttpServerRequest& request, HttpServerResponse& response);

  WebServerOptions options_;
  Api api_;
  GuardPolicy policy_;
  std::map<std::string, std::filesystem::path, std::less<>> files_;  // URL path -> file
  std::unique_ptr<HttpServer> server_;
  int port_ = 0;
};

// A random token of 32 hexadecimal digits from the system's random source.
std::string makeAccessToken();

}  // namespace ombrine::web
