#include "platform/runtime.hpp"

#include <algorithm>

namespace ombrine {

Runtime::Runtime(unsigned threads) : work_(asio::make_work_guard(context_)) {
  threads = std::max(1u, threads);
  threads_.reserve(threads);
  for (unsigned i = 0; i < threads; ++i) {
    threads_.emplace_back([this] { context_.run(); });
  }
}

Runtime::~Runtime() { stop(); }

void Runtime::stop() {
  work_.reset();
  context_.stop();
  for (auto& thread : threads_) {
    if (thread.joinable()) thread.join();
  }
  threads_.clear();
}

}  // namespace ombrine
