#pragma once
// The process's one io_context, run by a small thread pool.
//
// Construct one Runtime at start (the composition root owns it) and pass it by reference.
// Serial contexts are strands made from it. Destruction stops the pool and joins its threads;
// work still queued is destroyed without running.

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/use_future.hpp>

#include <thread>
#include <utility>
#include <vector>

#include "platform/async/task.hpp"

namespace ombrine {

class Runtime {
 public:
  // `threads` pool threads run the io_context; at least one.
  explicit Runtime(unsigned threads = 2);
  Runtime(const Runtime&) = delete;
  Runtime& operator=(const Runtime&) = delete;
  ~Runtime();

  asio::io_context& context() noexcept { return context_; }
  asio::io_context::executor_type executor() noexcept { return context_.get_executor(); }

  // A new serial context on the pool.
  Strand makeStrand() { return asio::make_strand(context_); }

  // Runs `task` on the pool and blocks the calling (non-pool) thread until it ends; returns its
  // value or rethrows its exception. For main() and tests only: calling it from a pool thread
  // can deadlock.
  template <class T>
  T runBlocking(Task<T> task) {
    auto future = asio::co_spawn(context_, std::move(task), asio::use_future);
    return future.get();
  }

  // Stops the pool early; later work is not run. Idempotent.
  void stop();

 private:
  asio::io_context context_;
  asio::executor_work_guard<asio::io_context::executor_type> work_;
  std::vector<std::thread> threads_;
};

}  // namespace ombrine
