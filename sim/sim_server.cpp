#include "sim/sim_server.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "platform/http_server.hpp"
#include "platform/linux/system_clock.hpp"
#include "platform/log.hpp"
#include "sim/answer_encoding.hpp"
#include "sim/bom_routes.hpp"
#include "sim/climate_routes.hpp"
#include "sim/fire_routes.hpp"
#include "sim/foreca_routes.hpp"
#include "sim/openweather_routes.hpp"
#include "sim/radar_routes.hpp"
#include "sim/storm_routes.hpp"
#include "sim/tide_routes.hpp"
#include "sim/weather_model.hpp"
#include "sim/weatherkit_routes.hpp"

namespace ombrine::sim {

namespace {

// Requests held by latency or hang faults occupy a worker each; a client's six concurrent
// requests plus a few held ones must still be served.
constexpr std::size_t kWorkers = 32;

const char* kUnknownRoute = "unknown";

constexpr const char* kUnknownRouteBody = R"({"error":{"code":404,"message":"No simulated service at this path"}})";

const char* reasonOf(int status) {
  switch (status) {
    case 400: return "Bad request";
    case 401: return "Unauthorized";
    case 403: return "Forbidden";
    case 404: return "Not found";
    case 429: return "Too many requests";
    case 500: return "Internal server error";
    case 502: return "Bad gateway";
    case 503: return "Service temporarily unavailable";
    case 504: return "Gateway timeout";
    default: return status < 500 ? "Request refused" : "Server error";
  }
}

// Sets the answer's body, gzipped when the client accepts it. The server adds no compression of
// its own (its library would pick brotli at its slowest quality).
void setBody(HttpServerResponse& out, std::string body, const std::string& contentType, bool gzipAccepted) {
  out.contentType = contentType;
  if (!body.empty() && gzipAccepted && isCompressible(contentType)) {
    if (auto encoded = gzipped(body)) {
      body = std::move(*encoded);
      out.headers.emplace_back("Content-Encoding", "gzip");
      out.headers.emplace_back("Vary", "Accept-Encoding");
    }
  }
  out.body = std::move(body);
}

// The log line of the request a worker thread is answering, finished once the answer is written.
struct PendingLogLine {
  bool pending = false;
  std::chrono::steady_clock::time_point started;
  std::string text;
};
thread_local PendingLogLine pendingLogLine;

}  // namespace

struct SimServer::Impl {
  explicit Impl(const Options& options)
      : clock(options.clock ? options.clock : &systemClock), logRequests(options.logRequests) {
    const WeatherModel model(options.seed);
    routes = forecaRoutes(model);
    for (auto& route : tideRoutes(model)) routes.push_back(std::move(route));
    for (auto& route : stormRoutes()) routes.push_back(std::move(route));
    for (auto& route : climateRoutes(options.seed)) routes.push_back(std::move(route));
    for (auto& route : radarRoutes()) routes.push_back(std::move(route));
    for (auto& route : openWeatherRoutes(model)) routes.push_back(std::move(route));
    for (auto& route : weatherKitRoutes(model, weatherKitKeys)) routes.push_back(std::move(route));
    for (auto& route : bomRoutes(model)) routes.push_back(std::move(route));
    for (const std::string& key : options.weatherKitPublicKeys) weatherKitKeys->trust(key);
    for (auto& route : fireRoutes()) routes.push_back(std::move(route));
  }

  std::shared_ptr<WeatherKitKeyRing> weatherKitKeys = std::make_shared<WeatherKitKeyRing>();

  SystemClock systemClock;
  const Clock* clock;
  bool logRequests;
  std::vector<SimRoute> routes;
  FaultPlan faults;
  std::unique_ptr<HttpServer> server;
  std::thread listener;
  std::atomic<bool> listenerEnded = false;
  std::uint16_t port = 0;

  std::mutex waitMutex;
  std::condition_variable wake;
  bool stopping = false;
  std::mutex stopMutex;
  bool stopped = false;

  mutable std::mutex logMutex;
  std::vector<SimRequestRecord> log;
  std::vector<std::uint64_t> logIds;  // parallel to `log`
  std::uint64_t lastId = 0;

  Instant now() const { return std::chrono::floor<std::chrono::seconds>(clock->now()); }

  // Waits `duration` unless the server stops first; false when it stopped.
  bool pause(std::chrono::milliseconds duration) {
    std::unique_lock lock(waitMutex);
    return !wake.wait_for(lock, duration, [this] { return stopping; });
  }

  SimResponse compute(const SimRoute* route, const SimRequest& request) const {
    if (!route) return SimResponse{.status = 404, .body = kUnknownRouteBody};
    try {
      return route->answer(request);
    } catch (const std::exception& error) {
      logf("ombrine-sim: {} failed: {}", route->name, error.what());
      return SimResponse{.status = 500, .body = route->errorBody(500, reasonOf(500))};
    }
  }

  void handle(const HttpServerRequest& http, HttpServerResponse& out) {
    const auto started = std::chrono::steady_clock::now();
    SimRequest request = requestFor(http.target, now());
    request.host = http.header("Host").value_or("");
    request.method = http.method;
    request.headers = http.headers;
    request.body = http.body;
    request.authorization = http.header("Authorization").value_or("");
    const SimRoute* route = matchRoute(routes, request.path, request.captures);
    const std::optional<Fault> fault = route ? faults.take(route->name) : std::nullopt;
    const std::uint64_t id = record(route, http.method, request, fault);
    const bool gzipAccepted = acceptsGzip(http.header("Accept-Encoding").value_or(""));
    const int status = serve(route, request, fault, gzipAccepted, out);
    complete(id, status);
    if (logRequests) {
      // Printed by `logWritten` once the answer is on the wire, so the time covers the whole answer.
      pendingLogLine = PendingLogLine{
          .pending = true,
          .started = started,
          .text = fmt::format("ombrine-sim: {} {} {} -> {}{}", http.method, request.path,
                              route ? route->name : kUnknownRoute,
                              status == 0 ? std::string("no answer") : std::to_string(status),
                              fault ? " [" + describeFault(*fault) + "]" : std::string()),
      };
    }
  }

  // Runs on the worker thread after the answer was written.
  static void logWritten() {
    if (!pendingLogLine.pending) return;
    pendingLogLine.pending = false;
    const std::chrono::duration<double, std::milli> elapsed = std::chrono::steady_clock::now() - pendingLogLine.started;
    logf("{} ({:.1f} ms)", pendingLogLine.text, elapsed.count());
  }

  // Writes the answer to `out`, with `fault` applied; returns the status sent (0 for none).
  int serve(const SimRoute* route, const SimRequest& request, const std::optional<Fault>& fault, bool gzipAccepted,
            HttpServerResponse& out) {
    if (fault && fault->latency.count() > 0 && !pause(fault->latency)) return shuttingDown(out);
    const Fault::Answer kind = fault ? fault->answer : Fault::Answer::normal;
    switch (kind) {
      case Fault::Answer::hang: {
        if (!pause(fault->hang)) return shuttingDown(out);
        // Headers promising a body that never comes, then the connection closes.
        out.status = 200;
        out.contentType = "application/json";
        out.announcedLength = 2;
        return 0;
      }
      case Fault::Answer::status: {
        out.status = fault->status;
        if (fault->retryAfter) out.headers.emplace_back("Retry-After", std::to_string(fault->retryAfter->count()));
        setBody(out, route->errorBody(fault->status, reasonOf(fault->status)), "application/json", gzipAccepted);
        return fault->status;
      }
      case Fault::Answer::error200: {
        out.status = 200;
        setBody(out, route->errorBody(503, reasonOf(503)), "application/json", gzipAccepted);
        return 200;
      }
      default: break;
    }
    SimRequest asked = request;
    if (fault) asked.now -= fault->behind;
    SimResponse response = compute(route, asked);
    out.status = response.status;
    for (auto& header : response.headers) out.headers.push_back(std::move(header));
    if (kind == Fault::Answer::truncate) {
      // The full length is announced; half the body is sent before the connection closes.
      out.contentType = response.contentType;
      out.announcedLength = response.body.size();
      response.body.resize(response.body.size() / 2);
      out.body = std::move(response.body);
      return response.status;
    }
    if (kind == Fault::Answer::malformed) {
      // A prefix of a JSON document misses at least its closing bracket, so never parses.
      response.body.resize(std::max<std::size_t>(1, response.body.size() / 2));
    }
    setBody(out, std::move(response.body), response.contentType, gzipAccepted);
    return response.status;
  }

  int shuttingDown(HttpServerResponse& out) {
    out.status = 503;
    out.contentType = "application/json";
    out.body = R"({"error":{"code":503,"message":"Simulator stopping"}})";
    return 503;
  }

  // Logs a request on arrival, so a request still held by a fault already counts.
  std::uint64_t record(const SimRoute* route, const std::string& method, const SimRequest& request,
                       const std::optional<Fault>& fault) {
    SimRequestRecord entry{
        .route = route ? route->name : kUnknownRoute,
        .method = method,
        .path = request.path,
        .query = request.query,
        .status = 0,
        .fault = fault ? describeFault(*fault) : std::string(),
        .at = clock->now(),
    };
    for (auto& [key, value] : entry.query) {
      if (key == "token") value = "(redacted)";
    }
    std::lock_guard lock(logMutex);
    log.push_back(std::move(entry));
    logIds.push_back(++lastId);
    return lastId;
  }

  void complete(std::uint64_t id, int status) {
    std::lock_guard lock(logMutex);
    const auto found = std::find(logIds.rbegin(), logIds.rend(), id);
    if (found != logIds.rend()) log[static_cast<std::size_t>(logIds.rend() - found - 1)].status = status;
  }

  // "*", a route's name, or "<service>.*" for a service that has routes.
  bool knows(std::string_view name) const {
    return name == "*" || std::any_of(routes.begin(), routes.end(), [&](const SimRoute& r) {
             return r.name == name || serviceWildcard(r.name) == name;
           });
  }
};

SimServer::SimServer(Options options) : impl_(std::make_unique<Impl>(options)) {
  Impl& impl = *impl_;
  HttpServerOptions serving;
  serving.port = options.port;
  serving.workers = kWorkers;
  serving.keepAlive = std::chrono::seconds(2);
  // As real services do: an answer's last segment must not wait for the client's delayed ACK.
  serving.noDelay = true;
  HttpServer::Handler handler = [&impl](const HttpServerRequest& request, HttpServerResponse& response) {
    impl.handle(request, response);
  };
  impl.server = openHttpServer(serving, std::move(handler), [] { Impl::logWritten(); });
  impl.port = static_cast<std::uint16_t>(impl.server->port());
  impl.listener = std::thread([&impl] {
    impl.server->run();
    impl.listenerEnded = true;
  });
  // stop() must not run before the accept loop has started, or the loop would never end.
  while (!impl.server->running() && !impl.listenerEnded) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  if (impl.listenerEnded) {
    impl.listener.join();
    throw std::runtime_error(fmt::format("cannot serve on 127.0.0.1:{}", impl.port));
  }
}

SimServer::~SimServer() { stop(); }

std::uint16_t SimServer::port() const { return impl_->port; }

void SimServer::trustWeatherKitKey(std::string publicKeyPem) { impl_->weatherKitKeys->trust(std::move(publicKeyPem)); }

std::string SimServer::baseUrl() const { return fmt::format("http://127.0.0.1:{}", impl_->port); }

void SimServer::stop() {
  std::lock_guard stopLock(impl_->stopMutex);
  if (impl_->stopped) return;
  impl_->stopped = true;
  {
    std::lock_guard lock(impl_->waitMutex);
    impl_->stopping = true;
  }
  impl_->wake.notify_all();
  impl_->server->stop();
  if (impl_->listener.joinable()) impl_->listener.join();
}

std::vector<std::string> SimServer::routeNames() const {
  std::vector<std::string> names;
  for (const auto& route : impl_->routes) names.push_back(route.name);
  return names;
}

void SimServer::setFault(std::string_view route, Fault fault) {
  // "<service>.*" stands for every route of that service.
  if (route.size() > 2 && route.ends_with(".*")) {
    const std::string_view prefix = route.substr(0, route.size() - 1);
    bool any = false;
    for (const auto& name : routeNames()) {
      if (!std::string_view(name).starts_with(prefix)) continue;
      impl_->faults.set(name, fault);
      any = true;
    }
    if (any) return;
  }
  if (!impl_->knows(route)) {
    throw std::invalid_argument(
        fmt::format("unknown route \"{}\"; known: *, {}", route, fmt::join(routeNames(), ", ")));
  }
  impl_->faults.set(std::string(route), fault);
}

void SimServer::setFault(std::string_view routeAndSpec) {
  const std::size_t equals = routeAndSpec.find('=');
  if (equals == std::string_view::npos || equals == 0) {
    throw std::invalid_argument(
        fmt::format("bad fault \"{}\": expected ROUTE=SPEC, e.g. foreca.hourly=status=503", routeAndSpec));
  }
  setFault(routeAndSpec.substr(0, equals), parseFault(routeAndSpec.substr(equals + 1)));
}

void SimServer::clearFault(std::string_view route) { impl_->faults.clear(route); }

void SimServer::clearFaults() { impl_->faults.clearAll(); }

std::size_t SimServer::requestCount(std::string_view route) const {
  std::lock_guard lock(impl_->logMutex);
  if (route == "*") return impl_->log.size();
  return static_cast<std::size_t>(
      std::count_if(impl_->log.begin(), impl_->log.end(), [&](const SimRequestRecord& r) { return r.route == route; }));
}

std::vector<SimRequestRecord> SimServer::requestLog() const {
  std::lock_guard lock(impl_->logMutex);
  return impl_->log;
}

void SimServer::clearRequestLog() {
  std::lock_guard lock(impl_->logMutex);
  impl_->log.clear();
  impl_->logIds.clear();
}

SimResponse SimServer::answer(std::string_view target) const {
  SimRequest request = requestFor(target, impl_->now());
  const SimRoute* route = matchRoute(impl_->routes, request.path, request.captures);
  return impl_->compute(route, request);
}

}  // namespace ombrine::sim
