#pragma once
// The service simulator: one loopback HTTP server speaking the wire formats of the outside
// services (so far the Foreca point forecast and warnings service, foreca_routes.hpp), with
// deterministic synthetic weather and faults injected on demand.
//
// The server listens on 127.0.0.1 only, from the end of the constructor until stop() or
// destruction, serving requests on its own thread pool. Answers depend on the seed, the request
// and the clock's `now()` alone, so a pinned clock gives byte-identical answers.
//
// Thread-safe: faults can be changed and the request log read from any thread while requests
// are served. The constructor raises std::runtime_error when the port cannot be bound.

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/clock.hpp"
#include "sim/fault_plan.hpp"
#include "sim/sim_route.hpp"

namespace ombrine::sim {

// One request as the simulator saw it.
struct SimRequestRecord {
  std::string route;  // the route's name, or "unknown" for a path no route serves
  std::string method;
  std::string path;
  // Decoded query items in order; the value of "token" is replaced by "(redacted)".
  std::vector<std::pair<std::string, std::string>> query;
  int status = 0;     // the status sent; 0 while being answered or when none was sent (hang)
  std::string fault;  // the fault applied (its SPEC text), empty when none
  Clock::WallTime at;
};

class SimServer {
 public:
  struct Options {
    std::uint16_t port = 0;        // 0 picks a free port
    std::uint64_t seed = 0;        // selects the synthetic weather
    const Clock* clock = nullptr;  // the source of "now"; must outlive the server. Default: system clock
    bool logRequests = false;      // one line per request on stderr (path and outcome, never the query)
    // Public keys (PEM) whose developer tokens the system weather routes accept.
    std::vector<std::string> weatherKitPublicKeys;
  };

  explicit SimServer(Options options);
  SimServer() : SimServer(Options{}) {}
  SimServer(const SimServer&) = delete;
  SimServer& operator=(const SimServer&) = delete;
  // Stops the server (see stop()).
  ~SimServer();

  std::uint16_t port() const;
  // "http://127.0.0.1:PORT", no trailing slash.
  std::string baseUrl() const;

  // From now on, accept system weather developer tokens signed by this key (PEM public key).
  // Thread-safe.
  void trustWeatherKitKey(std::string publicKeyPem);

  // Stops listening, wakes requests held by latency or hang faults, and waits for the worker
  // threads. Idempotent; safe from any thread except a request handler.
  void stop();

  // The names of the routes served, in a stable order.
  std::vector<std::string> routeNames() const;

  // Sets the fault of `route` (a name from routeNames(), "*", or "<service>.*" for each route of
  // one service). Raises std::invalid_argument for an unknown route or service.
  void setFault(std::string_view route, Fault fault);
  // Sets faults from "ROUTE=SPEC" text, as on the command line. Raises std::invalid_argument.
  void setFault(std::string_view routeAndSpec);
  void clearFault(std::string_view route);
  void clearFaults();

  // How many requests `route` has seen ("*": all requests, "unknown" included).
  std::size_t requestCount(std::string_view route) const;
  std::vector<SimRequestRecord> requestLog() const;
  void clearRequestLog();

  // The answer the server would give now to GET `target` (path and query) with no fault; for
  // tests and tools that want the bytes without a connection.
  SimResponse answer(std::string_view target) const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace ombrine::sim
