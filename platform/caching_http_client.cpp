#include "platform/caching_http_client.hpp"

#include "platform/http_freshness.hpp"

namespace ombrine {

double CachingHttpClient::now() const { return std::chrono::duration<double>(clock_.now().time_since_epoch()).count(); }

HttpResponse CachingHttpClient::remember(const HttpRequest& request, HttpResponse response, double responseTime) {
  if (isStorable(request, response)) {
    const CachedResponse cached{.response = response, .responseTime = responseTime};
    cache_.storeCachedResponse(std::string(request.url.buffer()), cached);
  }
  return response;
}

Task<HttpResponse> CachingHttpClient::send(const HttpRequest& request) {
  if (request.method != "GET") co_return co_await network_.send(request);
  const std::string key(request.url.buffer());
  if (request.cachePolicy == CachePolicy::reloadIgnoringLocalCacheData) {
    HttpResponse response = co_await network_.send(request);
    co_return remember(request, std::move(response), now());
  }
  std::optional<CachedResponse> stored = cache_.cachedResponse(key);
  if (!stored) {
    HttpResponse response = co_await network_.send(request);
    co_return remember(request, std::move(response), now());
  }
  if (request.cachePolicy == CachePolicy::returnCacheDataElseLoad ||
      isFresh(stored->response, stored->responseTime, now())) {
    co_return std::move(stored->response);
  }
  HttpHeaders validators = validatorsOf(stored->response);
  if (validators.empty()) {
    HttpResponse response = co_await network_.send(request);
    co_return remember(request, std::move(response), now());
  }
  HttpRequest conditional = request;
  for (auto& validator : validators) {
    std::erase_if(conditional.headers,
                  [&](const HttpHeader& header) { return equalsIgnoringCase(header.name, validator.name); });
    conditional.headers.push_back(std::move(validator));
  }
  HttpResponse response = co_await network_.send(conditional);
  if (response.status != 304) co_return remember(request, std::move(response), now());
  const CachedResponse renewed{.response = refreshed(stored->response, response), .responseTime = now()};
  cache_.storeCachedResponse(key, renewed);
  co_return renewed.response;
}

}  // namespace ombrine
