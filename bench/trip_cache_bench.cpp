// Trip forecasts: building the daily layout and the hourly snapshot for a 30-day trip over 10
// places; the hourly view's load (cache reads and snapshot) for 240 hours, 5 trips and home; the
// latency of one trip-cache store (memory merge, coordinated read-merge-write with an atomic
// replacement, apply) when the cache already holds 100 trips; a read of an unchanged record (one
// stat call); and the pure record merge. Latencies are reported as p50/p99 counters
// in microseconds.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include "core/record/testing_records.hpp"
#include "persistence/favorite_weather_cache.hpp"
#include "persistence/trip_cache_store.hpp"
#include "persistence/weather_cache.hpp"
#include "platform/icu_setup.hpp"
#include "platform/runtime.hpp"
#include "platform/testing/fake_clock.hpp"
#include "trips/hourly_trip_forecast.hpp"
#include "trips/trip_calendar.hpp"
#include "trips/trip_timeline.hpp"

namespace {

using namespace ombrine;
namespace fs = std::filesystem;

constexpr int kPlaces = 10;
constexpr int kDaysPerPlace = 3;

Uuid idNumber(int n) {
  Uuid id;
  id.bytes[14] = static_cast<std::uint8_t>(n >> 8);
  id.bytes[15] = static_cast<std::uint8_t>(n);
  return id;
}

// 30 days over 10 places (three days each), each place in its own zone.
std::vector<Trip> thirtyDayTrip() {
  const char* zones[kPlaces] = {"Europe/Lisbon",    "Europe/Madrid",      "Europe/Rome", "Asia/Dubai",
                                "Asia/Kolkata",     "Asia/Bangkok",       "Asia/Tokyo",  "Australia/Sydney",
                                "Pacific/Auckland", "America/Los_Angeles"};
  std::vector<Trip> trips;
  for (int i = 0; i < kPlaces; ++i) {
    const TimeZone zone = *TimeZone::named(zones[i]);
    const TripCalendar calendar(zone);
    const CivilDay first{2024, 9, 1 + i * kDaysPerPlace};
    const CivilDay last{2024, 9, i * kDaysPerPlace + kDaysPerPlace};
    trips.push_back(Trip{idNumber(i),
                         TripLocation{zones[i], std::nullopt, "airplane", Location(10.0 * i, 5.0 * i), zone},
                         TripDates{.from = calendar.date(first), .to = calendar.date(last, WallTime{23, 59, 59})}});
  }
  return trips;
}

// A provider's record for each place: 30 days and 720 hours from 2024-09-01.
std::vector<OneCallWeather> recordsFor(const std::vector<Trip>& trips) {
  testing_records::RecordShape shape;
  shape.days = 30;
  shape.hours = 720;
  shape.minutes = 0;
  shape.tides = false;
  const OneCallWeather base = testing_records::makeForecastRecord(shape);
  std::vector<OneCallWeather> records;
  for (const Trip& trip : trips) {
    OneCallWeather record = base;
    record.timeZone = trip.destination.timeZone;
    // Move the rows to start on 2024-09-01 at the same wall-clock times.
    const double shift = TripCalendar(trip.destination.timeZone).date({2024, 9, 1}) - base.daily.front().dt + 43200.0;
    for (auto& day : record.daily) day.dt = day.dt + shift;
    for (auto& hour : record.hourly) hour.dt = hour.dt + shift;
    records.push_back(std::move(record));
  }
  return records;
}

void BM_DailyTimelineThirtyDaysTenPlaces(benchmark::State& state) {
  const std::vector<Trip> trips = thirtyDayTrip();
  const std::vector<OneCallWeather> records = recordsFor(trips);
  std::size_t days = 0;
  for (auto _ : state) {
    std::vector<TripForecast> forecasts;
    forecasts.reserve(trips.size());
    for (std::size_t i = 0; i < trips.size(); ++i) {
      forecasts.push_back(TripForecast{tripForecastDays(trips[i], records[i].daily), trips[i]});
    }
    const TripTimelineLayout layout = timelineLayout(forecasts);
    days = layout.days.size();
    benchmark::DoNotOptimize(layout);
  }
  state.counters["days"] = static_cast<double>(days);
}
BENCHMARK(BM_DailyTimelineThirtyDaysTenPlaces)->Unit(benchmark::kMicrosecond);

void BM_HourlySnapshotThirtyDaysTenPlaces(benchmark::State& state) {
  const std::vector<Trip> trips = thirtyDayTrip();
  const std::vector<OneCallWeather> records = recordsFor(trips);
  HourlyForecastRoute current{records.front().hourly,
                              HourlyForecastLocation{idNumber(999), "Here", "location", {}, {}, {}}};
  std::unordered_map<Uuid, HourlyForecastRoute> routes;
  for (std::size_t i = 0; i < trips.size(); ++i) {
    routes[trips[i].id] = HourlyForecastRoute{records[i].hourly, HourlyForecastLocation{trips[i].id,
                                                                                        trips[i].destination.name,
                                                                                        "airplane",
                                                                                        trips[i].destination.timeZone,
                                                                                        {},
                                                                                        trips[i].destination.name}};
  }
  std::size_t points = 0;
  for (auto _ : state) {
    const HourlyTripForecastSnapshot result = snapshot(current, current, TripHourlySchedule{trips}, routes);
    points = result.timeline.size();
    benchmark::DoNotOptimize(result);
  }
  state.counters["points"] = static_cast<double>(points);
}
BENCHMARK(BM_HourlySnapshotThirtyDaysTenPlaces)->Unit(benchmark::kMillisecond);

// A cache folder already holding 100 trips' records, and the cache of one process over it.
struct HundredTrips {
  fs::path dir;
  Runtime runtime{2};
  FakeClock clock;
  std::unique_ptr<WeatherCache> cache;
  CachedWeather weather;

  HundredTrips() {
    dir = fs::temp_directory_path() / ("ombrine-trip-cache-bench-" + std::to_string(::getpid()));
    fs::remove_all(dir);
    cache = std::make_unique<WeatherCache>(dir, clock, runtime.executor());
    testing_records::RecordShape shape;
    shape.tides = false;
    weather =
        CachedWeather{"Berlin", Location(52.52, 13.405), Region{"DE"}, testing_records::makeForecastRecord(shape)};
    std::vector<TripCacheWrite> writes;
    for (int i = 0; i < 100; ++i) {
      writes.push_back(TripCacheWrite{idNumber(i), weather, WeatherDataSource::foreca, stamp()});
    }
    runtime.runBlocking(cache->store(std::move(writes)));
  }
  ~HundredTrips() {
    cache.reset();
    fs::remove_all(dir);
  }
  TripCacheOperationOrder stamp() {
    clock.advance(std::chrono::milliseconds(1));
    return TripCacheOperationOrder::begin(Date::fromSystem(clock.now()));
  }
};

void reportPercentiles(benchmark::State& state, std::vector<double> micros) {
  if (micros.empty()) return;
  std::sort(micros.begin(), micros.end());
  auto at = [&](double q) { return micros[std::min(micros.size() - 1, static_cast<size_t>(q * micros.size()))]; };
  state.counters["p50_us"] = at(0.50);
  state.counters["p99_us"] = at(0.99);
}

void BM_TripCacheStoreWithHundredTrips(benchmark::State& state) {
  HundredTrips fixture;
  std::vector<double> micros;
  int round = 0;
  for (auto _ : state) {
    // A newer observation for one of the trips, so every store replaces its file.
    CachedWeather next = fixture.weather;
    next.weather.current.dt = next.weather.current.dt + (++round);
    std::vector<TripCacheWrite> writes{
        TripCacheWrite{idNumber(round % 100), next, WeatherDataSource::foreca, fixture.stamp()}};
    const auto start = std::chrono::steady_clock::now();
    fixture.runtime.runBlocking(fixture.cache->store(std::move(writes)));
    micros.push_back(std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count());
  }
  reportPercentiles(state, std::move(micros));
}
BENCHMARK(BM_TripCacheStoreWithHundredTrips)->Unit(benchmark::kMicrosecond)->UseRealTime();

void BM_TripCacheReadUnchanged(benchmark::State& state) {
  HundredTrips fixture;
  const Location here(52.52, 13.405);
  for (auto _ : state) {
    benchmark::DoNotOptimize(fixture.cache->cachedWeather(idNumber(42), here, true, WeatherDataSource::foreca));
  }
}
BENCHMARK(BM_TripCacheReadUnchanged)->Unit(benchmark::kMicrosecond);

// The hourly view's load for 240 hours with 5 timed trips and a home route, every record fresh in
// the caches (the common case: nothing to fetch): trip-cache reads, the home's favourite record
// and the snapshot's timeline.
void BM_HourlyTripLoadFiveTripsAndHome(benchmark::State& state) {
  const fs::path dir = fs::temp_directory_path() / ("ombrine-hourly-bench-" + std::to_string(::getpid()));
  fs::remove_all(dir);
  testing_records::RecordShape shape;
  shape.tides = false;
  const OneCallWeather record = testing_records::makeForecastRecord(shape);
  Runtime runtime{2};
  FakeClock clock(record.current.dt.toSystem() + std::chrono::seconds(60));
  auto cache = std::make_unique<WeatherCache>(dir, clock, runtime.executor());
  auto favorites = std::make_unique<FavoriteWeatherCache>(dir, clock, runtime.executor());
  const TimeZone berlin = *TimeZone::named("Europe/Berlin");
  const Date first = record.hourly.front().dt;
  std::vector<Trip> trips;
  std::vector<TripCacheWrite> writes;
  for (int i = 0; i < 5; ++i) {
    // 36 hours away every 48 hours, back home in between.
    const Location place(40.0 + i, -3.0 - i);
    trips.push_back(Trip{idNumber(500 + i), TripLocation{"Trip", std::nullopt, "airplane", place, berlin},
                         TripDates{.from = first + (6.0 + 48.0 * i) * 3600.0,
                                   .to = first + (42.0 + 48.0 * i) * 3600.0,
                                   .hasTimes = true,
                                   .hasArrivalTime = true}});
    writes.push_back(TripCacheWrite{trips.back().id, CachedWeather{"Trip", place, std::nullopt, record},
                                    WeatherDataSource::dynamic, TripCacheOperationOrder::begin(record.current.dt)});
  }
  runtime.runBlocking(cache->store(std::move(writes)));
  const FavoriteLocation home{idNumber(900), Location(52.52, 13.405), "Berlin", std::nullopt, berlin, Region{"DE"}};
  favorites->setWeather(FavoriteWeather{{home.id, CachedWeather{"Berlin", home.location, Region{"DE"}, record}}});
  const HourlyForecastLocation here{idNumber(901), "Here", "location", berlin, std::nullopt, std::nullopt};
  TripWeatherFetcher noFetcher;
  noFetcher.name = [](const Location&) -> GeoDetails { throw std::runtime_error("no fetch expected"); };
  noFetcher.fetchOneCall = [](Location, GeoDetails, WeatherDataSource) -> Task<OneCallWeather> {
    throw std::runtime_error("no fetch expected");
  };
  std::size_t points = 0;
  for (auto _ : state) {
    HourlyTripRefreshID key{TripHourlySchedule{trips},  home,          home.location,
                            WeatherDataSource::dynamic, record.hourly, true};
    auto load = loadHourlyTripForecast(std::move(key), here, *cache, *favorites, noFetcher, clock);
    const HourlyTripLoad result = runtime.runBlocking(std::move(load));
    if (result.fetches != 0 || !result.snapshot.home || result.routes.size() != 5) {
      state.SkipWithError("the caches did not serve every route");
      break;
    }
    points = result.snapshot.timeline.size();
    benchmark::DoNotOptimize(result);
  }
  state.counters["points"] = static_cast<double>(points);
  favorites.reset();
  cache.reset();
  fs::remove_all(dir);
}
BENCHMARK(BM_HourlyTripLoadFiveTripsAndHome)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_MergedRecordThreeProviders(benchmark::State& state) {
  testing_records::RecordShape shape;
  shape.tides = false;
  const CachedWeather weather{"Berlin", Location(52.52, 13.405), Region{"DE"},
                              testing_records::makeForecastRecord(shape)};
  const TripCacheOperationOrder first = TripCacheOperationOrder::begin(Date::fromReference(1.0));
  const TripCacheRecord existing{{TripCacheEntry{weather, weather.location, WeatherDataSource::apple, first},
                                  TripCacheEntry{weather, weather.location, WeatherDataSource::ow, first}},
                                 std::nullopt};
  const TripCacheRecord incoming{{TripCacheEntry{weather, weather.location, WeatherDataSource::ow,
                                                 TripCacheOperationOrder::begin(Date::fromReference(2.0))}},
                                 std::nullopt};
  for (auto _ : state) benchmark::DoNotOptimize(mergedRecord(existing, incoming));
}
BENCHMARK(BM_MergedRecordThreeProviders)->Unit(benchmark::kMicrosecond);

}  // namespace

int main(int argc, char** argv) {
  // Zone rules must be the shipped ones, as in the program.
  ombrine::useShippedTimeZoneData();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
