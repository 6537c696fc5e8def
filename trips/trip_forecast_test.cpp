#include "trips/trip_forecast.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <mutex>

#include "core/record/testing_records.hpp"
#include "platform/async/coroutines.hpp"
#include "platform/runtime.hpp"
#include "platform/testing/async_testing.hpp"
#include "platform/testing/fake_clock.hpp"
#include "platform/testing/scratch_folder.hpp"
#include "trips/trip_calendar.hpp"
#include "trips/trips_test_support.hpp"

namespace ombrine {
namespace {

using namespace trips_testing;

namespace fs = std::filesystem;

const TimeZone kBerlinZone = *TimeZone::named("Europe/Berlin");
const Location kBerlin(52.52, 13.405);

// An all-day trip to Berlin over the given September 2024 days.
Trip berlinTrip(int n, int firstDay, int lastDay) {
  const TripCalendar calendar(kBerlinZone);
  return Trip{idNumber(n), TripLocation{"Berlin", std::nullopt, "building.2", kBerlin, kBerlinZone},
              TripDates{.from = calendar.date({2024, 9, firstDay}),
                        .to = calendar.date({2024, 9, lastDay}, WallTime{23, 59, 59})}};
}

// The record's first daily row is 2024-09-17 at noon in Berlin, one row a day for ten days.
OneCallWeather forecastObservedAt(Date dt) {
  testing_records::RecordShape shape;
  shape.hours = 6;
  shape.minutes = 0;
  shape.tides = false;
  OneCallWeather weather = testing_records::makeForecastRecord(shape);
  weather.current.dt = dt;
  return weather;
}

class TripForecastTest : public testing::Test {
 protected:
  void SetUp() override { cache_ = std::make_unique<WeatherCache>(dir_, clock_, runtime_.executor()); }
  void TearDown() override { cache_.reset(); }

  Date now() const { return Date::fromSystem(clock_.now()); }

  // A fetcher that counts its calls and answers with a record observed now, or `failure`.
  TripWeatherFetcher fetcher(std::exception_ptr failure = nullptr) {
    TripWeatherFetcher result;
    result.name = [](const Location&) { return GeoDetails{"Mitte", Region{"DE"}, kBerlinZone}; };
    result.fetchOneCall = [this, failure](Location, GeoDetails details, WeatherDataSource) -> Task<OneCallWeather> {
      ++fetches_;
      {
        // Fetches of different trips run at once, on different threads.
        std::lock_guard guard(detailsMutex_);
        lastDetails_ = details;
      }
      if (failure) std::rethrow_exception(failure);
      co_return forecastObservedAt(now());
    };
    return result;
  }

  std::vector<LoadedTripForecast> load(std::vector<Trip> trips, TripWeatherFetcher source,
                                       TripForecastRefreshID key = {}) {
    return runtime_.runBlocking(loadTripForecasts(std::move(trips), *cache_, std::move(source), key, clock_));
  }

  void seed(const Trip& trip, Date observed) {
    std::vector<TripCacheWrite> writes{
        TripCacheWrite{trip.id, CachedWeather{"Berlin", kBerlin, Region{"DE"}, forecastObservedAt(observed)},
                       WeatherDataSource::dynamic, TripCacheOperationOrder::begin(observed)}};
    runtime_.runBlocking(cache_->store(std::move(writes)));
  }

  Runtime runtime_{2};
  // 2024-09-17 09:40 in Berlin.
  FakeClock clock_{Date::fromUnix(1726558800.0).toSystem()};
  const ScratchFolder scratch_{"ombrine-trip-forecast"};
  const fs::path dir_ = scratch_.path() / "caches";
  std::unique_ptr<WeatherCache> cache_;
  std::atomic<int> fetches_{0};
  std::mutex detailsMutex_;
  GeoDetails lastDetails_;
};

TEST_F(TripForecastTest, FetchesWhatIsMissingOrStaleAndCutsTheTripsDays) {
  struct Row {
    const char* why;
    Trip trip;
    std::optional<double> seededAge;  // seconds before now of a cached record
    TripForecastRefreshID key;
    int fetches;
    int days;
  };
  const Row rows[] = {
      {"nothing cached: fetched", berlinTrip(1, 18, 20), std::nullopt, {}, 1, 3},
      {"fresh record: no fetch", berlinTrip(2, 18, 20), 60.0, {}, 0, 3},
      {"stale record: fetched", berlinTrip(3, 18, 20), 7200.0, {}, 1, 3},
      {"fetching off: the stale record stands",
       berlinTrip(4, 18, 20),
       7200.0,
       {false, WeatherDataSource::dynamic},
       0,
       3},
      {"trip already over: never fetched", berlinTrip(5, 10, 16), std::nullopt, {}, 0, 0},
      {"trip beyond the forecast's range: fetched, no days yet", berlinTrip(6, 28, 30), std::nullopt, {}, 1, 0},
      {"trip reaching past the range keeps the days there are", berlinTrip(7, 25, 30), std::nullopt, {}, 1, 2},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.why);
    if (row.seededAge) seed(row.trip, now() - *row.seededAge);
    fetches_ = 0;
    const auto results = load({row.trip}, fetcher(), row.key);
    ASSERT_EQ(results.size(), 1u);
    EXPECT_EQ(fetches_, row.fetches);
    EXPECT_EQ(results[0].fetched, row.fetches == 1);
    EXPECT_EQ(results[0].forecast.trip, row.trip);
    EXPECT_EQ(static_cast<int>(results[0].forecast.weather.size()), row.days);
    EXPECT_EQ(results[0].fetchError, std::nullopt);
    if (row.fetches == 1) {
      // Stored, under the trip's id: the next load is served from the cache.
      EXPECT_EQ(cache_->cachedWeather(row.trip.id, kBerlin, false, {})->cachedWeather.weather.current.dt, now());
      EXPECT_EQ(results[0].entry->cachedWeather.name, "Berlin");
      std::lock_guard guard(detailsMutex_);
      EXPECT_EQ(lastDetails_.region, Region{"DE"});
    }
  }
}

TEST_F(TripForecastTest, AFailedFetchKeepsTheStaleRecordAndOthersGoOn) {
  const Trip stale = berlinTrip(1, 18, 19);
  seed(stale, now() - 7200.0);
  auto failure = std::make_exception_ptr(NetworkError(NetworkError::invalidResponse));
  const auto results = load({stale, berlinTrip(2, 20, 21)}, fetcher(failure));
  ASSERT_EQ(results.size(), 2u);
  EXPECT_TRUE(results[0].fetchError);
  EXPECT_EQ(results[0].forecast.weather.size(), 2u);
  EXPECT_EQ(results[0].entry->cachedWeather.weather.current.dt, now() - 7200.0);
  EXPECT_TRUE(results[1].fetchError);
  EXPECT_FALSE(results[1].entry);
  EXPECT_TRUE(results[1].forecast.weather.empty());
}

TEST_F(TripForecastTest, ATripRemovedWhileItsFetchRunsStaysRemoved) {
  const Trip trip = berlinTrip(1, 18, 19);
  TripWeatherFetcher source = fetcher();
  auto inner = source.fetchOneCall;
  source.fetchOneCall = [this, inner, id = trip.id](Location location, GeoDetails details,
                                                    WeatherDataSource provider) -> Task<OneCallWeather> {
    clock_.advance(std::chrono::seconds(1));
    co_await cache_->removeTripCache(id);
    co_return co_await inner(location, details, provider);
  };
  const auto results = load({trip}, source);
  EXPECT_TRUE(results[0].fetched);
  EXPECT_FALSE(results[0].entry);
  EXPECT_TRUE(results[0].forecast.weather.empty());
  EXPECT_EQ(cache_->cachedWeather(trip.id, kBerlin, true, {}), std::nullopt);
}

TEST_F(TripForecastTest, CancellationIsNeverSwallowed) {
  auto cancelled = std::make_exception_ptr(CancellationError());
  auto loadAll = [&]() -> Task<void> {
    auto work = loadTripForecasts({berlinTrip(1, 18, 19)}, *cache_, fetcher(cancelled), {}, clock_);
    co_await std::move(work);
  };
  const std::exception_ptr error = errorOf(runtime_, loadAll());
  EXPECT_TRUE(isCancellationError(error));
}

}  // namespace
}  // namespace ombrine
