#include "platform/testing/forked_child.hpp"

#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <random>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>

namespace ombrine {
namespace {

constexpr char kRun = 'r';
constexpr char kQuit = 'q';
constexpr char kReady = 'y';
constexpr auto kReapAfterKill = std::chrono::seconds(10);

// The write end of the ready pipe, in a child only.
int childReadyFd = -1;

std::size_t threadsOfThisProcess() {
  std::error_code error;
  std::size_t count = 0;
  std::filesystem::directory_iterator it("/proc/self/task", error);
  for (; !error && it != std::filesystem::directory_iterator(); it.increment(error)) ++count;
  return error ? 1 : count;
}

// The number of threads once any that are ending have gone: a joined thread can stay listed for
// a moment after join returns, and those are harmless.
std::size_t settledThreadCount() {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(500);
  std::size_t threads = threadsOfThisProcess();
  while (threads > 1 && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    threads = threadsOfThisProcess();
  }
  return threads;
}

void closeBoth(const int fds[2]) {
  ::close(fds[0]);
  ::close(fds[1]);
}

[[noreturn]] void childMain(pid_t parent, int command, int ready, const std::function<bool()>& body) {
  // A parent that dies (a crashed test) takes its waiting children with it.
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (::getppid() != parent) ::_exit(1);
  childReadyFd = ready;
  char received = kQuit;
  while (::read(command, &received, 1) < 0 && errno == EINTR) {
  }
  int code = 1;
  if (received == kRun) {
    try {
      code = body() ? 0 : 1;
    } catch (...) {
    }
  }
  ::_exit(code);
}

std::chrono::milliseconds remainingUntil(std::chrono::steady_clock::time_point deadline) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
  return std::max(left, std::chrono::milliseconds(0));
}

}  // namespace

ForkedChild::ForkedChild(std::function<bool()> body, int) {
  if (const std::size_t threads = settledThreadCount(); threads > 1) {
    throw std::logic_error("ForkedChild made while " + std::to_string(threads) +
                           " threads run: make it before the test starts any thread");
  }
  int command[2];
  int ready[2];
  if (::pipe(command) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
  if (::pipe(ready) != 0) {
    const int error = errno;
    closeBoth(command);
    throw std::system_error(error, std::generic_category(), "pipe");
  }
  const pid_t parent = ::getpid();
  pid_ = ::fork();
  if (pid_ < 0) {
    const int error = errno;
    closeBoth(command);
    closeBoth(ready);
    throw std::system_error(error, std::generic_category(), "fork");
  }
  if (pid_ == 0) {
    ::close(command[1]);
    ::close(ready[0]);
    childMain(parent, command[0], ready[1], body);
  }
  ::close(command[0]);
  ::close(ready[1]);
  release_ = command[1];
  ready_ = ready[0];
}

ForkedChild::ForkedChild(ForkedChild&& other) noexcept
    : pid_(std::exchange(other.pid_, -1)),
      release_(std::exchange(other.release_, -1)),
      ready_(std::exchange(other.ready_, -1)),
      reaped_(other.reaped_),
      hung_(other.hung_),
      status_(other.status_) {}

ForkedChild::~ForkedChild() {
  if (pid_ > 0 && !reaped_) {
    if (release_ >= 0) {
      sendCommand(kQuit);
      if (!reapBefore(std::chrono::steady_clock::now() + std::chrono::seconds(5))) killAndReap();
    } else {
      killAndReap();
    }
  }
  if (release_ >= 0) ::close(release_);
  if (ready_ >= 0) ::close(ready_);
}

void ForkedChild::sendCommand(char command) {
  if (release_ < 0) return;
  (void)!::write(release_, &command, 1);
  ::close(release_);
  release_ = -1;
}

void ForkedChild::release() { sendCommand(kRun); }

bool ForkedChild::reapBefore(std::chrono::steady_clock::time_point deadline) {
  while (!reaped_) {
    const pid_t done = ::waitpid(pid_, &status_, WNOHANG);
    if (done == pid_) {
      reaped_ = true;
      break;
    }
    if (done < 0 && errno != EINTR) return false;
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

int ForkedChild::killAndReap() {
  if (!reaped_) {
    ::kill(pid_, SIGKILL);
    // SIGKILL ends any process not stuck in the kernel; the bound only keeps this from hanging
    // on one that is.
    if (!reapBefore(std::chrono::steady_clock::now() + kReapAfterKill)) hung_ = true;
  }
  return outcome();
}

int ForkedChild::outcome() const {
  if (hung_ || !reaped_) return kHung;
  if (WIFEXITED(status_)) return WEXITSTATUS(status_);
  if (WIFSIGNALED(status_)) return 128 + WTERMSIG(status_);
  return kHung;
}

int ForkedChild::wait(std::chrono::milliseconds limit) {
  if (pid_ <= 0) return kHung;
  if (!reapBefore(std::chrono::steady_clock::now() + limit)) {
    killAndReap();
    hung_ = true;
  }
  return outcome();
}

int ForkedChild::kill() {
  if (pid_ <= 0) return kHung;
  return killAndReap();
}

bool ForkedChild::runAndWait(std::chrono::milliseconds limit) {
  release();
  return wait(limit) == 0;
}

bool ForkedChild::waitUntilReady(std::chrono::milliseconds limit) {
  if (ready_ < 0) return false;
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (true) {
    pollfd watched{ready_, POLLIN, 0};
    const int polled = ::poll(&watched, 1, static_cast<int>(remainingUntil(deadline).count()));
    if (polled < 0 && errno == EINTR) continue;
    if (polled <= 0) return false;
    char received = 0;
    const ssize_t got = ::read(ready_, &received, 1);
    if (got < 0 && errno == EINTR) continue;
    return got == 1 && received == kReady;
  }
}

void ForkedChild::reportReady() {
  if (childReadyFd < 0) return;
  const char ready = kReady;
  while (::write(childReadyFd, &ready, 1) < 0 && errno == EINTR) {
  }
}

bool runAllAndWait(std::vector<ForkedChild>& children, std::chrono::milliseconds limit) {
  for (ForkedChild& child : children) child.release();
  const auto deadline = std::chrono::steady_clock::now() + limit;
  bool allSucceeded = true;
  for (ForkedChild& child : children) {
    if (child.wait(remainingUntil(deadline)) != 0) allSucceeded = false;
  }
  return allSucceeded;
}

std::vector<std::size_t> releaseAndKillAtRandom(const std::function<ForkedChild&(std::size_t)>& child,
                                                const RandomKills& plan) {
  std::vector<std::size_t> running;
  for (std::size_t i = 0; i < plan.concurrent; ++i) {
    child(i).release();
    running.push_back(i);
  }
  std::mt19937 random(plan.seed);
  std::uniform_int_distribution<int> pause(static_cast<int>(plan.shortestPause.count()),
                                           static_cast<int>(plan.longestPause.count()));
  std::uniform_int_distribution<std::size_t> victim(0, plan.concurrent - 1);
  std::size_t next = plan.concurrent;
  for (int kill = 0; kill < plan.kills; ++kill) {
    std::this_thread::sleep_for(std::chrono::milliseconds(pause(random)));
    std::size_t& slot = running[victim(random)];
    child(slot).kill();
    slot = next++;
    child(slot).release();
  }
  return running;
}

}  // namespace ombrine
