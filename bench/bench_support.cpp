#include "bench/bench_support.hpp"

#include <algorithm>

namespace ombrine::bench {

double microsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count();
}

double percentileOf(const std::vector<double>& sorted, std::size_t percent) {
  return sorted[std::min(sorted.size() - 1, sorted.size() * percent / 100)];
}

void reportPercentiles(benchmark::State& state, std::vector<double> micros) {
  if (micros.empty()) return;
  std::sort(micros.begin(), micros.end());
  state.counters["p50_us"] = percentileOf(micros, 50);
  state.counters["p99_us"] = percentileOf(micros, 99);
}

}  // namespace ombrine::bench
