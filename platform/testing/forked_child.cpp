#include "platform/testing/forked_child.hpp"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <thread>

namespace ombrine {
namespace {

constexpr char kRun = 'r';
constexpr char kQuit = 'q';

[[noreturn]] void childMain(int command, const std::function<bool()>& body) {
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

}  // namespace

ForkedChild::ForkedChild(std::function<bool()> body) {
  int fds[2];
  if (::pipe(fds) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
  pid_ = ::fork();
  if (pid_ < 0) {
    const int error = errno;
    ::close(fds[0]);
    ::close(fds[1]);
    throw std::system_error(error, std::generic_category(), "fork");
  }
  if (pid_ == 0) {
    ::close(fds[1]);
    childMain(fds[0], body);
  }
  ::close(fds[0]);
  release_ = fds[1];
}

ForkedChild::~ForkedChild() {
  if (!reaped_) {
    finish(kQuit);
    if (!waitBounded(std::chrono::seconds(5))) {
      ::kill(pid_, SIGKILL);
      ::waitpid(pid_, &status_, 0);
    }
  }
  if (release_ >= 0) ::close(release_);
}

void ForkedChild::finish(char command) {
  if (release_ < 0) return;
  (void)!::write(release_, &command, 1);
  ::close(release_);
  release_ = -1;
}

bool ForkedChild::waitBounded(std::chrono::milliseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (true) {
    const pid_t done = ::waitpid(pid_, &status_, WNOHANG);
    if (done == pid_) {
      reaped_ = true;
      return true;
    }
    if (done < 0 && errno != EINTR) return false;
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
}

bool ForkedChild::runAndWait(std::chrono::milliseconds limit) {
  finish(kRun);
  if (!waitBounded(limit)) {
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, &status_, 0);
    reaped_ = true;
    return false;
  }
  return WIFEXITED(status_) && WEXITSTATUS(status_) == 0;
}

}  // namespace ombrine
