#pragma once
// The OpenWeather client: current conditions, the three-hour forecast and the daily forecast,
// with air quality from the Foreca air quality request, in one record.
//
// A fetch sends, concurrently, "/data/2.5/weather", "/data/2.5/forecast" and
// "/data/2.5/forecast/daily" with lat, lon, appid, units=metric and lang, each with the shared
// session's 45 s time-out; when a Foreca token is configured, the Foreca air quality request
// (60 s, as every Foreca request) runs beside them.
//
// Failures: HTTP 429 raises NetworkError::exceededApiLimit; any other status than 200 or a
// transport failure DomainError("Request", 5001); an undecodable answer DecodingError; an empty
// forecast list NetworkError::invalidResponse. The air quality request is the exception: any
// failure of it but a cancellation is logged and leaves the record without air quality. The
// first failure cancels the other requests; all are awaited before `fetch` returns or raises.
// The key never appears in a log line or an error text ("<redacted>").
//
// Thread-safe: concurrent fetches share only the HttpClient. HttpClient and Clock must outlive
// the client.

#include <optional>
#include <string>
#include <string_view>

#include <boost/url/url.hpp>

#include "core/fetch/credentials.hpp"
#include "core/fetch/service_endpoints.hpp"
#include "core/record/one_call_weather.hpp"
#include "core/values/location.hpp"
#include "platform/async/task.hpp"
#include "platform/clock.hpp"
#include "platform/http_client.hpp"

namespace ombrine {

enum class OpenWeatherRequest { current, forecast, daily };

class OpenWeatherClient {
 public:
  // `forecaToken`, when given, enables the air quality request. `languageCode` empty reads "en".
  OpenWeatherClient(HttpClient& http, ServiceEndpoints endpoints, Secret key, std::optional<Secret> forecaToken,
                    Clock& clock, std::string languageCode);

  Task<OneCallWeather> fetch(Location location, TimeZone timeZone);

  // The URL of one request, key included.
  boost::urls::url requestUrl(OpenWeatherRequest request, const Location& location) const;

 private:
  HttpClient& http_;
  ServiceEndpoints endpoints_;
  Secret key_;
  std::optional<Secret> forecaToken_;
  Clock& clock_;
  std::string languageCode_;
};

// The URL as it may be logged: the `appid` value replaced by "<redacted>".
std::string redactedOpenWeatherUrl(const boost::urls::url& url);

// What the pipeline calls for the `ow` path: the key from `credentials`; without one raises
// DomainError("Request", 5001) naming the ways to configure it.
Task<OneCallWeather> fetchOpenWeatherForecast(HttpClient& http, const ServiceEndpoints& endpoints,
                                              const Credentials& credentials, Clock& clock, std::string languageCode,
                                              Location location, TimeZone timeZone);

}  // namespace ombrine
