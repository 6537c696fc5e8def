#pragma once
// HttpClient over libcurl's multi interface.
//
// One network thread owns a curl multi handle and runs `curl_multi_poll`. `send` hands each
// request to that thread through a locked queue and wakes it; the finished transfer's result is
// posted to the awaiting coroutine's executor. Connections, TLS sessions and DNS answers are
// shared by all transfers through the multi handle, so sequential requests to one host reuse a
// connection; at most 6 connections are opened per host (as browsers do, and within the listen
// backlog of small servers) and further transfers wait for one. The wait counts against the
// request's timeout.
//
// Every transfer asks for compressed bodies (gzip, deflate, br, zstd) and hands back the decoded
// body, follows at most 10 redirects (http and https only), identifies itself as
// "Ombrine/0.1", and honours the proxy environment variables as curl does.
//
// Cancellation: when the awaiting task is cancelled, the network thread removes the transfer
// (closing its connection) and the task resumes with CancellationError. Each send completes
// exactly once, whether the transfer finishes, fails or is cancelled, in whatever order these
// race. Destroying the client stops the thread; transfers still running then complete with
// CancellationError. The executors of the awaiting tasks must outlive the client (build the
// Runtime first, the client after it), since that last completion is posted to them.

#include <memory>
#include <mutex>
#include <thread>

#include "platform/http_client.hpp"

namespace ombrine {

class CurlHttpClient final : public HttpClient {
 public:
  // Cheap: libcurl is loaded (curl_library.hpp) and the network thread started by the first
  // `send`, which raises std::runtime_error when libcurl cannot be loaded or initialised.
  CurlHttpClient();
  CurlHttpClient(const CurlHttpClient&) = delete;
  CurlHttpClient& operator=(const CurlHttpClient&) = delete;
  ~CurlHttpClient() override;

  Task<HttpResponse> send(const HttpRequest& request) override;
  // Loads libcurl and starts the network thread on a helper thread, so that a first `send`
  // soon after finds them ready. The destructor waits for the helper.
  void prepare() override;

 private:
  class Loop;

  // Loads libcurl and starts the network thread, once. Any thread.
  void start();

  std::once_flag started_;
  std::once_flag preparing_;
  std::thread preparer_;        // set once by `prepare`
  std::shared_ptr<Loop> loop_;  // set once by `start`
  std::thread thread_;
};

// The HttpError case for a failed curl transfer (`curlCode` is a CURLcode other than CURLE_OK).
// A receive error counts as a truncated body only once body bytes have arrived.
HttpError::Case httpErrorCaseForCurl(int curlCode, bool bodyStarted) noexcept;

}  // namespace ombrine
