// The trip list at 500 trips: JSON encode/decode, TripStore load from the synced file, and a
// change written through (set + synchronize: merge under the lock, atomic replace, fsync).
// Counters: bytes of the stored list and of the whole sync file.

#include <benchmark/benchmark.h>

#include <stdlib.h>

#include <filesystem>
#include <string>
#include <vector>

#include "platform/icu_setup.hpp"
#include "platform/linux/file_cloud_key_value_store.hpp"
#include "trips/trip_store.hpp"

namespace ombrine {
namespace {

constexpr int kTrips = 500;

std::vector<Trip> makeTrips(int count) {
  static const char* const zones[] = {"Pacific/Auckland", "Europe/Lisbon", "America/New_York", "Asia/Tokyo",
                                      "Pacific/Kiritimati"};
  std::vector<Trip> trips;
  trips.reserve(count);
  for (int i = 0; i < count; ++i) {
    Trip trip;
    trip.id = Uuid::random();
    trip.destination =
        TripLocation{"Destination " + std::to_string(i),
                     i % 3 == 0 ? std::optional<std::string>("My place " + std::to_string(i)) : std::nullopt,
                     "airplane", Location(-60.0 + i * 0.23, -170.0 + i * 0.67), *TimeZone::named(zones[i % 5])};
    trip.dates.from = Date::fromReference(820'000'000.0 + i * 4 * 86'400.0);
    trip.dates.to = trip.dates.from + 3 * 86'400.0 - 1.0;
    trips.push_back(std::move(trip));
  }
  return trips;
}

std::filesystem::path scratchFolder() {
  std::string pattern = (std::filesystem::temp_directory_path() / "ombrine-trips-bench-XXXXXX").string();
  if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
  return pattern;
}

void BM_EncodeTrips(benchmark::State& state) {
  const std::vector<Trip> trips = makeTrips(kTrips);
  size_t bytes = 0;
  for (auto _ : state) {
    std::string json = encodeTrips(trips);
    bytes = json.size();
    benchmark::DoNotOptimize(json);
  }
  state.counters["listBytes"] = static_cast<double>(bytes);
}
BENCHMARK(BM_EncodeTrips)->Unit(benchmark::kMicrosecond);

void BM_DecodeTrips(benchmark::State& state) {
  const std::string json = encodeTrips(makeTrips(kTrips));
  for (auto _ : state) benchmark::DoNotOptimize(decodeTrips(json));
}
BENCHMARK(BM_DecodeTrips)->Unit(benchmark::kMicrosecond);

// A process starting up: open the synced file and load the trips from it.
void BM_TripStoreLoad(benchmark::State& state) {
  const std::filesystem::path folder = scratchFolder();
  {
    FileCloudKeyValueStore cloud(folder, false);
    TripStore(cloud).setTrips(makeTrips(kTrips));
  }
  for (auto _ : state) {
    FileCloudKeyValueStore cloud(folder, false);
    TripStore store(cloud);
    if (store.trips().size() != kTrips) state.SkipWithError("trips lost");
  }
  state.counters["fileBytes"] =
      static_cast<double>(std::filesystem::file_size(folder / FileCloudKeyValueStore::kFileName));
  std::filesystem::remove_all(folder);
}
BENCHMARK(BM_TripStoreLoad)->Unit(benchmark::kMillisecond);

// One change (a trip renamed) written through to the synced file.
void BM_TripStoreSave(benchmark::State& state) {
  const std::filesystem::path folder = scratchFolder();
  FileCloudKeyValueStore cloud(folder, false);
  TripStore store(cloud);
  std::vector<Trip> trips = makeTrips(kTrips);
  store.setTrips(trips);
  int round = 0;
  for (auto _ : state) {
    trips[round % kTrips].destination.displayName = "Renamed " + std::to_string(round);
    ++round;
    store.setTrips(trips);
  }
  state.counters["fileBytes"] =
      static_cast<double>(std::filesystem::file_size(folder / FileCloudKeyValueStore::kFileName));
  std::filesystem::remove_all(folder);
}
BENCHMARK(BM_TripStoreSave)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace ombrine

int main(int argc, char** argv) {
  ombrine::useShippedTimeZoneData();
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
