// Foreca provider: the cost of decoding and converting one full answer (the recorded simulator
// answers of providers/foreca/testdata), and the wall time of a whole fetch against the
// simulator with 50 ms of latency on every route, next to the slowest single request. The six
// requests run concurrently (minutely after current/hourly/daily), so a dry place should take
// about one round trip (target ≤ 1.2× the slowest request; sequential would be 5 to 6×); a wet
// place needs the minutely round trip after the first, about 2×.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <memory>

#include "platform/icu_setup.hpp"
#include "platform/linux/curl_http_client.hpp"
#include "platform/runtime.hpp"
#include "providers/foreca/foreca_client.hpp"
#include "providers/foreca/foreca_conversion.hpp"
#include "providers/foreca/foreca_test_support.hpp"
#include "sim/pinned_clock.hpp"
#include "sim/sim_server.hpp"

namespace {

using namespace ombrine;
using testing_foreca::kRecordedAt;
using testing_foreca::kRecordedPlaces;

const std::filesystem::path kRecorded = std::filesystem::path(OMBRINE_FORECA_TESTDATA) / "recorded";

void BM_ForecaDecodeAnswers(benchmark::State& state) {
  useShippedTimeZoneData();
  const auto& place = kRecordedPlaces[state.range(0)];
  state.SetLabel(place.name);
  for (auto _ : state) benchmark::DoNotOptimize(testing_foreca::loadRecordedWeather(kRecorded, place));
}
BENCHMARK(BM_ForecaDecodeAnswers)->DenseRange(0, 3)->Unit(benchmark::kMicrosecond);

void BM_ForecaConvert(benchmark::State& state) {
  useShippedTimeZoneData();
  const auto& place = kRecordedPlaces[state.range(0)];
  state.SetLabel(place.name);
  const ForecaWeather weather = testing_foreca::loadRecordedWeather(kRecorded, place);
  const ForecaConversionContext context = testing_foreca::recordedContext(place);
  for (auto _ : state) benchmark::DoNotOptimize(convertForecaWeather(weather, context));
  state.counters["hourly_rows"] = static_cast<double>(weather.hourly.size());
}
BENCHMARK(BM_ForecaConvert)->DenseRange(0, 3)->Unit(benchmark::kMicrosecond);

// One simulator with 50 ms on every route, shared by the fetch benchmarks.
struct LatentService {
  sim::PinnedClock clock{kRecordedAt.toSystem()};
  Runtime runtime{2};
  CurlHttpClient http;
  sim::SimServer server{sim::SimServer::Options{.seed = 0, .clock = &clock}};
  ForecaClient client{http, ServiceEndpoints::simulator(server.baseUrl()), Secret("bench"), clock, "en"};

  LatentService() { server.setFault("*", sim::parseFault("latency=50")); }

  double millisecondsOf(Task<void> task) {
    auto start = std::chrono::steady_clock::now();
    runtime.runBlocking(std::move(task));
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
  }

  Task<void> send(ForecaRequest request, Location point) {
    HttpRequest httpRequest{.url = client.requestUrl(request, point, false)};
    HttpResponse response = co_await http.send(httpRequest);
    benchmark::DoNotOptimize(response.body.size());
  }

  Task<void> fetch(Location point, GeoDetails details) {
    OneCallWeather record = co_await client.fetch(point, details, false);
    benchmark::DoNotOptimize(record.hourly.size());
  }
};

LatentService& service() {
  static auto* shared = new LatentService();  // never destroyed: the pool outlives main's benchmarks
  return *shared;
}

void BM_ForecaFetchWith50msLatency(benchmark::State& state) {
  useShippedTimeZoneData();
  LatentService& s = service();
  // 0: Helsinki, dry (no minutely request); 1: Oslo, wet (minutely after the first round).
  const auto& place = kRecordedPlaces[state.range(0)];
  state.SetLabel(place.name);
  const Location point(place.latitude, place.longitude);
  const GeoDetails details{.name = place.name, .region = Region{}, .timeZone = *TimeZone::named(place.zone)};

  double slowest = 0.0;
  for (ForecaRequest request : {ForecaRequest::current, ForecaRequest::hourly, ForecaRequest::daily,
                                ForecaRequest::minutely, ForecaRequest::airQuality, ForecaRequest::warnings}) {
    s.millisecondsOf(s.send(request, point));  // warm the connection pool
    slowest = std::max(slowest, s.millisecondsOf(s.send(request, point)));
  }
  double total = 0.0;
  for (auto _ : state) {
    double elapsed = s.millisecondsOf(s.fetch(point, details));
    state.SetIterationTime(elapsed / 1000.0);
    total += elapsed;
  }
  const double fetch = total / static_cast<double>(state.iterations());
  state.counters["fetch_ms"] = fetch;
  state.counters["slowest_request_ms"] = slowest;
  state.counters["ratio"] = fetch / slowest;
}
BENCHMARK(BM_ForecaFetchWith50msLatency)
    ->Arg(0)
    ->Arg(1)
    ->UseManualTime()
    ->Iterations(10)
    ->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
