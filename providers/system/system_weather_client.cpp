#include "providers/system/system_weather_client.hpp"

#include <functional>
#include <memory>

#include "core/record/weather_derived.hpp"
#include "core/values/errors.hpp"
#include "core/values/iso8601.hpp"
#include "platform/async/coroutines.hpp"
#include "platform/errors.hpp"
#include "platform/log.hpp"
#include "providers/common/provider_request.hpp"
#include "providers/system/weatherkit_conversion.hpp"
#include "providers/system/weatherkit_wire.hpp"

namespace ombrine {

namespace {

constexpr std::chrono::seconds kRequestTimeout{45};
constexpr double kCacheReuseDistance = 2000.0;
constexpr double kHourlySpan = 9 * 86400.0;
constexpr std::string_view kService = "System weather";

std::string coordinate(double value) {
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%.4f", value);
  return buffer;
}

struct Answers {
  AppleWeather weather;
  std::optional<std::vector<WeatherKitAlert>> alerts;
};

Task<void> fetchInto(HttpClient& http, const Clock& clock, boost::urls::url url, std::string token, std::string name,
                     std::shared_ptr<Answers> answers, bool alerts) {
  HttpRequest request;
  request.url = std::move(url);
  request.timeout = kRequestTimeout;
  request.headers.push_back({"Authorization", "Bearer " + token});
  std::string logged(request.url.buffer());
  std::string service(kService);
  std::string body =
      co_await fetchProviderAnswer(http, clock, std::move(request), std::move(service), name, std::move(logged));
  try {
    AppleWeather decoded = decodeWeatherKitAnswer(body);
    if (alerts) {
      answers->alerts = decoded.weatherAlerts.value_or(std::vector<WeatherKitAlert>{});
    } else {
      answers->weather = std::move(decoded);
    }
  } catch (const DecodingError& error) {
    logf("System weather {} answer could not be decoded: {}", name, error.what());
    throw;
  }
}

[[noreturn]] void notConfigured(std::string_view what) {
  logDetail("System weather is not configured: {}", what);
  throw DomainError(kRequestErrorDomain, kRequestErrorCode, "System weather is not configured: " + std::string(what));
}

}  // namespace

SystemWeatherClient::SystemWeatherClient(HttpClient& http, ServiceEndpoints endpoints, DeveloperKey key,
                                         DeveloperTokenClaims claims, Clock& clock, std::string languageCode)
    : http_(http),
      endpoints_(std::move(endpoints)),
      key_(std::move(key)),
      claims_(std::move(claims)),
      clock_(clock),
      languageCode_(languageCode.empty() ? "en" : std::move(languageCode)) {}

boost::urls::url SystemWeatherClient::requestUrl(bool alerts, const Location& location, const Region& region,
                                                 const TimeZone& zone, Date now) const {
  boost::urls::url url = endpoints_.systemWeather;
  auto segments = url.segments();
  if (!segments.empty() && segments.back().empty()) segments.pop_back();
  for (std::string_view segment : {"api", "v1", "weather"}) segments.push_back(segment);
  segments.push_back(languageCode_);
  segments.push_back(coordinate(location.latitude()));
  segments.push_back(coordinate(location.longitude()));
  auto params = url.params();
  params.clear();
  if (alerts) {
    params.append({"dataSets", "weatherAlerts"});
    params.append({"countryCode", region.identifier});
  } else {
    params.append({"dataSets", "currentWeather,forecastHourly,forecastDaily,forecastNextHour"});
    params.append({"hourlyEnd", iso8601String(now + kHourlySpan)});
  }
  params.append({"timezone", zone.identifier()});
  return url;
}

Task<OneCallWeather> SystemWeatherClient::fetch(Location location, Region region, TimeZone timeZone,
                                                std::optional<OneCallWeather> freshCachedRecord) {
  if (freshCachedRecord && weatherDataSource(*freshCachedRecord) == WeatherDataSource::apple &&
      location.distance(Location(freshCachedRecord->lat, freshCachedRecord->lon)) < kCacheReuseDistance) {
    co_return std::move(*freshCachedRecord);
  }
  const Date now = Date::fromSystem(clock_.now());
  const std::string token = signDeveloperToken(key_, claims_, now);
  auto answers = std::make_shared<Answers>();
  const bool withAlerts = region != Region::unknown();
  std::function<Task<void>(TaskGroup&)> requests = [&](TaskGroup& group) -> Task<void> {
    group.spawn(
        fetchInto(http_, clock_, requestUrl(false, location, region, timeZone, now), token, "weather", answers, false));
    if (withAlerts) {
      group.spawn(
          fetchInto(http_, clock_, requestUrl(true, location, region, timeZone, now), token, "alerts", answers, true));
    }
    co_return;
  };
  co_await withTaskGroup(requests);
  if (answers->weather.hourlyForecast.empty() || answers->weather.dailyForecast.empty()) {
    logf("System weather answer too short: {} hourly rows, {} daily rows", answers->weather.hourlyForecast.size(),
         answers->weather.dailyForecast.size());
    throw NetworkError(NetworkError::invalidResponse);
  }
  answers->weather.weatherAlerts = std::move(answers->alerts);
  SystemWeatherConversionContext context{location, timeZone, now};
  co_return convertSystemWeather(answers->weather, context);
}

SystemWeatherClient systemWeatherClient(HttpClient& http, const ServiceEndpoints& endpoints,
                                        const Credentials& credentials, Clock& clock, std::string languageCode) {
  if (!credentials.weatherKitKey && !credentials.weatherKitKeyFile) {
    notConfigured(
        "no developer key (set OMBRINE_WEATHERKIT_KEY_FILE or \"weatherkit_key_file = ...\" in "
        "~/.config/ombrine/credentials)");
  }
  if (!credentials.weatherKitKeyId || !credentials.weatherKitTeamId || !credentials.weatherKitServiceId) {
    notConfigured(
        "the key id, team id and service id are needed (weatherkit_key_id, weatherkit_team_id, "
        "weatherkit_service_id in ~/.config/ombrine/credentials)");
  }
  std::optional<DeveloperKey> key;
  try {
    key = credentials.weatherKitKey ? DeveloperKey::fromPem(credentials.weatherKitKey->reveal())
                                    : DeveloperKey::fromFile(*credentials.weatherKitKeyFile);
  } catch (const FileError& error) {
    notConfigured(error.what());
  } catch (const std::invalid_argument& error) {
    notConfigured(std::string("the developer key cannot be used: ") + error.what());
  }
  DeveloperTokenClaims claims{*credentials.weatherKitKeyId, *credentials.weatherKitTeamId,
                              *credentials.weatherKitServiceId};
  return SystemWeatherClient(http, endpoints, std::move(*key), std::move(claims), clock, std::move(languageCode));
}

}  // namespace ombrine
