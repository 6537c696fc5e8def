#pragma once
// A child process for cross-process tests, forked when the object is made and held until
// released. Forking copies only the calling thread: if another thread held an allocator or
// sanitizer lock at that moment, the child would block forever on its first allocation. Making
// every ForkedChild before the test starts threads (watchers, runtimes) rules that out, while the
// child's body still runs later, at the point of the test that needs it.

#include <sys/types.h>

#include <chrono>
#include <functional>

namespace ombrine {

class ForkedChild {
 public:
  // Forks now. The child waits until `runAndWait` releases it, runs `body`, and exits 0 when the
  // body returned true (1 when it returned false or raised). Throws std::system_error when the
  // pipe or fork fails.
  explicit ForkedChild(std::function<bool()> body);
  ForkedChild(const ForkedChild&) = delete;
  ForkedChild& operator=(const ForkedChild&) = delete;
  // A child never released is told to exit without running its body, then reaped.
  ~ForkedChild();

  // Releases the child and waits for it; true when it exited 0 within `limit`. A child still
  // running after `limit` is killed and reaped, and the answer is false: a hung child fails the
  // test instead of hanging it. Call at most once.
  bool runAndWait(std::chrono::milliseconds limit = std::chrono::seconds(30));

 private:
  void finish(char command);
  bool waitBounded(std::chrono::milliseconds limit);

  pid_t pid_ = -1;
  int release_ = -1;  // write end of the pipe the child waits on
  bool reaped_ = false;
  int status_ = 0;
};

}  // namespace ombrine
