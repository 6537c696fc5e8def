#pragma once
// An HttpClient that answers GET requests from an HttpCache as each request's `cachePolicy`
// says, and sends the rest through the client it wraps.
//
// A stale stored reply with a validator is revalidated with If-None-Match / If-Modified-Since;
// a 304 refreshes the stored reply (headers and age) and answers with it as a 200. Every
// storable reply received is stored, whatever the policy. Thread-safe like the client it wraps;
// resumes on the awaiting coroutine's executor and raises what the wrapped client raises.

#include "platform/clock.hpp"
#include "platform/http_cache.hpp"
#include "platform/http_client.hpp"

namespace ombrine {

class CachingHttpClient final : public HttpClient {
 public:
  // `network`, `cache` and `clock` must outlive this client.
  CachingHttpClient(HttpClient& network, HttpCache& cache, const Clock& clock)
      : network_(network), cache_(cache), clock_(clock) {}

  Task<HttpResponse> send(const HttpRequest& request) override;

 private:
  double now() const;
  HttpResponse remember(const HttpRequest& request, HttpResponse response, double responseTime);

  HttpClient& network_;
  HttpCache& cache_;
  const Clock& clock_;
};

}  // namespace ombrine
