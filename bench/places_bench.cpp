// Offline places: reverse geocoding, name search, time zone by coordinate and index load time.
// Targets: reverse ≤ 5 µs, search ≤ 200 µs, load ≤ 5 ms. Besides the mean, the latency
// benchmarks time every call and report the median and 99th percentile (p50_us, p99_us).
// The whole `ombrine places at` process is timed by scripts/bench-places.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/bench_support.hpp"
#include "places/offline_geocoder.hpp"
#include "places/search_key.hpp"
#include "platform/icu_setup.hpp"

namespace {

using ombrine::Location;
using ombrine::OfflineGeocoder;
using ombrine::bench::timedCalls;

const OfflineGeocoder& geocoder() {
  static const OfflineGeocoder instance;
  return instance;
}

// Half the points near real places (where people are), half anywhere (mostly sea).
std::vector<Location> samplePoints() {
  std::mt19937 random(7);
  std::vector<Location> points;
  const auto& places = geocoder().places();
  std::uniform_int_distribution<std::uint32_t> pick(0, places.placeCount() - 1);
  std::uniform_real_distribution<double> jitter(-0.05, 0.05);
  std::uniform_real_distribution<double> latitude(-90, 90);
  std::uniform_real_distribution<double> longitude(-180, 180);
  for (int i = 0; i < 2048; ++i) {
    const auto place = places.place(pick(random));
    points.emplace_back(std::clamp(place.latitude + jitter(random), -90.0, 90.0),
                        std::clamp(place.longitude + jitter(random), -180.0, 180.0));
    points.emplace_back(latitude(random), longitude(random));
  }
  return points;
}

void BM_ReverseGeocode(benchmark::State& state) {
  static const std::vector<Location> points = samplePoints();
  timedCalls(state, points.size(),
             [&](std::size_t i) { benchmark::DoNotOptimize(geocoder().reverseGeocode(points[i])); });
}
BENCHMARK(BM_ReverseGeocode);

// The index work alone: nearest town and the grid's zone, without building strings.
void BM_NearestPlaceAndZone(benchmark::State& state) {
  static const std::vector<Location> points = samplePoints();
  timedCalls(state, points.size(), [&](std::size_t i) {
    const Location& at = points[i];
    const ombrine::NearestQuery query{
        .latitude = at.latitude(), .longitude = at.longitude(), .radiusMeters = OfflineGeocoder::kLocalityRadiusMeters};
    benchmark::DoNotOptimize(geocoder().places().nearest(query));
    benchmark::DoNotOptimize(geocoder().zones().zoneIndexAt(at.latitude(), at.longitude()));
  });
}
BENCHMARK(BM_NearestPlaceAndZone);

void BM_TimeZoneAt(benchmark::State& state) {
  static const std::vector<Location> points = samplePoints();
  timedCalls(state, points.size(), [&](std::size_t i) { benchmark::DoNotOptimize(geocoder().timeZone(points[i])); });
}
BENCHMARK(BM_TimeZoneAt);

// Points within 20 km of zone borders and coasts (the test fixture): the lookups that end in a
// tile's polygons rather than in a tile wholly inside one zone.
std::vector<Location> borderPoints() {
  std::ifstream in(std::string(OMBRINE_PLACES_TESTDATA) + "/time_zone_borders.tsv");
  std::vector<Location> points;
  std::string line;
  while (std::getline(in, line)) {
    if (line.empty() || line[0] == '#') continue;
    std::istringstream fields(line);
    double latitude = 0;
    double longitude = 0;
    fields >> latitude >> longitude;
    points.emplace_back(latitude, longitude);
  }
  if (points.empty()) throw std::runtime_error("no border points in " + std::string(OMBRINE_PLACES_TESTDATA));
  return points;
}

void BM_ZoneIndexNearBorders(benchmark::State& state) {
  static const std::vector<Location> points = borderPoints();
  timedCalls(state, points.size(), [&](std::size_t i) {
    benchmark::DoNotOptimize(geocoder().zones().zoneIndexAt(points[i].latitude(), points[i].longitude()));
  });
}
BENCHMARK(BM_ZoneIndexNearBorders);

void BM_ZoneIndexAnywhere(benchmark::State& state) {
  static const std::vector<Location> points = samplePoints();
  timedCalls(state, points.size(), [&](std::size_t i) {
    benchmark::DoNotOptimize(geocoder().zones().zoneIndexAt(points[i].latitude(), points[i].longitude()));
  });
}
BENCHMARK(BM_ZoneIndexAnywhere);

const std::vector<std::string> kQueries = {
    "Munich",       "zurich", "sao paulo", "Springfield, IL", "Paris, Texas", "new york", "Москва",
    "Lon",          "San",    "st louis",  "Frankfurt",       "kyoto",        "Springf",  "48.137,11.575",
    "Buenos Aires", "mel",    "cologne",   "Paris, FR",       "Wellington",   "xqzvbnm",
};

void BM_Search(benchmark::State& state) {
  timedCalls(state, kQueries.size(),
             [&](std::size_t i) { benchmark::DoNotOptimize(geocoder().search(kQueries[i], 10)); });
}
BENCHMARK(BM_Search);

// The worst case of prefix search: one letter matches a tenth of all keys.
void BM_SearchOneLetter(benchmark::State& state) {
  timedCalls(state, 1, [&](std::size_t) { benchmark::DoNotOptimize(geocoder().search("s", 10)); });
}
BENCHMARK(BM_SearchOneLetter);

void BM_SearchKey(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(ombrine::searchKey("Thành phố Hồ Chí Minh"));
}
BENCHMARK(BM_SearchKey);

// Opening maps both files and validates their headers, sections, rows, regions and countries.
void BM_IndexLoad(benchmark::State& state) {
  const auto directory = OfflineGeocoder::defaultDirectory();
  timedCalls(state, 1, [&](std::size_t) { benchmark::DoNotOptimize(OfflineGeocoder(directory)); });
}
BENCHMARK(BM_IndexLoad)->Unit(benchmark::kMicrosecond);

}  // namespace

int main(int argc, char** argv) {
  ombrine::useShippedTimeZoneData();
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
