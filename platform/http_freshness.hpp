#pragma once
// The caching rules of HTTP for a private cache: what may be stored, how long a stored reply is
// fresh, how old it is, and how a 304 refreshes it. Pure functions of headers and instants
// (seconds since 1970); thread-safe.

#include <optional>
#include <string_view>

#include "platform/http_client.hpp"

namespace ombrine {

// The directives of the Cache-Control headers that matter to a private cache.
struct CacheControl {
  bool noStore = false;
  bool noCache = false;
  std::optional<double> maxAge;  // seconds
};

// All "Cache-Control" headers of `headers`, merged. Unknown directives are ignored; a max-age
// that is not a number of seconds is treated as 0 (stale), as caches must.
CacheControl parseCacheControl(const HttpHeaders& headers);

// An HTTP date ("Sun, 06 Nov 1994 08:49:37 GMT"; the obsolete RFC 850 and asctime forms too)
// as seconds since 1970; nothing when `text` is none of them.
std::optional<double> parseHttpDate(std::string_view text);

// Whether the reply to a GET may be stored: a status a cache may keep by default and no
// "no-store" on either side.
bool isStorable(const HttpRequest& request, const HttpResponse& response);

// How long the reply stays fresh from its generation: max-age, else Expires minus Date, else a
// tenth of the time since Last-Modified; 0 with "no-cache" or none of these.
double freshnessLifetime(const HttpResponse& response, double responseTime);

// The reply's age at `now`: its age when received (Age header, or Date to arrival), plus the
// time since it arrived.
double currentAge(const HttpResponse& response, double responseTime, double now);

// True when a stored reply can answer without asking the server.
bool isFresh(const HttpResponse& response, double responseTime, double now);

// The conditional headers of a revalidation (If-None-Match, If-Modified-Since); empty when the
// reply carries no validator.
HttpHeaders validatorsOf(const HttpResponse& response);

// The stored reply refreshed by a 304: the 304's headers replace the stored ones of the same name
// (the framing headers excepted); status and body stay.
HttpResponse refreshed(const HttpResponse& stored, const HttpResponse& notModified);

}  // namespace ombrine
