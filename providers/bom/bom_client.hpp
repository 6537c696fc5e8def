#pragma once
// The Bureau of Meteorology locations API client, and the Australian merge with the system
// weather record.
//
// A fetch sends, concurrently, GET "/v1/locations/<geohash>" (place information, for the time
// zone), ".../forecasts/hourly", ".../forecasts/daily", ".../observations" and ".../warnings",
// the location key being the 6-character geohash of the place. Every request has a 60 s
// time-out and the browser-like headers the API expects, in a fixed order (Accept, Origin,
// Accept-Encoding, Host, User-Agent, Accept-Language, Referer). Answers are decoded only for
// status 200. Failures as every provider (429 NetworkError::exceededApiLimit, other statuses and
// transport failures DomainError("Request", 5001), DecodingError); a failure of the warnings
// request is logged and leaves no warnings. Thread-safe; HttpClient and Clock must outlive it.

#include <optional>
#include <string>

#include <boost/url/url.hpp>

#include "core/fetch/service_endpoints.hpp"
#include "core/record/one_call_weather.hpp"
#include "core/values/location.hpp"
#include "platform/async/task.hpp"
#include "platform/clock.hpp"
#include "platform/http_client.hpp"

namespace ombrine {

enum class BureauRequest { placeInformation, hourly, daily, observations, warnings };

// The key the API names a place by.
inline constexpr int kBureauGeohashLength = 6;

class BureauClient {
 public:
  BureauClient(HttpClient& http, ServiceEndpoints endpoints, Clock& clock);

  // The Bureau's own record (bom_conversion.hpp); `timeZone` stands when the place information
  // names no zone this program knows.
  Task<OneCallWeather> fetch(Location location, TimeZone timeZone);

  boost::urls::url requestUrl(BureauRequest request, const Location& location) const;
  // The request headers, in order.
  HttpHeaders requestHeaders() const;

 private:
  HttpClient& http_;
  ServiceEndpoints endpoints_;
  Clock& clock_;
};

// Runs both fetches concurrently; a failure of either other than a cancellation counts as
// nothing (logged with -v). Both nothing: DomainError("Request", 5001), a ProviderStatusError
// with the longer wait when both services answered with a status and named a wait
// ("Retry-After"). One record: it stands as it is. Both: mergeBureauWithSystemWeather. A
// cancellation is raised after both ended.
Task<OneCallWeather> fetchBureauMerged(Task<OneCallWeather> bureau, Task<OneCallWeather> systemWeather);

}  // namespace ombrine
