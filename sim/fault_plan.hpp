#pragma once
// Faults the simulator injects into its answers, per route, changeable while it runs.
//
// A fault is an optional added latency plus at most one way of answering wrongly:
//   latency=MS     wait MS milliseconds before answering (combines with any of the below)
//   status=CODE    answer HTTP CODE (400..599) with the service's error object; 429 and 503
//                  carry "Retry-After" (seconds, default 1, or retry-after=S; retry-after=none
//                  sends no header)
//   hang=MS        send nothing for MS milliseconds, then close after the headers without a body;
//                  meant to outlast a client's time-out
//   truncate       announce the full Content-Length, send half of the body, close
//   error200       HTTP 200 whose body is the service's error object
//   malformed      HTTP 200 whose body is the first half of the real answer (never valid JSON)
//   behind=S       answer as the service would have S seconds ago (stale frames, a token that
//                  is already close to its expiry); combines with any of the above
//   times=K        only the next K requests get the fault; afterwards the route is healthy
// Items are joined by commas: "status=503,times=2", "latency=50,truncate".
//
// Route names are those the simulator lists (e.g. "foreca.hourly"); "<service>.*" (e.g.
// "jtwc.*") stands for every route of that service without a fault of its own, and "*" for
// every route without a fault of its own or of its service.

#include <chrono>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

namespace ombrine::sim {

struct Fault {
  enum class Answer { normal, status, hang, truncate, error200, malformed };

  std::chrono::milliseconds latency{0};
  Answer answer = Answer::normal;
  int status = 0;                                  // with Answer::status
  std::optional<std::chrono::seconds> retryAfter;  // with Answer::status
  bool withoutRetryAfter = false;                  // retry-after=none
  std::chrono::milliseconds hang{0};               // with Answer::hang
  std::optional<int> times;                        // absent: every request until cleared
  std::chrono::seconds behind{0};                  // the answer's "now" is this much earlier

  bool operator==(const Fault&) const = default;
};

// Reads a fault SPEC as above. Raises std::invalid_argument naming the offending item and what
// was expected.
Fault parseFault(std::string_view spec);

// "<service>.*" of a route name "<service>.<route>"; empty for a name without a dot.
std::string serviceWildcard(std::string_view route);

// The textual form of `fault` (parseFault(describeFault(f)) == f).
std::string describeFault(const Fault& fault);

// The faults of all routes. Thread-safe: tests change it while requests are served.
class FaultPlan {
 public:
  // Replaces the fault of `route` ("*" for the default of every route).
  void set(std::string route, Fault fault);
  void clear(std::string_view route);
  void clearAll();

  // The fault of `route` (else that of its "<service>.*", else that of "*"), if any, without
  // consuming it.
  std::optional<Fault> find(std::string_view route) const;

  // The fault the next request to `route` gets. Consumes one of its `times`; the fault is
  // removed when none are left.
  std::optional<Fault> take(std::string_view route);

 private:
  mutable std::mutex mutex_;
  std::map<std::string, Fault, std::less<>> faults_;
};

}  // namespace ombrine::sim
