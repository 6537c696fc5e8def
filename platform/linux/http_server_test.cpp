#include "platform/http_server.hpp"

#include <gtest/gtest.h>
#include <httplib.h>

#include <mutex>
#include <thread>

namespace ombrine {
namespace {

// A server from the module on a free loopback port, served on a thread of its own.
class Serving {
 public:
  explicit Serving(HttpServer::Handler handler) : server_(openHttpServer({}, std::move(handler))) {
    thread_ = std::thread([this] { server_->run(); });
    while (!server_->running()) std::this_thread::yield();
  }
  ~Serving() {
    server_->stop();
    thread_.join();
  }
  int port() const { return server_->port(); }

 private:
  std::unique_ptr<HttpServer> server_;
  std::thread thread_;
};

TEST(HttpServer, AnswersAsTheHandlerSays) {
  HttpServerRequest seen;
  std::mutex mutex;
  Serving serving([&](const HttpServerRequest& request, HttpServerResponse& response) {
    {
      std::lock_guard lock(mutex);
      seen = request;
    }
    const std::string size = request.queryItem("size").value_or("0");
    response.headers.emplace_back("X-Echo", request.header("x-ombrine-probe").value_or("none"));
    response.contentType = "application/json";
    response.body = std::string(std::stoul(size), 'a');
    // "short": the full length is announced, half of it sent.
    if (request.path == "/short") {
      response.announcedLength = response.body.size();
      response.body.resize(response.body.size() / 2);
    }
  });
  httplib::Client client("127.0.0.1", serving.port());
  struct Case {
    std::string method, target;
    int status;          // -1: the client sees a broken answer
    std::size_t length;  // of the body received
  };
  const Case cases[] = {
      {"GET", "/full?size=1000", 200, 1000}, {"GET", "/full?size=0", 200, 0},    {"HEAD", "/full?size=1000", 200, 0},
      {"POST", "/full?size=3", 200, 3},      {"DELETE", "/full?size=3", 200, 3}, {"GET", "/short?size=1000", -1, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.method + " " + c.target);
    const httplib::Headers headers = {{"X-Ombrine-Probe", "yes"}};
    const auto result = c.method == "GET"      ? client.Get(c.target, headers)
                        : c.method == "HEAD"   ? client.Head(c.target, headers)
                        : c.method == "DELETE" ? client.Delete(c.target, headers)
                                               : client.Post(c.target, headers, "body", "text/plain");
    if (c.status < 0) {
      EXPECT_FALSE(result) << "a truncated answer must not read as complete";
      continue;
    }
    ASSERT_TRUE(result) << httplib::to_string(result.error());
    EXPECT_EQ(result->status, c.status);
    EXPECT_EQ(result->body.size(), c.length);
    EXPECT_EQ(result->get_header_value("X-Echo"), "yes");
    std::lock_guard lock(mutex);
    EXPECT_EQ(seen.method, c.method);
    EXPECT_EQ(seen.target, c.target);
    EXPECT_EQ(seen.path, c.target.substr(0, c.target.find('?')));
    EXPECT_EQ(seen.body, c.method == "POST" ? "body" : "");
  }
}

TEST(HttpServer, RefusesAPortInUse) {
  Serving first([](const HttpServerRequest&, HttpServerResponse&) {});
  HttpServerOptions same;
  same.port = first.port();
  EXPECT_THROW(openHttpServer(same, [](const HttpServerRequest&, HttpServerResponse&) {}), std::runtime_error);
}

}  // namespace
}  // namespace ombrine
