// The saved-places store with 1,000 favourites: loading (the sync folder file read and decoded,
// then the favourites decoded), saving one more (the whole list encoded, merged into the file
// under its lock, replaced atomically with fsync), and the JSON codec alone. The file and value
// sizes are reported as counters. Also the binary property-list backup of that store.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "persistence/favorite_store.hpp"
#include "persistence/property_list.hpp"
#include "platform/icu_setup.hpp"
#include "platform/linux/file_cloud_key_value_store.hpp"

namespace {

using namespace ombrine;
namespace fs = std::filesystem;

fs::path scratch(const char* name) {
  fs::path dir = fs::temp_directory_path() / ("ombrine-stores-bench-" + std::to_string(::getpid()) + "-" + name);
  fs::remove_all(dir);
  fs::create_directories(dir);
  return dir;
}

std::vector<FavoriteLocation> favorites(int count) {
  static const auto zone = TimeZone::named("Europe/Oslo");
  std::vector<FavoriteLocation> out;
  for (int i = 0; i < count; ++i) {
    FavoriteLocation f;
    f.id = Uuid::random();
    f.location = Location(-60.0 + i * 0.12, -170.0 + i * 0.34);
    f.name = "Place number " + std::to_string(i);
    if (i % 3 == 0) f.displayName = "My place " + std::to_string(i);
    f.timeZone = zone;
    f.region = Region{"NO"};
    out.push_back(std::move(f));
  }
  return out;
}

// A sync folder whose store holds `count` favourites.
fs::path folderWith(const char* name, int count) {
  const fs::path dir = scratch(name);
  FileCloudKeyValueStore cloud(dir, false);
  FavoriteStore(cloud).setLocations(favorites(count));
  return dir;
}

void BM_FavoritesLoad(benchmark::State& state) {
  useShippedTimeZoneData();
  const fs::path dir = folderWith("load", static_cast<int>(state.range(0)));
  for (auto _ : state) {
    FileCloudKeyValueStore cloud(dir, false);
    FavoriteStore store(cloud);
    benchmark::DoNotOptimize(store.locations().size());
  }
  state.counters["file_bytes"] = static_cast<double>(fs::file_size(dir / FileCloudKeyValueStore::kFileName));
  fs::remove_all(dir);
}
BENCHMARK(BM_FavoritesLoad)->Arg(1000)->Unit(benchmark::kMillisecond);

void BM_FavoritesSaveOne(benchmark::State& state) {
  useShippedTimeZoneData();
  const fs::path dir = folderWith("save", static_cast<int>(state.range(0)));
  FileCloudKeyValueStore cloud(dir, false);
  FavoriteStore store(cloud);
  auto extra = favorites(1).front();
  for (auto _ : state) {
    extra.id = Uuid::random();
    store.save(extra);  // write-through: encode, set, synchronize (read-merge-write of the file)
    state.PauseTiming();
    store.remove(extra.id);
    state.ResumeTiming();
  }
  state.counters["file_bytes"] = static_cast<double>(fs::file_size(cloud.file()));
  fs::remove_all(dir);
}
BENCHMARK(BM_FavoritesSaveOne)->Arg(1000)->Unit(benchmark::kMillisecond);

void BM_FavoritesJsonEncode(benchmark::State& state) {
  useShippedTimeZoneData();
  const auto list = favorites(static_cast<int>(state.range(0)));
  std::size_t bytes = 0;
  for (auto _ : state) bytes = encodeFavoriteLocations(list).size();
  state.counters["json_bytes"] = static_cast<double>(bytes);
}
BENCHMARK(BM_FavoritesJsonEncode)->Arg(1000)->Unit(benchmark::kMicrosecond);

void BM_FavoritesJsonDecode(benchmark::State& state) {
  useShippedTimeZoneData();
  const std::string json = encodeFavoriteLocations(favorites(static_cast<int>(state.range(0))));
  for (auto _ : state) benchmark::DoNotOptimize(decodeFavoriteLocations(json).size());
}
BENCHMARK(BM_FavoritesJsonDecode)->Arg(1000)->Unit(benchmark::kMicrosecond);

void BM_BackupSnapshotEncodeDecode(benchmark::State& state) {
  useShippedTimeZoneData();
  const StoreValue dictionary{StoreDictionary{
      {"favorites", StoreValue{StoreData{encodeFavoriteLocations(favorites(static_cast<int>(state.range(0))))}}},
      {"hideTides", StoreValue{true}},
      {"preferredWeatherProvider", StoreValue{std::int64_t{2}}}}};
  std::size_t bytes = 0;
  for (auto _ : state) {
    const std::string plist = encodeBinaryPropertyList(dictionary);
    bytes = plist.size();
    benchmark::DoNotOptimize(decodeBinaryPropertyList(plist));
  }
  state.counters["snapshot_bytes"] = static_cast<double>(bytes);
}
BENCHMARK(BM_BackupSnapshotEncodeDecode)->Arg(1000)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
