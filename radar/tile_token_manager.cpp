#include "radar/tile_token_manager.hpp"

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/post.hpp>

#include <algorithm>

#include "core/values/errors.hpp"
#include "core/values/value_json.hpp"

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

// An exchange in flight: the callers waiting for it, and its outcome once it has one.
struct Exchange {
  std::vector<std::pair<std::uint64_t, Continuation<std::string>>> waiters;
  std::optional<Outcome<std::string>> outcome;
};

struct TileTokenManager::State {
  Strand strand;
  HttpClient& http;
  const Clock& clock;
  boost::urls::url proxy;
  KeyValueStore& defaults;
  CredentialIssuer& issuer;

  std::optional<std::string> cachedToken;
  std::optional<Date> cachedExpiry;
  std::shared_ptr<Exchange> inFlight;
  std::uint64_t nextWaiter = 0;

  double now() const { return std::chrono::duration<double>(clock.now().time_since_epoch()).count(); }

  Task<std::string> tokenOnStrand(std::shared_ptr<State> self);
  Task<std::string> awaitExchange(std::shared_ptr<Exchange> exchange);
  static Task<void> runExchange(std::shared_ptr<State> self, std::shared_ptr<Exchange> exchange);
  Task<std::string> exchange();
  Task<std::string> present(const boost::urls::url& endpoint, const std::string& credential);
};

TileTokenManager::TileTokenManager(Strand strand, HttpClient& http, const Clock& clock, boost::urls::url proxy,
                                   KeyValueStore& defaults, CredentialIssuer& issuer)
    : state_(std::make_shared<State>(
          State{std::move(strand), http, clock, std::move(proxy), defaults, issuer, {}, {}, {}, 0})) {}

Task<std::string> TileTokenManager::token() {
  Task<std::string> onStrand = state_->tokenOnStrand(state_);
  co_return co_await asio::co_spawn(state_->strand, std::move(onStrand), asio::use_awaitable);
}

Task<void> TileTokenManager::invalidateToken() {
  auto forget = [](std::shared_ptr<State> state) -> Task<void> {
    state->cachedToken.reset();
    state->cachedExpiry.reset();
    state->defaults.removeValue(kTokenKey);
    state->defaults.removeValue(kExpiryKey);
    co_return;
  };
  Task<void> onStrand = forget(state_);
  co_await asio::co_spawn(state_->strand, std::move(onStrand), asio::use_awaitable);
}

Task<std::string> TileTokenManager::State::tokenOnStrand(std::shared_ptr<State> self) {
  const double current = now();
  if (cachedToken && cachedExpiry && cachedExpiry->unixSeconds() - current > kExpirySkewSeconds) {
    co_return *cachedToken;
  }
  const auto storedToken = defaults.stringValue(kTokenKey);
  const auto storedExpiry = defaults.dateValue(kExpiryKey);
  if (storedToken && storedExpiry) {
    const Date expiry = Date::fromReference(storedExpiry->secondsSince2001);
    if (expiry.unixSeconds() - current > kExpirySkewSeconds) {
      cachedToken = storedToken;
      cachedExpiry = expiry;
      co_return *storedToken;
    }
  }
  // The exchange may even end before this caller waits for it (the spawn can run it inline on
  // this strand up to its first suspension): its outcome is kept for late waiters.
  std::shared_ptr<Exchange> exchange = inFlight;
  if (!exchange) {
    exchange = std::make_shared<Exchange>();
    inFlight = exchange;
    Task<void> running = runExchange(self, exchange);
    spawn(strand, std::move(running), "Tile token exchange");
  }
  Task<std::string> waiting = awaitExchange(exchange);
  co_return co_await std::move(waiting);
}

Task<void> TileTokenManager::State::runExchange(std::shared_ptr<State> self, std::shared_ptr<Exchange> exchange) {
  Outcome<std::string> outcome;
  try {
    Task<std::string> running = self->exchange();
    outcome = Outcome<std::string>::success(co_await std::move(running));
  } catch (...) {
    outcome = Outcome<std::string>::failure(asCancellationError(std::current_exception()));
  }
  if (self->inFlight == exchange) self->inFlight.reset();
  exchange->outcome = outcome;
  for (auto& [id, waiter] : exchange->waiters) waiter.resume(outcome);
  exchange->waiters.clear();
}

Task<std::string> TileTokenManager::State::awaitExchange(std::shared_ptr<Exchange> exchange) {
  const std::uint64_t id = ++nextWaiter;
  // Runs on the strand, inside this coroutine, so it cannot race the exchange's end.
  std::function<void(Continuation<std::string>)> install = [exchange, id](Continuation<std::string> waiter) {
    if (exchange->outcome) {
      waiter.resume(*exchange->outcome);
    } else {
      exchange->waiters.emplace_back(id, std::move(waiter));
    }
  };
  std::function<void()> onCancel = [strand = strand, exchange, id] {
    auto drop = [exchange, id] {
      auto& waiters = exchange->waiters;
      const auto found =
          std::find_if(waiters.begin(), waiters.end(), [&](const auto& entry) { return entry.first == id; });
      if (found == waiters.end()) return;
      Continuation<std::string> waiter = std::move(found->second);
      waiters.erase(found);
      waiter.resume(Outcome<std::string>::failure(std::make_exception_ptr(CancellationError())));
    };
    asio::post(strand, std::move(drop));
  };
  co_return co_await suspend<std::string>(install, onCancel);
}

Task<std::string> TileTokenManager::State::exchange() {
  const boost::urls::url endpoint = appendingPathComponent(proxy, "token");
  const auto stored = defaults.stringValue(kCredentialKey);
  if (stored && !stored->empty()) {
    bool refused = false;
    try {
      Task<std::string> presenting = present(endpoint, *stored);
      co_return co_await std::move(presenting);
    } catch (const MintError&) {
      refused = true;
    }
    if (refused) defaults.removeValue(kCredentialKey);
  }
  Task<std::string> issuing = issuer.issue();
  const std::string credential = co_await std::move(issuing);
  defaults.setValue(kCredentialKey, StoreValue{credential});
  try {
    Task<std::string> presenting = present(endpoint, credential);
    co_return co_await std::move(presenting);
  } catch (const MintError&) {
  }
  defaults.removeValue(kCredentialKey);
  throw NetworkError(NetworkError::invalidResponse);
}

Task<std::string> TileTokenManager::State::present(const boost::urls::url& endpoint, const std::string& credential) {
  const HttpRequest request{
      .method = "POST",
      .url = endpoint,
      .headers = {{"Content-Type", "application/json"}},
      .body = encodeTokenRequest(TokenRequest{credential}),
      .timeout = 20s,
      .cachePolicy = CachePolicy::reloadIgnoringLocalCacheData,
  };
  const HttpResponse response = co_await http.send(request);
  if (response.status == 401 || response.status == 403) throw MintError(MintError::unauthorized);
  if (response.status < 200 || response.status > 299) throw NetworkError(NetworkError::invalidResponse);
  const TokenResponse decoded = decodeTokenResponse(response.body);
  const Date expiry = Date::fromUnix(static_cast<double>(decoded.expiresAt));
  cachedToken = decoded.token;
  cachedExpiry = expiry;
  defaults.setValue(kTokenKey, StoreValue{decoded.token});
  defaults.setValue(kExpiryKey, StoreValue{StoreDate{expiry.timeIntervalSinceReferenceDate}});
  co_return decoded.token;
}

}  // namespace ombrine
