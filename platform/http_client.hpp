#pragma once
// The one HTTP client every outside service goes through.
//
// A request is a method, a URL, ordered headers, a body and a per-request timeout; a response is
// the final status, headers and (decoded) body after redirects. The real implementation is
// CurlHttpClient (platform/linux/curl_http_client.hpp); tests substitute their own.

#include <boost/url/url.hpp>
#include <chrono>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "platform/async/task.hpp"

namespace ombrine {

// One header line. Names keep the spelling they were given or received with; compare them
// case-insensitively (`equalsIgnoringCase`).
struct HttpHeader {
  std::string name;
  std::string value;

  bool operator==(const HttpHeader&) const = default;
};

using HttpHeaders = std::vector<HttpHeader>;

// How a request uses the HTTP cache in front of the client (CachingHttpClient). A client with no
// cache in front of it sends every request whatever its policy. Only GET requests are cached.
enum class CachePolicy {
  // A fresh stored reply answers; a stale one with a validator (ETag, Last-Modified) is
  // revalidated and a 304 refreshes it; otherwise the request is sent and its reply stored.
  useProtocolCachePolicy,
  // Always sent; the reply is still stored for later requests.
  reloadIgnoringLocalCacheData,
  // Any stored reply answers, however old; only a miss is sent.
  returnCacheDataElseLoad,
};

struct HttpRequest {
  std::string method = "GET";
  // http or https. Build it with Boost.URL setters so every part is encoded once, correctly.
  boost::urls::url url;
  // Sent in this order after the client's own (Host, User-Agent, Accept-Encoding); a header
  // given here replaces the client's header of the same name. Names must be HTTP tokens;
  // values must not contain CR, LF or NUL.
  HttpHeaders headers;
  // Sent as is when non-empty (or when the method is POST, PUT or PATCH). No Content-Type is
  // added: name one in `headers` when the service needs it.
  std::string body;
  // Bounds the whole exchange, redirects included, from the moment the request is handed over.
  // Must be positive.
  std::chrono::milliseconds timeout{std::chrono::seconds(60)};
  // At most 10 redirects are followed; when false a 3xx is returned as the response.
  bool followRedirects = true;
  CachePolicy cachePolicy = CachePolicy::useProtocolCachePolicy;

  bool operator==(const HttpRequest&) const = default;
};

struct HttpResponse {
  int status = 0;
  // The final response's headers in the order received (those of redirect responses and of
  // interim 1xx responses are not kept).
  HttpHeaders headers;
  // Content-Encoding (gzip, deflate, ...) is already undone.
  std::string body;
  // Where the body came from: the request URL, or the last redirect target.
  boost::urls::url effectiveUrl;

  // The value of the first header named `name` (any case), or nothing.
  std::optional<std::string> header(std::string_view name) const;

  bool operator==(const HttpResponse&) const = default;
};

// ASCII case-insensitive comparison, as header names compare.
bool equalsIgnoringCase(std::string_view a, std::string_view b) noexcept;

// A transfer failed below HTTP: no status was received, or the body was cut short. `what()`
// names the case and the transport's own diagnostic (host and port at most); it never contains
// headers, bodies or query strings, so it is safe to log.
class HttpError : public std::runtime_error {
 public:
  enum Case {
    timedOut,          // the request's timeout passed before the response was complete
    cannotConnect,     // name resolution or the TCP/TLS connection failed
    truncated,         // the connection closed mid-body (body shorter than announced)
    tooManyRedirects,  // more than 10 redirects
    other,             // anything else (TLS verification, malformed response, ...)
  };

  explicit HttpError(Case which, const std::string& detail = {});
  Case which() const noexcept { return which_; }

 private:
  Case which_;
};

// Sends HTTP requests. Implementations are thread-safe: any coroutine on any executor may send.
class HttpClient {
 public:
  virtual ~HttpClient() = default;

  // Performs `request` and returns the final response. Every HTTP status is a normal response:
  // 404, 429 and 5xx are returned, never raised. `request` is read when the task starts; keep it
  // alive until the task has been awaited.
  //
  // Resumes on the awaiting coroutine's executor. Raises HttpError for transport failures,
  // std::invalid_argument for a request that breaks the preconditions above, and
  // CancellationError when the awaiting task is cancelled: the transfer is aborted at once (its
  // connection is closed), without waiting for the timeout. Cancellation must be emitted from
  // the awaiting coroutine's executor, as with every Asio operation.
  virtual Task<HttpResponse> send(const HttpRequest& request) = 0;

  // A hint that a request will follow soon: an implementation may get ready for it in the
  // background (load its transport, start its thread). Returns at once; never raises (a failure
  // shows again at the first `send`). Any thread.
  virtual void prepare() {}
};

}  // namespace ombrine
