// The server module (see http_server_module.hpp): HttpServer over cpp-httplib. Built as a
// shared module of its own and loaded by the first `openHttpServer`; it exports one function.

#include <httplib.h>
#include <sys/socket.h>

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <string>

#include "platform/http_server.hpp"
#include "platform/linux/http_server_module.hpp"

namespace ombrine {

namespace {

HttpServerRequest requestOf(const httplib::Request& http) {
  HttpServerRequest request{
      .method = http.method,
      .target = http.target,
      .path = http.path,
      .query = {http.params.begin(), http.params.end()},
      .headers = {http.headers.begin(), http.headers.end()},
      .body = http.body,
  };
  return request;
}

void answer(HttpServerResponse response, httplib::Response& out) {
  out.status = response.status;
  for (const auto& [name, value] : response.headers) out.set_header(name, value);
  if (response.compressible || (response.body.empty() && !response.announcedLength)) {
    out.set_content(std::move(response.body), response.contentType);
    return;
  }
  // A sized provider: the library adds no compression of its own, and the announced length may
  // be longer than the body.
  auto body = std::make_shared<std::string>(std::move(response.body));
  const std::size_t announced = response.announcedLength.value_or(body->size());
  out.set_content_provider(announced, response.contentType,
                           [body](std::size_t offset, std::size_t length, httplib::DataSink& sink) {
                             if (offset >= body->size()) return false;
                             return sink.write(body->data() + offset, std::min(length, body->size() - offset));
                           });
}

class HttplibServer final : public HttpServer {
 public:
  HttplibServer(const HttpServerOptions& options, Handler handler, Written written) : handler_(std::move(handler)) {
    const std::size_t workers = std::max<std::size_t>(1, options.workers);
    server_.new_task_queue = [workers] { return new httplib::ThreadPool(workers); };
    server_.set_keep_alive_timeout(options.keepAlive.count());
    server_.set_keep_alive_max_count(options.keepAliveRequests);
    server_.set_payload_max_length(options.maxBody);
    server_.set_tcp_nodelay(options.noDelay);
    if (written) {
      server_.set_logger(
          [written = std::move(written)](const httplib::Request&, const httplib::Response&) { written(); });
    }
    // SO_REUSEADDR only: the library's default SO_REUSEPORT would let a second server share a
    // port that is already taken instead of failing.
    server_.set_socket_options([](socket_t sock) {
      int yes = 1;
      setsockopt(sock, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    });
    const auto serve = [this](const httplib::Request& request, httplib::Response& response) {
      HttpServerResponse answered;
      handler_(requestOf(request), answered);
      answer(std::move(answered), response);
    };
    // A request with no body to read is answered before routing: the library refuses a POST that
    // announces no length (400) before any route would see it.
    server_.set_pre_routing_handler([serve](const httplib::Request& request, httplib::Response& response) {
      const std::string length = request.get_header_value("Content-Length");
      if ((!length.empty() && length != "0") || request.has_header("Transfer-Encoding")) {
        return httplib::Server::HandlerResponse::Unhandled;
      }
      serve(request, response);
      return httplib::Server::HandlerResponse::Handled;
    });
    server_.Get(".*", serve);
    server_.Post(".*", serve);
    server_.Put(".*", serve);
    server_.Patch(".*", serve);
    server_.Delete(".*", serve);
    server_.Options(".*", serve);
    port_ = options.port == 0 ? server_.bind_to_any_port(options.address)
                              : (server_.bind_to_port(options.address, options.port) ? options.port : -1);
    if (port_ <= 0) {
      throw std::runtime_error("cannot listen on " + options.address + ":" + std::to_string(options.port) +
                               " (in use, or not an address of this machine)");
    }
  }

  ~HttplibServer() override { stop(); }

  int port() const override { return port_; }
  bool run() override { return server_.listen_after_bind(); }
  void stop() override { server_.stop(); }
  bool running() const override { return server_.is_running(); }

 private:
  Handler handler_;
  httplib::Server server_;
  int port_ = -1;
};

}  // namespace

}  // namespace ombrine

extern "C" ombrine::HttpServer* ombrine_open_http_server(const ombrine::HttpServerOptions& options,
                                                         ombrine::HttpServer::Handler handler,
                                                         ombrine::HttpServer::Written written) {
  return new ombrine::HttplibServer(options, std::move(handler), std::move(written));
}
