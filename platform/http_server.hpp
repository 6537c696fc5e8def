#pragma once
// A small HTTP/1.1 server for the simulator and the local web page.
//
// The server listens on one address from `openHttpServer` until `stop` or destruction and
// answers every request with the one handler, called on one of the server's worker threads
// (several at once: the handler must be thread-safe). HEAD is answered like GET without the body.
//
// The implementation lives in a module of its own (platform/linux/http_server_module.hpp), loaded
// by the first `openHttpServer`: the HTTP library and the TLS and compression libraries it
// brings are loaded only by the commands that serve.

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace ombrine {

struct HttpServerRequest {
  std::string method;                                        // "GET", "HEAD", "POST", ...
  std::string target;                                        // path and query as sent
  std::string path;                                          // the path, percent-decoded
  std::vector<std::pair<std::string, std::string>> query;    // decoded items, ordered by name
  std::vector<std::pair<std::string, std::string>> headers;  // as sent
  std::string body;

  // The first header `name` (case-insensitive), or nothing.
  std::optional<std::string> header(std::string_view name) const;
  // The first query item `name`, or nothing.
  std::optional<std::string> queryItem(std::string_view name) const;
};

struct HttpServerResponse {
  int status = 200;
  std::vector<std::pair<std::string, std::string>> headers;
  std::string contentType = "text/plain";
  std::string body;
  // The length announced in Content-Length when it is not the body's: with a longer one the
  // connection closes after the body, so the client sees a truncated answer.
  std::optional<std::size_t> announcedLength;
  // Whether the server may compress the body as the client's Accept-Encoding allows. Off, the
  // body goes out byte for byte (a handler that compresses sets Content-Encoding itself).
  bool compressible = false;
};

struct HttpServerOptions {
  std::string address = "127.0.0.1";
  int port = 0;  // 0: any free port
  std::size_t workers = 8;
  std::chrono::seconds keepAlive{5};
  std::size_t keepAliveRequests = 100;  // per connection
  std::size_t maxBody = 64 * 1024 * 1024;
  // Reply segments go out at once instead of waiting for the client's delayed ACK.
  bool noDelay = true;
};

class HttpServer {
 public:
  using Handler = std::function<void(const HttpServerRequest&, HttpServerResponse&)>;
  // Called on the worker thread once an answer has been written (or the connection dropped).
  using Written = std::function<void()>;

  virtual ~HttpServer() = default;
  // The bound port.
  virtual int port() const = 0;
  // Serves on the worker threads until `stop`; blocks the calling thread. Returns false when
  // listening failed.
  virtual bool run() = 0;
  // Stops listening and waits for the answers being written. Idempotent; any thread but a
  // handler's.
  virtual void stop() = 0;
  // Whether `run` is accepting connections.
  virtual bool running() const = 0;
};

// A server bound to options.address:options.port. Raises std::runtime_error when the address
// cannot be bound or the server module cannot be loaded.
std::unique_ptr<HttpServer> openHttpServer(const HttpServerOptions& options, HttpServer::Handler handler,
                                           HttpServer::Written written = {});

}  // namespace ombrine
