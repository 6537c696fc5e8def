#pragma once
// The coroutine vocabulary of the whole program.
//
// Every asynchronous operation is a `Task<T>` (an Asio awaitable) that runs on some executor.
// A named serial context is a `Strand`: state that belongs to it is touched only by code running
// on it, so it needs no lock.

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/awaitable.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/strand.hpp>
#include <boost/asio/this_coro.hpp>
#include <boost/asio/use_awaitable.hpp>

namespace ombrine {

namespace asio = boost::asio;

template <class T = void>
using Task = asio::awaitable<T>;

using Executor = asio::any_io_executor;
using Strand = asio::strand<asio::io_context::executor_type>;

}  // namespace ombrine
