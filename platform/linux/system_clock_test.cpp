#include "platform/linux/system_clock.hpp"

#include <gtest/gtest.h>

#include <boost/asio/bind_cancellation_slot.hpp>
#include <boost/asio/cancellation_signal.hpp>
#include <boost/asio/co_spawn.hpp>

#include <future>

#include "platform/errors.hpp"
#include "platform/runtime.hpp"

namespace ombrine {
namespace {

using namespace std::chrono_literals;

TEST(SystemClockTest, SleepWaitsAtLeastTheDuration) {
  Runtime runtime(1);
  SystemClock clock;
  auto start = clock.uptime();
  runtime.runBlocking(clock.sleep(20ms));
  EXPECT_GE(clock.uptime() - start, 20ms);
}

TEST(SystemClockTest, CancelledSleepRaisesCancellationPromptly) {
  Runtime runtime(1);
  SystemClock clock;
  asio::cancellation_signal signal;
  std::promise<std::exception_ptr> done;
  auto start = clock.uptime();
  auto completion = [&](std::exception_ptr error) { done.set_value(error); };
  asio::co_spawn(runtime.executor(), clock.sleep(10s), asio::bind_cancellation_slot(signal.slot(), completion));
  std::this_thread::sleep_for(10ms);
  asio::post(runtime.executor(), [&] { signal.emit(asio::cancellation_type::terminal); });
  auto error = done.get_future().get();
  EXPECT_LT(clock.uptime() - start, 5s);
  ASSERT_TRUE(error);
  EXPECT_THROW(std::rethrow_exception(error), CancellationError);
}

}  // namespace
}  // namespace ombrine
