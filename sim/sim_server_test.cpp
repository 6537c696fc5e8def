#include "sim/sim_server.hpp"

#include <gtest/gtest.h>
#include <httplib.h>

#include <boost/json/parse.hpp>

#include <future>
#include <thread>
#include <vector>

#include "sim/pinned_clock.hpp"

namespace ombrine::sim {
namespace {

using namespace std::chrono;
using namespace std::chrono_literals;

const std::string kCurrent = "/foreca/api/v1/current/24.94,60.17?token=T&windunit=KMH&rounding=0&lang=en";
const std::string kHourly = "/foreca/api/v1/forecast/hourly/24.94,60.17?token=T&periods=3";

class SimServerTest : public testing::Test {
 protected:
  PinnedClock clock{*parseUtc("2026-01-15T10:23:17Z")};
  SimServer server{SimServer::Options{.seed = 1, .clock = &clock}};

  httplib::Client client(milliseconds timeout = 5s) {
    httplib::Client c("127.0.0.1", server.port());
    c.set_read_timeout(duration_cast<seconds>(timeout).count(), duration_cast<microseconds>(timeout % 1s).count());
    c.set_connection_timeout(2);
    return c;
  }
};

TEST_F(SimServerTest, ServesOnLoopbackTheAnswerItComputes) {
  EXPECT_GT(server.port(), 0);
  EXPECT_EQ(server.baseUrl(), "http://127.0.0.1:" + std::to_string(server.port()));
  auto result = client().Get(kCurrent);
  ASSERT_TRUE(result) << httplib::to_string(result.error());
  EXPECT_EQ(result->status, 200);
  EXPECT_EQ(result->get_header_value("Content-Type"), "application/json");
  EXPECT_EQ(result->body, server.answer(kCurrent).body);

  auto unknown = client().Get("/nothing/here");
  ASSERT_TRUE(unknown);
  EXPECT_EQ(unknown->status, 404);
  EXPECT_EQ(server.requestCount("unknown"), 1u);
}

TEST_F(SimServerTest, CountsAndLogsRequestsPerRouteWithoutTheToken) {
  auto c = client();
  ASSERT_TRUE(c.Get(kCurrent));
  ASSERT_TRUE(c.Get(kHourly));
  ASSERT_TRUE(c.Get(kHourly));
  ASSERT_TRUE(c.Get("/foreca-alt/api/v1/warning/0,0?token=secret"));
  EXPECT_EQ(server.requestCount("foreca.current"), 1u);
  EXPECT_EQ(server.requestCount("foreca.hourly"), 2u);
  EXPECT_EQ(server.requestCount("foreca.warnings"), 1u);
  EXPECT_EQ(server.requestCount("foreca.daily"), 0u);
  EXPECT_EQ(server.requestCount("*"), 4u);

  const auto log = server.requestLog();
  ASSERT_EQ(log.size(), 4u);
  EXPECT_EQ(log[3].path, "/foreca-alt/api/v1/warning/0,0");
  EXPECT_EQ(log[3].status, 200);
  ASSERT_EQ(log[3].query.size(), 1u);
  EXPECT_EQ(log[3].query[0], (std::pair<std::string, std::string>{"token", "(redacted)"}));
  EXPECT_EQ(log[1].query[1], (std::pair<std::string, std::string>{"periods", "3"}));

  server.clearRequestLog();
  EXPECT_EQ(server.requestCount("*"), 0u);
}

TEST_F(SimServerTest, InjectedErrorStatusesReachTheClient) {
  struct Row {
    const char* spec;
    int status;
    const char* retryAfter;  // empty: no header
  };
  const Row rows[] = {
      {"status=429", 429, "1"}, {"status=429,retry-after=7", 429, "7"},
      {"status=503", 503, "1"}, {"status=500", 500, ""},
      {"status=404", 404, ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.spec);
    server.setFault("foreca.current", parseFault(row.spec));
    auto result = client().Get(kCurrent);
    ASSERT_TRUE(result);
    EXPECT_EQ(result->status, row.status);
    EXPECT_EQ(result->get_header_value("Retry-After"), row.retryAfter);
    const auto body = boost::json::parse(result->body);
    EXPECT_EQ(body.at("error").at("code").as_int64(), row.status);
  }
  server.clearFaults();
  EXPECT_EQ(client().Get(kCurrent)->status, 200);
}

TEST_F(SimServerTest, LatencyDelaysTheAnswer) {
  server.setFault("foreca.hourly", parseFault("latency=150"));
  const auto start = steady_clock::now();
  auto result = client().Get(kHourly);
  const auto elapsed = steady_clock::now() - start;
  ASSERT_TRUE(result);
  EXPECT_EQ(result->status, 200);
  EXPECT_GE(elapsed, 150ms);
  // Other routes are not slowed.
  EXPECT_EQ(server.requestLog().back().fault, "latency=150");
}

TEST_F(SimServerTest, HangOutlastsTheClientTimeoutAndStopWakesIt) {
  server.setFault("*", parseFault("hang=20000"));
  const auto start = steady_clock::now();
  auto result = client(300ms).Get(kCurrent);
  EXPECT_FALSE(result);
  EXPECT_EQ(result.error(), httplib::Error::Read);
  EXPECT_LT(steady_clock::now() - start, 5s);
  EXPECT_EQ(server.requestCount("foreca.current"), 1u);  // counted on arrival

  // A second request is still held when the server stops; stopping does not wait 20 s.
  auto held = std::async(std::launch::async, [&] { return client(30s).Get(kHourly); });
  while (server.requestCount("foreca.hourly") == 0) std::this_thread::sleep_for(5ms);
  const auto stopping = steady_clock::now();
  server.stop();
  EXPECT_LT(steady_clock::now() - stopping, 5s);
  auto late = held.get();
  EXPECT_TRUE(!late || late->status == 503);
  server.stop();  // idempotent
  EXPECT_FALSE(client(1s).Get(kCurrent));
}

// What a client meets when the service breaks off or answers nonsense with 200.
TEST_F(SimServerTest, BrokenAnswersReachTheClient) {
  struct Row {
    const char* spec;
    bool answered;     // a complete HTTP answer arrives
    bool errorObject;  // ... whose body is the service's error object with status 200
  };
  const Row rows[] = {
      {"hang=50", false, false}, {"truncate", false, false}, {"error200", true, true}, {"malformed", true, false}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.spec);
    server.setFault("foreca.current", parseFault(row.spec));
    auto result = client().Get(kCurrent);
    ASSERT_EQ(static_cast<bool>(result), row.answered);
    if (!result) continue;
    EXPECT_EQ(result->status, 200);
    boost::system::error_code code;
    const auto body = boost::json::parse(result->body, code);
    EXPECT_EQ(!code.failed(), row.errorObject) << result->body;
    if (row.errorObject) EXPECT_TRUE(body.as_object().contains("error") && !body.as_object().contains("current"));
  }
}

TEST_F(SimServerTest, TimesFailsOnlyTheNextRequestsThenTheRouteIsHealthy) {
  server.setFault("foreca.hourly=status=503,times=2");
  auto c = client();
  EXPECT_EQ(c.Get(kHourly)->status, 503);
  EXPECT_EQ(c.Get(kCurrent)->status, 200);  // another route is untouched
  EXPECT_EQ(c.Get(kHourly)->status, 503);
  EXPECT_EQ(c.Get(kHourly)->status, 200);
  EXPECT_EQ(c.Get(kHourly)->status, 200);
  EXPECT_EQ(server.requestCount("foreca.hourly"), 4u);
}

TEST_F(SimServerTest, DefaultFaultAppliesWhereARouteHasNoneOfItsOwn) {
  server.setFault("*=status=502");
  server.setFault("foreca.current=latency=1");
  EXPECT_EQ(client().Get(kHourly)->status, 502);
  EXPECT_EQ(client().Get(kCurrent)->status, 200);
  EXPECT_THROW(server.setFault("foreca.tomorrow=status=500"), std::invalid_argument);
  EXPECT_THROW(server.setFault("foreca.current"), std::invalid_argument);
  EXPECT_THROW(server.setFault("foreca.current=status=5xx"), std::invalid_argument);
}

TEST_F(SimServerTest, ServesTheClientsConcurrentRequests) {
  const std::vector<std::string> targets = {
      kCurrent,
      "/foreca/api/v1/forecast/hourly/24.94,60.17?token=T&windunit=KMH&rounding=0&dataset=full&periods=192&history=1",
      "/foreca/api/v1/forecast/daily/24.94,60.17?token=T&windunit=KMH&rounding=0&dataset=full&periods=11",
      "/foreca/api/v1/forecast/minutely/24.94,60.17?token=T",
      "/foreca/api/v1/air-quality/forecast/hourly/24.94,60.17?token=T&periods=36",
      "/foreca/api/v1/warning/24.94,60.17?token=T&dataset=full",
  };
  server.setFault("*", parseFault("latency=100"));
  std::vector<std::future<int>> answers;
  for (const auto& target : targets) {
    answers.push_back(std::async(std::launch::async, [&, target] {
      auto result = client(30s).Get(target);
      return result ? result->status : -1;
    }));
  }
  for (auto& answer : answers) EXPECT_EQ(answer.get(), 200);
  EXPECT_EQ(server.requestCount("*"), 6u);
}

TEST(SimServerPortTest, TwoServersTakeDifferentPortsAndATakenPortIsAnError) {
  SimServer first, second;
  EXPECT_NE(first.port(), second.port());
  EXPECT_THROW(SimServer(SimServer::Options{.port = first.port()}), std::runtime_error);
}

}  // namespace
}  // namespace ombrine::sim
