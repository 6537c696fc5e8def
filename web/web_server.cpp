#include "web/web_server.hpp"

#include <httplib.h>

#include <fmt/format.h>

#include <fstream>
#include <random>
#include <stdexcept>

#include "platform/log.hpp"

namespace ombrine::web {

namespace {

std::string_view contentTypeOf(const std::filesystem::path& file) {
  static const std::map<std::string, std::string_view, std::less<>> types = {
      {".html", "text/html; charset=utf-8"},  {".js", "text/javascript; charset=utf-8"},
      {".css", "text/css; charset=utf-8"},    {".png", "image/png"},
      {".svg", "image/svg+xml"},              {".json", "application/json"},
      {".txt", "text/plain; charset=utf-8"},  {".ico", "image/x-icon"}};
  const auto found = types.find(file.extension().string());
  return found == types.end() ? "application/octet-stream" : found->second;
}

std::map<std::string, std::filesystem::path, std::less<>> listPage(const std::filesystem::path& folder) {
  std::map<std::string, std::filesystem::path, std::less<>> files;
  std::error_code error;
  for (auto it = std::filesystem::recursive_directory_iterator(folder, error);
       !error && it != std::filesystem::recursive_directory_iterator(); it.increment(error)) {
    const auto relative = std::filesystem::relative(it->path(), folder);
    if (relative.string().starts_with(".") || relative.filename().string().starts_with(".")) {
      if (it->is_directory()) it.disable_recursion_pending();
      continue;
    }
    if (it->is_regular_file()) files.emplace("/" + relative.generic_string(), it->path());
  }
  if (auto index = files.find("/index.html"); index != files.end()) files.emplace("/", index->second);
  return files;
}

std::string readFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

void securityHeaders(httplib::Response& response) {
  response.set_header("X-Content-Type-Options", "nosniff");
  response.set_header("X-Frame-Options", "DENY");
  response.set_header("Referrer-Policy", "no-referrer");
  response.set_header("Cross-Origin-Resource-Policy", "same-origin");
  response.set_header("Content-Security-Policy",
                      "default-src 'self'; img-src 'self' data:; style-src 'self' 'unsafe-inline'; "
                      "connect-src 'self'; frame-ancestors 'none'; base-uri 'none'; form-action 'none'");
}

void answerError(httplib::Response& response, int status, std::string_view message) {
  std::string body = R"({"error":)";
  body += '"';
  for (char c : message) {
    if (c == '"' || c == '\\') body += '\\';
    if (static_cast<unsigned char>(c) >= 0x20) body += c;
  }
  body += "\"}";
  response.status = status;
  response.set_content(body, "application/json");
}

std::optional<std::string> headerOf(const httplib::Request& request, const char* name) {
  if (!request.has_header(name)) return std::nullopt;
  return request.get_header_value(name);
}

}  // namespace

std::string makeAccessToken() {
  std::random_device random;
  return fmt::format("{:08x}{:08x}{:08x}{:08x}", random(), random(), random(), random());
}

WebServer::WebServer(Services& services, WebServerOptions options)
    : options_(std::move(options)), api_(services), files_(listPage(options_.pageFolder)) {
  if (files_.find("/") == files_.end()) {
    throw std::runtime_error("the page is missing: no index.html in " + options_.pageFolder.string());
  }
}

WebServer::~WebServer() = default;

void WebServer::bind() {
  server_ = std::make_unique<httplib::Server>();
  port_ = options_.port == 0 ? server_->bind_to_any_port(options_.bindAddress)
                             : (server_->bind_to_port(options_.bindAddress, options_.port) ? options_.port : -1);
  if (port_ <= 0) {
    throw std::runtime_error(fmt::format("cannot listen on {}:{} (in use, or not an address of this machine)",
                                         options_.bindAddress, options_.port));
  }
  std::string token = options_.token;
  if (!isLoopbackAddress(options_.bindAddress) && token.empty()) token = makeAccessToken();
  if (isLoopbackAddress(options_.bindAddress)) token.clear();
  policy_ = guardPolicyFor(options_.bindAddress, port_, token);
  install();
}

std::string WebServer::pageAddress() const {
  const std::string host = options_.bindAddress == "0.0.0.0" || options_.bindAddress == "::" ? "127.0.0.1"
                           : options_.bindAddress.find(':') != std::string::npos ? "[" + options_.bindAddress + "]"
                                                                                  : options_.bindAddress;
  return fmt::format("http://{}:{}/{}", host, port_, policy_.token.empty() ? "" : "?token=" + policy_.token);
}

void WebServer::install() {
  server_->set_keep_alive_max_count(1000);
  server_->set_payload_max_length(64 * 1024);
  server_->set_pre_routing_handler([this](const httplib::Request& request, httplib::Response& response) {
    securityHeaders(response);
    const bool api = Api::serves(request.path);
    std::optional<std::string> token = headerOf(request, "X-Ombrine-Token");
    if (!token && request.has_param("token")) token = request.get_param_value("token");
    // The page's own files hold no data: they load without the token, so that the page can
    // then send it with every API request.
    if (!api) token = policy_.token;
    const auto host = headerOf(request, "Host");
    const auto origin = headerOf(request, "Origin");
    const GuardVerdict verdict = checkRequest(policy_, host, origin, token);
    if (verdict.status != 200) {
      answerError(response, verdict.status, verdict.message);
      return httplib::Server::HandlerResponse::Handled;
    }
    if (request.method != "GET" && request.method != "HEAD") {
      answerError(response, 405, "only GET is answered");
      return httplib::Server::HandlerResponse::Handled;
    }
    return httplib::Server::HandlerResponse::Unhandled;
  });
  server_->Get(".*", [this](const httplib::Request& request, httplib::Response& response) {
    if (Api::serves(request.path)) {
      QueryParameters query;
      for (const auto& [name, value] : request.params) {
        if (name != "token") query.emplace(name, value);
      }
      const ApiAnswer answer = api_.handle(request.path, query);
      response.status = answer.status;
      response.set_header("Cache-Control",
                          answer.maxAgeSeconds > 0 ? fmt::format("private, max-age={}", answer.maxAgeSeconds) : "no-store");
      response.set_content(answer.body, answer.contentType.c_str());
      return;
    }
    const auto file = files_.find(request.path);
    if (file == files_.end()) {
      answerError(response, 404, "no such address: " + request.path);
      return;
    }
    response.set_header("Cache-Control", "no-cache");
    response.set_content(readFile(file->second), std::string(contentTypeOf(file->second)).c_str());
  });
}

void WebServer::run() {
  if (!server_) bind();
  if (!server_->listen_after_bind()) throw std::runtime_error("the server stopped listening");
}

void WebServer::stop() {
  if (server_) server_->stop();
}

}  // namespace ombrine::web
