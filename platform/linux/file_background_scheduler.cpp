#include "platform/linux/file_background_scheduler.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <boost/json.hpp>

#include <cerrno>
#include <cmath>
#include <cstring>

#include "platform/atomic_file.hpp"
#include "platform/errors.hpp"
#include "platform/log.hpp"
#include "platform/paths.hpp"

namespace ombrine {

namespace json = boost::json;
using TimePoint = std::chrono::system_clock::time_point;

namespace {

double secondsOf(TimePoint time) { return std::chrono::duration<double>(time.time_since_epoch()).count(); }

TimePoint timeOf(const json::value& value) {
  const double seconds = value.to_number<double>();
  if (!std::isfinite(seconds) || std::fabs(seconds) > 8e9) throw std::runtime_error("time out of range");
  return TimePoint(std::chrono::duration_cast<TimePoint::duration>(std::chrono::duration<double>(seconds)));
}

json::value optionalTime(const std::optional<TimePoint>& time) {
  return time ? json::value(secondsOf(*time)) : json::value(nullptr);
}

std::optional<TimePoint> optionalTimeOf(const json::object& object, std::string_view key) {
  const json::value* value = object.if_contains(key);
  if (!value || value->is_null()) return std::nullopt;
  return timeOf(*value);
}

// The exclusive run lock of one identifier, taken without waiting.
class RunLock {
 public:
  explicit RunLock(const std::filesystem::path& path) {
    fd_ = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (fd_ < 0) throw FileError("cannot open " + path.string() + ": " + std::strerror(errno));
    while (::flock(fd_, LOCK_EX | LOCK_NB) != 0) {
      if (errno == EINTR) continue;
      if (errno != EWOULDBLOCK) throw FileError("cannot lock " + path.string() + ": " + std::strerror(errno));
      return;
    }
    held_ = true;
  }
  ~RunLock() {
    if (fd_ >= 0) ::close(fd_);
  }
  RunLock(const RunLock&) = delete;
  RunLock& operator=(const RunLock&) = delete;
  bool held() const { return held_; }

 private:
  int fd_ = -1;
  bool held_ = false;
};

json::object encodeRecord(const BackgroundPassRecord& record) {
  json::object object;
  object["number"] = record.number;
  object["started"] = secondsOf(record.started);
  object["ended"] = optionalTime(record.ended);
  object["requestedFor"] = optionalTime(record.requestedFor);
  object["result"] = record.result;
  object["pid"] = record.pid;
  return object;
}

BackgroundPassRecord decodeRecord(const json::value& value) {
  const json::object& object = value.as_object();
  BackgroundPassRecord record;
  record.number = object.at("number").to_number<std::uint64_t>();
  record.started = timeOf(object.at("started"));
  record.ended = optionalTimeOf(object, "ended");
  record.requestedFor = optionalTimeOf(object, "requestedFor");
  record.result = std::string(object.at("result").as_string());
  record.pid = object.at("pid").to_number<long>();
  return record;
}

}  // namespace

std::string encodeBackgroundTaskRequest(const BackgroundTaskRequest& request) {
  json::object object;
  object["identifier"] = request.identifier;
  object["earliestBeginDate"] = optionalTime(request.earliestBeginDate);
  return json::serialize(object) + "\n";
}

BackgroundTaskRequest decodeBackgroundTaskRequest(std::string_view text) {
  try {
    const json::value document = json::parse(text);
    const json::object& object = document.as_object();
    BackgroundTaskRequest request;
    request.identifier = std::string(object.at("identifier").as_string());
    request.earliestBeginDate = optionalTimeOf(object, "earliestBeginDate");
    return request;
  } catch (const std::runtime_error&) {
    throw;
  } catch (const std::exception& error) {
    throw std::runtime_error(std::string("invalid background request: ") + error.what());
  }
}

std::filesystem::path FileBackgroundScheduler::defaultFolder() {
  return applicationSupportDirectory() / "Background Tasks";
}

FileBackgroundScheduler::FileBackgroundScheduler(Clock& clock, std::filesystem::path folder, Limits limits)
    : clock_(clock), folder_(std::move(folder)), limits_(limits) {}

std::filesystem::path FileBackgroundScheduler::requestFile(const std::string& identifier) const {
  return folder_ / (identifier + ".request.json");
}
std::filesystem::path FileBackgroundScheduler::historyFile(const std::string& identifier) const {
  return folder_ / (identifier + ".passes.json");
}
std::filesystem::path FileBackgroundScheduler::lockFile(const std::string& identifier) const {
  return folder_ / (identifier + ".lock");
}

void FileBackgroundScheduler::changed() {
  {
    MutexLock lock(mutex_);
    ++changes_;
  }
  wake_.notify_all();
}

bool FileBackgroundScheduler::registerForTask(const std::string& identifier, LaunchHandler handler) {
  MutexLock lock(mutex_);
  return handlers_.emplace(identifier, std::move(handler)).second;
}

void FileBackgroundScheduler::submit(const BackgroundTaskRequest& request) {
  if (request.identifier.empty() || request.identifier.find('/') != std::string::npos) {
    throw BackgroundSchedulerError("invalid task identifier \"" + request.identifier + "\"");
  }
  try {
    writeFileAtomically(requestFile(request.identifier), encodeBackgroundTaskRequest(request));
  } catch (const FileError& error) {
    throw BackgroundSchedulerError(error.what());
  }
  changed();
}

void FileBackgroundScheduler::cancel(const std::string& identifier) {
  std::error_code error;
  std::filesystem::remove(requestFile(identifier), error);
  if (error) logf("Cannot cancel the background request {}: {}", identifier, error.message());
  changed();
}

std::optional<BackgroundTaskRequest> FileBackgroundScheduler::pendingRequest(const std::string& identifier) {
  try {
    const auto text = readFileIfExists(requestFile(identifier));
    if (!text) return std::nullopt;
    auto request = decodeBackgroundTaskRequest(*text);
    if (request.identifier != identifier) return std::nullopt;
    return request;
  } catch (const std::exception& error) {
    // A damaged request reads as none; the next submission replaces it.
    logf("Ignoring the background request {}: {}", identifier, error.what());
    return std::nullopt;
  }
}

std::vector<BackgroundPassRecord> FileBackgroundScheduler::passHistory(const std::string& identifier) const {
  std::vector<BackgroundPassRecord> history;
  try {
    const auto text = readFileIfExists(historyFile(identifier));
    if (!text) return history;
    const json::value document = json::parse(*text);
    for (const auto& item : document.as_array()) history.push_back(decodeRecord(item));
  } catch (const std::exception& error) {
    logf("Ignoring the background pass history {}: {}", identifier, error.what());
    history.clear();
  }
  return history;
}

void FileBackgroundScheduler::writeHistory(const std::string& identifier,
                                           const std::vector<BackgroundPassRecord>& history) {
  json::array array;
  const std::size_t first = history.size() > kKeptPasses ? history.size() - kKeptPasses : 0;
  for (std::size_t i = first; i < history.size(); ++i) array.push_back(encodeRecord(history[i]));
  writeFileAtomically(historyFile(identifier), json::serialize(array) + "\n");
}

FileBackgroundScheduler::DuePass FileBackgroundScheduler::runDuePass(const std::string& identifier) {
  DuePass due;
  LaunchHandler handler;
  {
    MutexLock lock(mutex_);
    const auto found = handlers_.find(identifier);
    if (found == handlers_.end()) {
      due.outcome = PassOutcome::noHandler;
      return due;
    }
    handler = found->second;
  }
  std::filesystem::create_directories(folder_);
  RunLock runLock(lockFile(identifier));
  if (!runLock.held()) {
    due.outcome = PassOutcome::busy;
    return due;
  }
  auto history = passHistory(identifier);
  if (!history.empty() && history.back().result == "running") {
    // Its process died holding the lock we now hold.
    history.back().result = "interrupted";
    writeHistory(identifier, history);
  }
  const auto request = pendingRequest(identifier);
  if (!request) return due;
  const TimePoint now = clock_.now();
  if (request->earliestBeginDate && *request->earliestBeginDate > now) {
    due.outcome = PassOutcome::notDue;
    due.due = request->earliestBeginDate;
    return due;
  }

  // Consume the request before the pass: the pass submits the next one.
  std::filesystem::remove(requestFile(identifier));
  BackgroundPassRecord record;
  record.number = history.empty() ? 1 : history.back().number + 1;
  record.started = now;
  record.requestedFor = request->earliestBeginDate;
  record.result = "running";
  record.pid = static_cast<long>(::getpid());
  history.push_back(record);
  writeHistory(identifier, history);

  auto task = std::make_shared<BackgroundTask>(identifier);
  {
    MutexLock lock(mutex_);
    running_ = task;
    if (stopping_) task->expire();
  }
  try {
    handler(task);
  } catch (const std::exception& error) {
    logf("Background task {} failed to launch: {}", identifier, error.what());
    task->setTaskCompleted(false);
  }
  std::optional<bool> result = task->waitForCompletion(limits_.passTimeLimit);
  if (!result) {
    task->expire();
    result = task->waitForCompletion(limits_.expiryGrace);
  }
  {
    MutexLock lock(mutex_);
    running_.reset();
  }
  record.ended = clock_.now();
  if (!result) {
    record.result = "unfinished";
    logf("Background task {} did not complete after its expiry", identifier);
  } else if (*result) {
    record.result = "success";
  } else {
    record.result = task->expired() ? "expired" : "failure";
  }
  history.back() = record;
  writeHistory(identifier, history);
  std::function<void(const BackgroundPassRecord&)> observer;
  {
    MutexLock lock(mutex_);
    observer = observer_;
  }
  if (observer) observer(record);
  due.outcome = PassOutcome::ran;
  due.record = record;
  return due;
}

void FileBackgroundScheduler::serve(const std::string& identifier, std::chrono::milliseconds poll) {
  while (true) {
    {
      MutexLock lock(mutex_);
      if (stopping_) return;
    }
    DuePass pass;
    try {
      pass = runDuePass(identifier);
    } catch (const std::exception& error) {
      logf("Background task {}: {}", identifier, error.what());
    }
    if (pass.outcome == PassOutcome::ran) continue;
    auto wait = std::chrono::duration_cast<std::chrono::steady_clock::duration>(poll);
    if (pass.outcome == PassOutcome::notDue && pass.due) {
      wait = std::min(wait, std::chrono::duration_cast<std::chrono::steady_clock::duration>(*pass.due - clock_.now()));
    }
    MutexLock lock(mutex_);
    // A submission or cancellation in this process wakes the wait early; those of other processes
    // are seen at the next poll.
    const std::uint64_t seen = changes_;
    lock.waitFor(wake_, std::max(wait, std::chrono::steady_clock::duration(std::chrono::milliseconds(1))),
                 [&]() REQUIRES(mutex_) { return stopping_ || changes_ != seen; });
  }
}

void FileBackgroundScheduler::stop() {
  std::shared_ptr<BackgroundTask> running;
  {
    MutexLock lock(mutex_);
    stopping_ = true;
    running = running_;
  }
  wake_.notify_all();
  if (running) running->expire();
}

}  // namespace ombrine
