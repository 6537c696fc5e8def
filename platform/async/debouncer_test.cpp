#include "platform/async/debouncer.hpp"

#include <gtest/gtest.h>

#include <future>
#include <mutex>
#include <string>
#include <vector>

#include "platform/runtime.hpp"
#include "platform/testing/fake_clock.hpp"

namespace ombrine {
namespace {

using namespace std::chrono_literals;

// Lets the main strand run what is queued on it, a few rounds deep: a settle started or woken
// before the call (launch, first step, resumption after its sleep) has finished after it. Tests
// drain after each write so that the settle has registered its sleep before the clock moves
// (it reads the time once to compute the sleep, and the clock measures from a second read).
void drain(Strand& strand) {
  for (int round = 0; round < 8; ++round) {
    std::promise<void> done;
    asio::post(strand, [&done] { done.set_value(); });
    done.get_future().wait();
  }
}

struct Seen {
  std::mutex lock;
  std::vector<std::string> values;

  Debouncer<std::string>::Observer observer() {
    return [this](const std::string& value) {
      std::lock_guard guard(lock);
      values.push_back(value);
    };
  }
  std::vector<std::string> get() {
    std::lock_guard guard(lock);
    return values;
  }
};

struct Write {
  int afterMs;  // advance before this write
  std::string value;
};

struct BurstCase {
  const char* name;
  std::vector<Write> writes;
  int checkAfterMs;                    // advance after the last write, then check
  std::vector<std::string> debounced;  // observed debounced values by then
};

TEST(DebouncerTest, BurstsCollapseToTheLastValueAfterTheQuietInterval) {
  const BurstCase cases[] = {
      {"single write settles after the interval", {{0, "a"}}, 300, {"a"}},
      {"one millisecond short of the interval", {{0, "a"}}, 299, {}},
      {"a burst yields its last value once", {{0, "a"}, {100, "b"}, {100, "c"}}, 300, {"c"}},
      {"the interval restarts with each write", {{0, "a"}, {100, "b"}, {100, "c"}}, 299, {}},
      {"two bursts apart give two values", {{0, "a"}, {50, "b"}, {400, "c"}, {10, "d"}}, 300, {"b", "d"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Runtime runtime(2);
    FakeClock clock;
    auto main = runtime.makeStrand();
    Debouncer<std::string> debouncer("initial", 300ms, clock, main);
    Seen items;
    Seen settled;
    auto itemObservation = debouncer.observeItem(items.observer());
    auto debouncedObservation = debouncer.observeDebounced(settled.observer());
    std::vector<std::string> written;
    for (const auto& write : c.writes) {
      clock.advance(std::chrono::milliseconds(write.afterMs));
      drain(main);
      debouncer.setItem(write.value);
      drain(main);
      written.push_back(write.value);
      EXPECT_EQ(debouncer.item(), write.value);
    }
    clock.advance(std::chrono::milliseconds(c.checkAfterMs));
    drain(main);
    EXPECT_EQ(items.get(), written);
    EXPECT_EQ(settled.get(), c.debounced);
    EXPECT_EQ(debouncer.debounced(), c.debounced.empty() ? "initial" : c.debounced.back());
  }
}

TEST(DebouncerTest, EndedObservationAndDestructionStopNotifications) {
  Runtime runtime(2);
  FakeClock clock;
  auto main = runtime.makeStrand();
  Seen settled;
  {
    Debouncer<std::string> debouncer("initial", 1s, clock, main);
    auto observation = debouncer.observeDebounced(settled.observer());
    debouncer.setItem("kept");
    drain(main);
    clock.advance(1s);
    drain(main);
    observation.cancel();
    debouncer.setItem("unobserved");
    drain(main);
    clock.advance(1s);
    drain(main);
    EXPECT_EQ(debouncer.debounced(), "unobserved");

    auto again = debouncer.observeDebounced(settled.observer());
    debouncer.setItem("dropped");
    ASSERT_TRUE(clock.waitForSleepers(1));
  }
  // The pending settle was cancelled with the debouncer.
  for (int i = 0; i < 1000 && clock.pendingSleepers() > 0; ++i) drain(main);
  EXPECT_EQ(clock.pendingSleepers(), 0u);
  clock.advance(1s);
  drain(main);
  EXPECT_EQ(settled.get(), std::vector<std::string>{"kept"});
}

}  // namespace
}  // namespace ombrine
