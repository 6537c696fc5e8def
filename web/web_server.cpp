#include "web/web_server.hpp"

#include <fmt/format.h>

#include <fstream>
#include <random>
#include <stdexcept>

#include "platform/log.hpp"

namespace ombrine::web {

namespace {

std::string_view contentTypeOf(const std::filesystem::path& file) {
  static const std::map<std::string, std::string_view, std::less<>> types = {{".html", "text/html; charset=utf-8"},
                                                                             {".js", "text/javascript; charset=utf-8"},
                                                                             {".css", "text/css; charset=utf-8"},
                                                                             {".png", "image/png"},
                                                                             {".svg", "image/svg+xml"},
                                                                             {".json", "application/json"},
                                                                             {".txt", "text/plain; charset=utf-8"},
                                                                             {".ico", "image/x-icon"}};
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

void securityHeaders(HttpServerResponse& response) {
  response.headers.emplace_back("X-Content-Type-Options", "nosniff");
  response.headers.emplace_back("X-Frame-Options", "DENY");
  response.headers.emplace_back("Referrer-Policy", "no-referrer");
  response.headers.emplace_back("Cross-Origin-Resource-Policy", "same-origin");
  response.headers.emplace_back("Content-Security-Policy",
                                "default-src 'self'; img-src 'self' data:; style-src 'self' 'unsafe-inline'; "
                                "connect-src 'self'; frame-ancestors 'none'; base-uri 'none'; form-action 'none'");
}

// Every answer may be compressed as the browser asks.
void setContent(HttpServerResponse& response, std::string body, std::string contentType) {
  response.body = std::move(body);
  response.contentType = std::move(contentType);
  response.compressible = true;
}

void answerError(HttpServerResponse& response, int status, std::string_view message) {
  std::string body = R"({"error":)";
  body += '"';
  for (char c : message) {
    if (c == '"' || c == '\\') body += '\\';
    if (static_cast<unsigned char>(c) >= 0x20) body += c;
  }
  body += "\"}";
  response.status = status;
  setContent(response, std::move(body), "application/json");
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
  HttpServerOptions serving;
  serving.address = options_.bindAddress;
  serving.port = options_.port;
  serving.keepAliveRequests = 1000;
  serving.maxBody = 64 * 1024;
  HttpServer::Handler handler = [this](const HttpServerRequest& request, HttpServerResponse& response) {
    answer(request, response);
  };
  server_ = openHttpServer(serving, std::move(handler));
  port_ = server_->port();
  std::string token = options_.token;
  if (!isLoopbackAddress(options_.bindAddress) && token.empty()) token = makeAccessToken();
  if (isLoopbackAddress(options_.bindAddress)) token.clear();
  policy_ = guardPolicyFor(options_.bindAddress, port_, token);
}

std::string WebServer::pageAddress() const {
  const std::string host = options_.bindAddress == "0.0.0.0" || options_.bindAddress == "::" ? "127.0.0.1"
                           : options_.bindAddress.find(':') != std::string::npos ? "[" + options_.bindAddress + "]"
                                                                                 : options_.bindAddress;
  return fmt::format("http://{}:{}/{}", host, port_, policy_.token.empty() ? "" : "?token=" + policy_.token);
}

void WebServer::answer(const HttpServerRequest& request, HttpServerResponse& response) {
  securityHeaders(response);
  const bool api = Api::serves(request.path);
  std::optional<std::string> token = request.header("X-Ombrine-Token");
  if (!token) token = request.queryItem("token");
  // The page's own files hold no data: they load without the token, so that the page can then
  // send it with every API request.
  if (!api) token = policy_.token;
  const GuardVerdict verdict = checkRequest(policy_, request.header("Host"), request.header("Origin"), token);
  if (verdict.status != 200) {
    answerError(response, verdict.status, verdict.message);
    return;
  }
  if (request.method != "GET" && request.method != "HEAD") {
    answerError(response, 405, "only GET is answered");
    return;
  }
  if (api) {
    QueryParameters query;
    for (const auto& [name, value] : request.query) {
      if (name != "token") query.emplace(name, value);
    }
    const ApiAnswer answer = api_.handle(request.path, query);
    response.status = answer.status;
    response.headers.emplace_back("Cache-Control", answer.maxAgeSeconds > 0
                                                       ? fmt::format("private, max-age={}", answer.maxAgeSeconds)
                                                       : "no-store");
    setContent(response, answer.body, answer.contentType);
    return;
  }
  const auto file = files_.find(request.path);
  if (file == files_.end()) {
    answerError(response, 404, "no such address: " + request.path);
    return;
  }
  response.headers.emplace_back("Cache-Control", "no-cache");
  setContent(response, readFile(file->second), std::string(contentTypeOf(file->second)));
}

void WebServer::run() {
  if (!server_) bind();
  if (!server_->run()) throw std::runtime_error("the server stopped listening");
}

void WebServer::stop() {
  if (server_) server_->stop();
}

}  // namespace ombrine::web
