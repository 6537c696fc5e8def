#pragma once
// BackgroundScheduler for Linux: the standing request of each identifier is a file of the
// container, so any process of the user can submit or cancel it, and whichever process honours
// requests (`ombrine daemon`, or `ombrine daemon --once` started by a systemd user timer) runs
// the pass when it is due.
//
// Layout of the folder (by default "Library/Application Support/Background Tasks" in the
// container): "<identifier>.request.json" the standing request (replaced atomically; absent when
// none stands), "<identifier>.passes.json" the latest passes, newest last, and
// "<identifier>.lock", whose exclusive `flock` the process running a pass holds, so that two
// processes never run passes of one identifier at once and a pass record left "running" by a
// dead process is known as interrupted.
//
// A due request is consumed when its pass starts: the pass submits the next one. A pass that does
// not complete within the time limit is expired (its task's expiration handler runs); one that
// does not complete within the grace period after that is recorded as unfinished and left behind.
//
// Thread-safe; `serve` runs on the caller's thread until `stop`.

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <map>
#include <mutex>
#include <vector>

#include "platform/background_scheduler.hpp"
#include "platform/clock.hpp"
#include "platform/thread_annotations.hpp"

namespace ombrine {

struct BackgroundPassRecord {
  std::uint64_t number = 0;  // counts every pass of the identifier, from 1
  std::chrono::system_clock::time_point started;
  std::optional<std::chrono::system_clock::time_point> ended;
  // The earliest begin date of the request the pass honoured.
  std::optional<std::chrono::system_clock::time_point> requestedFor;
  // "running", "success", "failure", "expired" (ran out of time and reported failure),
  // "unfinished" (no completion even after expiry), "interrupted" (its process died).
  std::string result;
  long pid = 0;
  bool operator==(const BackgroundPassRecord&) const = default;
};

class FileBackgroundScheduler final : public BackgroundScheduler {
 public:
  struct Limits {
    std::chrono::milliseconds passTimeLimit{std::chrono::seconds(30)};
    std::chrono::milliseconds expiryGrace{std::chrono::seconds(10)};
  };
  static constexpr std::size_t kKeptPasses = 50;

  // "<container>/Library/Application Support/Background Tasks".
  static std::filesystem::path defaultFolder();

  FileBackgroundScheduler(Clock& clock, std::filesystem::path folder, Limits limits);

  bool registerForTask(const std::string& identifier, LaunchHandler handler) override;
  void submit(const BackgroundTaskRequest& request) override;
  void cancel(const std::string& identifier) override;
  std::optional<BackgroundTaskRequest> pendingRequest(const std::string& identifier) override;

  enum class PassOutcome {
    ran,        // a due request was honoured; `record` says how it ended
    notDue,     // a request stands for `due`
    noRequest,  // none stands
    busy,       // another process (or thread) is running a pass of the identifier
    noHandler,  // nothing registered for the identifier in this process
  };
  struct DuePass {
    PassOutcome outcome = PassOutcome::noRequest;
    std::optional<std::chrono::system_clock::time_point> due;
    std::optional<BackgroundPassRecord> record;
  };

  // Runs the standing request of `identifier` if it is due, in this process, and waits for its
  // completion (expiring it at the time limit). Raises FileError when the folder cannot be used.
  DuePass runDuePass(const std::string& identifier);

  // Honours the requests of `identifier` until `stop`: sleeps until the standing request is due,
  // looking at the file again at least every `poll` (other processes submit and cancel), and runs
  // it. Returns after `stop`, once a running pass has completed or been given up.
  void serve(const std::string& identifier, std::chrono::milliseconds poll);
  // Ends `serve` and expires the running pass, if any. Any thread; idempotent.
  void stop();

  // Called on the thread that ran a pass, once its record is written. Set before passes run.
  void setPassObserver(std::function<void(const BackgroundPassRecord&)> observer) {
    MutexLock lock(mutex_);
    observer_ = std::move(observer);
  }

  // The latest passes, oldest first. Never raises (an unreadable history is empty).
  std::vector<BackgroundPassRecord> passHistory(const std::string& identifier) const;

  const std::filesystem::path& folder() const noexcept { return folder_; }

 private:
  std::filesystem::path requestFile(const std::string& identifier) const;
  std::filesystem::path historyFile(const std::string& identifier) const;
  std::filesystem::path lockFile(const std::string& identifier) const;
  void writeHistory(const std::string& identifier, const std::vector<BackgroundPassRecord>& history);
  void changed();

  Clock& clock_;
  std::filesystem::path folder_;
  Limits limits_;

  mutable Mutex mutex_;
  std::condition_variable wake_;
  std::map<std::string, LaunchHandler, std::less<>> handlers_ GUARDED_BY(mutex_);
  std::shared_ptr<BackgroundTask> running_ GUARDED_BY(mutex_);
  bool stopping_ GUARDED_BY(mutex_) = false;
  std::uint64_t changes_ GUARDED_BY(mutex_) = 0;
  std::function<void(const BackgroundPassRecord&)> observer_ GUARDED_BY(mutex_);
};

// The request file's text, and back (for tools and tests). Decoding raises std::runtime_error.
std::string encodeBackgroundTaskRequest(const BackgroundTaskRequest& request);
BackgroundTaskRequest decodeBackgroundTaskRequest(std::string_view text);

}  // namespace ombrine
