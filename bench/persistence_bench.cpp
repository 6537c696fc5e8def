// The cost of one coordinated cache write when nobody else holds the lock: the whole transaction
// (thread hand-off, flock, read, decode, merge, encode, atomic replacement with two fsyncs), the
// atomic replacement alone (the fsync share), and the lock alone. Per-write latencies are
// reported as p50/p99 counters in microseconds.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include "core/testing_records.hpp"
#include "persistence/coordinated_file.hpp"
#include "persistence/weather_cache.hpp"
#include "platform/atomic_file.hpp"
#include "platform/runtime.hpp"
#include "platform/testing/fake_clock.hpp"

namespace {

using namespace ombrine;
namespace fs = std::filesystem;

fs::path scratch(const char* name) {
  fs::path dir = fs::temp_directory_path() / ("ombrine-persistence-bench-" + std::to_string(::getpid()) + "-" + name);
  fs::remove_all(dir);
  fs::create_directories(dir);
  return dir;
}

// Times `body` per iteration and reports the median and 99th percentile.
template <class Body>
void timed(benchmark::State& state, Body body) {
  std::vector<double> micros;
  for (auto _ : state) {
    const auto start = std::chrono::steady_clock::now();
    body();
    const auto elapsed = std::chrono::steady_clock::now() - start;
    micros.push_back(std::chrono::duration<double, std::micro>(elapsed).count());
  }
  std::sort(micros.begin(), micros.end());
  auto at = [&](double q) { return micros[std::min(micros.size() - 1, static_cast<size_t>(q * micros.size()))]; };
  state.counters["p50_us"] = at(0.50);
  state.counters["p99_us"] = at(0.99);
}

CachedWeather record() {
  testing_records::RecordShape shape;
  shape.tides = false;
  return CachedWeather{"Berlin", Location(52.52, 13.405), Region{"DE"}, testing_records::makeForecastRecord(shape)};
}

// A full-size record stored with a newer observation each time, so every store writes.
void BM_StoreLatestUncontended(benchmark::State& state) {
  const fs::path dir = scratch("store");
  Runtime runtime(1);
  FakeClock clock;
  WeatherCache cache(dir, clock, runtime.executor());
  CachedWeather value = record();
  timed(state, [&] {
    value.weather.current.dt = value.weather.current.dt + 1.0;
    runtime.runBlocking(cache.storeLatest(value));
  });
  fs::remove_all(dir);
}
BENCHMARK(BM_StoreLatestUncontended)->Unit(benchmark::kMicrosecond)->Iterations(200);

// The same bytes replaced atomically, without lock or merge: the fsync share.
void BM_AtomicReplaceOnly(benchmark::State& state) {
  const fs::path dir = scratch("replace");
  const std::string bytes = encodeCachedWeather(record(), Date{});
  timed(state, [&] { writeFileAtomically(dir / "latestWeatherCache", bytes); });
  fs::remove_all(dir);
}
BENCHMARK(BM_AtomicReplaceOnly)->Unit(benchmark::kMicrosecond)->Iterations(200);

// Decoding what is on disk and encoding the outcome: the record's share of a store.
void BM_DecodeEncodeOnly(benchmark::State& state) {
  const std::string bytes = encodeCachedWeather(record(), Date{});
  timed(state, [&] { benchmark::DoNotOptimize(encodeCachedWeather(decodeCachedWeather(bytes), Date{})); });
}
BENCHMARK(BM_DecodeEncodeOnly)->Unit(benchmark::kMicrosecond)->Iterations(200);

// Taking and releasing a free lock.
void BM_LockOnly(benchmark::State& state) {
  const fs::path dir = scratch("lock");
  const fs::path coordination = dir / "latestWeatherCache.coordination";
  prepareCoordinationFile(coordination);
  timed(state, [&] { benchmark::DoNotOptimize(CoordinationLock::tryAcquire(coordination)); });
  fs::remove_all(dir);
}
BENCHMARK(BM_LockOnly)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
