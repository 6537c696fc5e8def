#include "sim/fault_plan.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace ombrine::sim {
namespace {

using namespace std::chrono_literals;

TEST(FaultSpecTest, ParsesEveryKindAndCombination) {
  struct Row {
    const char* spec;
    Fault expected;
  };
  const Row rows[] = {
      {"latency=50", {.latency = 50ms}},
      {"status=503", {.answer = Fault::Answer::status, .status = 503, .retryAfter = 1s}},
      // 429 and 503 always carry Retry-After; other statuses only when asked.
      {"status=429", {.answer = Fault::Answer::status, .status = 429, .retryAfter = 1s}},
      {"status=500", {.answer = Fault::Answer::status, .status = 500}},
      {"status=429,retry-after=30", {.answer = Fault::Answer::status, .status = 429, .retryAfter = 30s}},
      {"status=502,retry-after=0", {.answer = Fault::Answer::status, .status = 502, .retryAfter = 0s}},
      {"status=429,retry-after=none", {.answer = Fault::Answer::status, .status = 429, .withoutRetryAfter = true}},
      {"hang=5000", {.answer = Fault::Answer::hang, .hang = 5000ms}},
      {"truncate", {.answer = Fault::Answer::truncate}},
      {"error200", {.answer = Fault::Answer::error200}},
      {"malformed", {.answer = Fault::Answer::malformed}},
      {"status=503,times=2", {.answer = Fault::Answer::status, .status = 503, .retryAfter = 1s, .times = 2}},
      {"times=1,latency=20,truncate", {.latency = 20ms, .answer = Fault::Answer::truncate, .times = 1}},
      {"behind=1801", {.behind = 1801s}},
      {"behind=60,status=500", {.answer = Fault::Answer::status, .status = 500, .behind = 60s}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.spec);
    const Fault fault = parseFault(row.spec);
    EXPECT_EQ(fault, row.expected);
    EXPECT_EQ(parseFault(describeFault(fault)), fault);
  }
}

TEST(FaultSpecTest, RejectsWithAMessageNamingTheProblem) {
  struct Row {
    const char* spec;
    const char* mentions;
  };
  const Row rows[] = {
      {"", "empty"},
      {"status=abc", "status needs an HTTP error status"},
      {"status=200", "400..599"},  // a success is not a fault
      {"status=600", "400..599"},
      {"status", "status needs"},
      {"latency=-5", "latency needs milliseconds"},
      {"latency=5ms", "latency needs milliseconds"},
      {"hang=0", "hang needs milliseconds"},
      {"times=0", "times needs a count"},
      {"truncate=1", "truncate takes no value"},
      {"status=503,truncate", "combines two answers (status and truncate)"},
      {"latency=1,latency=2", "latency given twice"},
      {"retry-after=5", "retry-after needs status=CODE"},
      {"times=3", "injects nothing"},
      {"slow", "unknown item \"slow\""},
      {"status=503,", "unknown item \"\""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.spec);
    try {
      parseFault(row.spec);
      ADD_FAILURE() << "accepted";
    } catch (const std::invalid_argument& error) {
      EXPECT_NE(std::string(error.what()).find(row.mentions), std::string::npos) << error.what();
      EXPECT_NE(std::string(error.what()).find("bad fault"), std::string::npos) << error.what();
    }
  }
}

TEST(FaultPlanTest, RouteFaultOverridesTheDefaultAndTimesRunOut) {
  FaultPlan plan;
  plan.set("*", parseFault("latency=5"));
  plan.set("foreca.hourly", parseFault("status=503,times=2"));

  EXPECT_EQ(plan.take("foreca.daily")->latency, 5ms);
  EXPECT_EQ(plan.take("foreca.hourly")->status, 503);
  EXPECT_EQ(plan.find("foreca.hourly")->times, 1);
  EXPECT_EQ(plan.take("foreca.hourly")->status, 503);
  // Used up: the route falls back to the default.
  EXPECT_EQ(plan.take("foreca.hourly")->answer, Fault::Answer::normal);

  // A service's faults stand between a route's own and the default.
  plan.set("jtwc.*", parseFault("status=503"));
  EXPECT_EQ(plan.take("jtwc.rss")->status, 503);
  EXPECT_EQ(plan.take("jtwcx.rss")->latency, 5ms);
  EXPECT_EQ(plan.take("foreca.daily")->latency, 5ms);
  plan.set("jtwc.rss", parseFault("status=429"));
  EXPECT_EQ(plan.take("jtwc.rss")->status, 429);  // the route's own fault first
  EXPECT_EQ(plan.take("jtwc.warning")->status, 503);
  plan.clear("jtwc.*");

  plan.clear("*");
  EXPECT_FALSE(plan.take("foreca.hourly"));
  plan.set("foreca.daily", parseFault("truncate"));
  plan.clearAll();
  EXPECT_FALSE(plan.find("foreca.daily"));
}

TEST(FaultPlanTest, ConcurrentTakersConsumeExactlyTimes) {
  FaultPlan plan;
  plan.set("foreca.current", parseFault("status=500,times=150"));
  std::atomic<int> faulted = 0;
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 50; ++i) {
        if (plan.take("foreca.current")) ++faulted;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(faulted, 150);
}

}  // namespace
}  // namespace ombrine::sim
