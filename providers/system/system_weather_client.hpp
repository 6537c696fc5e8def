#pragma once
// The system weather service reached through its public REST interface, mapped into the
// unified record.
//
// A fetch sends two requests concurrently, each with "Authorization: Bearer <developer token>"
// and a 45 s time-out:
//   <base>/api/v1/weather/<lang>/<lat>/<lon>?dataSets=currentWeather,forecastHourly,
//       forecastDaily,forecastNextHour&timezone=<zone>&hourlyEnd=<now + 9 days>
//   <base>/api/v1/weather/<lang>/<lat>/<lon>?dataSets=weatherAlerts&countryCode=<region>&timezone=<zone>
// (the alerts request is left out for an unknown region "XX").
//
// Failures propagate (the fetch pipeline decides about falling back): HTTP 429
// NetworkError::exceededApiLimit; any other status than 200 (401 for a refused token) or a
// transport failure DomainError("Request", 5001); an undecodable answer DecodingError; an answer
// without hourly or daily data NetworkError::invalidResponse. The token never appears in a log
// line or error text.
//
// Cache short-cut: `freshCachedRecord` is returned without any request when it came from this
// service and lies within 2000 m of the place.
//
// Thread-safe: the token is signed per fetch. HttpClient and Clock must outlive the client.

#include <optional>
#include <string>

#include <boost/url/url.hpp>

#include "core/fetch/credentials.hpp"
#include "core/fetch/service_endpoints.hpp"
#include "core/record/one_call_weather.hpp"
#include "core/values/location.hpp"
#include "platform/async/task.hpp"
#include "platform/clock.hpp"
#include "platform/http_client.hpp"
#include "providers/system/developer_token.hpp"

namespace ombrine {

class SystemWeatherClient {
 public:
  SystemWeatherClient(HttpClient& http, ServiceEndpoints endpoints, DeveloperKey key, DeveloperTokenClaims claims,
                      Clock& clock, std::string languageCode);

  Task<OneCallWeather> fetch(Location location, Region region, TimeZone timeZone,
                             std::optional<OneCallWeather> freshCachedRecord = std::nullopt);

  // The URL of the weather request (`alerts` false) or of the alerts request.
  boost::urls::url requestUrl(bool alerts, const Location& location, const Region& region, const TimeZone& zone,
                              Date now) const;

 private:
  HttpClient& http_;
  ServiceEndpoints endpoints_;
  DeveloperKey key_;
  DeveloperTokenClaims claims_;
  Clock& clock_;
  std::string languageCode_;
};

// The system weather client of `credentials`: the key from the in-memory key, else the key file.
// Raises DomainError("Request", 5001) with one clear line when the key, key id, team id or
// service id is not configured, or the key file is unsafe or unreadable.
SystemWeatherClient systemWeatherClient(HttpClient& http, const ServiceEndpoints& endpoints,
                                        const Credentials& credentials, Clock& clock, std::string languageCode);

}  // namespace ombrine
