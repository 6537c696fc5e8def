#pragma once
// A child process for cross-process tests, forked when the object is made and held until
// released. Forking copies only the calling thread: if another thread held an allocator or
// sanitizer lock at that moment, the child would block forever on its first allocation. Making
// every ForkedChild before the test starts threads (watchers, runtimes) rules that out, while the
// child's body still runs later, at the point of the test that needs it. The constructor refuses
// to fork while the process runs more than one thread, so the mistake fails the test at once
// instead of hanging one run in a hundred.
//
// Every wait is bounded: a child still running at the end of its time limit is killed with
// SIGKILL and reaped, so a hung child fails the test instead of hanging it. A child whose parent
// dies is killed too, and a child never released exits without running its body.
//
// Not thread-safe: one ForkedChild is used by one thread of the parent (the one that made it).

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <type_traits>
#include <utility>
#include <vector>

namespace ombrine {

class ForkedChild {
 public:
  // What wait() and kill() report for a child that was still running at the end of its time
  // limit (and was then killed).
  static constexpr int kHung = -1;
  static constexpr std::chrono::milliseconds kDefaultLimit = std::chrono::seconds(30);

  // Forks now. The child waits until released, runs `body` and exits 0 when the body returned
  // (a bool body: returned true), 1 when it returned false or raised. Throws std::logic_error
  // when the process runs other threads, std::system_error when the pipe or fork fails.
  template <class Body>
  requires std::is_invocable_v<Body&>
  explicit ForkedChild(Body body) : ForkedChild(asBoolBody(std::move(body)), 0) {}
  ForkedChild(ForkedChild&& other) noexcept;
  ForkedChild& operator=(ForkedChild&&) = delete;
  ForkedChild(const ForkedChild&) = delete;
  ForkedChild& operator=(const ForkedChild&) = delete;
  // A child never released is told to exit without running its body; a released one still
  // running is killed. Either way it is reaped.
  ~ForkedChild();

  // Lets the child run its body; returns at once. Call at most once.
  void release();

  // Releases the child and waits for it; true when it exited 0 within `limit`.
  bool runAndWait(std::chrono::milliseconds limit = kDefaultLimit);

  // Waits for the released child to end: its exit code, 128 + the signal that ended it, or kHung
  // when it was still running after `limit` (it is then killed). Later calls repeat the answer.
  int wait(std::chrono::milliseconds limit = kDefaultLimit);

  // Kills the child with SIGKILL now and reaps it; answers as wait() does (128 + SIGKILL unless
  // the child had already ended).
  int kill();

  // True once the released child's body has called reportReady(); false when the child ended
  // without reporting or `limit` passed first (the child is left running: kill or wait for it).
  bool waitUntilReady(std::chrono::milliseconds limit = kDefaultLimit);

  // Called inside a body: wakes the parent's waitUntilReady(). Does nothing outside a child.
  static void reportReady();

  pid_t pid() const { return pid_; }

 private:
  ForkedChild(std::function<bool()> body, int);

  template <class Body>
  static std::function<bool()> asBoolBody(Body body) {
    if constexpr (std::is_void_v<std::invoke_result_t<Body&>>) {
      return [body = std::move(body)]() mutable {
        body();
        return true;
      };
    } else {
      return [body = std::move(body)]() mutable { return static_cast<bool>(body()); };
    }
  }

  void sendCommand(char command);
  bool reapBefore(std::chrono::steady_clock::time_point deadline);
  int killAndReap();
  int outcome() const;

  pid_t pid_ = -1;
  int release_ = -1;  // write end of the pipe the child waits on
  int ready_ = -1;    // read end of the pipe reportReady() writes to
  bool reaped_ = false;
  bool hung_ = false;
  int status_ = 0;
};

// Forks `count` children now, child i running body(i) once released.
template <class Body>
std::vector<ForkedChild> forkChildren(int count, Body body) {
  std::vector<ForkedChild> children;
  children.reserve(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) children.emplace_back([body, i]() mutable { return body(i); });
  return children;
}

// Releases every child, then waits for them all within one shared `limit`; true when each exited
// 0. Children still running when the limit ends are killed.
bool runAllAndWait(std::vector<ForkedChild>& children, std::chrono::milliseconds limit = ForkedChild::kDefaultLimit);

// How `releaseAndKillAtRandom` keeps children running while killing some.
struct RandomKills {
  std::size_t concurrent = 4;
  int kills = 12;
  std::uint32_t seed = 1;
  std::chrono::milliseconds shortestPause{5};
  std::chrono::milliseconds longestPause{60};
};

// Releases children 0..concurrent-1, then `kills` times: waits a random pause, kills a random
// running child (SIGKILL, reaped) and releases the next unreleased one in its place. `child(i)`
// gives child i; there must be concurrent + kills of them. Returns the indexes of the children
// left running (the caller kills or waits for them).
std::vector<std::size_t> releaseAndKillAtRandom(const std::function<ForkedChild&(std::size_t)>& child,
                                                const RandomKills& plan);

}  // namespace ombrine
