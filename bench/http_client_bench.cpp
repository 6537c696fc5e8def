// Per-request overhead of CurlHttpClient on loopback against a cpp-httplib server that answers
// with a small body over a kept-alive connection.
//
//   http_client_bench                 Google Benchmark runs (in-process server)
//   http_client_bench --serve         serves /small on 127.0.0.1, prints the port, exits at EOF
//                                     on stdin (scripts/bench-http-vs-curl)
//   http_client_bench --fetch URL N   N sequential requests to URL, prints microseconds/request

#include <benchmark/benchmark.h>
#include <httplib.h>

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/use_future.hpp>
#include <boost/url/parse.hpp>
#include <chrono>
#include <cstdio>
#include <future>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include "platform/linux/curl_http_client.hpp"
#include "platform/runtime.hpp"
#include "platform/testing/loopback_http_server.hpp"

namespace {

using namespace ombrine;

// The server side of every mode: one small body, no Nagle delay, connections kept alive.
class SmallBodyServer {
 public:
  SmallBodyServer() {
    httplib::Server& server = http_.server;
    server.set_tcp_nodelay(true);
    server.set_keep_alive_max_count(1'000'000);
    // A type the server does not compress: our client asks for compressed bodies and the curl
    // command line does not, and both must receive the same bytes to be compared.
    server.Get("/small", [](const httplib::Request&, httplib::Response& response) {
      response.set_content(R"({"temperature":12.5,"condition":"rain"})", "application/octet-stream");
    });
    http_.start();
  }

  int port() const { return http_.port(); }
  boost::urls::url url() const { return http_.url("/small"); }

 private:
  LoopbackHttpServer http_;
};

// One coroutine awaiting `count` requests in turn, as a caller fetching page after page would.
Task<void> sendInTurn(HttpClient& client, const HttpRequest& request, int count) {
  for (int i = 0; i < count; ++i) {
    auto response = co_await client.send(request);
    if (response.status != 200) throw std::runtime_error("unexpected status");
  }
}

void sendSequentially(Runtime& runtime, HttpClient& client, const HttpRequest& request, int count) {
  runtime.runBlocking(sendInTurn(client, request, count));
}

void BM_SequentialRequest(benchmark::State& state) {
  SmallBodyServer server;
  Runtime runtime(1);
  CurlHttpClient client;
  auto request = HttpRequest{.url = server.url()};
  sendSequentially(runtime, client, request, 1);  // connect outside the timed loop
  for (auto _ : state) sendSequentially(runtime, client, request, 1);
  state.counters["per_request"] =
      benchmark::Counter(1, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_SequentialRequest)->UseRealTime()->Unit(benchmark::kMicrosecond);

// `count` requests in flight at once, awaited together.
void sendBatch(Runtime& runtime, HttpClient& client, const HttpRequest& request, int count) {
  std::vector<std::future<HttpResponse>> responses;
  for (int i = 0; i < count; ++i) {
    responses.push_back(asio::co_spawn(runtime.executor(), client.send(request), asio::use_future));
  }
  for (auto& response : responses) {
    if (response.get().status != 200) throw std::runtime_error("unexpected status");
  }
}

void BM_ConcurrentBatch(benchmark::State& state) {
  SmallBodyServer server;
  Runtime runtime(1);
  CurlHttpClient client;
  auto request = HttpRequest{.url = server.url()};
  const auto batch = static_cast<int>(state.range(0));
  sendBatch(runtime, client, request, batch);  // open the connections outside the timed loop
  for (auto _ : state) sendBatch(runtime, client, request, batch);
  state.counters["per_request"] =
      benchmark::Counter(batch, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_ConcurrentBatch)->Arg(8)->Arg(64)->UseRealTime()->Unit(benchmark::kMicrosecond);

int serve() {
  SmallBodyServer server;
  std::cout << server.port() << std::endl;
  while (std::cin.get() != std::char_traits<char>::eof()) {
  }
  return 0;
}

int fetch(const char* text, int count) {
  auto parsed = boost::urls::parse_uri(text);
  if (!parsed || count <= 0) {
    std::cerr << "usage: http_client_bench --fetch URL N\n";
    return 2;
  }
  Runtime runtime(1);
  CurlHttpClient client;
  auto request = HttpRequest{.url = boost::urls::url(*parsed)};
  auto start = std::chrono::steady_clock::now();
  sendSequentially(runtime, client, request, count);
  std::chrono::duration<double, std::micro> elapsed = std::chrono::steady_clock::now() - start;
  std::printf("%.1f\n", elapsed.count() / count);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  std::string mode = argc > 1 ? argv[1] : "";
  if (mode == "--serve") return serve();
  if (mode == "--fetch" && argc == 4) return fetch(argv[2], std::atoi(argv[3]));
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
