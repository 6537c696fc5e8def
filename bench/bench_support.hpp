#pragma once
// Latency percentiles shared by the benchmark programs. Google Benchmark reports means; these
// helpers time every call on the steady clock and add the median and 99th percentile as the
// counters "p50_us" and "p99_us" (microseconds), so a slow tail shows even when the mean is good.
//
// A percentile q of n sorted samples is the sample at index min(n - 1, n * q / 100) (nearest
// rank, rounding down). For use on the benchmark's own thread; raise nothing but std::bad_alloc.

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstddef>
#include <vector>

namespace ombrine::bench {

// Microseconds from `start` to now on the steady clock.
double microsSince(std::chrono::steady_clock::time_point start);

// The sample at the `percent` percentile of `sorted` (ascending, not empty).
double percentileOf(const std::vector<double>& sorted, std::size_t percent);

// Sets "p50_us" and "p99_us" of `state` from `micros` (any order); sets nothing when empty.
void reportPercentiles(benchmark::State& state, std::vector<double> micros);

// Times `body` once per iteration, after `setup` has run untimed, and reports the percentiles.
template <class Body, class Setup>
void timed(benchmark::State& state, Body body, Setup setup) {
  std::vector<double> micros;
  for (auto _ : state) {
    state.PauseTiming();
    setup();
    state.ResumeTiming();
    const auto start = std::chrono::steady_clock::now();
    body();
    micros.push_back(microsSince(start));
  }
  reportPercentiles(state, std::move(micros));
}

template <class Body>
void timed(benchmark::State& state, Body body) {
  timed(state, body, [] {});
}

// Times `body(i)` once per iteration, `i` cycling through 0..count-1 (count > 0), and reports
// the percentiles of the first kMaxSamples calls: for benchmarks of microsecond calls that run
// millions of iterations, without pausing the timer.
inline constexpr std::size_t kMaxSamples = std::size_t{1} << 16;

template <class Body>
void timedCalls(benchmark::State& state, std::size_t count, Body body) {
  std::vector<double> micros;
  micros.reserve(kMaxSamples);
  std::size_t i = 0;
  for (auto _ : state) {
    const auto start = std::chrono::steady_clock::now();
    body(i++ % count);
    const double elapsed = microsSince(start);
    if (micros.size() < kMaxSamples) micros.push_back(elapsed);
  }
  reportPercentiles(state, std::move(micros));
}

}  // namespace ombrine::bench
