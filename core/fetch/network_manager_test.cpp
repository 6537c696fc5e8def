#include "core/fetch/network_manager.hpp"

#include <gtest/gtest.h>

#include <mutex>

#include "core/values/errors.hpp"
#include "platform/runtime.hpp"
#include "platform/testing/async_testing.hpp"
#include "platform/testing/fake_clock.hpp"

namespace ombrine {
namespace {

using namespace std::chrono_literals;

// Records the paths asked for; the system weather service fails when told to.
class RecordingProviders final : public ForecastProviders {
 public:
  Task<OneCallWeather> fetch(ProviderPath path, ProviderRequest request) override {
    {
      std::lock_guard lock(mutex);
      paths.push_back(path);
      handedCachedRecord = request.freshCachedRecord.has_value();
    }
    if (path == ProviderPath::systemWeather && systemFailure) std::rethrow_exception(systemFailure);
    if (clock) co_await clock->sleep(1s);
    OneCallWeather weather;
    weather.isPlaceholder = placeholder;
    co_return weather;
  }
  std::mutex mutex;
  std::vector<ProviderPath> paths;
  bool handedCachedRecord = false;
  std::exception_ptr systemFailure;
  bool placeholder = false;
  FakeClock* clock = nullptr;
};

class ScriptedTides final : public TideFetcher {
 public:
  Task<Tides> tideData(Location, Region) override {
    ++calls;
    if (clock) co_await clock->sleep(5s);
    if (failure) std::rethrow_exception(failure);
    co_return tides;
  }
  std::atomic<int> calls = 0;
  Tides tides;
  std::exception_ptr failure;
  FakeClock* clock = nullptr;
};

TEST(NetworkManagerTest, DispatchesBySourceAndRegionWithTheSystemWeatherFallBack) {
  using P = ProviderPath;
  using S = WeatherDataSource;
  struct Row {
    std::optional<S> source;
    const char* region;
    bool systemFails;
    std::vector<P> expected;
  };
  const auto failure = std::make_exception_ptr(DomainError(kRequestErrorDomain, kRequestErrorCode));
  const Row rows[] = {
      {S::dynamic, "DE", false, {P::foreca}},
      {S::dynamic, "CN", false, {P::systemWeather}},
      {S::dynamic, "CN", true, {P::systemWeather, P::foreca}},  // silent fall-back in China
      {S::dynamic, "QA", true, {P::systemWeather, P::foreca}},
      {S::dynamic, "AU", false, {P::bureauOfMeteorologyMerged}},
      {S::apple, "CN", true, {P::systemWeather}},  // no fall-back when chosen
      {S::apple, "DE", false, {P::systemWeather}},
      {S::foreca, "CN", false, {P::foreca}},
      {S::ow, "AU", false, {P::openWeather}},
      {std::nullopt, "DE", false, {P::openWeather}},  // the stored preference
  };
  Runtime runtime(2);
  for (const auto& row : rows) {
    SCOPED_TRACE(row.region);
    RecordingProviders providers;
    if (row.systemFails) providers.systemFailure = failure;
    SessionProviderSettings settings(S::ow);
    FakeClock clock;
    NetworkManager network(providers, settings, clock);
    auto fetch = [&]() -> Task<void> {
      co_await network.fetchOneCall(Location(1, 1), Region{row.region}, TimeZone::gmt(), row.source, true);
    };
    const auto error = errorOf(runtime, fetch());
    EXPECT_EQ(providers.paths, row.expected);
    EXPECT_EQ(error != nullptr, row.systemFails && row.source == S::apple);
  }
}

TEST(NetworkManagerTest, TidesJoinAGoodRecordOnlyAndNeverFailTheFetch) {
  struct Row {
    const char* why;
    bool includeTides;
    bool placeholder;
    bool tideFails;
    bool expectTides;
  };
  const Row rows[] = {
      {"tides found are set", true, false, false, true},
      {"not asked for: no tide task", false, false, false, false},
      {"a placeholder keeps what the provider gave", true, true, false, false},
      {"a tide failure keeps the forecast", true, false, true, false},
  };
  Runtime runtime(2);
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    RecordingProviders providers;
    providers.placeholder = row.placeholder;
    ScriptedTides tides;
    tides.tides.emplace();
    if (row.tideFails) tides.failure = std::make_exception_ptr(std::runtime_error("tide service down"));
    SessionProviderSettings settings;
    FakeClock clock;
    NetworkManager network(providers, settings, clock, {.tides = &tides});
    auto weather = runtime.runBlocking(network.fetchOneCall(Location(1, 1), Region{"DE"}, TimeZone::gmt(),
                                                            WeatherDataSource::foreca, row.includeTides));
    EXPECT_EQ(weather.tideData.has_value(), row.expectTides);
    EXPECT_EQ(tides.calls.load(), row.includeTides ? 1 : 0);
  }
}

TEST(NetworkManagerTest, CancellationWaitsForTheTideTaskAndStaysACancellation) {
  FakeClock clock;
  Runtime runtime(2);
  RecordingProviders providers;
  providers.clock = &clock;
  ScriptedTides tides;
  tides.clock = &clock;
  SessionProviderSettings settings;
  NetworkManager network(providers, settings, clock, {.tides = &tides});
  auto fetch = [&]() -> Task<void> {
    co_await network.fetchOneCall(Location(1, 1), Region{"DE"}, TimeZone::gmt(), WeatherDataSource::foreca, true);
  };
  auto started = startTask(runtime.executor(), fetch());
  ASSERT_TRUE(clock.waitForSleepers(2)) << "forecast and tides run at once";
  started.task.cancel();
  const auto error = started.outcome.get();
  EXPECT_TRUE(isCancellationError(error)) << messageOf(error);
  EXPECT_EQ(clock.pendingSleepers(), 0u) << "the tide child ended before the fetch did";
}

}  // namespace
}  // namespace ombrine

namespace ombrine {
namespace {

// A cache holding one record whose freshness the row decides.
class OneRecordCache final : public LatestWeatherStore {
 public:
  std::optional<PlacedWeather> latest() override { return record; }
  bool isFresh(const OneCallWeather&, Date) const override { return fresh; }
  bool isUsableBackdrop(const PlacedWeather&, const Location&, Date) const override { return false; }
  Task<void> storeLatest(PlacedWeather) override { co_return; }
  std::optional<PlacedWeather> record;
  bool fresh = false;
};

TEST(NetworkManagerTest, HandsOnlyAFreshCachedRecordToTheProvider) {
  struct Row {
    const char* why;
    bool stored;
    bool fresh;
    bool expectHanded;
  };
  const Row rows[] = {
      {"a fresh record reaches the provider's short-cut", true, true, true},
      {"a stale record never does", true, false, false},
      {"nothing cached", false, true, false},
  };
  Runtime runtime(2);
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    RecordingProviders providers;
    OneRecordCache cache;
    if (row.stored) cache.record = PlacedWeather{"Munich", Location(1, 1), Region{"DE"}, OneCallWeather{}};
    cache.fresh = row.fresh;
    SessionProviderSettings settings;
    FakeClock clock;
    NetworkManager network(providers, settings, clock, {.cache = &cache});
    runtime.runBlocking(
        network.fetchOneCall(Location(1, 1), Region{"DE"}, TimeZone::gmt(), WeatherDataSource::foreca, false));
    EXPECT_EQ(providers.handedCachedRecord, row.expectHanded);
  }
}

}  // namespace
}  // namespace ombrine
