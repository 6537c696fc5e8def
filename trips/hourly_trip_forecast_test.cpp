#include "trips/hourly_trip_forecast.hpp"

#include <gtest/gtest.h>

#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <map>

#include "core/values/errors.hpp"
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

// 2027-03-27 20:00 UTC: the next 24 hours hold the spring-forward night of Central Europe.
const Date kNow = Date::fromUnix(1806177600.0);
const double kHour = 3600.0;
// The clock ten minutes into the first hour, so that a record a minute old is fresh.
const Date kClockNow = kNow + 600.0;

// Each place's rows carry their own temperature, so a timeline point tells which route it is from.
const Location kHere(52.52, 13.405);       // Berlin, the place on screen: 10 °C
const Location kHome(48.137, 11.575);      // Munich: 30 °C
const Location kLisbon(38.72, -9.14);      // 21 °C
const Location kTokyo(35.68, 139.69);      // 22 °C
const Location kAuckland(-36.85, 174.76);  // 23 °C
const Location kKiritimati(1.87, -157.4);  // 24 °C

double temperatureAt(const Location& place) {
  const std::pair<Location, double> table[] = {{kHere, 10.0},  {kHome, 30.0},     {kLisbon, 21.0},
                                               {kTokyo, 22.0}, {kAuckland, 23.0}, {kKiritimati, 24.0}};
  for (const auto& [location, temperature] : table) {
    if (location.distance(place) < 1.0) return temperature;
  }
  return -99.0;
}

std::vector<OneCallWeather::Hourly> hourlyRows(const Location& place, Date first, int count) {
  std::vector<OneCallWeather::Hourly> rows;
  for (int i = 0; i < count; ++i) {
    OneCallWeather::Hourly row;
    row.dt = first + i * kHour;
    row.temp = Temperature::celsius(temperatureAt(place));
    row.pop = 0.1 * (i % 10);
    rows.push_back(row);
  }
  return rows;
}

OneCallWeather recordObservedAt(const Location& place, Date observed, const char* zoneName) {
  OneCallWeather weather;
  weather.lat = place.latitude();
  weather.lon = place.longitude();
  weather.timeZone = zone(zoneName);
  weather.current.dt = observed;
  weather.hourly = hourlyRows(place, kNow - 2 * kHour, 72);
  return weather;
}

Trip timedTrip(int n, const char* name, const Location& place, const char* zoneName, Date from, Date to) {
  return Trip{idNumber(n), TripLocation{name, std::nullopt, "airplane", place, zone(zoneName)},
              TripDates{.from = from, .to = to, .hasTimes = true, .hasArrivalTime = true}};
}

Trip lisbonTrip(int n, double startHours = 3.5, double endHours = 8.0) {
  return timedTrip(n, "Lisbon", kLisbon, "Europe/Lisbon", kNow + startHours * kHour, kNow + endHours * kHour);
}

FavoriteLocation munich() {
  return FavoriteLocation{idNumber(200), kHome, "Munich", std::nullopt, zone("Europe/Berlin"), Region{"DE"}};
}

class HourlyTripForecastTest : public testing::Test {
 protected:
  void SetUp() override { openCaches(); }
  void TearDown() override {
    favorites_.reset();
    cache_.reset();
  }

  void openCaches() {
    favorites_.reset();
    cache_.reset();
    cache_ = std::make_unique<WeatherCache>(dir_, clock_, runtime_.executor());
    favorites_ = std::make_unique<FavoriteWeatherCache>(dir_, clock_, runtime_.executor());
  }

  // Answers every place with a record observed now; `failing` places raise `failure`.
  TripWeatherFetcher fetcher(std::map<double, std::exception_ptr> failing = {}) {
    TripWeatherFetcher result;
    result.name = [](const Location&) { return GeoDetails{"Somewhere", Region{"PT"}, TimeZone::gmt()}; };
    result.fetchOneCall = [this, failing](Location location, GeoDetails, WeatherDataSource) -> Task<OneCallWeather> {
      ++fetches_;
      if (auto found = failing.find(location.latitude()); found != failing.end()) {
        std::rethrow_exception(found->second);
      }
      co_return recordObservedAt(location, Date::fromSystem(clock_.now()), "UTC");
    };
    return result;
  }

  HourlyTripRefreshID key(std::vector<Trip> trips, std::optional<FavoriteLocation> home = std::nullopt,
                          bool loads = true) {
    return HourlyTripRefreshID{TripHourlySchedule{std::move(trips)},
                               std::move(home),
                               kHere,
                               WeatherDataSource::dynamic,
                               hourlyRows(kHere, kNow, 24),
                               loads};
  }

  Task<HourlyTripLoad> start(HourlyTripRefreshID refresh, TripWeatherFetcher source) {
    const HourlyForecastLocation here{idNumber(100),         "Berlin",     "location",
                                      zone("Europe/Berlin"), Region{"DE"}, std::nullopt};
    return loadHourlyTripForecast(std::move(refresh), here, *cache_, *favorites_, std::move(source), clock_);
  }

  HourlyTripLoad load(HourlyTripRefreshID refresh, TripWeatherFetcher source) {
    return runtime_.runBlocking(start(std::move(refresh), std::move(source)));
  }

  void seedTrip(const Trip& trip, double ageSeconds) {
    const Date observed = kClockNow - ageSeconds;
    std::vector<TripCacheWrite> writes{
        TripCacheWrite{trip.id,
                       CachedWeather{trip.destination.name, trip.destination.location, std::nullopt,
                                     recordObservedAt(trip.destination.location, observed, "Europe/Lisbon")},
                       WeatherDataSource::dynamic, TripCacheOperationOrder::begin(observed)}};
    runtime_.runBlocking(cache_->store(std::move(writes)));
  }

  void seedHome(const Location& at, double ageSeconds) {
    favorites_->setWeather(FavoriteWeather{
        {munich().id, CachedWeather{"Munich", at, Region{"DE"}, recordObservedAt(at, kClockNow - ageSeconds, "UTC")}}});
  }

  Runtime runtime_{2};
  FakeClock clock_{kClockNow.toSystem()};
  const ScratchFolder scratch_{"ombrine-hourly-trips"};
  const fs::path dir_ = scratch_.path();
  std::unique_ptr<WeatherCache> cache_;
  std::unique_ptr<FavoriteWeatherCache> favorites_;
  std::atomic<int> fetches_{0};
};

// The temperatures of the timeline's points: which route stood at each instant.
std::map<double, double> routeByHourOffset(const HourlyTripForecastSnapshot& snapshot) {
  std::map<double, double> out;
  for (const HourlyForecastPoint& point : snapshot.timeline) {
    out[(point.weather.dt - kNow) / kHour] = point.weather.temp.inCelsius();
  }
  return out;
}

TEST_F(HourlyTripForecastTest, TripRoutesComeFromTheCacheAndAreFetchedOnlyWhenMissingOrStale) {
  const double kLisbonTemperature = 21.0;
  const double kHereTemperature = 10.0;
  struct Row {
    const char* why;
    std::optional<double> seededAge;
    bool loads;
    std::exception_ptr fetchFailure;
    int fetches;
    bool route;
    std::optional<double> observedAge;  // age of the observation the route shows
  };
  const auto broken = std::make_exception_ptr(NetworkError(NetworkError::invalidResponse));
  const Row rows[] = {
      {"nothing cached: fetched and stored", std::nullopt, true, nullptr, 1, true, 0.0},
      {"fresh record: no fetch", 60.0, true, nullptr, 0, true, 60.0},
      {"stale record: refetched", 7200.0, true, nullptr, 1, true, 0.0},
      {"cached only: the stale record stands", 7200.0, false, nullptr, 0, true, 7200.0},
      {"cached only and nothing cached: no route, the current place stands", std::nullopt, false, nullptr, 0, false,
       std::nullopt},
      {"failed refresh keeps the stale record", 7200.0, true, broken, 1, true, 7200.0},
      {"failed fetch and nothing cached: no route", std::nullopt, true, broken, 1, false, std::nullopt},
  };
  int n = 0;
  for (const Row& row : rows) {
    SCOPED_TRACE(row.why);
    const Trip trip = lisbonTrip(++n);
    if (row.seededAge) seedTrip(trip, *row.seededAge);
    fetches_ = 0;
    std::map<double, std::exception_ptr> failing;
    if (row.fetchFailure) failing[kLisbon.latitude()] = row.fetchFailure;
    const HourlyTripLoad result = load(key({trip}, std::nullopt, row.loads), fetcher(failing));
    EXPECT_EQ(fetches_, row.fetches);
    EXPECT_EQ(result.fetches, row.fetches);
    EXPECT_EQ(result.errors.size(), row.fetchFailure ? 1u : 0u);
    EXPECT_TRUE(result.unpersisted.empty());
    ASSERT_EQ(result.routes.size(), row.route ? 1u : 0u);
    EXPECT_EQ(result.snapshot.routes.count(trip.id), row.route ? 1u : 0u);
    const auto byHour = routeByHourOffset(result.snapshot);
    // 4:00 lies in the trip: its route when there is one, else the place on screen.
    EXPECT_EQ(byHour.at(4.0), row.route ? kLisbonTemperature : kHereTemperature);
    EXPECT_EQ(byHour.at(3.0), kHereTemperature);
    if (!row.route) continue;
    const LoadedHourlyRoute& route = result.routes.front();
    EXPECT_EQ(route.request.cacheID, trip.id);
    EXPECT_EQ(route.request.location, kLisbon);
    // The stamp is that of the moment the request was made.
    EXPECT_EQ(route.request.operationOrder.startedAt, kClockNow);
    EXPECT_EQ(kClockNow - route.weather.weather.weather.current.dt, *row.observedAge);
    if (row.fetches == 1 && !row.fetchFailure) {
      const auto stored = cache_->cachedWeather(trip.id, kLisbon, false, WeatherDataSource::dynamic);
      ASSERT_TRUE(stored);
      EXPECT_EQ(stored->cachedWeather.weather.current.dt, kClockNow);
      EXPECT_EQ(stored->operationOrder, route.request.operationOrder);
    }
    const HourlyForecastLocation& location = result.snapshot.routes.at(trip.id).location;
    EXPECT_EQ(location.id, trip.id);
    EXPECT_EQ(location.name, "Lisbon");
    EXPECT_EQ(location.timeZone, zone("Europe/Lisbon"));
    EXPECT_EQ(location.destinationName, "Lisbon");
  }
}

TEST_F(HourlyTripForecastTest, AResultTheCacheRefusedStillMakesItsRoute) {
  // A plain file where the trip folder belongs: every trip write fails.
  std::ofstream(dir_ / "TripCache") << "not a folder";
  const Trip trip = lisbonTrip(1);
  const HourlyTripLoad result = load(key({trip}), fetcher());
  ASSERT_EQ(result.unpersisted.size(), 1u);
  const UnpersistedRouteWeather& kept = result.unpersisted.front();
  EXPECT_EQ(kept.cacheID, trip.id);
  EXPECT_EQ(kept.requestedLocation, kLisbon);
  EXPECT_EQ(kept.cachedWeather.weather.current.dt, kClockNow);
  ASSERT_EQ(result.errors.size(), 1u);
  EXPECT_NE(result.errors.front().find("Lisbon: not saved"), std::string::npos) << result.errors.front();
  EXPECT_EQ(routeByHourOffset(result.snapshot).at(4.0), 21.0);
}

TEST_F(HourlyTripForecastTest, HomeRouteOnlyWhenTheScheduleNeedsItAndAHomeIsKnown) {
  struct Row {
    const char* why;
    std::vector<Trip> trips;
    bool withHome;
    std::optional<std::pair<Location, double>> homeCache;  // where and how old
    bool homeRoute;
    int fetches;
  };
  const Location movedHome(48.2, 11.7);  // about 9 km from the home
  const Row rows[] = {
      {"no trips: the place on screen is all there is", {}, true, std::nullopt, false, 0},
      {"a trip ending in the window, home fetched", {lisbonTrip(1)}, true, std::nullopt, true, 2},
      {"fresh home weather is not fetched again", {lisbonTrip(2)}, true, std::pair{kHome, 60.0}, true, 1},
      {"stale home weather is refreshed", {lisbonTrip(3)}, true, std::pair{kHome, 7200.0}, true, 2},
      {"weather of a home that has moved does not count", {lisbonTrip(4)}, true, std::pair{movedHome, 60.0}, true, 2},
      {"a trip after the window still ends without a next trip",
       {lisbonTrip(5, 30.0, 40.0)},
       true,
       std::nullopt,
       true,
       1},
      {"no home known: no home route", {lisbonTrip(6)}, false, std::nullopt, false, 1},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.why);
    openCaches();
    favorites_->setWeather({});
    if (row.homeCache) seedHome(row.homeCache->first, row.homeCache->second);
    fetches_ = 0;
    const HourlyTripLoad result =
        load(key(row.trips, row.withHome ? std::optional(munich()) : std::nullopt), fetcher());
    EXPECT_EQ(fetches_, row.fetches);
    EXPECT_EQ(result.snapshot.home.has_value(), row.homeRoute);
    EXPECT_EQ(result.home.has_value(), row.homeRoute);
    if (!row.homeRoute) continue;
    EXPECT_EQ(result.snapshot.home->location.id, munich().id);
    EXPECT_EQ(result.snapshot.home->location.symbolName, kHomeRouteSymbol);
    EXPECT_EQ(result.snapshot.home->location.timeZone, zone("Europe/Berlin"));
    // Written back where the next load looks for it.
    const FavoriteWeather stored = favorites_->weather();
    ASSERT_EQ(stored.count(munich().id), 1u);
    EXPECT_EQ(stored.at(munich().id).location, kHome);
  }
}

TEST_F(HourlyTripForecastTest, ATripEndingInTheWindowHandsOverToHomeAtItsExactEnd) {
  const Trip trip = lisbonTrip(1, 3.5, 8.25);
  const HourlyTripLoad result = load(key({trip}, munich()), fetcher());
  const auto byHour = routeByHourOffset(result.snapshot);
  // Hours plus the two boundaries between hours; every point from exactly one source.
  EXPECT_EQ(byHour.size(), 26u);
  const std::pair<double, double> expected[] = {
      {0.0, 10.0}, {3.0, 10.0},  {3.5, 21.0},
      {4.0, 21.0}, {8.0, 21.0},  {8.25, 30.0},  // the trip's end belongs to home, not to the trip
      {9.0, 30.0}, {23.0, 30.0},
  };
  for (const auto& [offset, temperature] : expected) {
    SCOPED_TRACE(offset);
    EXPECT_EQ(byHour.at(offset), temperature);
  }
  // A boundary point stands for its own instant, with the values of the hour it lies in.
  const auto handover = std::find_if(result.snapshot.timeline.begin(), result.snapshot.timeline.end(),
                                     [&](const HourlyForecastPoint& p) { return p.weather.dt == trip.dates.to; });
  ASSERT_NE(handover, result.snapshot.timeline.end());
  EXPECT_EQ(handover->location.id, munich().id);
  EXPECT_EQ(handover->weather.pop, hourlyRows(kHome, kNow - 2 * kHour, 72)[10].pop);
}

TEST_F(HourlyTripForecastTest, TimedTripsAcrossTheDateLineAndADaylightSavingNight) {
  struct Row {
    const char* why;
    const char* name;
    Location place;
    const char* zoneName;
    CivilDay day;  // the local day and time the trip starts, as the user entered it
    WallTime time;
    double temperature;
  };
  const Row rows[] = {
      // UTC+14: the local 28th starts while it is still the 27th in UTC.
      {"Kiritimati, a day ahead of UTC",
       "Kiritimati",
       kKiritimati,
       "Pacific/Kiritimati",
       {2027, 3, 28},
       {11, 30},
       24.0},
      {"Auckland, across the date line", "Auckland", kAuckland, "Pacific/Auckland", {2027, 3, 28}, {16, 45}, 23.0},
      // Lisbon springs forward at 01:00 UTC; 03:00 local is then UTC+1.
      {"Lisbon, the morning after spring forward", "Lisbon", kLisbon, "Europe/Lisbon", {2027, 3, 28}, {3, 0}, 21.0},
      {"Tokyo, no daylight saving", "Tokyo", kTokyo, "Asia/Tokyo", {2027, 3, 28}, {8, 15}, 22.0},
  };
  int n = 0;
  for (const Row& row : rows) {
    SCOPED_TRACE(row.why);
    const TripCalendar local(zone(row.zoneName));
    const Date from = local.date(row.day, row.time);
    ASSERT_GT(from, kNow);
    ASSERT_LT(from, kNow + 20 * kHour);
    const Trip trip = timedTrip(++n, row.name, row.place, row.zoneName, from, from + 3 * kHour);
    const HourlyTripLoad result = load(key({trip}, munich()), fetcher());
    const auto& timeline = result.snapshot.timeline;
    const auto handover = std::find_if(timeline.begin(), timeline.end(),
                                       [&](const HourlyForecastPoint& p) { return p.location.id == trip.id; });
    ASSERT_NE(handover, timeline.end());
    EXPECT_EQ(handover->weather.dt, from);
    EXPECT_EQ(handover->weather.temp.inCelsius(), row.temperature);
    EXPECT_EQ(handover->location.timeZone, zone(row.zoneName));
    // Read back on the destination's clock it is the time the user entered.
    EXPECT_EQ(local.day(handover->weather.dt), row.day);
    EXPECT_EQ(local.timeOfDay(handover->weather.dt), row.time);
    ASSERT_NE(handover, timeline.begin());
    EXPECT_EQ(std::prev(handover)->location.id, idNumber(100));
    // 24 real hours across the short night, no hour lost or doubled, plus the trip's boundaries.
    const int boundaries = (row.time.minute == 0 ? 0 : 2);
    EXPECT_EQ(static_cast<int>(timeline.size()), 24 + boundaries);
    for (std::size_t i = 1; i < timeline.size(); ++i) EXPECT_LT(timeline[i - 1].weather.dt, timeline[i].weather.dt);
  }
}

TEST_F(HourlyTripForecastTest, CancellationInTheMiddleOfAFetchStoresNothing) {
  const Trip lisbon = lisbonTrip(1);
  const Trip tokyo = timedTrip(2, "Tokyo", kTokyo, "Asia/Tokyo", kNow + 10 * kHour, kNow + 12 * kHour);
  struct Row {
    const char* why;
    bool cancelFromOutside;  // else the fetch itself ends in a cancellation
  };
  const Row rows[] = {{"the load is cancelled while Tokyo's fetch waits", true},
                      {"Tokyo's fetch raises a cancellation", false}};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.why);
    std::atomic<bool> waiting{false};
    TripWeatherFetcher source = fetcher();
    auto answer = source.fetchOneCall;
    source.fetchOneCall = [&, answer, outside = row.cancelFromOutside](
                              Location location, GeoDetails details,
                              WeatherDataSource provider) -> Task<OneCallWeather> {
      if (location == kTokyo) {
        if (!outside) throw CancellationError();
        waiting = true;
        // The fake clock never moves here: only a cancellation ends this wait.
        co_await clock_.sleep(std::chrono::hours(1));
      }
      co_return co_await answer(location, details, provider);
    };
    // Named, so that the coroutine's captures outlive it.
    auto loadAll = [&]() -> Task<void> {
      auto work = start(key({lisbon, tokyo}, munich()), source);
      co_await std::move(work);
    };
    StartedTask started = startTask(runtime_.executor(), loadAll());
    if (row.cancelFromOutside) {
      ASSERT_TRUE(eventually([&] { return waiting.load(); }));
      started.task.cancel();
    }
    EXPECT_TRUE(isCancellationError(started.outcome.get()));
    // Lisbon's finished fetch and home's are dropped with the load.
    EXPECT_EQ(cache_->cachedWeather(lisbon.id, kLisbon, true, std::nullopt), std::nullopt);
    EXPECT_TRUE(favorites_->weather().empty());
  }
}

TEST(TripsInWindowTest, ATripCountsWhenItIsInForceAtSomeInstantOfTheWindow) {
  const Date first = kNow;
  const Date last = kNow + 23 * kHour;
  struct Row {
    const char* why;
    double from;  // hours from the first hour
    double to;
    bool in;
  };
  const Row rows[] = {
      {"under way at the first hour", -5, 2, true},      {"ends exactly at the first hour: already over", -5, 0, false},
      {"starts exactly at the last hour", 23, 30, true}, {"starts after the last hour", 23.5, 30, false},
      {"spans the whole window", -48, 48, true},         {"ends before it starts: never in force", 5, 4, false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.why);
    const Trip trip = lisbonTrip(1, row.from, row.to);
    EXPECT_EQ(tripsInWindow(TripHourlySchedule{{trip}}, first, last).size(), row.in ? 1u : 0u);
  }
  const Trip twice = lisbonTrip(7);
  EXPECT_EQ(tripsInWindow(TripHourlySchedule{{twice, twice}}, first, last).size(), 1u);
}

TEST(TripRowWeatherTest, TheDayInForceElseTheFirstDayToCome) {
  const char* kAucklandZone = "Pacific/Auckland";
  const TripCalendar auckland(zone(kAucklandZone));
  // One row a day at local noon from 2027-03-26, highs 20, 21, ... °C.
  auto record = [&](std::vector<OneCallWeather::Glyph> glyph, double feelsLike) {
    CachedWeather cached{"Auckland", kAuckland, std::nullopt, OneCallWeather{}};
    cached.weather.timeZone = zone(kAucklandZone);
    Date noon = auckland.date({2027, 3, 26}, WallTime{12, 0, 0});
    for (int i = 0; i < 8; ++i) {
      OneCallWeather::Daily row;
      row.dt = noon;
      row.temp.max = Temperature::celsius(20.0 + i);
      row.feelsLike.day = Temperature::celsius(feelsLike);
      row.sunrise = noon - 6 * kHour;
      row.sunset = noon + 6 * kHour;
      row.weather = glyph;
      cached.weather.daily.push_back(row);
      noon = auckland.addingDays(noon, 1);
    }
    return cached;
  };
  const OneCallWeather::Glyph clear{800, "Clear", "clear sky", "sun.max", true};
  const OneCallWeather::Glyph rain{500, "Rain", "light rain", "cloud.rain", true};
  const OneCallWeather::Glyph cloud{804, "Clouds", "overcast clouds", "cloud", true};
  auto trip = [&](CivilDay first, CivilDay last) {
    return Trip{idNumber(1), TripLocation{"Auckland", std::nullopt, "airplane", kAuckland, zone(kAucklandZone)},
                TripDates{.from = auckland.date(first), .to = auckland.date(last, WallTime{23, 59, 59})}};
  };
  struct Row {
    const char* why;
    Trip trip;
    OneCallWeather::Glyph glyph;
    double feelsLike;
    std::optional<TripRowWeatherSnapshot> expected;
  };
  // kNow is 2027-03-28 09:00 in Auckland.
  const Row rows[] = {
      {"upcoming: its first day", trip({2027, 3, 30}, {2027, 4, 1}), clear, 18.0,
       TripRowWeatherSnapshot{Temperature::celsius(24.0), WeatherState::sunnyDay}},
      {"under way: today at the destination, not the first day", trip({2027, 3, 26}, {2027, 3, 30}), rain, 18.0,
       TripRowWeatherSnapshot{Temperature::celsius(22.0), WeatherState::rainyDay}},
      {"hot day", trip({2027, 3, 27}, {2027, 3, 29}), clear, 33.0,
       TripRowWeatherSnapshot{Temperature::celsius(22.0), WeatherState::hotDay}},
      {"overcast day", trip({2027, 3, 31}, {2027, 3, 31}), cloud, 18.0,
       TripRowWeatherSnapshot{Temperature::celsius(25.0), WeatherState::overcast}},
      {"over: nothing rather than old weather", trip({2027, 3, 26}, {2027, 3, 27}), clear, 18.0, std::nullopt},
      {"beyond the record's reach: nothing yet", trip({2027, 4, 10}, {2027, 4, 12}), clear, 18.0, std::nullopt},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.why);
    EXPECT_EQ(tripRowWeather(row.trip, record({row.glyph}, row.feelsLike), kNow), row.expected);
  }
}

}  // namespace
}  // namespace ombrine
