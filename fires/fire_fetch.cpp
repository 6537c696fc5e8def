#include "fires/fire_fetch.hpp"

#include <boost/asio/co_spawn.hpp>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstring>

#include "core/values/errors.hpp"
#include "core/values/json_stream.hpp"
#include "platform/errors.hpp"
#include "platform/retry_after.hpp"

namespace ombrine {

namespace {

std::string secondsText(double seconds) {
  if (std::isfinite(seconds) && seconds == std::floor(seconds) && std::fabs(seconds) < 1e15) {
    return std::to_string(static_cast<long long>(seconds));
  }
  char buffer[32];
  const auto result = std::to_chars(buffer, buffer + sizeof buffer, seconds);
  return std::string(buffer, result.ptr);
}

std::string lowered(std::string_view text) {
  std::string result(text);
  for (char& c : result) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return result;
}

}  // namespace

FireProviderCooldownError::FireProviderCooldownError(double retryAfter)
    : std::runtime_error("Fire provider cooldown remains active for " + secondsText(retryAfter) + " seconds"),
      retryAfter_(retryAfter) {}

FireFeatureServiceResponseError::FireFeatureServiceResponseError(FireFeatureServiceErrorPayload payload)
    : std::runtime_error("Feature service returned " + payload.summary()), payload_(std::move(payload)) {}

FireHTTPResponseError::FireHTTPResponseError(int statusCode, std::optional<double> retryAfter)
    : std::runtime_error("Fire service returned HTTP " + std::to_string(statusCode)),
      statusCode_(statusCode),
      retryAfter_(retryAfter) {}

// -- Policy ----------------------------------------------------------------------------------

namespace {

constexpr size_t kLargestErrorBody = 256 * 1024;

}  // namespace

namespace FireFeatureServiceResponsePolicy {

std::optional<FireFeatureServiceErrorPayload> errorEnvelope(std::string_view body) {
  if (body.size() > kLargestErrorBody) return std::nullopt;
  try {
    ErrorEnvelope envelope;
    decodeJsonText(body, envelope);
    return envelope.error;
  } catch (const DecodingError&) {
    return std::nullopt;
  }
}

std::optional<double> retryDelay(const FireFeatureServiceErrorPayload& payload) {
  auto fromText = [](std::string_view text) -> std::optional<double> {
    const std::string lower = lowered(text);
    const size_t found = lower.find("retry after");
    if (found == std::string::npos) return std::nullopt;
    std::string_view rest = std::string_view(lower).substr(found + std::strlen("retry after"));
    while (!rest.empty()) {
      const size_t start = rest.find_first_of("0123456789.");
      if (start == std::string_view::npos) break;
      rest.remove_prefix(start);
      const size_t length = std::min(rest.find_first_not_of("0123456789."), rest.size());
      const std::string_view run = rest.substr(0, length);
      double value = 0.0;
      const auto [ptr, ec] = std::from_chars(run.data(), run.data() + run.size(), value);
      if (ec == std::errc() && ptr == run.data() + run.size() && std::isfinite(value) && value > 0) return value;
      rest.remove_prefix(length);
    }
    return std::nullopt;
  };
  if (payload.message) {
    if (auto delay = fromText(*payload.message)) return delay;
  }
  if (payload.details) {
    for (const auto& detail : *payload.details) {
      if (auto delay = fromText(detail)) return delay;
    }
  }
  return std::nullopt;
}

std::optional<double> parseRetryAfter(std::string_view text, Date now) {
  // A negative number of seconds is no delay here (a tile counts it as 0), and no HTTP date
  // starts with a minus.
  const std::size_t first = text.find_first_not_of(" \t\r\n\v\f");
  if (first != std::string_view::npos && text[first] == '-') return std::nullopt;
  const auto delay = retryAfterDelay(text, now.toSystem());
  if (!delay) return std::nullopt;
  return delay->count();
}

std::optional<double> effectiveDelay(std::optional<std::int64_t> code, std::optional<double> delay) {
  if (delay) return delay;
  if (code == 429) return 60.0;
  return std::nullopt;
}

namespace {

FireFetchFailureReason classifyCode(std::optional<std::int64_t> code, std::optional<double> delay) {
  if (auto wait = effectiveDelay(code, delay)) return FireFetchFailureReason::rateLimited(*wait);
  if (!code) return FireFetchFailureReason::transient();
  if (*code == 408 || *code == 425 || (*code >= 500 && *code <= 599)) return FireFetchFailureReason::transient();
  if (*code >= 400 && *code <= 499) return FireFetchFailureReason::permanent();
  return FireFetchFailureReason::transient();
}

}  // namespace

bool shouldRetry(const std::exception_ptr& failure) {
  if (isCancellation(failure)) return false;
  try {
    std::rethrow_exception(failure);
  } catch (const FireFeatureServiceResponseError& error) {
    if (retryDelay(error.payload())) return false;
    const auto code = error.payload().code;
    return !code || *code == 408 || *code == 425 || *code < 400 || *code > 499;
  } catch (const HttpError&) {
    return true;
  } catch (...) {
    return false;
  }
}

FireFetchFailureReason classify(const std::exception_ptr& failure) {
  try {
    std::rethrow_exception(failure);
  } catch (const FireProviderCooldownError& error) {
    return FireFetchFailureReason::rateLimited(error.retryAfter());
  } catch (const FireFeatureServiceResponseError& error) {
    return classifyCode(error.payload().code, retryDelay(error.payload()));
  } catch (const FireHTTPResponseError& error) {
    return classifyCode(error.statusCode(), error.retryAfter());
  } catch (const std::invalid_argument&) {
    return FireFetchFailureReason::permanent();  // a URL that cannot be sent
  } catch (...) {
    return FireFetchFailureReason::transient();
  }
}

}  // namespace FireFeatureServiceResponsePolicy

std::optional<std::string> fireCooldownKey(const boost::urls::url& url,
                                           const std::vector<std::string>& perServiceDomains) {
  if (!url.has_authority() || url.host().empty()) return std::nullopt;
  std::string key = lowered(url.host());
  for (const auto& domain : perServiceDomains) {
    const std::string suffix = "." + lowered(domain);
    const bool inDomain =
        key == lowered(domain) ||
        (key.size() > suffix.size() && key.compare(key.size() - suffix.size(), suffix.size(), suffix) == 0);
    if (inDomain) {
      key += lowered(url.path());
      break;
    }
  }
  return key;
}

// -- Cooldown store --------------------------------------------------------------------------

FireProviderCooldownStore::FireProviderCooldownStore(Strand strand, std::vector<std::string> perServiceDomains)
    : strand_(std::move(strand)), perServiceDomains_(std::move(perServiceDomains)) {}

Task<void> FireProviderCooldownStore::recordCooldown(double delay, boost::urls::url url, Date now) {
  auto record = [this, delay, url = std::move(url), now]() -> Task<void> {
    if (!std::isfinite(delay) || delay <= 0) co_return;
    const auto key = fireCooldownKey(url, perServiceDomains_);
    if (!key) co_return;
    const Date until = now + delay;
    auto& entries = cooldownUntilByProviderKey_;
    const auto found = entries.find(*key);
    if (found != entries.end() && found->second >= until) co_return;
    entries[*key] = until;
  };
  auto task = record();
  co_await asio::co_spawn(strand_, std::move(task), asio::use_awaitable);
}

Task<std::optional<double>> FireProviderCooldownStore::remainingCooldown(boost::urls::url url, Date now) {
  auto remaining = [this, url = std::move(url), now]() -> Task<std::optional<double>> {
    const auto key = fireCooldownKey(url, perServiceDomains_);
    if (!key) co_return std::nullopt;
    const auto found = cooldownUntilByProviderKey_.find(*key);
    if (found == cooldownUntilByProviderKey_.end()) co_return std::nullopt;
    const double left = found->second.timeIntervalSinceReferenceDate - now.timeIntervalSinceReferenceDate;
    if (left > 0) co_return left;
    cooldownUntilByProviderKey_.erase(found);
    co_return std::nullopt;
  };
  auto task = remaining();
  co_return co_await asio::co_spawn(strand_, std::move(task), asio::use_awaitable);
}

Task<std::optional<Date>> FireProviderCooldownStore::cooldownUntil(boost::urls::url url) {
  auto until = [this, url = std::move(url)]() -> Task<std::optional<Date>> {
    const auto key = fireCooldownKey(url, perServiceDomains_);
    if (!key) co_return std::nullopt;
    const auto found = cooldownUntilByProviderKey_.find(*key);
    if (found == cooldownUntilByProviderKey_.end()) co_return std::nullopt;
    co_return found->second;
  };
  auto task = until();
  co_return co_await asio::co_spawn(strand_, std::move(task), asio::use_awaitable);
}

UnitedStatesFireProviderSnapshotKey UnitedStatesFireProviderSnapshotKey::of(UnitedStatesFireProvider provider,
                                                                            UnitedStatesFireProviderQueryKind kind,
                                                                            const FireMapEnvelope& envelope,
                                                                            std::optional<double> tolerance) {
  UnitedStatesFireProviderSnapshotKey key;
  key.provider = provider;
  key.queryKind = kind;
  key.westBitPattern = fireBitPattern(envelope.west);
  key.southBitPattern = fireBitPattern(envelope.south);
  key.eastBitPattern = fireBitPattern(envelope.east);
  key.northBitPattern = fireBitPattern(envelope.north);
  if (tolerance) key.geometryToleranceBitPattern = fireBitPattern(*tolerance);
  return key;
}

// -- One query -------------------------------------------------------------------------------

namespace {

Task<void> throwIfFireTaskCancelled() {
  auto state = co_await asio::this_coro::cancellation_state;
  if (state.cancelled() != asio::cancellation_type::none) throw CancellationError();
}

Task<std::string> attemptFireQuery(HttpClient& http, const Clock& clock, FireProviderCooldownStore& cooldowns,
                                   const FireFeatureRequest& request, bool reload) {
  using namespace FireFeatureServiceResponsePolicy;
  co_await throwIfFireTaskCancelled();
  const Date before = Date::fromSystem(clock.now());
  if (auto remaining = co_await cooldowns.remainingCooldown(request.url, before)) {
    throw FireProviderCooldownError(*remaining);
  }
  HttpRequest http_request;
  http_request.url = request.url;
  http_request.headers.push_back(HttpHeader{"Accept", request.accept});
  if (reload) http_request.headers.push_back(HttpHeader{"Cache-Control", "no-cache"});
  http_request.timeout = request.timeout;
  HttpResponse response = co_await http.send(http_request);
  co_await throwIfFireTaskCancelled();
  const Date now = Date::fromSystem(clock.now());
  if (response.status == 200) {
    if (auto payload = errorEnvelope(response.body)) {
      if (payload->code) {
        if (auto delay = effectiveDelay(payload->code, retryDelay(*payload))) {
          co_await cooldowns.recordCooldown(*delay, request.url, now);
        }
      }
      throw FireFeatureServiceResponseError(std::move(*payload));
    }
    co_return std::move(response.body);
  }
  std::optional<double> retryAfter;
  if (auto header = response.header("Retry-After")) retryAfter = parseRetryAfter(*header, now);
  if (response.status == 429 && !retryAfter) retryAfter = 60.0;
  if (retryAfter) co_await cooldowns.recordCooldown(*retryAfter, request.url, now);
  throw FireHTTPResponseError(response.status, retryAfter);
}

}  // namespace

Task<std::string> fetchFireFeatureBody(HttpClient& http, const Clock& clock, FireProviderCooldownStore& cooldowns,
                                       FireFeatureRequest request) {
  std::exception_ptr first;
  try {
    co_return co_await attemptFireQuery(http, clock, cooldowns, request, false);
  } catch (...) {
    first = std::current_exception();
  }
  rethrowIfCancellation(first);
  if (!FireFeatureServiceResponsePolicy::shouldRetry(first)) std::rethrow_exception(first);
  co_return co_await attemptFireQuery(http, clock, cooldowns, request, true);
}

}  // namespace ombrine
