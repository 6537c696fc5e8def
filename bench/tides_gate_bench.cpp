// The tide gate over the shipped coastline files: decision latency when the mask alone refuses
// (target ≤ 1 µs) and when the shore segments are measured (target ≤ 20 µs), as the median and
// 99th percentile of single calls (p50_us, p99_us); the time to open each file; and the memory
// each one keeps (resident_kb). How often the files change the gate's answer compared with the
// full-resolution shore is measured by resources/coastline/agreement.js.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <random>
#include <vector>

#include <unistd.h>

#include "bench/bench_support.hpp"
#include "tides/tide_region_gate.hpp"

namespace {

using ombrine::CoastCandidateMask;
using ombrine::CoastTileIndex;
using ombrine::TideRegionGate;
using ombrine::bench::timedCalls;

struct Point {
  double latitude;
  double longitude;
};

const TideRegionGate& gate() {
  static const TideRegionGate instance = TideRegionGate::processWide();
  return instance;
}

// Uniformly random coordinates on the sphere that the mask refuses (`inMask` false) or lets
// through (`inMask` true): open sea and inland for the first, the coastal band for the second.
std::vector<Point> samplePoints(bool inMask) {
  std::mt19937 random(inMask ? 11 : 13);
  std::uniform_real_distribution<double> z(-1.0, 1.0);
  std::uniform_real_distribution<double> longitude(-180.0, 180.0);
  std::vector<Point> points;
  const auto& mask = gate().coastCandidateMask;
  while (points.size() < 4096) {
    const Point p{std::asin(z(random)) * 180.0 / 3.141592653589793, longitude(random)};
    if (!mask || mask->contains(p.latitude, p.longitude) == inMask) points.push_back(p);
  }
  return points;
}

void BM_GateMaskRejection(benchmark::State& state) {
  static const auto points = samplePoints(false);
  timedCalls(state, points.size(),
             [&](std::size_t i) { benchmark::DoNotOptimize(gate().decide(points[i].latitude, points[i].longitude)); });
}
BENCHMARK(BM_GateMaskRejection);

// Coordinates in the coastal band: the mask, the tiles around, every segment measured.
void BM_GateSegmentCheck(benchmark::State& state) {
  static const auto points = samplePoints(true);
  std::size_t admitted = 0;
  std::size_t segments = 0;
  for (const auto& p : points) {
    admitted += gate().admits(p.latitude, p.longitude) ? 1 : 0;
    segments += ombrine::sharedCoastTileIndex()->segmentsNear(p.latitude, p.longitude, 25.0).size();
  }
  timedCalls(state, points.size(),
             [&](std::size_t i) { benchmark::DoNotOptimize(gate().decide(points[i].latitude, points[i].longitude)); });
  state.counters["admitted_share"] = static_cast<double>(admitted) / points.size();
  state.counters["segments_per_query"] = static_cast<double>(segments) / points.size();
}
BENCHMARK(BM_GateSegmentCheck);

long residentKilobytes() {
  std::ifstream statm("/proc/self/statm");
  long size = 0;
  long resident = 0;
  statm >> size >> resident;
  return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

template <class Resource>
void timeLoad(benchmark::State& state, const char* name) {
  const auto path = ombrine::findCoastResource(name);
  if (!path) {
    state.SkipWithError("the coastline resource is missing");
    return;
  }
  long grown = 0;
  for (auto _ : state) {
    const long before = residentKilobytes();
    auto loaded = Resource::load(*path);
    benchmark::DoNotOptimize(loaded);
    grown = std::max(grown, residentKilobytes() - before);
  }
  state.counters["resident_kb"] = static_cast<double>(grown);
}

// Opening the mask maps the file and reads its header: the cells stay in the page cache.
void BM_LoadCandidateMask(benchmark::State& state) { timeLoad<CoastCandidateMask>(state, "coastline_candidate_mask"); }
BENCHMARK(BM_LoadCandidateMask)->Unit(benchmark::kMicrosecond);

// The tile index copies every segment into memory, once per process, on the first coastal query.
void BM_LoadTileIndex(benchmark::State& state) { timeLoad<CoastTileIndex>(state, "coastline_tiles"); }
BENCHMARK(BM_LoadTileIndex)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
