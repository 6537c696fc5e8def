// What one simulated Foreca fetch costs the simulator: each of the six answers for the queries
// the forecast client sends, computed without a connection, and the weather model alone.

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "sim/foreca_routes.hpp"

namespace {

using namespace ombrine::sim;

const Instant kNow = *parseUtc("2026-01-17T10:23:17Z");

void answer(benchmark::State& state, const std::string& target) {
  const std::vector<SimRoute> routes = forecaRoutes(WeatherModel(1));
  for (auto _ : state) {
    SimRequest request = requestFor(target, kNow);
    const SimRoute* route = matchRoute(routes, request.path, request.captures);
    benchmark::DoNotOptimize(route->answer(request).body);
  }
}

void BM_ForecaCurrent(benchmark::State& state) {
  answer(state, "/foreca/api/v1/current/24.94,60.17?token=T&windunit=KMH&rounding=0&lang=en");
}
void BM_ForecaHourly192(benchmark::State& state) {
  answer(state,
         "/foreca/api/v1/forecast/hourly/"
         "24.94,60.17?token=T&windunit=KMH&rounding=0&dataset=full&periods=192&history=1&lang=en");
}
void BM_ForecaDaily11(benchmark::State& state) {
  answer(state,
         "/foreca/api/v1/forecast/daily/24.94,60.17?token=T&windunit=KMH&rounding=0&dataset=full&periods=11&lang=en");
}
void BM_ForecaMinutely(benchmark::State& state) {
  answer(state, "/foreca/api/v1/forecast/minutely/24.94,60.17?token=T");
}
void BM_ForecaAirQuality36(benchmark::State& state) {
  answer(state, "/foreca/api/v1/air-quality/forecast/hourly/24.94,60.17?token=T&periods=36&lang=en");
}
void BM_ForecaWarnings(benchmark::State& state) {
  answer(state, "/foreca/api/v1/warning/24.94,60.17?token=T&dataset=full");
}

void BM_WeatherSample(benchmark::State& state) {
  const WeatherModel model(1);
  Instant t = kNow;
  for (auto _ : state) {
    benchmark::DoNotOptimize(model.sample({60.17, 24.94}, t));
    t += std::chrono::minutes(1);
  }
}

BENCHMARK(BM_ForecaCurrent)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_ForecaHourly192)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ForecaDaily11)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ForecaMinutely)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_ForecaAirQuality36)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_ForecaWarnings)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_WeatherSample)->Unit(benchmark::kNanosecond);

}  // namespace

BENCHMARK_MAIN();
