#include "platform/linux/system_clock.hpp"

#include <boost/asio/redirect_error.hpp>
#include <boost/asio/steady_timer.hpp>

#include "platform/errors.hpp"

namespace ombrine {

Clock::WallTime SystemClock::now() const { return std::chrono::system_clock::now(); }

Clock::Uptime SystemClock::uptime() const { return std::chrono::steady_clock::now(); }

Task<void> SystemClock::sleep(Duration duration) {
  auto executor = co_await asio::this_coro::executor;
  asio::steady_timer timer(executor, duration);
  boost::system::error_code error;
  auto token = asio::redirect_error(asio::use_awaitable, error);
  try {
    co_await timer.async_wait(token);
  } catch (const boost::system::system_error& e) {
    // A coroutine cancelled before this await fails the await itself with operation_aborted.
    if (e.code() == asio::error::operation_aborted) throw CancellationError();
    throw;
  }
  if (error == asio::error::operation_aborted) throw CancellationError();
  if (error) throw boost::system::system_error(error);
}

}  // namespace ombrine
