#include "persistence/trip_cache_store.hpp"

#include <signal.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <fstream>
#include <thread>

#include "core/record/testing_records.hpp"
#include "persistence/coordinated_file.hpp"
#include "persistence/persistence_test_support.hpp"
#include "platform/atomic_file.hpp"
#include "platform/runtime.hpp"
#include "platform/testing/async_testing.hpp"
#include "platform/testing/fake_clock.hpp"
#include "platform/testing/forked_child.hpp"

namespace ombrine {
namespace {

using namespace testing_support;
using namespace std::chrono_literals;

const Location kLisbon(38.7223, -9.1393);

Uuid idOf(const char* text) { return *Uuid::parse(text); }

TripCacheOperationOrder stamp(double at, const char* tie = "11111111-1111-1111-1111-111111111111") {
  return {Date::fromReference(at), idOf(tie)};
}

// Weather observed at `where` at reference time `dt`.
CachedWeather weatherAt(const Location& where, double dt, std::string name = "Lisboa") {
  static const OneCallWeather base = [] {
    testing_records::RecordShape shape;
    shape.days = 2;
    shape.hours = 3;
    shape.minutes = 0;
    shape.alerts = false;
    shape.tides = false;
    return testing_records::makeForecastRecord(shape);
  }();
  CachedWeather cached{std::move(name), where, Region{"PT"}, base};
  cached.weather.current.dt = Date::fromReference(dt);
  return cached;
}

TripCacheEntry entry(double stampAt, std::optional<WeatherDataSource> provider, double dt = 1000.0,
                     const Location& where = kLisbon, const char* tie = "11111111-1111-1111-1111-111111111111") {
  return TripCacheEntry{weatherAt(where, dt), where, provider, stamp(stampAt, tie)};
}

TripCacheRecord recordOf(std::vector<TripCacheEntry> entries, std::optional<TripCacheOperationOrder> removal = {}) {
  return TripCacheRecord{std::move(entries), removal};
}

TEST(TripCacheOperationOrderTest, OrdersByDateThenTieBreakerText) {
  struct Row {
    const char* why;
    TripCacheOperationOrder a;
    TripCacheOperationOrder b;
    int expected;  // sign of a <=> b
  };
  const Row rows[] = {
      {"earlier date first, whatever the tie-breaker", stamp(1.0, "FFFFFFFF-0000-0000-0000-000000000000"),
       stamp(2.0, "00000000-0000-0000-0000-000000000001"), -1},
      {"equal dates: tie-breaker text decides", stamp(5.0, "0A000000-0000-0000-0000-000000000000"),
       stamp(5.0, "09000000-0000-0000-0000-000000000000"), 1},
      {"digits sort before letters", stamp(5.0, "9FFFFFFF-0000-0000-0000-000000000000"),
       stamp(5.0, "A0000000-0000-0000-0000-000000000000"), -1},
      {"last group decides late", stamp(5.0, "00000000-0000-0000-0000-00000000000B"),
       stamp(5.0, "00000000-0000-0000-0000-00000000000A"), 1},
      {"equal", stamp(5.0), stamp(5.0), 0},
      {"legacy sorts before a real stamp", TripCacheOperationOrder::legacy(), stamp(-1e9), -1},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.why);
    const auto order = row.a <=> row.b;
    EXPECT_EQ(order < 0 ? -1 : (order > 0 ? 1 : 0), row.expected);
    // The byte order must agree with the upper-case text order the files are compared by.
    EXPECT_EQ(row.a.tieBreaker.text() < row.b.tieBreaker.text(), row.a.tieBreaker < row.b.tieBreaker);
  }
  EXPECT_EQ(laterOrder(std::nullopt, std::nullopt), std::nullopt);
  EXPECT_EQ(laterOrder(stamp(1.0), std::nullopt), stamp(1.0));
  EXPECT_EQ(laterOrder(std::nullopt, stamp(1.0)), stamp(1.0));
  EXPECT_EQ(laterOrder(stamp(2.0), stamp(1.0)), stamp(2.0));
  const auto a = stamp(1.0, "00000000-0000-0000-0000-000000000001");
  EXPECT_EQ(laterOrder(a, stamp(1.0, "00000000-0000-0000-0000-000000000002"))->tieBreaker,
            stamp(1.0, "00000000-0000-0000-0000-000000000002").tieBreaker);
}

TEST(MergedEntryTest, FreshestObservationOfOneSpotWinsNewestOperationOtherwise) {
  const Location moved = northOf(kLisbon, 201.0);
  const Location nudged = northOf(kLisbon, 199.0);
  struct Row {
    const char* why;
    TripCacheEntry existing;
    TripCacheEntry incoming;
    double weatherDt;   // whose weather is kept
    Location location;  // cachedWeather.location of the result
    TripCacheOperationOrder order;
  };
  TripCacheEntry farAway = entry(5.0, WeatherDataSource::ow, 900.0, moved);
  const Row rows[] = {
      {"requested places 201 m apart: later stamp wins whole even with older weather", entry(1.0, {}, 2000.0), farAway,
       900.0, moved, stamp(5.0)},
      {"same place, later stamp, older observation: old weather stays", entry(1.0, {}, 2000.0), entry(5.0, {}, 1000.0),
       2000.0, kLisbon, stamp(5.0)},
      {"same place, earlier stamp, newer observation arrives late: it wins", entry(5.0, {}, 1000.0),
       entry(1.0, {}, 2000.0), 2000.0, kLisbon, stamp(5.0)},
      {"observed 199 m apart still counts as one spot", entry(1.0, {}, 2000.0), entry(5.0, {}, 1000.0, nudged), 2000.0,
       kLisbon, stamp(5.0)},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.why);
    const TripCacheEntry merged = mergedEntry(row.existing, row.incoming);
    EXPECT_EQ(merged.cachedWeather.weather.current.dt, Date::fromReference(row.weatherDt));
    EXPECT_EQ(merged.cachedWeather.location, row.location);
    EXPECT_EQ(merged.operationOrder, row.order);
  }

  // Names, requested place and provider come from the newer operation; the region falls back.
  TripCacheEntry older = entry(1.0, WeatherDataSource::foreca, 2000.0);
  older.cachedWeather.weather.tideData = testing_records::makeForecastRecord().tideData;
  ASSERT_TRUE(older.cachedWeather.weather.tideData);
  TripCacheEntry newer = entry(5.0, WeatherDataSource::ow, 2000.0, northOf(kLisbon, 100.0));
  newer.cachedWeather.name = "Belém";
  newer.cachedWeather.region.reset();
  newer.cachedWeather.weather.current.temp = Temperature::celsius(31.0);
  for (bool swapped : {false, true}) {
    SCOPED_TRACE(swapped ? "newer first" : "older first");
    const TripCacheEntry merged = swapped ? mergedEntry(newer, older) : mergedEntry(older, newer);
    EXPECT_EQ(merged.cachedWeather.name, "Belém");
    EXPECT_EQ(merged.cachedWeather.region, Region{"PT"});
    EXPECT_EQ(merged.requestedLocation, newer.requestedLocation);
    EXPECT_EQ(merged.requestedProvider, WeatherDataSource::ow);
    // Equal observation times: the newer forecast, with the older one's tides.
    EXPECT_EQ(merged.cachedWeather.weather.current.temp, Temperature::celsius(31.0));
    EXPECT_EQ(merged.cachedWeather.weather.tideData, older.cachedWeather.weather.tideData);
    EXPECT_EQ(merged.cachedWeather.location, newer.cachedWeather.location);
  }
}

TEST(MergedRecordTest, TombstonesProvidersAndMoves) {
  const char* low = "00000000-0000-0000-0000-000000000001";
  const char* high = "00000000-0000-0000-0000-000000000002";
  const Location moved = northOf(kLisbon, 201.0);
  using P = std::optional<WeatherDataSource>;
  constexpr auto ow = WeatherDataSource::ow;
  constexpr auto foreca = WeatherDataSource::foreca;
  struct Row {
    const char* why;
    std::optional<TripCacheRecord> existing;
    TripCacheRecord incoming;
    TripCacheRecord expected;
  };
  const Row rows[] = {
      {"entry at the removal's instant with a lower tie-breaker dies", recordOf({}, stamp(10.0, high)),
       recordOf({entry(10.0, ow, 1000.0, kLisbon, low)}), recordOf({}, stamp(10.0, high))},
      {"entry at the removal's instant with a higher tie-breaker survives", recordOf({}, stamp(10.0, low)),
       recordOf({entry(10.0, ow, 1000.0, kLisbon, high)}),
       recordOf({entry(10.0, ow, 1000.0, kLisbon, high)}, stamp(10.0, low))},
      {"a fetch begun before the removal never comes back", recordOf({}, stamp(10.0)), recordOf({entry(9.0, ow)}),
       recordOf({}, stamp(10.0))},
      {"a removal kills what is on disk", recordOf({entry(9.0, ow), entry(11.0, foreca)}), recordOf({}, stamp(10.0)),
       recordOf({entry(11.0, foreca)}, stamp(10.0))},
      {"a fetch begun after the removal brings entries back and keeps the tombstone", recordOf({}, stamp(10.0)),
       recordOf({entry(12.0, ow)}), recordOf({entry(12.0, ow)}, stamp(10.0))},
      {"ow and foreca stay side by side, ow first", recordOf({entry(2.0, foreca)}), recordOf({entry(3.0, ow)}),
       recordOf({entry(3.0, ow), entry(2.0, foreca)})},
      {"a second ow write merges with the first", recordOf({entry(3.0, ow, 1000.0), entry(2.0, foreca)}),
       recordOf({entry(4.0, ow, 1500.0)}), recordOf({entry(4.0, ow, 1500.0), entry(2.0, foreca)})},
      {"the trip moved 201 m: a later write clears the old place", recordOf({entry(3.0, ow), entry(2.0, foreca)}),
       recordOf({entry(4.0, ow, 1000.0, moved)}), recordOf({entry(4.0, ow, 1000.0, moved)})},
      {"an earlier write for a new place is skipped while the newest entry is elsewhere",
       recordOf({entry(3.0, ow), entry(2.0, foreca)}), recordOf({entry(2.5, foreca, 1000.0, moved)}),
       recordOf({entry(3.0, ow), entry(2.0, foreca)})},
      {"a provider entry removes older provider-less ones, not newer ones",
       recordOf({entry(1.0, P{}), entry(2.0, P{}, 1000.0, kLisbon, high)}), recordOf({entry(1.5, ow)}),
       recordOf({entry(2.0, P{}, 1000.0, kLisbon, high), entry(1.5, ow)})},
      {"provider-less entries merge with each other", recordOf({entry(1.0, P{}, 3000.0)}),
       recordOf({entry(2.0, P{}, 1000.0)}), recordOf({entry(2.0, P{}, 3000.0)})},
      {"nothing existing", std::nullopt, recordOf({entry(2.0, foreca), entry(1.0, ow)}),
       recordOf({entry(1.0, ow), entry(2.0, foreca)})},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.why);
    const TripCacheRecord merged = mergedRecord(row.existing, row.incoming);
    EXPECT_EQ(merged.removalOrder, row.expected.removalOrder);
    ASSERT_EQ(merged.entries.size(), row.expected.entries.size());
    for (std::size_t i = 0; i < merged.entries.size(); ++i) {
      SCOPED_TRACE(i);
      EXPECT_EQ(merged.entries[i].operationOrder, row.expected.entries[i].operationOrder);
      EXPECT_EQ(merged.entries[i].requestedProvider, row.expected.entries[i].requestedProvider);
      EXPECT_EQ(merged.entries[i].cachedWeather.weather.current.dt,
                row.expected.entries[i].cachedWeather.weather.current.dt);
      EXPECT_EQ(merged.entries[i].requestedLocation, row.expected.entries[i].requestedLocation);
    }
  }
}

// Racing writers meet under the lock in either order; both orders must give one record.
TEST(MergedRecordTest, EveryCommitOrderOfOneSetOfOperationsEndsAtTheSameRecord) {
  // Apple's fetch began before the removal; both ow fetches after it, the later one with the
  // older observation.
  const std::vector<TripCacheRecord> operations = {
      recordOf({entry(1.0, WeatherDataSource::ow, 1000.0)}),
      recordOf({entry(2.0, WeatherDataSource::foreca, 1100.0)}),
      recordOf({entry(3.0, WeatherDataSource::ow, 900.0)}),
      recordOf({}, stamp(0.5)),
      recordOf({entry(0.2, WeatherDataSource::apple, 5000.0)}),
  };
  std::vector<std::size_t> order(operations.size());
  for (std::size_t i = 0; i < order.size(); ++i) order[i] = i;
  std::optional<TripCacheRecord> first;
  int permutations = 0;
  do {
    std::optional<TripCacheRecord> disk;
    for (std::size_t index : order) disk = mergedRecord(disk, operations[index]);
    if (!first) first = disk;
    EXPECT_EQ(disk, first) << "permutation " << permutations;
    ++permutations;
  } while (std::next_permutation(order.begin(), order.end()));
  EXPECT_EQ(permutations, 120);
  ASSERT_EQ(first->entries.size(), 2u);
  EXPECT_EQ(first->removalOrder, stamp(0.5));
  EXPECT_EQ(first->entries[0].operationOrder, stamp(3.0));
  EXPECT_EQ(first->entries[0].cachedWeather.weather.current.dt, Date::fromReference(1000.0));
  EXPECT_EQ(first->entries[1].requestedProvider, WeatherDataSource::foreca);
}

TEST(TripCacheRecordJsonTest, FormatsOldAndNew) {
  TripCacheRecord record = recordOf({entry(2.0, WeatherDataSource::ow), entry(3.0, {})}, stamp(1.0));
  const std::string text = encodeTripCacheRecord(record, Date::fromReference(1000.0));
  EXPECT_EQ(text.rfind(R"({"version":1,"entries":[{"cachedWeather":{"name":"Lisboa",)", 0), 0u) << text.substr(0, 80);
  EXPECT_NE(text.find(R"("requestedLocation":{"latitude":38.7223,"longitude":-9.1393},"requestedProvider":"ow",)"
                      R"("operationOrder":{"startedAt":2.0,"tieBreaker":"11111111-1111-1111-1111-111111111111"}})"),
            std::string::npos);
  EXPECT_NE(text.find(R"(],"removalOrder":{"startedAt":1.0,)"), std::string::npos);
  EXPECT_EQ(decodeTripCacheRecord(text), record);

  // The oldest format: a bare CachedWeather is one entry with the legacy stamp.
  const CachedWeather bare = weatherAt(kLisbon, 500.0);
  const TripCacheRecord oldest = decodeTripCacheRecord(encodeCachedWeather(bare, Date::fromReference(0.0)));
  EXPECT_EQ(oldest, recordOf({TripCacheEntry{bare, kLisbon, std::nullopt, TripCacheOperationOrder::legacy()}}));

  struct Bad {
    const char* json;
    const char* message;
  };
  const Bad bad[] = {
      {R"({"version":2,"entries":[]})", "version: Unsupported trip cache record version 2"},
      {R"({"entries":{}})", "entries: expected an array"},
      {R"({"entries":[],"removalOrder":{"startedAt":1,"tieBreaker":"nope"}})", "removalOrder.tieBreaker: not a UUID"},
      {R"({"entries":[{"operationOrder":{"startedAt":1,"tieBreaker":"11111111-1111-1111-1111-111111111111"}}]})",
       "entries[0].cachedWeather: missing key"},
  };
  for (const Bad& row : bad) {
    SCOPED_TRACE(row.json);
    try {
      decodeTripCacheRecord(row.json);
      ADD_FAILURE() << "decoded";
    } catch (const DecodingError& error) {
      EXPECT_NE(std::string(error.what()).find(row.message), std::string::npos) << error.what();
    }
  }
  // A missing requested place reads as the observed one; versionless records are version 1.
  std::string noRequested = encodeTripCacheRecord(recordOf({entry(2.0, {})}), Date::fromReference(0.0));
  const auto from = noRequested.find(R"("requestedLocation")");
  noRequested.erase(from, noRequested.find(R"("operationOrder")") - from);
  noRequested.erase(0, std::string(R"({"version":1,)").size());
  noRequested.insert(0, "{");
  EXPECT_EQ(decodeTripCacheRecord(noRequested), recordOf({entry(2.0, {})}));

  const std::vector<std::pair<Uuid, TripCacheRecord>> legacy = {
      {idOf("B0000000-0000-0000-0000-000000000000"), record},
      {idOf("A0000000-0000-0000-0000-000000000000"), recordOf({})}};
  EXPECT_EQ(decodeLegacyTripCache(encodeLegacyTripCache(legacy, Date::fromReference(0.0))), legacy);
  EXPECT_THROW(decodeLegacyTripCache(R"(["B0000000-0000-0000-0000-000000000000"])"), DecodingError);
}

// -- The store in one process, and across processes --------------------------------------------

class TripCacheStoreTest : public ScratchFolderTest {
 protected:
  fs::path caches() const { return dir_ / "Library" / "Caches"; }
  fs::path fileOf(const Uuid& id) const { return caches() / "TripCache" / (id.text() + ".json"); }
  std::unique_ptr<WeatherCache> makeCache() {
    return std::make_unique<WeatherCache>(caches(), clock_, runtime().executor());
  }
  std::exception_ptr store(WeatherCache& cache, std::vector<TripCacheWrite> writes) {
    return errorOf(runtime(), cache.store(std::move(writes)));
  }
  std::exception_ptr remove(WeatherCache& cache, const Uuid& id) {
    return errorOf(runtime(), cache.removeTripCache(id));
  }
  std::optional<TripCacheRecord> onDisk(const Uuid& id) const {
    auto bytes = readFileIfExists(fileOf(id));
    if (!bytes) return std::nullopt;
    return decodeTripCacheRecord(*bytes);
  }
  TripCacheOperationOrder now() const { return TripCacheOperationOrder::begin(Date::fromSystem(clock_.now())); }

  // Made on first use: the tests that fork must fork before any runtime thread exists, as a
  // thread still starting up can hold the allocator's lock that the child then waits on forever.
  Runtime& runtime() {
    if (!runtime_) runtime_.emplace(2);
    return *runtime_;
  }

  std::optional<Runtime> runtime_;
  FakeClock clock_;
  const Uuid trip_ = idOf("E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
};

TEST_F(TripCacheStoreTest, StoresReadsAndSeesTheOtherProcesssWrites) {
  auto app = makeCache();
  auto widget = makeCache();
  std::atomic<int> changes{0};
  app->onWillChange([&changes] { ++changes; });
  const TripCacheOperationOrder first = now();
  ASSERT_EQ(store(*app, {TripCacheWrite{trip_, weatherAt(kLisbon, 1000.0), WeatherDataSource::ow, first}}), nullptr);
  EXPECT_TRUE(fs::exists(fileOf(trip_)));
  EXPECT_TRUE(fs::exists(coordinationFilePath(fileOf(trip_))));
  EXPECT_TRUE(eventually([&] { return changes >= 1; }));

  const WeatherCache::TripCacheStore screens(*widget);
  EXPECT_EQ(screens.cachedWeather(trip_, northOf(kLisbon, 150.0)), weatherAt(kLisbon, 1000.0));
  EXPECT_EQ(screens.cachedWeather(trip_, northOf(kLisbon, 200.0)), std::nullopt);
  EXPECT_EQ(widget->cachedWeather(trip_, kLisbon, false, WeatherDataSource::foreca), std::nullopt);
  EXPECT_EQ(widget->cachedWeather(idOf("00000000-0000-0000-0000-00000000000F"), kLisbon, false, {}), std::nullopt);

  // A write with nothing new leaves the file and its date alone.
  const auto date = fileModificationDate(fileOf(trip_));
  std::this_thread::sleep_for(10ms);
  ASSERT_EQ(store(*widget, {TripCacheWrite{trip_, weatherAt(kLisbon, 1000.0), WeatherDataSource::ow, first}}), nullptr);
  EXPECT_EQ(fileModificationDate(fileOf(trip_)), date);

  // The widget adds a foreca fetch; the application reloads on the moved file date. The newest
  // observation wins a read for any provider.
  std::this_thread::sleep_for(10ms);
  ASSERT_EQ(store(*widget, {TripCacheWrite{trip_, weatherAt(kLisbon, 1200.0), WeatherDataSource::foreca, now()}}),
            nullptr);
  EXPECT_EQ(app->cachedWeather(trip_, kLisbon, false, {})->requestedProvider, WeatherDataSource::foreca);
  EXPECT_EQ(app->cachedWeather(trip_, kLisbon, false, WeatherDataSource::ow)->cachedWeather.weather.current.dt,
            Date::fromReference(1000.0));
  EXPECT_EQ(onDisk(trip_)->entries.size(), 2u);
}

TEST_F(TripCacheStoreTest, RemovalBeatsAFetchThatBeganBeforeItButNotOneThatBeganAfter) {
  auto app = makeCache();
  auto widget = makeCache();
  const TripCacheOperationOrder before = now();
  clock_.advance(1s);
  ASSERT_EQ(remove(*app, trip_), nullptr);
  const auto tombstone = onDisk(trip_);
  ASSERT_TRUE(tombstone && tombstone->removalOrder);
  EXPECT_TRUE(tombstone->entries.empty());

  // The widget's slow fetch finishes after the removal: it shows nowhere.
  ASSERT_EQ(store(*widget, {TripCacheWrite{trip_, weatherAt(kLisbon, 1000.0), WeatherDataSource::ow, before}}),
            nullptr);
  EXPECT_EQ(widget->cachedWeather(trip_, kLisbon, true, {}), std::nullopt);
  EXPECT_EQ(app->cachedWeather(trip_, kLisbon, true, {}), std::nullopt);
  EXPECT_EQ(onDisk(trip_), tombstone);

  clock_.advance(1s);
  ASSERT_EQ(store(*widget, {TripCacheWrite{trip_, weatherAt(kLisbon, 1000.0), WeatherDataSource::ow, now()}}), nullptr);
  EXPECT_NE(app->cachedWeather(trip_, kLisbon, false, {}), std::nullopt);
  EXPECT_EQ(onDisk(trip_)->removalOrder, tombstone->removalOrder);
}

TEST_F(TripCacheStoreTest, CorruptOrFutureFilesReadAsNothingAndAreOverwritten) {
  auto cache = makeCache();
  const char* contents[] = {R"({"version":2,"entries":[]})", "{\"entries\":[", ""};
  for (const char* content : contents) {
    SCOPED_TRACE(content);
    writeFileAtomically(fileOf(trip_), content);
    EXPECT_EQ(cache->cachedWeather(trip_, kLisbon, true, {}), std::nullopt);
    clock_.advance(1s);
    ASSERT_EQ(store(*cache, {TripCacheWrite{trip_, weatherAt(kLisbon, 1000.0), WeatherDataSource::ow, now()}}),
              nullptr);
    ASSERT_TRUE(onDisk(trip_));
    EXPECT_EQ(onDisk(trip_)->entries.size(), 1u);
    fs::remove(fileOf(trip_));
  }

  // A bare CachedWeather (the oldest format) reads as one entry, and a real write replaces it.
  writeFileAtomically(fileOf(trip_), encodeCachedWeather(weatherAt(kLisbon, 5000.0), Date::fromReference(0.0)));
  EXPECT_EQ(cache->cachedWeather(trip_, kLisbon, false, {})->operationOrder, TripCacheOperationOrder::legacy());
  ASSERT_EQ(store(*cache, {TripCacheWrite{trip_, weatherAt(kLisbon, 1000.0), WeatherDataSource::ow, now()}}), nullptr);
  const auto record = onDisk(trip_);
  ASSERT_EQ(record->entries.size(), 1u);
  EXPECT_EQ(record->entries[0].requestedProvider, WeatherDataSource::ow);
}

TEST_F(TripCacheStoreTest, AFileDateEarlierThanMemoryCausesNoReload) {
  auto cache = makeCache();
  ASSERT_EQ(store(*cache, {TripCacheWrite{trip_, weatherAt(kLisbon, 1000.0), WeatherDataSource::ow, now()}}), nullptr);
  // Somebody puts different bytes in place with an older date: memory stands.
  const auto date = fileModificationDate(fileOf(trip_));
  writeFileAtomically(fileOf(trip_), encodeTripCacheRecord(recordOf({}), Date::fromReference(0.0)));
  const auto older = fs::file_time_type::clock::from_sys(date->toSystem() - 1h);
  fs::last_write_time(fileOf(trip_), std::chrono::time_point_cast<fs::file_time_type::duration>(older));
  ASSERT_LT(*fileModificationDate(fileOf(trip_)), *date);
  EXPECT_NE(cache->cachedWeather(trip_, kLisbon, false, {}), std::nullopt);
  EXPECT_EQ(makeCache()->cachedWeather(trip_, kLisbon, false, {}), std::nullopt);
}

TEST_F(TripCacheStoreTest, FailedWriteStaysVisibleInThisProcessUntilTheDiskTakesIt) {
  auto cache = makeCache();
  // A folder where the trip file should be: every commit of this trip fails.
  fs::create_directories(fileOf(trip_) / "blocker");
  std::atomic<int> changes{0};
  cache->onWillChange([&changes] { ++changes; });
  const CachedWeather fetched = weatherAt(kLisbon, 1000.0);
  const std::exception_ptr error = store(*cache, {TripCacheWrite{trip_, fetched, WeatherDataSource::ow, now()}});
  ASSERT_NE(error, nullptr);
  EXPECT_FALSE(isCancellationError(error));
  EXPECT_EQ(cache->cachedWeather(trip_, kLisbon, true, {})->cachedWeather, fetched);
  EXPECT_EQ(cache->cachedWeather(trip_, kLisbon, false, {}), std::nullopt);
  EXPECT_TRUE(eventually([&] { return changes >= 1; }));

  // The disk recovers; the next write absorbs the fallback.
  fs::remove_all(fileOf(trip_));
  clock_.advance(1s);
  ASSERT_EQ(store(*cache, {TripCacheWrite{trip_, weatherAt(kLisbon, 1000.0), WeatherDataSource::foreca, now()}}),
            nullptr);
  EXPECT_EQ(onDisk(trip_)->entries.size(), 1u);
  EXPECT_EQ(cache->cachedWeather(trip_, kLisbon, true, WeatherDataSource::ow)->cachedWeather, fetched);
}

TEST_F(TripCacheStoreTest, LegacyDictionaryIsReadAtOnceAndMigratedByTheFirstWrite) {
  const Uuid other = idOf("0B0A0000-0000-0000-0000-000000000000");
  const std::vector<std::pair<Uuid, TripCacheRecord>> legacy = {{trip_, recordOf({entry(1.0, {}, 800.0)})},
                                                                {other, recordOf({entry(1.0, {}, 700.0)})}};
  writeFileAtomically(caches() / "latestTripCache", encodeLegacyTripCache(legacy, Date::fromReference(0.0)));
  auto cache = makeCache();
  EXPECT_EQ(cache->cachedWeather(other, kLisbon, false, {})->cachedWeather.weather.current.dt,
            Date::fromReference(700.0));

  // A file that cannot be replaced in the way: the migration fails, the write goes to the
  // fallback, and reads go on from the legacy dictionary.
  fs::create_directories(fileOf(other) / "blocker");
  ASSERT_NE(store(*cache, {TripCacheWrite{trip_, weatherAt(kLisbon, 900.0), WeatherDataSource::ow, now()}}), nullptr);
  EXPECT_TRUE(fs::exists(caches() / "latestTripCache"));
  EXPECT_EQ(cache->cachedWeather(other, kLisbon, false, {})->cachedWeather.weather.current.dt,
            Date::fromReference(700.0));
  EXPECT_EQ(cache->cachedWeather(trip_, kLisbon, true, WeatherDataSource::ow)->cachedWeather.weather.current.dt,
            Date::fromReference(900.0));

  fs::remove_all(fileOf(other));
  clock_.advance(1s);
  ASSERT_EQ(store(*cache, {TripCacheWrite{trip_, weatherAt(kLisbon, 950.0), WeatherDataSource::ow, now()}}), nullptr);
  EXPECT_FALSE(fs::exists(caches() / "latestTripCache"));
  EXPECT_EQ(onDisk(other), legacy[1].second);
  const auto record = onDisk(trip_);
  ASSERT_EQ(record->entries.size(), 1u);  // the ow entry replaced the older provider-less one
  EXPECT_EQ(record->entries[0].cachedWeather.weather.current.dt, Date::fromReference(950.0));
}

TEST_F(TripCacheStoreTest, CancelledStoreKeepsNoFallbackAndStaysACancellation) {
  auto cache = makeCache();
  // Hold the trip file's lock so the store waits, then cancel it.
  prepareCoordinationFile(coordinationFilePath(fileOf(trip_)));
  auto held = CoordinationLock::tryAcquire(coordinationFilePath(fileOf(trip_)));
  ASSERT_TRUE(held);
  auto started =
      startTask(runtime().executor(),
                cache->store({TripCacheWrite{trip_, weatherAt(kLisbon, 1000.0), WeatherDataSource::ow, now()}}));
  // Memory runs ahead of the disk while the write waits.
  EXPECT_TRUE(eventually([&] { return cache->cachedWeather(trip_, kLisbon, false, {}).has_value(); }));
  started.task.cancel();
  ASSERT_EQ(started.outcome.wait_for(10s), std::future_status::ready);
  EXPECT_TRUE(isCancellationError(started.outcome.get()));
  EXPECT_EQ(cache->cachedWeather(trip_, kLisbon, true, {}), std::nullopt);
  EXPECT_FALSE(fs::exists(fileOf(trip_)));
}

// -- Real processes ----------------------------------------------------------------------------

// One operation of a child process: a write with the given stamp, or a removal at the given time.
struct ChildOperation {
  double at;
  std::optional<WeatherDataSource> write;  // nothing: a removal
  double dt = 1000.0;
};

void runInChild(const fs::path& caches, const Uuid& id, const ChildOperation& operation) {
  Runtime runtime(1);
  FakeClock clock(Date::fromReference(operation.at).toSystem());
  WeatherCache cache(caches, clock, runtime.executor());
  if (operation.write) {
    std::vector<TripCacheWrite> writes{
        TripCacheWrite{id, weatherAt(kLisbon, operation.dt), *operation.write, stamp(operation.at)}};
    runtime.runBlocking(cache.store(std::move(writes)));
  } else {
    runtime.runBlocking(cache.removeTripCache(id));
  }
}

TEST_F(TripCacheStoreTest, ProcessesCommittingInEveryOrderAgreeOnTheRecord) {
  // A fetch begun before the removal, and two after it (the later with the older observation):
  // the stamps decide, never the order of the commits.
  const ChildOperation operations[] = {
      {3.0, WeatherDataSource::apple, 2000.0},
      {5.0, std::nullopt},
      {10.0, WeatherDataSource::ow, 1000.0},
      {30.0, WeatherDataSource::ow, 900.0},
  };
  std::vector<int> order = {0, 1, 2, 3};
  std::optional<TripCacheRecord> agreed;
  int runs = 0;
  do {
    SCOPED_TRACE(testing::Message() << "order " << order[0] << order[1] << order[2] << order[3]);
    fs::remove_all(caches());
    for (int index : order) {
      ForkedChild child([&] { runInChild(caches(), trip_, operations[index]); });
      ASSERT_TRUE(child.runAndWait());
    }
    auto record = onDisk(trip_);
    ASSERT_TRUE(record);
    // Tie-breakers of removals are random: compare the tombstone by date only.
    ASSERT_TRUE(record->removalOrder);
    EXPECT_EQ(record->removalOrder->startedAt, Date::fromReference(5.0));
    record->removalOrder.reset();
    if (!agreed) agreed = record;
    EXPECT_EQ(record, agreed);
    ++runs;
  } while (std::next_permutation(order.begin(), order.end()));
  EXPECT_EQ(runs, 24);
  ASSERT_EQ(agreed->entries.size(), 1u);
  EXPECT_EQ(agreed->entries[0].requestedProvider, WeatherDataSource::ow);
  EXPECT_EQ(agreed->entries[0].operationOrder, stamp(30.0));
  EXPECT_EQ(agreed->entries[0].cachedWeather.weather.current.dt, Date::fromReference(1000.0));
}

TEST_F(TripCacheStoreTest, ConcurrentProcessesKeepEachOthersNewsAndAKilledWriterLosesNothing) {
  // Two processes at once, one provider each, many rounds: both providers' newest fetch stays.
  constexpr int kRounds = 20;
  auto writer = [&](WeatherDataSource provider, double offset) {
    Runtime runtime(1);
    FakeClock clock;
    WeatherCache cache(caches(), clock, runtime.executor());
    for (int round = 0; round < kRounds; ++round) {
      std::vector<TripCacheWrite> writes{
          TripCacheWrite{trip_, weatherAt(kLisbon, 1000.0 + round), provider, stamp(round * 10.0 + offset)}};
      runtime.runBlocking(cache.store(std::move(writes)));
    }
  };
  // A third process writes apple forever and is killed while the others run. All three are forked
  // before this process starts a thread.
  ForkedChild doomed([&] {
    Runtime runtime(1);
    FakeClock clock;
    WeatherCache cache(caches(), clock, runtime.executor());
    for (int round = 0;; ++round) {
      std::vector<TripCacheWrite> writes{
          TripCacheWrite{trip_, weatherAt(kLisbon, 500.0 + round), WeatherDataSource::apple, stamp(round * 0.001)}};
      runtime.runBlocking(cache.store(std::move(writes)));
    }
  });
  ForkedChild a([&] { writer(WeatherDataSource::ow, 1.0); });
  ForkedChild b([&] { writer(WeatherDataSource::foreca, 2.0); });
  doomed.release();
  ASSERT_TRUE(eventually([&] {
    try {
      const auto record = onDisk(trip_);
      return record && !record->entries.empty();
    } catch (const DecodingError&) {
      return false;
    }
  }));
  a.release();
  b.release();
  std::this_thread::sleep_for(20ms);
  EXPECT_EQ(a.wait(), 0);
  EXPECT_EQ(b.wait(), 0);
  EXPECT_EQ(doomed.kill(), 128 + SIGKILL);

  // The killed writer left no lock and no torn file: this process commits and reads.
  EXPECT_TRUE(CoordinationLock::tryAcquire(coordinationFilePath(fileOf(trip_))).has_value());
  auto cache = makeCache();
  const auto record = onDisk(trip_);
  ASSERT_TRUE(record);
  ASSERT_EQ(record->entries.size(), 3u);
  EXPECT_EQ(record->entries[0].requestedProvider, WeatherDataSource::apple);
  EXPECT_EQ(record->entries[1].operationOrder, stamp((kRounds - 1) * 10.0 + 1.0));
  EXPECT_EQ(record->entries[2].operationOrder, stamp((kRounds - 1) * 10.0 + 2.0));
  EXPECT_EQ(cache->cachedWeather(trip_, kLisbon, false, WeatherDataSource::foreca)->cachedWeather.weather.current.dt,
            Date::fromReference(1000.0 + kRounds - 1));
  ASSERT_EQ(store(*cache, {TripCacheWrite{trip_, weatherAt(kLisbon, 5000.0), WeatherDataSource::ow, stamp(1e6)}}),
            nullptr);
  EXPECT_EQ(onDisk(trip_)->entries.size(), 3u);
}

}  // namespace
}  // namespace ombrine
