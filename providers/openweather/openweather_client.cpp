#include "providers/openweather/openweather_client.hpp"

#include <exception>
#include <functional>
#include <memory>

#include "core/fetch/network_manager.hpp"
#include "core/values/errors.hpp"
#include "platform/async/coroutines.hpp"
#include "platform/log.hpp"
#include "providers/common/provider_request.hpp"
#include "providers/foreca/foreca_client.hpp"
#include "providers/foreca/foreca_wire.hpp"
#include "providers/openweather/openweather_conversion.hpp"
#include "providers/openweather/openweather_wire.hpp"

namespace ombrine {

namespace {

// The OpenWeather requests keep the shared session's time-out; the Foreca air quality request
// has the Foreca client's own.
constexpr std::chrono::seconds kRequestTimeout{static_cast<int>(NetworkManager::kTimeoutIntervalForRequest)};
constexpr std::chrono::seconds kAirQualityTimeout{60};
constexpr std::string_view kKeyItem = "appid";
constexpr std::string_view kService = "OpenWeather";

std::string_view nameOf(OpenWeatherRequest request) {
  switch (request) {
    case OpenWeatherRequest::current: return "current";
    case OpenWeatherRequest::forecast: return "forecast";
    case OpenWeatherRequest::daily: return "daily";
  }
  return "current";
}

struct Answers {
  OpenWeatherCurrentResponse current;
  OpenWeatherForecastResponse forecast;
  OpenWeatherDailyResponse daily;
  std::vector<AirQuality> airQuality;
};

Task<std::string> get(HttpClient& http, const Clock& clock, boost::urls::url url, std::string name) {
  HttpRequest request;
  request.url = std::move(url);
  request.timeout = kRequestTimeout;
  std::string logged = redactedOpenWeatherUrl(request.url);
  std::string service(kService);
  co_return co_await fetchProviderAnswer(http, clock, std::move(request), std::move(service), std::move(name),
                                         std::move(logged));
}

template <class Decode>
Task<void> fetchInto(HttpClient& http, const Clock& clock, boost::urls::url url, std::string name,
                     std::shared_ptr<Answers> answers, Decode decode) {
  std::string body = co_await get(http, clock, std::move(url), name);
  try {
    decode(body, *answers);
  } catch (const DecodingError& error) {
    logDetail("OpenWeather {} answer could not be decoded: {}", name, error.what());
    throw;
  }
}

Task<void> fetchAirQuality(HttpClient& http, const Clock& clock, boost::urls::url url,
                           std::shared_ptr<Answers> answers) {
  try {
    HttpRequest request;
    request.url = std::move(url);
    request.timeout = kAirQualityTimeout;
    std::string logged = redactedForecaUrl(request.url);
    std::string service = "Foreca";
    std::string name = "air quality";
    std::string body = co_await fetchProviderAnswer(http, clock, std::move(request), std::move(service),
                                                    std::move(name), std::move(logged));
    answers->airQuality = decodeForecaAirQuality(body).forecast;
  } catch (...) {
    std::exception_ptr error = std::current_exception();
    rethrowIfCancellation(error);
    try {
      std::rethrow_exception(error);
    } catch (const std::exception& e) {
      logDetail("OpenWeather record is left without air quality: {}", e.what());
    }
    answers->airQuality.clear();
  }
}

}  // namespace

std::string redactedOpenWeatherUrl(const boost::urls::url& url) {
  boost::urls::url copy = url;
  auto params = copy.params();
  for (auto it = params.begin(); it != params.end(); ++it) {
    if ((*it).key == kKeyItem) it = params.replace(it, {kKeyItem, "<redacted>"});
  }
  return std::string(copy.buffer());
}

OpenWeatherClient::OpenWeatherClient(HttpClient& http, ServiceEndpoints endpoints, Secret key,
                                     std::optional<Secret> forecaToken, Clock& clock, std::string languageCode)
    : http_(http),
      endpoints_(std::move(endpoints)),
      key_(std::move(key)),
      forecaToken_(std::move(forecaToken)),
      clock_(clock),
      languageCode_(languageCode.empty() ? "en" : std::move(languageCode)) {}

boost::urls::url OpenWeatherClient::requestUrl(OpenWeatherRequest request, const Location& location) const {
  boost::urls::url url = endpoints_.openWeather;
  auto segments = url.segments();
  if (!segments.empty() && segments.back().empty()) segments.pop_back();
  for (std::string_view segment : {"data", "2.5"}) segments.push_back(segment);
  if (request == OpenWeatherRequest::current) {
    segments.push_back("weather");
  } else {
    segments.push_back("forecast");
    if (request == OpenWeatherRequest::daily) segments.push_back("daily");
  }
  auto params = url.params();
  params.clear();
  params.append({"lat", std::to_string(location.latitude())});
  params.append({"lon", std::to_string(location.longitude())});
  params.append({kKeyItem, key_.reveal()});
  params.append({"units", "metric"});
  params.append({"lang", languageCode_});
  return url;
}

Task<OneCallWeather> OpenWeatherClient::fetch(Location location, TimeZone timeZone) {
  auto answers = std::make_shared<Answers>();
  auto decodeCurrent = [](std::string_view body, Answers& a) { a.current = decodeOpenWeatherCurrent(body); };
  auto decodeForecast = [](std::string_view body, Answers& a) { a.forecast = decodeOpenWeatherForecast(body); };
  auto decodeDaily = [](std::string_view body, Answers& a) { a.daily = decodeOpenWeatherDaily(body); };
  std::optional<boost::urls::url> airQualityUrl;
  if (forecaToken_) {
    ForecaClient foreca(http_, endpoints_, *forecaToken_, clock_, languageCode_);
    airQualityUrl = foreca.requestUrl(ForecaRequest::airQuality, location, false);
  }
  std::function<Task<void>(TaskGroup&)> requests = [&](TaskGroup& group) -> Task<void> {
    group.spawn(fetchInto(http_, clock_, requestUrl(OpenWeatherRequest::current, location),
                          std::string(nameOf(OpenWeatherRequest::current)), answers, decodeCurrent));
    group.spawn(fetchInto(http_, clock_, requestUrl(OpenWeatherRequest::forecast, location),
                          std::string(nameOf(OpenWeatherRequest::forecast)), answers, decodeForecast));
    group.spawn(fetchInto(http_, clock_, requestUrl(OpenWeatherRequest::daily, location),
                          std::string(nameOf(OpenWeatherRequest::daily)), answers, decodeDaily));
    if (airQualityUrl) group.spawn(fetchAirQuality(http_, clock_, *airQualityUrl, answers));
    co_return;
  };
  co_await withTaskGroup(requests);
  if (answers->forecast.list.empty()) {
    logDetail("OpenWeather answer too short: no forecast rows");
    throw NetworkError(NetworkError::invalidResponse);
  }
  OpenWeatherConversionContext context{location, timeZone, Date::fromSystem(clock_.now())};
  co_return convertOpenWeather(answers->current, answers->forecast, answers->daily, answers->airQuality, context);
}

Task<OneCallWeather> fetchOpenWeatherForecast(HttpClient& http, const ServiceEndpoints& endpoints,
                                              const Credentials& credentials, Clock& clock, std::string languageCode,
                                              Location location, TimeZone timeZone) {
  if (!credentials.openWeatherKey) {
    logDetail("No OpenWeather key configured");
    throw DomainError(kRequestErrorDomain, kRequestErrorCode,
                      "No OpenWeather key: set OMBRINE_OPENWEATHER_KEY or add \"openweather_key = ...\" to "
                      "~/.config/ombrine/credentials (mode 0600)");
  }
  OpenWeatherClient client(http, endpoints, *credentials.openWeatherKey, credentials.forecaToken, clock,
                           std::move(languageCode));
  co_return co_await client.fetch(std::move(location), std::move(timeZone));
}

}  // namespace ombrine
