#include "platform/async/resolve_once.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <thread>

#include "platform/runtime.hpp"

namespace ombrine {
namespace {

// A coordinator-shaped owner: one lock around the ResolveOnce, deliveries run after it.
struct Owner {
  std::mutex lock;
  ResolveOnce<int> once;

  void resolve(int value) {
    ResolveOnce<int>::Delivery delivery;
    {
      std::lock_guard guard(lock);
      delivery = once.resolve(Outcome<int>::success(value));
    }
    std::move(delivery)();
  }

  Task<int> await() {
    std::function<void(Continuation<int>)> install = [this](Continuation<int> continuation) {
      ResolveOnce<int>::Delivery delivery;
      {
        std::lock_guard guard(lock);
        delivery = once.install(std::move(continuation));
      }
      std::move(delivery)();
    };
    std::function<void()> onCancel = [] {};
    return suspend<int>(std::move(install), std::move(onCancel));
  }
};

TEST(ResolveOnceTest, ResultBeforeTheContinuationIsDeliveredOnce) {
  Runtime runtime(2);
  Owner owner;
  owner.resolve(1);
  owner.resolve(2);
  EXPECT_EQ(runtime.runBlocking(owner.await()), 1);
}

// Resolutions from two threads racing the installation: the caller always gets exactly one
// of them (a second resumption would resume a finished coroutine, which ASan reports).
TEST(ResolveOnceTest, ResolveRacingInstallResumesExactlyOnce) {
  Runtime runtime(2);
  for (int iteration = 0; iteration < 300; ++iteration) {
    Owner owner;
    std::atomic<bool> go{false};
    auto resolver = [&](int value) {
      while (!go) std::this_thread::yield();
      owner.resolve(value);
    };
    std::thread first(resolver, 10);
    std::thread second(resolver, 20);
    go = true;
    auto value = runtime.runBlocking(owner.await());
    first.join();
    second.join();
    EXPECT_TRUE(value == 10 || value == 20) << value;
  }
}

}  // namespace
}  // namespace ombrine
