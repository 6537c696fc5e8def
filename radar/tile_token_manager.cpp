#include "radar/tile_token_manager.hpp"

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/post.hpp>

#include <algorithm>

#include "core/errors.hpp"
#include "core/value_json.hpp"

namespace ombrine {

using namespace std::chrono_literals;

std::string encodeTokenRequest(const TileTokenManager::TokenRequest& request) {
  std::string out;
  JsonWriter writer(out);
  writer.beginObject();
  writer.key("appTransactionJws");
  writer.string(request.appTransactionJws);
  writer.endObject();
  return out;
}

TileTokenManager::TokenResponse decodeTokenResponse(std::string_view json) {
  const boost::json::value document = parseJson(json);
  const JsonPath root;
  JsonObjectReader reader(document, root);
  TileTokenManager::TokenResponse response;
  reader.read("token", response.token);
  reader.read("expiresAt", response.expiresAt);
  return response;
}

boost::urls::url appendingPathComponent(const boost::urls::url& base, std::string_view segment) {
  boost::urls::url url = base;
  auto segments = url.segments();
  if (!segments.empty() && segments.back().empty()) segments.pop_back();  // "…/" ends in an empty segment
  while (!segment.empty()) {  // "a/b" is two components, as a path appended to a URL is
    const std::size_t slash = segment.find('/');
    if (slash != 0) segments.push_back(segment.substr(0, slash));
    segment = slash == std::string_view::npos ? std::string_view{} : segment.substr(slash + 1);
  }
  return url;
}

TileTokenManager::TileTokenManager(Strand strand, HttpClient& http, const Clock& clock, boost::urls::url proxy,
                                   KeyValueStore& defaults, CredentialIssuer& issuer)
    : strand_(std::move(strand)),
      http_(http),
      clock_(clock),
      proxy_(std::move(proxy)),
      defaults_(defaults),
      issuer_(issuer) {}

double TileTokenManager::now() const {
  return std::chrono::duration<double>(clock_.now().time_since_epoch()).count();
}

Task<std::string> TileTokenManager::token() {
  Task<std::string> onStrand = tokenOnStrand();
  co_return co_await asio::co_spawn(strand_, std::move(onStrand), asio::use_awaitable);
}

Task<void> TileTokenManager::invalidateToken() {
  auto forget = [this]() -> Task<void> {
    cachedToken_.reset();
    cachedExpiry_.reset();
    defaults_.removeValue(kTokenKey);
    defaults_.removeValue(kExpiryKey);
    co_return;
  };
  Task<void> onStrand = forget();
  co_await asio::co_spawn(strand_, std::move(onStrand), asio::use_awaitable);
}

Task<std::string> TileTokenManager::tokenOnStrand() {
  const double current = now();
  if (cachedToken_ && cachedExpiry_ && cachedExpiry_->unixSeconds() - current > kExpirySkewSeconds) {
    co_return *cachedToken_;
  }
  const auto storedToken = defaults_.stringValue(kTokenKey);
  const auto storedExpiry = defaults_.dateValue(kExpiryKey);
  if (storedToken && storedExpiry) {
    const Date expiry = Date::fromReference(storedExpiry->secondsSince2001);
    if (expiry.unixSeconds() - current > kExpirySkewSeconds) {
      cachedToken_ = storedToken;
      cachedExpiry_ = expiry;
      co_return *storedToken;
    }
  }
  if (inFlight_) {
    Task<std::string> waiting = awaitExchange(inFlight_);
    co_return co_await std::move(waiting);
  }
  auto started = std::make_shared<Exchange>();
  inFlight_ = started;
  std::optional<std::string> token;
  std::exception_ptr failure;
  try {
    Task<std::string> running = exchange();
    token = co_await std::move(running);
  } catch (...) {
    failure = asCancellationError(std::current_exception());
  }
  if (inFlight_ == started) inFlight_.reset();
  for (auto& [id, waiter] : started->waiters) {
    waiter.resume(failure ? Outcome<std::string>::failure(failure) : Outcome<std::string>::success(*token));
  }
  started->waiters.clear();
  if (failure) std::rethrow_exception(failure);
  co_return *token;
}

Task<std::string> TileTokenManager::awaitExchange(std::shared_ptr<Exchange> exchange) {
  const std::uint64_t id = ++nextWaiter_;
  // Runs on the strand, inside this coroutine: the exchange cannot finish meanwhile.
  std::function<void(Continuation<std::string>)> install = [exchange, id](Continuation<std::string> waiter) {
    exchange->waiters.emplace_back(id, std::move(waiter));
  };
  std::function<void()> onCancel = [strand = strand_, exchange, id] {
    auto drop = [exchange, id] {
      auto& waiters = exchange->waiters;
      const auto found = std::find_if(waiters.begin(), waiters.end(), [&](const auto& entry) { return entry.first == id; });
      if (found == waiters.end()) return;
      Continuation<std::string> waiter = std::move(found->second);
      waiters.erase(found);
      waiter.resume(Outcome<std::string>::failure(std::make_exception_ptr(CancellationError())));
    };
    asio::post(strand, std::move(drop));
  };
  co_return co_await suspend<std::string>(install, onCancel);
}

Task<std::string> TileTokenManager::exchange() {
  const boost::urls::url endpoint = appendingPathComponent(proxy_, "token");
  const auto stored = defaults_.stringValue(kCredentialKey);
  if (stored && !stored->empty()) {
    bool refused = false;
    try {
      Task<std::string> presenting = present(endpoint, *stored);
      co_return co_await std::move(presenting);
    } catch (const MintError&) {
      refused = true;
    }
    if (refused) defaults_.removeValue(kCredentialKey);
  }
  Task<std::string> issuing = issuer_.issue();
  const std::string credential = co_await std::move(issuing);
  defaults_.setValue(kCredentialKey, StoreValue{credential});
  try {
    Task<std::string> presenting = present(endpoint, credential);
    co_return co_await std::move(presenting);
  } catch (const MintError&) {
  }
  defaults_.removeValue(kCredentialKey);
  throw NetworkError(NetworkError::invalidResponse);
}

Task<std::string> TileTokenManager::present(const boost::urls::url& endpoint, const std::string& credential) {
  const HttpRequest request{
      .method = "POST",
      .url = endpoint,
      .headers = {{"Content-Type", "application/json"}},
      .body = encodeTokenRequest(TokenRequest{credential}),
      .timeout = 20s,
      .cachePolicy = CachePolicy::reloadIgnoringLocalCacheData,
  };
  const HttpResponse response = co_await http_.send(request);
  if (response.status == 401 || response.status == 403) throw MintError(MintError::unauthorized);
  if (response.status < 200 || response.status > 299) throw NetworkError(NetworkError::invalidResponse);
  const TokenResponse decoded = decodeTokenResponse(response.body);
  const Date expiry = Date::fromUnix(static_cast<double>(decoded.expiresAt));
  cachedToken_ = decoded.token;
  cachedExpiry_ = expiry;
  defaults_.setValue(kTokenKey, StoreValue{decoded.token});
  defaults_.setValue(kExpiryKey, StoreValue{StoreDate{expiry.timeIntervalSinceReferenceDate}});
  co_return decoded.token;
}

}  // namespace ombrine
