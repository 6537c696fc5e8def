// The cost of one coordinated cache write when nobody else holds the lock: the whole transaction
// (thread hand-off, flock, read, decode, merge, encode, atomic replacement with two fsyncs), the
// atomic replacement alone and without its fsyncs (the fsync share), and the lock alone; the same
// transaction with 8 processes writing at once; a reader's reload after another process wrote;
// the favourites snapshot write. Per-write latencies are reported as p50/p99 counters in
// microseconds, and the bytes each transaction writes.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "bench/bench_support.hpp"
#include "core/record/testing_records.hpp"
#include "persistence/coordinated_file.hpp"
#include "persistence/favorite_weather_cache.hpp"
#include "persistence/weather_cache.hpp"
#include "platform/atomic_file.hpp"
#include "platform/linux/system_clock.hpp"
#include "platform/runtime.hpp"
#include "platform/testing/fake_clock.hpp"

namespace {

using namespace ombrine;
using namespace ombrine::bench;
namespace fs = std::filesystem;

fs::path scratch(const char* name) {
  fs::path dir = fs::temp_directory_path() / ("ombrine-persistence-bench-" + std::to_string(::getpid()) + "-" + name);
  fs::remove_all(dir);
  fs::create_directories(dir);
  return dir;
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
  // Every store replaces the whole file: its size is what a transaction writes.
  state.counters["bytes_per_txn"] = static_cast<double>(fs::file_size(dir / "latestWeatherCache"));
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

// The same replacement without the two fsyncs: the difference to the above is what durability
// costs on this disk.
void BM_ReplaceWithoutSync(benchmark::State& state) {
  const fs::path dir = scratch("nosync");
  const std::string bytes = encodeCachedWeather(record(), Date{});
  const fs::path file = dir / "latestWeatherCache";
  const fs::path temp = dir / ".latestWeatherCache.tmp";
  timed(state, [&] {
    const int fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0 || ::write(fd, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) std::abort();
    ::close(fd);
    if (::rename(temp.c_str(), file.c_str()) != 0) std::abort();
  });
  fs::remove_all(dir);
}
BENCHMARK(BM_ReplaceWithoutSync)->Unit(benchmark::kMicrosecond)->Iterations(200);

// Stores of `writers` processes at once, each to its own place (more than 2 km apart, so every
// store replaces the file), `perWriter` stores each. Latency of every store as its process saw
// it, lock wait included.
void BM_StoreLatestContended(benchmark::State& state) {
  const int writers = static_cast<int>(state.range(0));
  constexpr int perWriter = 50;
  const fs::path dir = scratch("contended");
  std::vector<double> micros;
  double wallSeconds = 0.0;
  for (auto _ : state) {
    int fds[2];
    if (::pipe(fds) != 0) std::abort();
    const auto start = std::chrono::steady_clock::now();
    std::vector<pid_t> children;
    for (int w = 0; w < writers; ++w) {
      const pid_t pid = ::fork();
      if (pid == 0) {
        ::close(fds[0]);
        Runtime runtime(1);
        FakeClock clock;
        WeatherCache cache(dir, clock, runtime.executor());
        CachedWeather value = record();
        value.location = Location(40.0 + w * 0.5, 13.405);
        std::vector<double> mine;
        for (int i = 0; i < perWriter; ++i) {
          value.weather.current.dt = value.weather.current.dt + 1.0;
          const auto begin = std::chrono::steady_clock::now();
          runtime.runBlocking(cache.storeLatest(value));
          mine.push_back(microsSince(begin));
        }
        const auto size = static_cast<ssize_t>(mine.size() * sizeof(double));
        ::_exit(::write(fds[1], mine.data(), static_cast<size_t>(size)) == size ? 0 : 1);
      }
      children.push_back(pid);
    }
    ::close(fds[1]);
    double value = 0.0;
    while (::read(fds[0], &value, sizeof value) == static_cast<ssize_t>(sizeof value)) micros.push_back(value);
    ::close(fds[0]);
    for (pid_t pid : children) ::waitpid(pid, nullptr, 0);
    wallSeconds += microsSince(start) / 1e6;
  }
  reportPercentiles(state, micros);
  state.counters["stores_per_s"] = static_cast<double>(micros.size()) / wallSeconds;
  fs::remove_all(dir);
}
BENCHMARK(BM_StoreLatestContended)->Arg(1)->Arg(8)->Unit(benchmark::kMillisecond)->Iterations(3);

// A reader whose file another process replaced: stat, read, decode. And the common read, when
// nothing moved: one stat.
void BM_ReaderReload(benchmark::State& state) {
  const bool moved = state.range(0) != 0;
  const fs::path dir = scratch("reload");
  Runtime runtime(1);
  FakeClock clock;
  WeatherCache writer(dir, clock, runtime.executor());
  WeatherCache reader(dir, clock, runtime.executor());
  CachedWeather value = record();
  runtime.runBlocking(writer.storeLatest(value));
  benchmark::DoNotOptimize(reader.latestCachedWeather());
  timed(
      state, [&] { benchmark::DoNotOptimize(reader.latestCachedWeather()); },
      [&] {
        if (!moved) return;
        value.weather.current.dt = value.weather.current.dt + 1.0;
        runtime.runBlocking(writer.storeLatest(value));
      });
  fs::remove_all(dir);
}
BENCHMARK(BM_ReaderReload)->ArgName("moved")->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond)->Iterations(200);

// One debounced favourites save of 10 saved places (encode + atomic replacement).
void BM_FavoritesSnapshotWrite(benchmark::State& state) {
  const fs::path dir = scratch("favorites");
  Runtime runtime(1);
  FakeClock clock;
  FavoriteWeatherCache cache(dir, clock, runtime.executor());
  FavoriteWeather weather;
  for (int i = 0; i < 10; ++i) weather.emplace(Uuid::random(), record());
  int round = 0;
  timed(
      state, [&] { cache.flush(); },
      [&] {
        weather.begin()->second.name = "Place " + std::to_string(++round);
        cache.setWeather(weather);
      });
  state.counters["bytes_per_txn"] = static_cast<double>(fs::file_size(cache.file()));
  fs::remove_all(dir);
}
BENCHMARK(BM_FavoritesSnapshotWrite)->Unit(benchmark::kMicrosecond)->Iterations(100);

// A coordinated write doing nothing, with and without a lock wait limit: the hand-off cost
// (one request thread without a limit; a deadline race and two threads with one).
void BM_CoordinatedWriteHandOff(benchmark::State& state) {
  const bool limited = state.range(0) != 0;
  const fs::path dir = scratch("handoff");
  const fs::path coordination = dir / "value.coordination";
  Runtime runtime(1);
  SystemClock clock;
  std::function<void()> nothing = [] {};
  timed(state, [&] {
    std::optional<CoordinatedWriteLimit> limit;
    if (limited) limit = CoordinatedWriteLimit{&clock, std::chrono::seconds(5)};
    runtime.runBlocking(performCoordinatedWrite<void>(coordination, nothing, limit));
  });
  fs::remove_all(dir);
}
BENCHMARK(BM_CoordinatedWriteHandOff)
    ->ArgName("limited")
    ->Arg(0)
    ->Arg(1)
    ->Unit(benchmark::kMicrosecond)
    ->Iterations(200);

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
