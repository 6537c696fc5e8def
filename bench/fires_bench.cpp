// Decoding a large page of fire perimeters: the streaming decoder (with and without turning the
// features into perimeters) against a Boost.JSON DOM of the same bytes, and the peak heap each
// needs (counted by this program's own operator new).

#include <benchmark/benchmark.h>
#include <boost/json/parse.hpp>

#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <new>
#include <string>

#include "fires/fire_features.hpp"
#include "fires/fire_loading_policy.hpp"

namespace {

std::atomic<std::size_t> liveBytes{0};
std::atomic<std::size_t> peakBytes{0};

}  // namespace

void* operator new(std::size_t size) {
  void* p = std::malloc(size + 16);
  if (!p) throw std::bad_alloc();
  *static_cast<std::size_t*>(p) = size;
  const std::size_t now = liveBytes.fetch_add(size) + size;
  std::size_t peak = peakBytes.load();
  while (now > peak && !peakBytes.compare_exchange_weak(peak, now)) {
  }
  return static_cast<char*>(p) + 16;
}
void operator delete(void* p) noexcept {
  if (!p) return;
  char* base = static_cast<char*>(p) - 16;
  liveBytes.fetch_sub(*reinterpret_cast<std::size_t*>(base));
  std::free(base);
}
void operator delete(void* p, std::size_t) noexcept { operator delete(p); }

namespace ombrine {
namespace {

// 2,000 perimeters of about 290 positions each, written as ArcGIS writes GeoJSON: about 14 MB.
const std::string& page() {
  static const std::string text = [] {
    std::string out = R"({"type":"FeatureCollection","properties":{"exceededTransferLimit":true},"features":[)";
    char buffer[128];
    for (int f = 0; f < 2000; ++f) {
      if (f) out += ',';
      const double latitude = 32 + (f % 50) * 0.3;
      const double longitude = -124 + (f / 50) * 0.4;
      std::snprintf(buffer, sizeof buffer, R"({"type":"Feature","id":%d,"geometry":{"type":"Polygon","coordinates":[[)",
                    f + 1);
      out += buffer;
      const int points = 280 + f % 20;
      for (int i = 0; i <= points; ++i) {
        const double angle = 2 * 3.141592653589793 * (i % points) / points;
        const double r = 0.05 * (0.8 + 0.4 * ((i * 7919 + f) % 100) / 100.0);
        std::snprintf(buffer, sizeof buffer, "%s[%.6f,%.6f]", i ? "," : "", longitude + r * std::cos(angle),
                      latitude + r * std::sin(angle));
        out += buffer;
      }
      std::snprintf(buffer, sizeof buffer,
                    R"(]]},"properties":{"OBJECTID":%d,"GlobalID":"{%08X-0000-4000-8000-000000000000}",)", f + 1, f);
      out += buffer;
      std::snprintf(buffer, sizeof buffer,
                    R"("attr_UniqueFireIdentifier":"2026-CAXXX-%06d","poly_IncidentName":"Fire %d",)", f, f);
      out += buffer;
      out +=
          R"("attr_IncidentTypeCategory":"WF","poly_GISAcres":1234.56,"attr_IncidentSize":1250,)"
          R"("attr_PercentContained":40,"poly_PolygonDateTime":1784894400000,"attr_ModifiedOnDateTime_dt":1784894400000,)"
          R"("attr_ActiveFireCandidate":1,"attr_POOState":"US-CA"}})";
    }
    out += "]}";
    if (const char* path = std::getenv("OMBRINE_FIRES_BENCH_PAGE")) std::ofstream(path, std::ios::binary) << out;
    return out;
  }();
  return text;
}

void setCounters(benchmark::State& state, std::size_t peak) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * page().size()));
  state.counters["page_MB"] = static_cast<double>(page().size()) / 1e6;
  state.counters["peak_heap_MB"] = static_cast<double>(peak) / 1e6;
  state.counters["peak_x_page"] = static_cast<double>(peak) / static_cast<double>(page().size());
}

std::size_t resetPeak() {
  const std::size_t base = liveBytes.load();
  peakBytes.store(base);
  return base;
}

void BM_StreamingDecode(benchmark::State& state) {
  const std::string& text = page();
  std::size_t peak = 0;
  for (auto _ : state) {
    const std::size_t base = resetPeak();
    auto collection = decodeFireFeatureCollection<NIFCFirePerimeterProperties>(text);
    benchmark::DoNotOptimize(collection.features.data());
    peak = std::max(peak, peakBytes.load() - base);
  }
  setCounters(state, peak);
}
BENCHMARK(BM_StreamingDecode)->Unit(benchmark::kMillisecond);

void BM_StreamingDecodeToPerimeters(benchmark::State& state) {
  const std::string& text = page();
  const Date now = Date::fromUnix(1784894400.0);
  std::size_t peak = 0;
  for (auto _ : state) {
    const std::size_t base = resetPeak();
    std::vector<FirePerimeter> perimeters;
    {
      auto collection = decodeFireFeatureCollection<NIFCFirePerimeterProperties>(text);
      perimeters.reserve(collection.features.size());
      for (const auto& feature : collection.features) {
        if (auto perimeter = nifcFirePerimeter(feature, now)) perimeters.push_back(std::move(*perimeter));
      }
    }
    benchmark::DoNotOptimize(perimeters.data());
    peak = std::max(peak, peakBytes.load() - base);
    if (perimeters.size() != 2000) state.SkipWithError("lost perimeters");
  }
  setCounters(state, peak);
}
BENCHMARK(BM_StreamingDecodeToPerimeters)->Unit(benchmark::kMillisecond);

void BM_BoostJsonDom(benchmark::State& state) {
  const std::string& text = page();
  std::size_t peak = 0;
  for (auto _ : state) {
    const std::size_t base = resetPeak();
    auto value = boost::json::parse(text);
    benchmark::DoNotOptimize(&value);
    peak = std::max(peak, peakBytes.load() - base);
  }
  setCounters(state, peak);
}
BENCHMARK(BM_BoostJsonDom)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace ombrine

BENCHMARK_MAIN();
