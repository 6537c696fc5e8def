#pragma once
// The vocabulary between the simulator's HTTP server and the services it imitates.
//
// A service is a list of routes. A route has a stable short name (what request counters and
// fault plans are keyed by), a path pattern, the function that computes its answer, and the
// body of the service's own error object (used for injected error statuses and HTTP-200
// errors). Answers are pure functions of the request and the instant `now`, so they can be
// computed without a server (tests, fuzzing) exactly as the server sends them.

#include <functional>
#include <optional>
#include <regex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "sim/sim_time.hpp"

namespace ombrine::sim {

// A request a simulated service refuses: the HTTP status and the message of its error answer.
// Raised inside a route's handler; the route words it as its service does.
struct Refusal {
  int status;
  std::string message;
};

struct SimRequest {
  std::string path;                                        // percent-decoded
  std::vector<std::string> captures;                       // the pattern's groups, in order
  std::vector<std::pair<std::string, std::string>> query;  // decoded, in order
  Instant now;
  // The Host header the client sent ("127.0.0.1:PORT"); empty without a connection. Services
  // that answer with absolute links to themselves build them from it.
  std::string host;
  std::string method = "GET";
  // Request headers as received (names in any case) and the body, for the few routes that
  // read them (the tile proxy's token mint and its authorised routes).
  std::vector<std::pair<std::string, std::string>> headers;
  std::string body;
  // The Authorization header as sent; empty without one.
  std::string authorization;

  // The first value of query item `name`, if present.
  std::optional<std::string_view> param(std::string_view name) const;
  // The first header named `name` (any case), if present.
  std::optional<std::string_view> header(std::string_view name) const;
};

struct SimResponse {
  int status = 200;
  std::string contentType = "application/json";
  std::string body;
  std::vector<std::pair<std::string, std::string>> headers;
};

struct SimRoute {
  std::string name;    // e.g. "foreca.hourly"
  std::regex pattern;  // matched against the whole path
  std::function<SimResponse(const SimRequest&)> answer;
  // The service's error object for `status` with a human `message`.
  std::function<std::string(int status, std::string_view message)> errorBody;
};

// The first route of `routes` whose pattern matches `path`, with its captures; nothing when none
// does.
const SimRoute* matchRoute(const std::vector<SimRoute>& routes, const std::string& path,
                           std::vector<std::string>& captures);

// The request for GET `target` (raw path and query) at `now`; `captures` stay empty until a
// route is matched.
SimRequest requestFor(std::string_view target, Instant now);

// Undoes percent-encoding ("%2C" -> ","); with `plusIsSpace` (query strings) '+' reads as a
// space. A '%' not followed by two hex digits stays as it is.
std::string percentDecode(std::string_view text, bool plusIsSpace);

// Splits a raw query string ("a=1&b=x%20y") into decoded items; '+' reads as a space.
std::vector<std::pair<std::string, std::string>> parseQuery(std::string_view query);

}  // namespace ombrine::sim
