#include "platform/linux/curl_http_client.hpp"

#include <curl/curl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <httplib.h>

#include <boost/asio/bind_cancellation_slot.hpp>
#include <boost/asio/cancellation_signal.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/read_until.hpp>
#include <boost/asio/write.hpp>
#include <condition_variable>
#include <fstream>
#include <future>
#include <random>
#include <set>
#include <sstream>

#include "platform/atomic_file.hpp"
#include "platform/errors.hpp"
#include "platform/runtime.hpp"
#include "platform/testing/loopback_http_server.hpp"

namespace ombrine {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using asio::ip::tcp;

std::string readTestdata(const std::string& name) {
  return readFileIfExists(std::string(OMBRINE_TESTDATA_DIR) + "/http/" + name).value_or("");
}

// Holds server handlers until the test is done with them, so no handler outlives its test.
class Gate {
 public:
  void open() {
    std::lock_guard lock(mutex_);
    open_ = true;
    changed_.notify_all();
  }
  void waitUpTo(std::chrono::milliseconds limit) {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, limit, [&] { return open_; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  bool open_ = false;
};

// A cpp-httplib server on 127.0.0.1 and an ephemeral port with the routes the tests use.
class LoopbackServer {
 public:
  LoopbackServer() {
    server_.set_keep_alive_max_count(1000);
    server_.set_keep_alive_timeout(1);
    server_.set_tcp_nodelay(true);
    addRoutes();
    http_.start();
  }
  ~LoopbackServer() {
    gate_.open();
    http_.stop();
  }

  boost::urls::url url(std::string_view path) const { return http_.url(path); }

  std::set<int> clientPorts() {
    std::lock_guard lock(mutex_);
    return clientPorts_;
  }

  std::future<void> streamStarted() { return streamStarted_.get_future(); }
  std::future<void> streamClosed() { return streamClosed_.get_future(); }

 private:
  void addRoutes() {
    // Answers "METHOD|X-Test|body" plus what the client sent that tests check.
    auto echo = [this](const httplib::Request& request, httplib::Response& response) {
      {
        std::lock_guard lock(mutex_);
        clientPorts_.insert(request.remote_port);
      }
      response.set_header("X-Multi", "one");
      response.set_header("X-Multi", "two");
      response.set_header("X-Seen-User-Agent", request.get_header_value("User-Agent"));
      response.set_header("X-Seen-Accept-Encoding", request.get_header_value("Accept-Encoding"));
      response.set_header("X-Seen-Content-Type",
                          request.has_header("Content-Type") ? request.get_header_value("Content-Type") : "(none)");
      auto text =
          request.method + "|" + request.get_header_value("X-Test") + "|" + request.body + request.get_param_value("i");
      response.set_content(text, "text/plain");
    };
    server_.Get("/echo", echo);
    server_.Post("/echo", echo);
    server_.Put("/echo", echo);
    server_.Delete("/echo", echo);

    server_.Get(R"(/status/(\d+))", [](const httplib::Request& request, httplib::Response& response) {
      response.status = std::stoi(request.matches[1]);
      // A 204 with a body would leave stray bytes on the kept-alive connection.
      if (response.status != 204) {
        response.set_content("status " + request.matches[1].str(), "text/plain");
      }
    });

    // /redirect/N answers after N redirects.
    server_.Get(R"(/redirect/(\d+))", [](const httplib::Request& request, httplib::Response& response) {
      int remaining = std::stoi(request.matches[1]);
      if (remaining == 0) {
        response.set_content("arrived", "text/plain");
      } else {
        response.set_redirect("/redirect/" + std::to_string(remaining - 1));
      }
    });

    server_.Get("/slow", [this](const httplib::Request&, httplib::Response& response) {
      gate_.waitUpTo(5s);
      response.set_content("late", "text/plain");
    });

    // A body that trickles for up to 5 s; reports its first chunk and a closed connection.
    server_.Get("/stream", [this](const httplib::Request&, httplib::Response& response) {
      auto provider = [this, chunks = 0](std::size_t, httplib::DataSink& sink) mutable {
        if (!sink.write("chunk\n", 6)) {
          streamClosed_.set_value();
          return false;
        }
        if (++chunks == 1) streamStarted_.set_value();
        if (chunks == 250) {
          sink.done();
          return true;
        }
        std::this_thread::sleep_for(20ms);
        return true;
      };
      // Not a compressible type: the server would otherwise buffer the chunks in its compressor.
      response.set_chunked_content_provider("application/octet-stream", provider);
    });
  }

  LoopbackHttpServer http_;
  httplib::Server& server_ = http_.server;
  Gate gate_;
  std::mutex mutex_;
  std::set<int> clientPorts_;
  std::promise<void> streamStarted_;
  std::promise<void> streamClosed_;
};

// A TCP server on 127.0.0.1 that answers every connection with the same bytes, whatever they
// are, and then closes it: for responses no well-behaved server would send.
class RawServer {
 public:
  explicit RawServer(std::string reply)
      : reply_(std::move(reply)), acceptor_(io_, tcp::endpoint(asio::ip::make_address("127.0.0.1"), 0)) {
    acceptNext();
    thread_ = std::thread([this] { io_.run(); });
  }
  ~RawServer() {
    io_.stop();
    thread_.join();
  }

  boost::urls::url url() const { return loopbackUrl(acceptor_.local_endpoint().port(), "/raw"); }

 private:
  void acceptNext() {
    acceptor_.async_accept([this](boost::system::error_code error, tcp::socket socket) {
      if (error) return;
      std::string request;
      asio::read_until(socket, asio::dynamic_buffer(request), "\r\n\r\n", error);
      asio::write(socket, asio::buffer(reply_), error);
      socket.shutdown(tcp::socket::shutdown_both, error);
      acceptNext();
    });
  }

  std::string reply_;
  asio::io_context io_;
  tcp::acceptor acceptor_;
  std::thread thread_;
};

// Where a send ended: its response, or the exception it raised.
struct Outcome {
  std::exception_ptr error;
  HttpResponse response;
};

std::optional<HttpError::Case> httpErrorCase(const std::exception_ptr& error) {
  try {
    if (error) std::rethrow_exception(error);
  } catch (const HttpError& e) {
    return e.which();
  } catch (...) {
  }
  return std::nullopt;
}

std::vector<std::string> valuesOf(const HttpResponse& response, std::string_view name) {
  std::vector<std::string> values;
  for (const auto& header : response.headers) {
    if (equalsIgnoringCase(header.name, name)) values.push_back(header.value);
  }
  return values;
}

class CurlHttpClientTest : public testing::Test {
 protected:
  HttpResponse fetch(const HttpRequest& request) { return runtime_.runBlocking(client_->send(request)); }

  Outcome attempt(const HttpRequest& request) {
    try {
      return Outcome{nullptr, fetch(request)};
    } catch (...) {
      return Outcome{std::current_exception(), {}};
    }
  }

  // Starts `request` on the runtime with a cancellation slot; `done` receives its one outcome.
  void spawn(const HttpRequest& request, asio::cancellation_signal& signal, std::promise<Outcome>& done) {
    auto completion = [&done](std::exception_ptr error, HttpResponse response) {
      done.set_value(Outcome{error, std::move(response)});
    };
    asio::co_spawn(runtime_.executor(), client_->send(request),
                   asio::bind_cancellation_slot(signal.slot(), completion));
  }

  // Emits the cancellation on the runtime (where the awaiting task runs) and waits until it has.
  void cancel(asio::cancellation_signal& signal) {
    std::promise<void> emitted;
    asio::post(runtime_.executor(), [&] {
      signal.emit(asio::cancellation_type::terminal);
      emitted.set_value();
    });
    emitted.get_future().wait();
  }

  // Destroyed in reverse: the client closes its connections before the server stops.
  LoopbackServer server_;
  Runtime runtime_{1};
  std::unique_ptr<CurlHttpClient> client_ = std::make_unique<CurlHttpClient>();
};

TEST_F(CurlHttpClientTest, SendsMethodsHeadersAndBodies) {
  struct Row {
    std::string method;
    HttpHeaders headers;
    std::string body;
    std::string expectedBody;
    std::string expectedContentType;
  };
  const Row rows[] = {
      {"GET", {{"X-Test", "plain"}}, "", "GET|plain|", "(none)"},
      // curl would otherwise label the body a URL-encoded form.
      {"POST", {}, "{\"a\":1}", "POST||{\"a\":1}", "(none)"},
      {"POST", {{"Content-Type", "application/json"}}, "{}", "POST||{}", "application/json"},
      {"PUT", {{"X-Test", "put"}}, "new value", "PUT|put|new value", "(none)"},
      {"DELETE", {}, "", "DELETE||", "(none)"},
      // A header given with an empty value is still sent.
      {"GET", {{"X-Test", ""}}, "", "GET||", "(none)"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.method + " " + row.body);
    auto request =
        HttpRequest{.method = row.method, .url = server_.url("/echo"), .headers = row.headers, .body = row.body};
    auto response = fetch(request);
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.body, row.expectedBody);
    EXPECT_EQ(response.header("x-seen-content-type"), row.expectedContentType);
    EXPECT_EQ(response.header("X-SEEN-USER-AGENT"), "Ombrine/0.1");
    EXPECT_THAT(response.header("X-Seen-Accept-Encoding").value_or(""), testing::HasSubstr("gzip"));
    EXPECT_THAT(valuesOf(response, "X-Multi"), testing::ElementsAre("one", "two"));
    EXPECT_EQ(response.header("X-Multi"), "one");
    EXPECT_EQ(response.header("X-Absent"), std::nullopt);
    EXPECT_EQ(response.effectiveUrl, server_.url("/echo"));
  }
}

TEST_F(CurlHttpClientTest, HeadReturnsHeadersWithoutBody) {
  auto request = HttpRequest{.method = "HEAD", .url = server_.url("/echo")};
  auto response = fetch(request);
  EXPECT_EQ(response.status, 200);
  EXPECT_EQ(response.body, "");
  EXPECT_EQ(response.header("X-Multi"), "one");
}

TEST_F(CurlHttpClientTest, ReturnsErrorStatusesAsResponses) {
  for (int status : {204, 400, 404, 429, 500, 503}) {
    SCOPED_TRACE(status);
    auto request = HttpRequest{.url = server_.url("/status/" + std::to_string(status))};
    auto response = fetch(request);
    EXPECT_EQ(response.status, status);
    EXPECT_EQ(response.body, status == 204 ? "" : "status " + std::to_string(status));
  }
}

TEST_F(CurlHttpClientTest, FollowsRedirectsUpToTen) {
  struct Row {
    std::string path;
    bool follow;
    int expectedStatus;
    std::string expectedEffectivePath;
    std::optional<HttpError::Case> expectedError;
  };
  const Row rows[] = {
      {"/redirect/1", true, 200, "/redirect/0", {}},
      {"/redirect/10", true, 200, "/redirect/0", {}},  // the last one allowed
      {"/redirect/11", true, 0, "", HttpError::tooManyRedirects},
      {"/redirect/3", false, 302, "/redirect/3", {}},  // the 3xx itself is the answer
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.path);
    auto request = HttpRequest{.url = server_.url(row.path), .followRedirects = row.follow};
    auto outcome = attempt(request);
    EXPECT_EQ(httpErrorCase(outcome.error), row.expectedError);
    if (row.expectedError) continue;
    EXPECT_EQ(outcome.response.status, row.expectedStatus);
    EXPECT_EQ(outcome.response.effectiveUrl.path(), row.expectedEffectivePath);
    if (row.follow) {
      EXPECT_EQ(outcome.response.body, "arrived");
      // Headers of the redirect responses along the way are not mixed in.
      EXPECT_EQ(outcome.response.header("Location"), std::nullopt);
    } else {
      EXPECT_EQ(outcome.response.header("Location"), "/redirect/2");
    }
  }
}

TEST_F(CurlHttpClientTest, DecodesBodiesAndReportsBrokenResponses) {
  const std::string forecast = readTestdata("forecast.txt");
  auto encoded = [](std::string encoding, std::string body) {
    return "HTTP/1.1 200 OK\r\nContent-Encoding: " + encoding + "\r\nContent-Length: " + std::to_string(body.size()) +
           "\r\n\r\n" + body;
  };
  struct Row {
    std::string name;
    std::string reply;
    std::optional<HttpError::Case> expectedError;
    std::string expectedBody;
  };
  const Row rows[] = {
      {"gzip", encoded("gzip", readTestdata("forecast.txt.gz")), {}, forecast},
      {"deflate", encoded("deflate", readTestdata("forecast.txt.zz")), {}, forecast},
      {"short body", "HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n0123456789", HttpError::truncated, ""},
      {"cut chunked body", "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\na\r\n0123456789\r\n",
       HttpError::truncated, ""},
      {"gzip cut short", encoded("gzip", readTestdata("forecast.txt.gz")).substr(0, 90), HttpError::truncated, ""},
      {"no response", "", HttpError::other, ""},
      {"not HTTP", "hello\r\n\r\n", HttpError::other, ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    RawServer raw(row.reply);
    auto request = HttpRequest{.url = raw.url()};
    auto outcome = attempt(request);
    EXPECT_EQ(httpErrorCase(outcome.error), row.expectedError);
    if (!row.expectedError) EXPECT_EQ(outcome.response.body, row.expectedBody);
  }
}

TEST_F(CurlHttpClientTest, TimesOutWithinTheRequestTimeout) {
  auto request = HttpRequest{.url = server_.url("/slow"), .timeout = 200ms};
  auto start = Clock::now();
  auto outcome = attempt(request);
  EXPECT_EQ(httpErrorCase(outcome.error), HttpError::timedOut);
  EXPECT_LT(Clock::now() - start, 3s);
}

TEST_F(CurlHttpClientTest, RefusedConnectionCannotConnect) {
  int port = 0;
  {
    asio::io_context io;
    tcp::acceptor closed(io, tcp::endpoint(asio::ip::make_address("127.0.0.1"), 0));
    port = closed.local_endpoint().port();
  }
  auto request = HttpRequest{.url = loopbackUrl(port, "/")};
  auto outcome = attempt(request);
  EXPECT_EQ(httpErrorCase(outcome.error), HttpError::cannotConnect);
  ASSERT_TRUE(outcome.error);
  try {
    std::rethrow_exception(outcome.error);
  } catch (const HttpError& error) {
    EXPECT_THAT(error.what(), testing::HasSubstr("Could not connect"));
  }
}

TEST_F(CurlHttpClientTest, CancelMidBodyAbortsTheTransferPromptly) {
  auto started = server_.streamStarted();
  auto closed = server_.streamClosed();
  asio::cancellation_signal signal;
  std::promise<Outcome> done;
  auto request = HttpRequest{.url = server_.url("/stream")};
  spawn(request, signal, done);
  ASSERT_EQ(started.wait_for(5s), std::future_status::ready);
  std::this_thread::sleep_for(50ms);

  auto cancelledAt = Clock::now();
  cancel(signal);
  auto outcome = done.get_future().get();
  ASSERT_TRUE(outcome.error);
  EXPECT_THROW(std::rethrow_exception(outcome.error), CancellationError);
  EXPECT_LT(Clock::now() - cancelledAt, 2s);  // the stream itself would run for 5 s
  EXPECT_EQ(closed.wait_for(3s), std::future_status::ready);
}

TEST_F(CurlHttpClientTest, CancelRacingCompletionCompletesExactlyOnce) {
  std::mt19937 random(42);
  std::uniform_int_distribution<int> delayMicroseconds(0, 3000);
  int succeeded = 0;
  int cancelled = 0;
  for (int i = 0; i < 200; ++i) {
    asio::cancellation_signal signal;
    std::promise<Outcome> done;
    auto request = HttpRequest{.url = server_.url("/echo")};
    spawn(request, signal, done);
    std::this_thread::sleep_for(std::chrono::microseconds(delayMicroseconds(random)));
    cancel(signal);
    // A second completion would set the promise twice and throw on the runtime thread.
    auto future = done.get_future();
    ASSERT_EQ(future.wait_for(5s), std::future_status::ready);
    auto outcome = future.get();
    if (isCancellation(outcome.error)) {
      ++cancelled;
    } else {
      ASSERT_FALSE(outcome.error);
      EXPECT_EQ(outcome.response.body, "GET||");
      ++succeeded;
    }
  }
  EXPECT_EQ(succeeded + cancelled, 200);
  // Still healthy afterwards.
  auto request = HttpRequest{.url = server_.url("/echo")};
  EXPECT_EQ(fetch(request).status, 200);
}

TEST_F(CurlHttpClientTest, DestroyingTheClientCancelsRunningTransfers) {
  asio::cancellation_signal signal;
  std::promise<Outcome> done;
  auto request = HttpRequest{.url = server_.url("/slow")};
  spawn(request, signal, done);
  std::this_thread::sleep_for(50ms);
  auto start = Clock::now();
  client_.reset();
  auto outcome = done.get_future().get();
  ASSERT_TRUE(outcome.error);
  EXPECT_THROW(std::rethrow_exception(outcome.error), CancellationError);
  EXPECT_LT(Clock::now() - start, 2s);
}

TEST_F(CurlHttpClientTest, ResumesOnTheAwaitingExecutor) {
  Runtime pool(2);
  auto strand = pool.makeStrand();
  auto request = HttpRequest{.url = server_.url("/echo")};
  auto task = [&]() -> Task<bool> {
    co_await client_->send(request);
    co_return strand.running_in_this_thread();
  };
  auto future = asio::co_spawn(strand, task(), asio::use_future);
  EXPECT_TRUE(future.get());
  // The network thread may still hold the finished handler, and with it work on `pool`.
  client_.reset();
}

TEST_F(CurlHttpClientTest, SequentialRequestsReuseOneConnection) {
  for (int i = 0; i < 5; ++i) {
    auto request = HttpRequest{.url = server_.url("/echo")};
    EXPECT_EQ(fetch(request).status, 200);
  }
  EXPECT_EQ(server_.clientPorts().size(), 1u);
}

TEST_F(CurlHttpClientTest, HundredConcurrentRequestsAllComplete) {
  std::vector<HttpRequest> requests;
  for (int i = 0; i < 100; ++i) {
    requests.push_back(HttpRequest{.url = server_.url("/echo")});
    requests.back().url.params().set("i", std::to_string(i));
  }
  std::vector<std::future<HttpResponse>> responses;
  for (const auto& request : requests) {
    responses.push_back(asio::co_spawn(runtime_.executor(), client_->send(request), asio::use_future));
  }
  for (int i = 0; i < 100; ++i) {
    auto response = responses[i].get();
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.body, "GET||" + std::to_string(i));
  }
  // Connections are shared and capped per host, not one per request.
  EXPECT_LE(server_.clientPorts().size(), 6u);
}

TEST_F(CurlHttpClientTest, RejectsMalformedRequests) {
  struct Row {
    std::string name;
    HttpRequest request;
  };
  const Row rows[] = {
      {"header injection", HttpRequest{.url = server_.url("/echo"), .headers = {{"X-Test", "a\r\nX-Evil: 1"}}}},
      // curl would cut the value at the NUL and send something else than asked.
      {"NUL in header value",
       HttpRequest{.url = server_.url("/echo"), .headers = {{"X-Test", std::string("a\0b", 3)}}}},
      {"header name with colon", HttpRequest{.url = server_.url("/echo"), .headers = {{"X:Test", "a"}}}},
      {"method with space", HttpRequest{.method = "GET /", .url = server_.url("/echo")}},
      {"zero timeout", HttpRequest{.url = server_.url("/echo"), .timeout = 0ms}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_THROW(fetch(row.request), std::invalid_argument);
  }
}

TEST(HttpErrorCaseForCurlTest, MapsTransportFailures) {
  struct Row {
    CURLcode code;
    bool bodyStarted;
    HttpError::Case expected;
  };
  const Row rows[] = {
      {CURLE_OPERATION_TIMEDOUT, true, HttpError::timedOut},
      {CURLE_COULDNT_CONNECT, false, HttpError::cannotConnect},
      {CURLE_COULDNT_RESOLVE_HOST, false, HttpError::cannotConnect},
      {CURLE_PARTIAL_FILE, false, HttpError::truncated},
      {CURLE_RECV_ERROR, true, HttpError::truncated},
      // A reset before any body byte is not a short body.
      {CURLE_RECV_ERROR, false, HttpError::other},
      {CURLE_TOO_MANY_REDIRECTS, false, HttpError::tooManyRedirects},
      {CURLE_PEER_FAILED_VERIFICATION, false, HttpError::other},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.code);
    EXPECT_EQ(httpErrorCaseForCurl(row.code, row.bodyStarted), row.expected);
  }
}

}  // namespace
}  // namespace ombrine
