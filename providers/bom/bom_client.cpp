#include "providers/bom/bom_client.hpp"

#include <algorithm>
#include <exception>
#include <functional>
#include <memory>

#include "core/values/errors.hpp"
#include "platform/async/coroutines.hpp"
#include "platform/errors.hpp"
#include "platform/log.hpp"
#include "providers/bom/bom_conversion.hpp"
#include "providers/bom/bom_wire.hpp"
#include "providers/common/provider_request.hpp"

namespace ombrine {

namespace {

constexpr std::chrono::seconds kRequestTimeout{60};
constexpr std::string_view kWebOrigin = "https://weather.bom.gov.au";
constexpr std::string_view kUserAgent =
    "Mozilla/5.0 (Macintosh; Intel Mac OS X 10_15_7) AppleWebKit/605.1.15 (KHTML, like Gecko) Version/16.0 "
    "Safari/605.1.15";

std::string_view nameOf(BureauRequest request) {
  switch (request) {
    case BureauRequest::placeInformation: return "place information";
    case BureauRequest::hourly: return "hourly";
    case BureauRequest::daily: return "daily";
    case BureauRequest::observations: return "observations";
    case BureauRequest::warnings: return "warnings";
  }
  return "place information";
}

struct Answers {
  std::optional<std::string> timezone;
  BureauAnswers bureau;
};

template <class Decode>
Task<void> fetchInto(HttpClient& http, const Clock& clock, HttpRequest request, BureauRequest which,
                     std::shared_ptr<Answers> answers, Decode decode) {
  std::string logged(request.url.buffer());
  std::string service = "Bureau of Meteorology";
  std::string name(nameOf(which));
  std::string body = co_await fetchProviderAnswer(http, clock, std::move(request), std::move(service), std::move(name),
                                                  std::move(logged));
  try {
    decode(body, *answers);
  } catch (const DecodingError& error) {
    logDetail("Bureau of Meteorology {} answer could not be decoded: {}", nameOf(which), error.what());
    throw;
  }
}

template <class Decode>
Task<void> fetchTolerated(HttpClient& http, const Clock& clock, HttpRequest request, BureauRequest which,
                          std::shared_ptr<Answers> answers, Decode decode) {
  try {
    co_await fetchInto(http, clock, std::move(request), which, answers, decode);
  } catch (...) {
    std::exception_ptr error = std::current_exception();
    rethrowIfCancellation(error);
    logDetail("Bureau of Meteorology {} are left out", nameOf(which));
  }
}

// What one of the two merged fetches gave: its record, or the failure that left it without one.
struct MergeHalf {
  std::optional<OneCallWeather> record;
  std::exception_ptr failure;
};

// Runs `task`, keeping its record, or its failure when it is anything but a cancellation.
Task<void> recordOrNothing(Task<OneCallWeather> task, std::shared_ptr<MergeHalf> out, std::string name) {
  try {
    out->record = co_await std::move(task);
  } catch (...) {
    std::exception_ptr error = std::current_exception();
    rethrowIfCancellation(error);
    out->failure = error;
    try {
      std::rethrow_exception(error);
    } catch (const std::exception& e) {
      logDetail("{} gave no record for the merge: {}", name, e.what());
    }
  }
}

// The wait to keep before asking both again: the longer of the two when both services answered
// with a status and named a wait, else nothing (one of them gave no reason to expect an answer).
std::optional<RetryDelay> waitForBoth(const MergeHalf& a, const MergeHalf& b) {
  auto waitOf = [](const MergeHalf& half) -> std::optional<RetryDelay> {
    try {
      if (half.failure) std::rethrow_exception(half.failure);
    } catch (const ProviderStatusError& error) {
      return error.retryAfter();
    } catch (...) {
    }
    return std::nullopt;
  };
  const auto first = waitOf(a), second = waitOf(b);
  if (!first || !second) return std::nullopt;
  return std::max(*first, *second);
}

}  // namespace

BureauClient::BureauClient(HttpClient& http, ServiceEndpoints endpoints, Clock& clock)
    : http_(http), endpoints_(std::move(endpoints)), clock_(clock) {}

boost::urls::url BureauClient::requestUrl(BureauRequest request, const Location& location) const {
  boost::urls::url url = endpoints_.bureauOfMeteorology;
  auto segments = url.segments();
  if (!segments.empty() && segments.back().empty()) segments.pop_back();
  segments.push_back("v1");
  segments.push_back("locations");
  segments.push_back(geohash(location.latitude(), location.longitude(), kBureauGeohashLength));
  switch (request) {
    case BureauRequest::placeInformation: break;
    case BureauRequest::hourly:
      segments.push_back("forecasts");
      segments.push_back("hourly");
      break;
    case BureauRequest::daily:
      segments.push_back("forecasts");
      segments.push_back("daily");
      break;
    case BureauRequest::observations: segments.push_back("observations"); break;
    case BureauRequest::warnings: segments.push_back("warnings"); break;
  }
  return url;
}

HttpHeaders BureauClient::requestHeaders() const {
  std::string host(endpoints_.bureauOfMeteorology.encoded_host_and_port());
  return {
      {"Accept", "*/*"},
      {"Origin", std::string(kWebOrigin)},
      {"Accept-Encoding", "gzip, deflate, br"},
      {"Host", host},
      {"User-Agent", std::string(kUserAgent)},
      {"Accept-Language", "en-AU;q=0.9,en;q=0.8"},
      {"Referer", std::string(kWebOrigin) + "/"},
  };
}

Task<OneCallWeather> BureauClient::fetch(Location location, TimeZone timeZone) {
  auto answers = std::make_shared<Answers>();
  auto request = [&](BureauRequest which) {
    HttpRequest http;
    http.url = requestUrl(which, location);
    http.headers = requestHeaders();
    http.timeout = kRequestTimeout;
    return http;
  };
  auto decodeInfo = [](std::string_view body, Answers& a) { a.timezone = decodeBomLocationInfo(body).data.timezone; };
  auto decodeHourly = [](std::string_view body, Answers& a) { a.bureau.hourly = decodeBomHourly(body).data; };
  auto decodeDaily = [](std::string_view body, Answers& a) {
    a.bureau.daily = BOMPublishedDailyForecasts(decodeBomDaily(body)).forecasts;
  };
  auto decodeObservations = [](std::string_view body, Answers& a) {
    a.bureau.observations = decodeBomObservations(body).data;
  };
  auto decodeWarnings = [](std::string_view body, Answers& a) { a.bureau.warnings = decodeBomWarnings(body); };
  std::function<Task<void>(TaskGroup&)> requests = [&](TaskGroup& group) -> Task<void> {
    group.spawn(fetchInto(http_, clock_, request(BureauRequest::placeInformation), BureauRequest::placeInformation,
                          answers, decodeInfo));
    group.spawn(fetchInto(http_, clock_, request(BureauRequest::hourly), BureauRequest::hourly, answers, decodeHourly));
    group.spawn(fetchInto(http_, clock_, request(BureauRequest::daily), BureauRequest::daily, answers, decodeDaily));
    group.spawn(fetchInto(http_, clock_, request(BureauRequest::observations), BureauRequest::observations, answers,
                          decodeObservations));
    group.spawn(fetchTolerated(http_, clock_, request(BureauRequest::warnings), BureauRequest::warnings, answers,
                               decodeWarnings));
    co_return;
  };
  co_await withTaskGroup(requests);
  TimeZone zone = timeZone;
  if (answers->timezone) {
    if (auto named = TimeZone::named(*answers->timezone)) zone = *named;
  }
  BureauConversionContext context{location, zone, Date::fromSystem(clock_.now())};
  co_return convertBureau(answers->bureau, context);
}

Task<OneCallWeather> fetchBureauMerged(Task<OneCallWeather> bureau, Task<OneCallWeather> systemWeather) {
  auto a = std::make_shared<MergeHalf>();
  auto b = std::make_shared<MergeHalf>();
  std::function<Task<void>(TaskGroup&)> both = [&](TaskGroup& group) -> Task<void> {
    group.spawn(recordOrNothing(std::move(bureau), a, "Bureau of Meteorology"));
    group.spawn(recordOrNothing(std::move(systemWeather), b, "System weather"));
    co_return;
  };
  co_await withTaskGroup(both);
  if (!a->record && !b->record) {
    std::string detail = "neither the Bureau of Meteorology nor the system weather service answered";
    if (const auto wait = waitForBoth(*a, *b)) {
      throw ProviderStatusError("Bureau of Meteorology", std::nullopt, wait, std::move(detail));
    }
    throw DomainError(kRequestErrorDomain, kRequestErrorCode, std::move(detail));
  }
  if (!b->record) co_return std::move(*a->record);
  if (!a->record) co_return std::move(*b->record);
  co_return mergeBureauWithSystemWeather(std::move(*a->record), *b->record);
}

}  // namespace ombrine
