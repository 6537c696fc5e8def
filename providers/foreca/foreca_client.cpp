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

#include "core/errors.hpp"
#include "core/weather_derived.hpp"
#include "platform/coroutines.hpp"
#include "platform/errors.hpp"
#include "platform/log.hpp"
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
    case ForecaRequest::current:
      return kCurrent;
    case ForecaRequest::hourly:
      return kHourly;
    case ForecaRequest::daily:
      return kDaily;
    case ForecaRequest::minutely:
      return kMinutely;
    case ForecaRequest::airQuality:
      return kAirQuality;
    case ForecaRequest::warnings:
      return kWarnings;
  }
  return kCurrent;
}

std::string shortestDecimal(double value) {
  std::array<char, 64> buffer{};
  auto [end, error] = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value, std::chars_format::fixed);
  if (error != std::errc()) return "0";
  return std::string(buffer.data(), end);
}

// Everything the children of one fetch deliver. Shared with the children so that it outlives
// each of them whatever the order of teardown.
struct Results {
  ForecaCurrent current;
  std::vector<ForecaHourly> hourly;
  std::vector<ForecaDaily> daily;
  std::vector<ForecaMinute> minutely;
  std::vector<AirQuality> airQuality;
  std::vector<ForecaWarning> warnings;
};

}  // namespace

struct ForecaClient::FetchState {
  Location location;
  TimeZone zone;
  bool useSecondaryBase = false;
  Results results;
};

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

Task<std::string> ForecaClient::get(ForecaRequest request, const Location& location, bool useSecondaryBase) {
  const RequestForm& form = formOf(request);
  HttpRequest httpRequest;
  httpRequest.url = requestUrl(request, location, useSecondaryBase);
  httpRequest.timeout = kRequestTimeout;
  HttpResponse response;
  try {
    response = co_await http_.send(httpRequest);
  } catch (const HttpError& error) {
    logf("Foreca {} request failed: {} ({})", form.name, error.what(), redactedForecaUrl(httpRequest.url));
    throw DomainError(kRequestErrorDomain, kRequestErrorCode, error.what());
  }
  if (response.status == 429) {
    logf("Foreca {} request hit the API limit (HTTP 429) ({})", form.name, redactedForecaUrl(httpRequest.url));
    throw NetworkError(NetworkError::exceededApiLimit);
  }
  if (response.status != 200) {
    logf("Foreca {} request failed: HTTP {} ({})", form.name, response.status, redactedForecaUrl(httpRequest.url));
    throw DomainError(kRequestErrorDomain, kRequestErrorCode, "HTTP " + std::to_string(response.status));
  }
  co_return std::move(response.body);
}

// Logs a decoding failure of `what` and raises it again.
template <class Decode>
auto decodeLogged(std::string_view what, Decode decode) {
  try {
    return decode();
  } catch (const DecodingError& error) {
    logf("Foreca {} answer could not be decoded: {}", what, error.what());
    throw;
  }
}

Task<void> ForecaClient::fetchWarnings(FetchState& state, Location location, bool useSecondaryBase) {
  // The one request whose failure is tolerated: a forecast without warnings beats none.
  try {
    std::string body = co_await get(ForecaRequest::warnings, location, useSecondaryBase);
    auto decode = [&body] { return decodeForecaWarnings(body).warnings; };
    state.results.warnings = decodeLogged("warnings", decode);
  } catch (...) {
    std::exception_ptr error = std::current_exception();
    rethrowIfCancellation(error);
    try {
      std::rethrow_exception(error);
    } catch (const std::exception& e) {
      logf("Foreca warnings are left out: {}", e.what());
    }
    state.results.warnings.clear();
  }
}

Task<OneCallWeather> ForecaClient::fetch(Location location, GeoDetails details, bool useSecondaryBase,
                                         std::optional<OneCallWeather> freshCachedRecord) {
  if (freshCachedRecord && weatherDataSource(*freshCachedRecord) == WeatherDataSource::foreca &&
      !freshCachedRecord->daily.empty() &&
      location.distance(Location(freshCachedRecord->lat, freshCachedRecord->lon)) < kForecaCacheReuseDistance) {
    co_return std::move(*freshCachedRecord);
  }

  auto state = std::make_shared<FetchState>();
  state->location = location;
  state->zone = details.timeZone;
  state->useSecondaryBase = useSecondaryBase;

  auto fetchCurrent = [this, state]() -> Task<void> {
    std::string body = co_await get(ForecaRequest::current, state->location, state->useSecondaryBase);
    auto decode = [&body] { return decodeForecaCurrent(body).current; };
    state->results.current = decodeLogged("current", decode);
  };
  auto fetchHourly = [this, state]() -> Task<void> {
    std::string body = co_await get(ForecaRequest::hourly, state->location, state->useSecondaryBase);
    auto decode = [&body] { return decodeForecaHourly(body).forecast; };
    state->results.hourly = decodeLogged("hourly", decode);
  };
  auto fetchDaily = [this, state]() -> Task<void> {
    std::string body = co_await get(ForecaRequest::daily, state->location, state->useSecondaryBase);
    auto decode = [&body, &state] { return decodeForecaDaily(body, state->zone).forecast; };
    state->results.daily = decodeLogged("daily", decode);
  };
  auto fetchMinutely = [this, state]() -> Task<void> {
    std::string body = co_await get(ForecaRequest::minutely, state->location, state->useSecondaryBase);
    auto decode = [&body] { return decodeForecaMinutely(body).forecast; };
    state->results.minutely = decodeLogged("minutely", decode);
  };
  auto fetchAirQuality = [this, state]() -> Task<void> {
    std::string body = co_await get(ForecaRequest::airQuality, state->location, state->useSecondaryBase);
    auto decode = [&body] { return decodeForecaAirQuality(body).forecast; };
    state->results.airQuality = decodeLogged("air quality", decode);
  };
  auto fetchAlerts = [this, state]() -> Task<void> {
    co_await fetchWarnings(*state, state->location, state->useSecondaryBase);
  };

  // Current, hourly and daily decide whether the minutely request is needed, so they form an
  // inner group awaited first, while air quality and warnings keep running in the outer one.
  std::function<Task<void>(TaskGroup&)> firstStage = [&](TaskGroup& group) -> Task<void> {
    group.spawn(fetchCurrent());
    group.spawn(fetchHourly());
    group.spawn(fetchDaily());
    co_return;
  };
  std::function<Task<void>(TaskGroup&)> allRequests = [&](TaskGroup& group) -> Task<void> {
    group.spawn(fetchAirQuality());
    group.spawn(fetchAlerts());
    co_await withTaskGroup(firstStage);
    const Results& results = state->results;
    if (results.hourly.size() < 3 || results.daily.empty()) {
      logf("Foreca answer too short: {} hourly rows, {} daily rows", results.hourly.size(), results.daily.size());
      throw NetworkError(NetworkError::invalidResponse);
    }
    int probability =
        std::max({results.current.precipProb, results.hourly[1].precipProb, results.hourly[2].precipProb});
    if (probability > kForecaMinutelyProbabilityThreshold) group.spawn(fetchMinutely());
  };
  co_await withTaskGroup(allRequests);

  ForecaWeather weather{
      .warnings = std::move(state->results.warnings),
      .current = std::move(state->results.current),
      .minutely = std::move(state->results.minutely),
      .hourly = std::move(state->results.hourly),
      .daily = std::move(state->results.daily),
      .airQuality = std::move(state->results.airQuality),
  };
  ForecaConversionContext context{
      .location = location,
      .timeZone = details.timeZone,
      .now = Date::fromSystem(clock_.now()),
      .languageCode = languageCode_,
  };
  co_return convertForecaWeather(weather, context);
}

Task<OneCallWeather> fetchForecaForecast(HttpClient& http, const ServiceEndpoints& endpoints,
                                         const Credentials& credentials, Clock& clock, std::string languageCode,
                                         Location location, GeoDetails details, bool useSecondaryBase) {
  if (!credentials.forecaToken) {
    logf("No Foreca token configured");
    throw DomainError(kRequestErrorDomain, kRequestErrorCode,
                      "No Foreca token: set OMBRINE_FORECA_TOKEN, add \"foreca_token = ...\" to "
                      "~/.config/ombrine/credentials (mode 0600), or configure with -DOMBRINE_FORECA_TOKEN=...");
  }
  ForecaClient client(http, endpoints, *credentials.forecaToken, clock, std::move(languageCode));
  co_return co_await client.fetch(std::move(location), std::move(details), useSecondaryBase);
}

}  // namespace ombrine
