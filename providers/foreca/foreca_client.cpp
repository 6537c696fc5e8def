#include "providers/foreca/foreca_client.hpp"

#include <boost/url/parse.hpp>

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <exception>
#include <functional>
#include <initializer_list>
#include <memory>
#include <utility>

#include "core/record/weather_derived.hpp"
#include "core/values/errors.hpp"
#include "platform/async/coroutines.hpp"
#include "platform/errors.hpp"
#include "platform/log.hpp"
#include "providers/common/provider_request.hpp"
#include "providers/foreca/foreca_conversion.hpp"
#include "providers/foreca/foreca_wire.hpp"

namespace ombrine {

namespace {

constexpr std::chrono::seconds kRequestTimeout{60};
constexpr std::string_view kTokenItem = "token";

struct QueryItem {
  std::string_view key;
  std::string_view value;  // empty: the device language
};

struct RequestForm {
  std::string_view name;  // for log lines
  std::initializer_list<std::string_view> path;
  std::initializer_list<QueryItem> query;  // after the token, in this order
};

constexpr std::string_view kLanguage = "";

const RequestForm& formOf(ForecaRequest request) {
  static const RequestForm kCurrent{
      "current", {"current"}, {{"windunit", "KMH"}, {"rounding", "0"}, {"lang", kLanguage}}};
  static const RequestForm kHourly{"hourly",
                                   {"forecast", "hourly"},
                                   {{"windunit", "KMH"},
                                    {"rounding", "0"},
                                    {"dataset", "full"},
                                    {"periods", "192"},
                                    {"history", "1"},
                                    {"lang", kLanguage}}};
  static const RequestForm kDaily{
      "daily",
      {"forecast", "daily"},
      {{"windunit", "KMH"}, {"rounding", "0"}, {"dataset", "full"}, {"periods", "11"}, {"lang", kLanguage}}};
  static const RequestForm kMinutely{"minutely", {"forecast", "minutely"}, {}};
  static const RequestForm kAirQuality{
      "air quality", {"air-quality", "forecast", "hourly"}, {{"periods", "36"}, {"lang", kLanguage}}};
  static const RequestForm kWarnings{"warnings", {"warning"}, {{"dataset", "full"}}};
  switch (request) {
    case ForecaRequest::current: return kCurrent;
    case ForecaRequest::hourly: return kHourly;
    case ForecaRequest::daily: return kDaily;
    case ForecaRequest::minutely: return kMinutely;
    case ForecaRequest::airQuality: return kAirQuality;
    case ForecaRequest::warnings: return kWarnings;
  }
  return kCurrent;
}

std::string shortestDecimal(double value) {
  std::array<char, 64> buffer{};
  auto [end, error] = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value, std::chars_format::fixed);
  if (error != std::errc()) return "0";
  return std::string(buffer.data(), end);
}

}  // namespace

int forecaMinutelyProbability(const ForecaCurrent& current, std::span<const ForecaHourly> hourly) {
  return std::max({current.precipProb, hourly[1].precipProb, hourly[2].precipProb});
}

std::string forecaPointText(const Location& location) {
  return shortestDecimal(location.longitude()) + "," + shortestDecimal(location.latitude());
}

std::string redactedForecaUrl(const boost::urls::url& url) {
  boost::urls::url copy = url;
  auto params = copy.params();
  for (auto it = params.begin(); it != params.end(); ++it) {
    if ((*it).key == kTokenItem) it = params.replace(it, {kTokenItem, "<redacted>"});
  }
  return std::string(copy.buffer());
}

ForecaClient::ForecaClient(HttpClient& http, ServiceEndpoints endpoints, Secret token, Clock& clock,
                           std::string languageCode)
    : http_(http),
      endpoints_(std::move(endpoints)),
      token_(std::move(token)),
      clock_(clock),
      languageCode_(languageCode.empty() ? "en" : std::move(languageCode)) {}

boost::urls::url ForecaClient::requestUrl(ForecaRequest request, const Location& location,
                                          bool useSecondaryBase) const {
  const RequestForm& form = formOf(request);
  boost::urls::url url = useSecondaryBase ? endpoints_.forecaSecondary : endpoints_.forecaPrimary;
  auto segments = url.segments();
  // A base written with a trailing slash ends in an empty segment that must not stay.
  if (!segments.empty() && segments.back().empty()) segments.pop_back();
  for (std::string_view segment : form.path) segments.push_back(segment);
  segments.push_back(forecaPointText(location));
  auto params = url.params();
  params.clear();
  params.append({kTokenItem, token_.reveal()});
  for (const QueryItem& item : form.query) {
    params.append({item.key, item.value.empty() ? std::string_view(languageCode_) : item.value});
  }
  return url;
}

namespace {

// The answer body of `url`; raises for a transport failure or a status other than 200.
Task<std::string> getAnswer(HttpClient& http, const Clock& clock, boost::urls::url url, std::string_view name) {
  HttpRequest httpRequest;
  httpRequest.url = std::move(url);
  httpRequest.timeout = kRequestTimeout;
  std::string logged = redactedForecaUrl(httpRequest.url);
  std::string service = "Foreca";
  std::string requestName(name);
  co_return co_await fetchProviderAnswer(http, clock, std::move(httpRequest), std::move(service),
                                         std::move(requestName), std::move(logged));
}

// What the children of one fetch share. Held by each child, so that it outlives every one of
// them whatever the order of teardown.
struct FetchState {
  TimeZone zone;
  ForecaWeather weather;
};

// Fetches `url`, decodes the answer with `decode(body, state)` and stores the result in
// `state->weather.*field`. A decoding failure is logged and raised.
template <class Field, class Decode>
Task<void> fetchInto(HttpClient& http, const Clock& clock, boost::urls::url url, std::string_view name,
                     std::shared_ptr<FetchState> state, Field ForecaWeather::*field, Decode decode) {
  std::string body = co_await getAnswer(http, clock, std::move(url), name);
  try {
    state->weather.*field = decode(body, *state);
  } catch (const DecodingError& error) {
    logDetail("Foreca {} answer could not be decoded: {}", name, error.what());
    throw;
  }
}

// The warnings request: the one whose failure is tolerated, since a forecast without warnings
// beats none. Cancellation still ends it as a cancellation.
Task<void> fetchWarnings(HttpClient& http, const Clock& clock, boost::urls::url url,
                         std::shared_ptr<FetchState> state) {
  auto decode = [](std::string_view body, const FetchState&) { return decodeForecaWarnings(body).warnings; };
  try {
    co_await fetchInto(http, clock, std::move(url), formOf(ForecaRequest::warnings).name, state,
                       &ForecaWeather::warnings, decode);
  } catch (...) {
    std::exception_ptr error = std::current_exception();
    rethrowIfCancellation(error);
    try {
      std::rethrow_exception(error);
    } catch (const std::exception& e) {
      logDetail("Foreca warnings are left out: {}", e.what());
    }
    state->weather.warnings.clear();
  }
}

}  // namespace

Task<OneCallWeather> ForecaClient::fetch(Location location, GeoDetails details, bool useSecondaryBase,
                                         std::optional<OneCallWeather> freshCachedRecord) {
  if (freshCachedRecord && weatherDataSource(*freshCachedRecord) == WeatherDataSource::foreca &&
      !freshCachedRecord->daily.empty() &&
      location.distance(Location(freshCachedRecord->lat, freshCachedRecord->lon)) < kForecaCacheReuseDistance) {
    co_return std::move(*freshCachedRecord);
  }

  auto state = std::make_shared<FetchState>();
  state->zone = details.timeZone;
  auto url = [&](ForecaRequest request) { return requestUrl(request, location, useSecondaryBase); };
  auto name = [](ForecaRequest request) { return formOf(request).name; };
  auto child = [&](ForecaRequest request, auto field, auto decode) {
    return fetchInto(http_, clock_, url(request), name(request), state, field, decode);
  };
  auto decodeCurrent = [](std::string_view body, const FetchState&) { return decodeForecaCurrent(body).current; };
  auto decodeHourly = [](std::string_view body, const FetchState&) { return decodeForecaHourly(body).forecast; };
  auto decodeDaily = [](std::string_view body, const FetchState& s) {
    return decodeForecaDaily(body, s.zone).forecast;
  };
  auto decodeMinutely = [](std::string_view body, const FetchState&) { return decodeForecaMinutely(body).forecast; };
  auto decodeAirQuality = [](std::string_view body, const FetchState&) {
    return decodeForecaAirQuality(body).forecast;
  };

  // Current and hourly decide whether the minutely request is needed, so they form an inner
  // group awaited first; daily, air quality and warnings keep running in the outer one, so the
  // minutely request leaves as soon as its two inputs are in rather than after the slowest of
  // three. An empty daily list still fails the fetch once everything is in.
  std::function<Task<void>(TaskGroup&)> firstStage = [&](TaskGroup& group) -> Task<void> {
    group.spawn(child(ForecaRequest::current, &ForecaWeather::current, decodeCurrent));
    group.spawn(child(ForecaRequest::hourly, &ForecaWeather::hourly, decodeHourly));
    co_return;
  };
  std::function<Task<void>(TaskGroup&)> allRequests = [&](TaskGroup& group) -> Task<void> {
    group.spawn(child(ForecaRequest::daily, &ForecaWeather::daily, decodeDaily));
    group.spawn(child(ForecaRequest::airQuality, &ForecaWeather::airQuality, decodeAirQuality));
    group.spawn(fetchWarnings(http_, clock_, url(ForecaRequest::warnings), state));
    co_await withTaskGroup(firstStage);
    const ForecaWeather& results = state->weather;
    if (results.hourly.size() < 3) {
      logDetail("Foreca answer too short: {} hourly rows", results.hourly.size());
      throw NetworkError(NetworkError::invalidResponse);
    }
    if (forecaNeedsMinutely(forecaMinutelyProbability(results.current, results.hourly))) {
      group.spawn(child(ForecaRequest::minutely, &ForecaWeather::minutely, decodeMinutely));
    }
  };
  co_await withTaskGroup(allRequests);
  if (state->weather.daily.empty()) {
    logDetail("Foreca answer too short: no daily rows");
    throw NetworkError(NetworkError::invalidResponse);
  }

  ForecaConversionContext context{
      .location = location,
      .timeZone = details.timeZone,
      .now = Date::fromSystem(clock_.now()),
      .languageCode = languageCode_,
  };
  co_return convertForecaWeather(state->weather, context);
}

Task<OneCallWeather> fetchForecaForecast(HttpClient& http, const ServiceEndpoints& endpoints,
                                         const Credentials& credentials, Clock& clock, std::string languageCode,
                                         Location location, GeoDetails details, bool useSecondaryBase,
                                         std::optional<OneCallWeather> freshCachedRecord) {
  if (!credentials.forecaToken) {
    logf("No Foreca token configured");
    throw DomainError(kRequestErrorDomain, kRequestErrorCode,
                      "No Foreca token: set OMBRINE_FORECA_TOKEN, add \"foreca_token = ...\" to "
                      "~/.config/ombrine/credentials (mode 0600), or configure with -DOMBRINE_FORECA_TOKEN=...");
  }
  ForecaClient client(http, endpoints, *credentials.forecaToken, clock, std::move(languageCode));
  co_return co_await client.fetch(std::move(location), std::move(details), useSecondaryBase,
                                  std::move(freshCachedRecord));
}

}  // namespace ombrine
