#include "platform/linux/curl_http_client.hpp"

#include <curl/curl.h>
#include <pthread.h>

#include <boost/asio/any_completion_handler.hpp>
#include <boost/asio/associated_cancellation_slot.hpp>
#include <boost/asio/associated_executor.hpp>
#include <boost/asio/async_result.hpp>
#include <boost/asio/cancellation_signal.hpp>
#include <boost/asio/execution/outstanding_work.hpp>
#include <boost/asio/post.hpp>
#include <boost/url/parse.hpp>
#include <cstdint>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <thread>
#include <unordered_map>
#include <vector>

#include "platform/errors.hpp"
#include "platform/linux/curl_library.hpp"
#include "platform/log.hpp"

namespace ombrine {

namespace {

constexpr long kMaxRedirects = 10;
constexpr long kMaxConnectionsPerHost = 6;
constexpr std::size_t kSpareEasyHandles = 16;
// Upper bound of one curl_multi_poll; curl shortens it to its own next timeout and a wakeup
// ends it at once, so this only matters for an idle client.
constexpr int kIdlePollMilliseconds = 1000;
// The bound while transfers run. The libcurl of Debian 12 (7.88) sometimes sleeps through the
// moment a transfer can go on (seen with transfers queued behind the per-host connection
// limit: the poll ran its whole second with transfers running and nothing queued), so a busy
// loop looks again at least this often. It costs a few wake-ups per second only while
// transfers are in flight.
constexpr int kBusyPollMilliseconds = 5;
constexpr char kUserAgent[] = "Ombrine/0.1";

using Completion = asio::any_completion_handler<void(std::exception_ptr, HttpResponse)>;

// One request on its way through the network thread. Created by `send`, owned by the loop's
// command queue and then by its table of running transfers; the network thread alone touches it
// once it is queued.
struct Transfer {
  std::uint64_t id = 0;
  HttpRequest request;
  CURL* easy = nullptr;
  curl_slist* headerList = nullptr;
  HttpResponse response;
  bool bodyStarted = false;
  char errorBuffer[CURL_ERROR_SIZE] = {};
  // Boost 1.81's any_completion_handler move-assignment wraps the handler in itself, so it is
  // only ever move-constructed: emplaced here, moved out by `complete`.
  std::optional<Completion> completion;
  asio::cancellation_slot slot;
  // The awaiting coroutine's executor, counting this transfer as outstanding work so that a
  // plain io_context::run() does not return while the transfer is in flight.
  Executor executor;

  Transfer() = default;
  Transfer(const Transfer&) = delete;
  Transfer& operator=(const Transfer&) = delete;
  ~Transfer() { curlLibrary().slist_free_all(headerList); }
};

bool isTokenCharacter(char c) {
  static constexpr std::string_view kSymbols = "!#$%&'*+-.^_`|~";
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
         kSymbols.find(c) != std::string_view::npos;
}

bool isToken(std::string_view text) { return !text.empty() && std::ranges::all_of(text, isTokenCharacter); }

void validate(const HttpRequest& request) {
  if (!isToken(request.method)) throw std::invalid_argument("invalid HTTP method");
  if (request.timeout.count() <= 0) throw std::invalid_argument("HTTP timeout must be positive");
  for (const auto& header : request.headers) {
    if (!isToken(header.name)) throw std::invalid_argument("invalid HTTP header name");
    if (header.value.find_first_of(std::string_view("\r\n\0", 3)) != std::string::npos) {
      throw std::invalid_argument("HTTP header value contains a line break or NUL");
    }
  }
}

bool hasHeader(const HttpRequest& request, std::string_view name) {
  return std::ranges::any_of(request.headers,
                             [&](const HttpHeader& header) { return equalsIgnoringCase(header.name, name); });
}

std::string_view trim(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\r' || text.back() == '\n')) {
    text.remove_suffix(1);
  }
  return text;
}

// Called by curl for every header line of every response of the exchange (redirects, interim
// 1xx responses, trailers). A status line starts a new response, so only the final one's
// headers remain.
void addHeaderLine(Transfer& transfer, std::string_view line) {
  auto& headers = transfer.response.headers;
  if (line.starts_with("HTTP/")) {
    headers.clear();
    return;
  }
  if (!line.empty() && (line.front() == ' ' || line.front() == '\t')) {
    auto continuation = trim(line);
    if (!headers.empty() && !continuation.empty()) {
      headers.back().value += ' ';
      headers.back().value += continuation;
    }
    return;
  }
  auto colon = line.find(':');
  if (colon == std::string_view::npos) return;  // the blank line ending the block
  headers.push_back(HttpHeader{std::string(line.substr(0, colon)), std::string(trim(line.substr(colon + 1)))});
}

// curl callbacks must not throw: a failure returns a short count, which aborts the transfer
// with a write error.
std::size_t onHeader(char* data, std::size_t size, std::size_t count, void* user) noexcept {
  try {
    addHeaderLine(*static_cast<Transfer*>(user), std::string_view(data, size * count));
    return size * count;
  } catch (...) {
    return 0;
  }
}

std::size_t onBody(char* data, std::size_t size, std::size_t count, void* user) noexcept {
  auto& transfer = *static_cast<Transfer*>(user);
  try {
    transfer.response.body.append(data, size * count);
    transfer.bodyStarted = true;
    return size * count;
  } catch (...) {
    return 0;
  }
}

curl_slist* appendLine(curl_slist* list, const std::string& line) {
  auto* extended = curlLibrary().slist_append(list, line.c_str());
  if (extended == nullptr) {
    curlLibrary().slist_free_all(list);
    throw std::bad_alloc();
  }
  return extended;
}

curl_slist* buildHeaderList(const HttpRequest& request, bool sendsBody) {
  curl_slist* list = nullptr;
  // A waiting round trip for "100 Continue" only slows small uploads down.
  if (sendsBody && !hasHeader(request, "Expect")) list = appendLine(list, "Expect:");
  // Without this curl would label every body as a URL-encoded form.
  if (sendsBody && !hasHeader(request, "Content-Type")) list = appendLine(list, "Content-Type:");
  for (const auto& header : request.headers) {
    // "Name;" is curl's spelling of a header sent with an empty value ("Name:" removes it).
    auto line = header.value.empty() ? header.name + ";" : header.name + ": " + header.value;
    list = appendLine(list, line);
  }
  return list;
}

// Applies every option of one transfer to a clean easy handle. Returns the first failure.
CURLcode configure(Transfer& transfer) {
  const auto& request = transfer.request;
  CURL* easy = transfer.easy;
  const bool sendsBody =
      !request.body.empty() || request.method == "POST" || request.method == "PUT" || request.method == "PATCH";
  transfer.headerList = buildHeaderList(request, sendsBody);

  CURLcode result = CURLE_OK;
  auto set = [&](CURLoption option, auto value) {
    if (result == CURLE_OK) result = curlLibrary().easy_setopt(easy, option, value);
  };
  set(CURLOPT_PRIVATE, static_cast<void*>(&transfer));
  set(CURLOPT_URL, request.url.c_str());
  set(CURLOPT_PROTOCOLS_STR, "http,https");
  set(CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
  set(CURLOPT_NOSIGNAL, 1L);
  set(CURLOPT_TIMEOUT_MS, static_cast<long>(request.timeout.count()));
  set(CURLOPT_FOLLOWLOCATION, request.followRedirects ? 1L : 0L);
  set(CURLOPT_MAXREDIRS, kMaxRedirects);
  set(CURLOPT_ACCEPT_ENCODING, "");
  set(CURLOPT_USERAGENT, kUserAgent);
  set(CURLOPT_HTTPHEADER, transfer.headerList);
  set(CURLOPT_ERRORBUFFER, transfer.errorBuffer);
  set(CURLOPT_HEADERFUNCTION, &onHeader);
  set(CURLOPT_HEADERDATA, static_cast<void*>(&transfer));
  set(CURLOPT_WRITEFUNCTION, &onBody);
  set(CURLOPT_WRITEDATA, static_cast<void*>(&transfer));
  if (request.method == "HEAD") {
    set(CURLOPT_NOBODY, 1L);
  } else if (sendsBody) {
    set(CURLOPT_POSTFIELDS, request.body.data());
    set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body.size()));
    if (request.method != "POST") set(CURLOPT_CUSTOMREQUEST, request.method.c_str());
  } else if (request.method != "GET") {
    set(CURLOPT_CUSTOMREQUEST, request.method.c_str());
  }
  return result;
}

boost::urls::url effectiveUrl(CURL* easy, const boost::urls::url& requested) {
  char* text = nullptr;
  if (curlLibrary().easy_getinfo(easy, CURLINFO_EFFECTIVE_URL, &text) != CURLE_OK || text == nullptr) {
    return requested;
  }
  auto parsed = boost::urls::parse_uri(text);
  if (!parsed) return requested;
  return boost::urls::url(*parsed);
}

std::exception_ptr errorFor(const Transfer& transfer, CURLcode code) {
  std::string detail = transfer.errorBuffer[0] != '\0' ? transfer.errorBuffer : curlLibrary().easy_strerror(code);
  return std::make_exception_ptr(HttpError(httpErrorCaseForCurl(code, transfer.bodyStarted), detail));
}

}  // namespace

HttpError::Case httpErrorCaseForCurl(int curlCode, bool bodyStarted) noexcept {
  switch (static_cast<CURLcode>(curlCode)) {
    case CURLE_OPERATION_TIMEDOUT: return HttpError::timedOut;
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_RESOLVE_PROXY:
    case CURLE_COULDNT_CONNECT: return HttpError::cannotConnect;
    case CURLE_PARTIAL_FILE: return HttpError::truncated;
    case CURLE_RECV_ERROR: return bodyStarted ? HttpError::truncated : HttpError::other;
    case CURLE_TOO_MANY_REDIRECTS: return HttpError::tooManyRedirects;
    default: return HttpError::other;
  }
}

// The state shared between `send` callers, cancellation handlers and the network thread.
// Cancellation handlers hold it weakly, so a cancellation that arrives after the client is gone
// does nothing.
class CurlHttpClient::Loop {
 public:
  Loop() : multi_(curlLibrary().multi_init()) {
    if (multi_ == nullptr) throw std::runtime_error("libcurl multi handle could not be created");
    curlLibrary().multi_setopt(multi_, CURLMOPT_MAX_HOST_CONNECTIONS, kMaxConnectionsPerHost);
  }
  Loop(const Loop&) = delete;
  Loop& operator=(const Loop&) = delete;

  // The network thread has returned by now: every transfer was removed from the multi handle.
  ~Loop() {
    for (CURL* easy : spare_) curlLibrary().easy_cleanup(easy);
    curlLibrary().multi_cleanup(multi_);
  }

  std::uint64_t nextId() {
    std::lock_guard lock(mutex_);
    return ++lastId_;
  }

  // Any thread.
  void submit(std::unique_ptr<Transfer> transfer) { push(Command{std::move(transfer), 0}); }

  // Any thread. A transfer that already finished is left alone.
  void cancel(std::uint64_t id) { push(Command{nullptr, id}); }

  // Any thread; makes `run` return after aborting every transfer.
  void stop() {
    {
      std::lock_guard lock(mutex_);
      stopping_ = true;
    }
    curlLibrary().multi_wakeup(multi_);
  }

  // The network thread's body.
  void run() {
    for (;;) {
      std::vector<Command> commands;
      bool stopping = false;
      {
        std::lock_guard lock(mutex_);
        commands.swap(commands_);
        stopping = stopping_;
      }
      for (auto& command : commands) {
        if (command.transfer) {
          start(std::move(command.transfer));
        } else {
          abort(command.cancelledId);
        }
      }
      if (stopping) {
        abortAll();
        return;
      }
      int running = 0;
      curlLibrary().multi_perform(multi_, &running);
      collectFinished();
      const int wait = active_.empty() ? kIdlePollMilliseconds : kBusyPollMilliseconds;
      auto polled = curlLibrary().multi_poll(multi_, nullptr, 0, wait, nullptr);
      if (polled != CURLM_OK) {
        // Not expected to happen; pausing keeps a persistent failure from spinning a core.
        logf("HTTP network thread: {}", curlLibrary().multi_strerror(polled));
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
      }
    }
  }

 private:
  // Either a transfer to start or the id of one to cancel.
  struct Command {
    std::unique_ptr<Transfer> transfer;
    std::uint64_t cancelledId;
  };

  // Queues a command and wakes the network thread once per batch: only the command that finds
  // the queue empty wakes it, since the thread takes the whole queue when it wakes. A burst of
  // sends then costs one wake-up and one pass over the transfers, not one per send.
  void push(Command command) {
    bool wake = false;
    {
      std::lock_guard lock(mutex_);
      if (stopping_ && !command.transfer) return;
      wake = commands_.empty();
      commands_.push_back(std::move(command));
    }
    if (wake) curlLibrary().multi_wakeup(multi_);
  }

  CURL* acquireEasy() {
    if (spare_.empty()) return curlLibrary().easy_init();
    CURL* easy = spare_.back();
    spare_.pop_back();
    return easy;
  }

  // Resets the handle at once so it keeps no pointer into the finished transfer.
  void releaseEasy(CURL* easy) {
    if (easy == nullptr) return;
    curlLibrary().easy_reset(easy);
    if (spare_.size() < kSpareEasyHandles) {
      spare_.push_back(easy);
    } else {
      curlLibrary().easy_cleanup(easy);
    }
  }

  void start(std::unique_ptr<Transfer> transfer) {
    Transfer& started = *transfer;
    std::exception_ptr failure;
    try {
      active_.try_emplace(started.id).first->second = std::move(transfer);
      started.easy = acquireEasy();
      if (started.easy == nullptr) throw std::bad_alloc();
      auto configured = configure(started);
      if (configured != CURLE_OK) throw HttpError(HttpError::other, curlLibrary().easy_strerror(configured));
      auto added = curlLibrary().multi_add_handle(multi_, started.easy);
      if (added != CURLM_OK) throw HttpError(HttpError::other, curlLibrary().multi_strerror(added));
      return;
    } catch (...) {
      failure = std::current_exception();
    }
    // Still ours when the table could not take it; otherwise take it back out.
    auto owned = transfer ? std::move(transfer) : std::move(active_.extract(started.id).mapped());
    releaseEasy(std::exchange(owned->easy, nullptr));
    complete(*owned, failure);
  }

  void abort(std::uint64_t id) {
    auto node = active_.extract(id);
    if (node.empty()) return;
    finishWithCancellation(*node.mapped());
  }

  void abortAll() {
    for (auto& [id, transfer] : active_) finishWithCancellation(*transfer);
    active_.clear();
  }

  // Removing a running transfer closes its connection; curl never reuses a half-read one.
  void finishWithCancellation(Transfer& transfer) {
    curlLibrary().multi_remove_handle(multi_, transfer.easy);
    releaseEasy(std::exchange(transfer.easy, nullptr));
    complete(transfer, std::make_exception_ptr(CancellationError()));
  }

  void collectFinished() {
    int queued = 0;
    while (CURLMsg* message = curlLibrary().multi_info_read(multi_, &queued)) {
      if (message->msg != CURLMSG_DONE) continue;
      // The message is invalid once its handle is removed: copy what is needed first.
      CURL* easy = message->easy_handle;
      CURLcode result = message->data.result;
      char* owner = nullptr;
      curlLibrary().easy_getinfo(easy, CURLINFO_PRIVATE, &owner);
      auto node = active_.extract(reinterpret_cast<Transfer*>(owner)->id);
      curlLibrary().multi_remove_handle(multi_, easy);
      auto& transfer = *node.mapped();
      std::exception_ptr failure;
      if (result == CURLE_OK) {
        long status = 0;
        curlLibrary().easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
        transfer.response.status = static_cast<int>(status);
        transfer.response.effectiveUrl = effectiveUrl(easy, transfer.request.url);
      } else {
        failure = errorFor(transfer, result);
      }
      releaseEasy(std::exchange(transfer.easy, nullptr));
      complete(transfer, failure);
    }
  }

  // The one place a transfer's completion handler is used. Every path that takes a transfer out
  // of `active_` (or never puts it there) calls this once, on the network thread, so a send can
  // neither complete twice nor be forgotten. The handler runs on its own executor, where the
  // cancellation slot is cleared first, as Asio requires before completing.
  void complete(Transfer& transfer, std::exception_ptr failure) {
    auto deliver = [completion = std::move(*transfer.completion), slot = transfer.slot, failure,
                    response = std::move(transfer.response)]() mutable {
      if (slot.is_connected()) slot.clear();
      std::move(completion)(failure, std::move(response));
    };
    auto executor = std::move(transfer.executor);
    asio::post(executor, std::move(deliver));
  }

  CURLM* multi_;
  std::mutex mutex_;
  std::vector<Command> commands_;  // guarded by mutex_
  bool stopping_ = false;          // guarded by mutex_
  std::uint64_t lastId_ = 0;       // guarded by mutex_
  // Network thread only.
  std::unordered_map<std::uint64_t, std::unique_ptr<Transfer>> active_;
  std::vector<CURL*> spare_;
};

CurlHttpClient::CurlHttpClient() = default;

CurlHttpClient::~CurlHttpClient() {
  if (preparer_.joinable()) preparer_.join();
  if (!loop_) return;
  loop_->stop();
  thread_.join();
}

void CurlHttpClient::start() {
  std::call_once(started_, [this] {
    auto loop = std::make_shared<Loop>();
    thread_ = std::thread([loop] { loop->run(); });
    pthread_setname_np(thread_.native_handle(), "ombrine-http");
    loop_ = std::move(loop);
  });
}

void CurlHttpClient::prepare() {
  std::call_once(preparing_, [this] {
    preparer_ = std::thread([this] {
      try {
        start();
      } catch (...) {
        // The first send tries again and raises.
      }
    });
  });
}

Task<HttpResponse> CurlHttpClient::send(const HttpRequest& request) {
  validate(request);
  start();
  auto transfer = std::make_unique<Transfer>();
  transfer->id = loop_->nextId();
  transfer->request = request;

  auto initiation = [loop = loop_](auto handler, std::unique_ptr<Transfer> transfer) {
    Executor executor = asio::get_associated_executor(handler);
    transfer->executor = asio::prefer(executor, asio::execution::outstanding_work.tracked);
    auto slot = asio::get_associated_cancellation_slot(handler);
    transfer->completion.emplace(std::move(handler));
    if (slot.is_connected()) {
      std::weak_ptr<Loop> weakLoop = loop;
      auto onCancel = [weakLoop, id = transfer->id](asio::cancellation_type type) {
        if (type == asio::cancellation_type::none) return;
        if (auto owner = weakLoop.lock()) owner->cancel(id);
      };
      slot.assign(onCancel);
      transfer->slot = slot;
    }
    loop->submit(std::move(transfer));
  };
  using Signature = void(std::exception_ptr, HttpResponse);
  auto operation = asio::async_initiate<const asio::use_awaitable_t<>&, Signature>(initiation, asio::use_awaitable,
                                                                                   std::move(transfer));
  co_return co_await std::move(operation);
}

}  // namespace ombrine
