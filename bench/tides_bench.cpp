// Tide hot paths: choosing a station from catalogues of realistic size, interpolating a
// subordinate station's chart, bucketing a CHS series, and decoding a NOAA prediction reply.

#include <benchmark/benchmark.h>

#include <cmath>
#include <string>

#include <fmt/format.h>

#include "tides/tide_feeds.hpp"
#include "tides/tide_service.hpp"

namespace {

using namespace ombrine;

// About as many stations as NOAA lists for tide predictions, spread along a long coast.
std::vector<TideStation> noaaCatalogue(int count) {
  std::vector<TideStation> stations;
  for (int i = 0; i < count; ++i) {
    stations.push_back(TideStation{.id = std::to_string(8'000'000 + i),
                                   .name = "Station",
                                   .latitude = 20.0 + 40.0 * i / count,
                                   .longitude = -125.0 + 60.0 * std::sin(i * 0.37)});
  }
  return stations;
}

std::vector<CHSStation> chsCatalogue(int count) {
  std::vector<CHSStation> stations;
  for (int i = 0; i < count; ++i) {
    stations.push_back(CHSStation{.id = fmt::format("{:024x}", i),
                                  .code = fmt::format("{:05}", i),
                                  .officialName = "S",
                                  .latitude = 42.0 + 20.0 * i / count,
                                  .longitude = -140.0 + 80.0 * std::cos(i * 0.21),
                                  .operating = i % 5 != 0,
                                  .timeSeries = std::vector<CHSStation::TimeSeries>{{"wlo"}, {i % 3 ? "wlp" : "wlf"}}});
  }
  return stations;
}

void BM_NearestNOAAStation(benchmark::State& state) {
  const auto stations = noaaCatalogue(static_cast<int>(state.range(0)));
  for (auto _ : state) benchmark::DoNotOptimize(nearestNOAAStation(stations, 38.8, -75.1));
}
BENCHMARK(BM_NearestNOAAStation)->Arg(3'300);

void BM_NearestCHSStation(benchmark::State& state) {
  const auto stations = chsCatalogue(static_cast<int>(state.range(0)));
  for (auto _ : state) benchmark::DoNotOptimize(nearestCHSStation(stations, 49.3, -123.1));
}
BENCHMARK(BM_NearestCHSStation)->Arg(1'023);

// A subordinate station: 112 hours of highs and lows, charted every 15 minutes over 64 hours.
void BM_SubordinateChart(benchmark::State& state) {
  std::vector<TideExtreme> extremes;
  for (int i = 0; i < 10; ++i) {
    extremes.push_back({Date{i * 22'357.0}, Length::meters(i % 2 ? 0.2 : 1.6),
                        i % 2 ? TideExtreme::Kind::low : TideExtreme::Kind::high});
  }
  const DateInterval window{Date{30'000.0}, Date{190'000.0}};
  for (auto _ : state) benchmark::DoNotOptimize(chartPoints(extremes, 900.0, window));
}
BENCHMARK(BM_SubordinateChart);

// A CHS "wlp" reply of one point a minute over 64 hours, bucketed to 15 minutes.
void BM_DownsampleCHSSeries(benchmark::State& state) {
  std::vector<CHSDataPoint> points;
  for (int i = 0; i < 64 * 60; ++i) points.push_back({Date{i * 60.0}, std::sin(i / 118.0)});
  for (auto _ : state) benchmark::DoNotOptimize(downsampledChartPoints(points, 15));
}
BENCHMARK(BM_DownsampleCHSSeries);

// The 15-minute NOAA reply for 64 hours: 257 rows.
void BM_DecodeNOAAPredictions(benchmark::State& state) {
  std::string body = R"({"predictions":[)";
  for (int i = 0; i < 257; ++i) {
    body += fmt::format(R"({}{{"t":"2026-11-{:02} {:02}:{:02}","v":"{:.3f}"}})", i ? "," : "", 23 + i / 96, i / 4 % 24,
                        i % 4 * 15, std::sin(i / 8.0));
  }
  body += "]}";
  for (auto _ : state) benchmark::DoNotOptimize(decodeNOAAPredictions(body));
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(body.size()));
}
BENCHMARK(BM_DecodeNOAAPredictions);

}  // namespace

BENCHMARK_MAIN();
