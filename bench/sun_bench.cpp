// The sun on the device: one day's eight events, a year of local days in a named zone (what the
// sun command and the history comparison compute per place), and the comparison of two places.

#include <benchmark/benchmark.h>

#include "history/daily_sun_times.hpp"
#include "history/history_comparison.hpp"
#include "platform/icu_setup.hpp"

namespace {

using namespace ombrine;

const Location kMunich(48.137, 11.575);

void BM_SolarDay(benchmark::State& state) {
  Date day = Date::fromUnix(1781913600.0);  // 2026-06-20
  for (auto _ : state) {
    benchmark::DoNotOptimize(Solar(day, kMunich));
  }
}
BENCHMARK(BM_SolarDay)->Unit(benchmark::kMicrosecond);

void BM_DailySunTimesYear(benchmark::State& state) {
  useShippedTimeZoneData();
  const TimeZone berlin = *TimeZone::named("Europe/Berlin");
  for (auto _ : state) {
    benchmark::DoNotOptimize(dailySunTimes(2026, kMunich, berlin));
  }
}
BENCHMARK(BM_DailySunTimesYear)->Unit(benchmark::kMicrosecond);

void BM_SunComparisonYear(benchmark::State& state) {
  useShippedTimeZoneData();
  const SunComparisonPlace munich{"Munich", kMunich, *TimeZone::named("Europe/Berlin")};
  const SunComparisonPlace tromso{"Tromsø", Location(69.6492, 18.9553), *TimeZone::named("Europe/Oslo")};
  for (auto _ : state) {
    benchmark::DoNotOptimize(sunHistoryComparison(2026, munich, tromso));
  }
}
BENCHMARK(BM_SunComparisonYear)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
