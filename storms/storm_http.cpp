#include "storms/storm_http.hpp"

#include "core/values/errors.hpp"
#include "platform/errors.hpp"

namespace ombrine {

Task<std::string> getStormFile(HttpClient& http, boost::urls::url url, std::string accept) {
  HttpRequest request;
  request.url = std::move(url);
  request.headers.push_back(HttpHeader{"Accept", std::move(accept)});
  request.timeout = kStormRequestTimeout;
  HttpResponse response = co_await http.send(request);
  if (response.status != 200) throw NetworkError(NetworkError::invalidResponse);
  co_return std::move(response.body);
}

boost::urls::url underBase(const boost::urls::url& base, std::string_view path) {
  boost::urls::url url = base;
  std::string joined(base.path());
  while (!joined.empty() && joined.back() == '/') joined.pop_back();
  joined.append(path);
  url.set_path(joined);
  return url;
}

Task<bool> stormTaskCancelled() {
  auto state = co_await asio::this_coro::cancellation_state;
  co_return state.cancelled() != asio::cancellation_type::none;
}

Task<void> throwIfStormTaskCancelled() {
  if (co_await stormTaskCancelled()) throw CancellationError();
}

}  // namespace ombrine
