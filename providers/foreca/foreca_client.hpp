#pragma once
// The Foreca forecast client: six requests against the Foreca point service, one record.
//
// A fetch sends, concurrently, "current/", "forecast/hourly/", "forecast/daily/",
// "air-quality/forecast/hourly/" and "warning/" for the point "<longitude>,<latitude>" (each the
// shortest decimal text of its double), then, once current and hourly are known,
// "forecast/minutely/" — only when the largest precipitation probability of the current hour
// and the next two hours is above 19 %; otherwise `minutely` is an empty list and no request
// is made. Every request carries the token as the query item `token` and has a 60 s time-out.
//
// Failures:
//   - HTTP 429 from any request raises NetworkError::exceededApiLimit;
//   - any other status than 200, and a transport failure (HttpError), raise
//     DomainError("Request", 5001);
//   - an answer that cannot be decoded raises DecodingError;
//   - fewer than 3 hourly rows or no daily rows raise NetworkError::invalidResponse;
//   - warnings are the exception: any failure of that request is logged and gives no alerts.
// The first failure cancels the other requests. Every request is a child task that is awaited
// before `fetch` returns or raises, also when the caller is cancelled (then CancellationError).
// Each failure is logged as one line naming the request, its URL with the token replaced by
// "<redacted>", and the cause; the token never appears in a log line or an error text.
//
// Thread-safe: concurrent fetches share nothing but the HttpClient (itself thread-safe). The
// HttpClient and Clock must outlive the client.

#include <optional>
#include <span>
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
#include "providers/foreca/foreca_wire.hpp"

namespace ombrine {

// The minutely request is sent only when the precipitation probability is above this (percent).
inline constexpr int kForecaMinutelyProbabilityThreshold = 19;
// The probability that decides the minutely request: the largest of the current hour's and
// those of the second and third hourly rows. Precondition: at least 3 hourly rows.
int forecaMinutelyProbability(const ForecaCurrent& current, std::span<const ForecaHourly> hourly);
// True when the minutely request is worth sending (probability above 19 %).
inline bool forecaNeedsMinutely(int probability) { return probability > kForecaMinutelyProbabilityThreshold; }

// A cached record this close to the requested point (metres) can stand in for a fetch.
inline constexpr double kForecaCacheReuseDistance = 2000.0;

// The sub-requests of one fetch.
enum class ForecaRequest { current, hourly, daily, minutely, airQuality, warnings };

class ForecaClient {
 public:
  // `languageCode` is the device language ("en", "fi", ...), sent as `lang` and used for the
  // capitalisation of phrases and the language of warnings; empty reads as "en".
  ForecaClient(HttpClient& http, ServiceEndpoints endpoints, Secret token, Clock& clock, std::string languageCode);

  // One forecast for `location`, named by `details` (its time zone is the record's).
  // `useSecondaryBase` chooses the second Foreca base URL.
  //
  // `freshCachedRecord` is the fetch pipeline's cache short-cut: the newest cached record, when
  // the pipeline has found it fresh. It is returned as it is, without any request, when it comes
  // from Foreca, has daily rows and lies within 2000 m of `location`; otherwise it is ignored.
  Task<OneCallWeather> fetch(Location location, GeoDetails details, bool useSecondaryBase,
                             std::optional<OneCallWeather> freshCachedRecord = std::nullopt);

  // The URL of one sub-request (token included). For the command line and tests.
  boost::urls::url requestUrl(ForecaRequest request, const Location& location, bool useSecondaryBase) const;

 private:
  HttpClient& http_;
  ServiceEndpoints endpoints_;
  Secret token_;
  Clock& clock_;
  std::string languageCode_;
};

// The URL as it may be logged: the `token` query item's value replaced by "<redacted>".
std::string redactedForecaUrl(const boost::urls::url& url);

// The point text of a request path: "<longitude>,<latitude>", each the shortest decimal text
// that reads back as the same double, without exponent ("24.9384,60.1699").
std::string forecaPointText(const Location& location);

// What the `ombrine forecast --provider foreca` command calls: loads the token from
// `credentials`, builds a client on `endpoints` and fetches. Raises DomainError("Request",
// 5001) naming the ways to configure a token when none is configured, else as
// ForecaClient::fetch.
Task<OneCallWeather> fetchForecaForecast(HttpClient& http, const ServiceEndpoints& endpoints,
                                         const Credentials& credentials, Clock& clock, std::string languageCode,
                                         Location location, GeoDetails details, bool useSecondaryBase = false,
                                         std::optional<OneCallWeather> freshCachedRecord = std::nullopt);

}  // namespace ombrine
