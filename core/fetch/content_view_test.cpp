#include "core/fetch/content_view.hpp"

#include <gtest/gtest.h>

#include <deque>
#include <mutex>
#include <variant>

#include "core/values/errors.hpp"
#include "platform/runtime.hpp"
#include "platform/testing/async_testing.hpp"
#include "platform/testing/fake_clock.hpp"

namespace ombrine {
namespace {

using namespace std::chrono_literals;

// A record whose `current.dt` tells the tests which fetch delivered it.
OneCallWeather recordAt(double currentDt, double firstDay = 0.0) {
  OneCallWeather weather;
  weather.current.dt = Date::fromReference(currentDt);
  OneCallWeather::Daily day;
  day.dt = Date::fromReference(firstDay);
  weather.daily.push_back(day);
  return weather;
}

// A provider whose answers the test scripts: a record, a failure, or a fetch parked until the
// test releases it (a parked fetch honours cancellation).
class ScriptedProviders final : public ForecastProviders {
 public:
  struct Park {};
  using Step = std::variant<OneCallWeather, std::exception_ptr, Park>;
  struct Call {
    ProviderPath path;
    Location location;
  };

  void script(Step step) {
    std::lock_guard lock(mutex_);
    steps_.push_back(std::move(step));
  }
  std::size_t calls() const {
    std::lock_guard lock(mutex_);
    return calls_.size();
  }
  Call call(std::size_t i) const {
    std::lock_guard lock(mutex_);
    return calls_.at(i);
  }
  std::size_t cancelledFetches() const {
    std::lock_guard lock(mutex_);
    return cancelled_;
  }
  // Resumes parked fetch `i` (in order of parking) with a record.
  bool release(std::size_t i, OneCallWeather weather) {
    std::shared_ptr<Slot> slot;
    {
      std::lock_guard lock(mutex_);
      if (i >= parked_.size()) return false;
      slot = parked_[i];
    }
    return slot->resume(Outcome<OneCallWeather>::success(std::move(weather)));
  }
  std::size_t parked() const {
    std::lock_guard lock(mutex_);
    return parked_.size();
  }

  Task<OneCallWeather> fetch(ProviderPath path, ProviderRequest request) override {
    Step step = recordAt(0, 1);
    {
      std::lock_guard lock(mutex_);
      calls_.push_back(Call{path, request.location});
      if (!steps_.empty()) {
        step = std::move(steps_.front());
        steps_.pop_front();
      }
    }
    if (auto* error = std::get_if<std::exception_ptr>(&step)) std::rethrow_exception(*error);
    if (auto* weather = std::get_if<OneCallWeather>(&step)) co_return *weather;
    auto slot = std::make_shared<Slot>();
    {
      std::lock_guard lock(mutex_);
      parked_.push_back(slot);
    }
    auto install = [slot](Continuation<OneCallWeather> continuation) { slot->hold(std::move(continuation)); };
    auto onCancel = [this, slot] {
      if (slot->resume(Outcome<OneCallWeather>::failure(std::make_exception_ptr(CancellationError())))) {
        std::lock_guard lock(mutex_);
        ++cancelled_;
      }
    };
    co_return co_await suspend<OneCallWeather>(install, onCancel);
  }

 private:
  struct Slot {
    std::mutex mutex;
    Continuation<OneCallWeather> continuation;
    std::optional<Outcome<OneCallWeather>> early;
    void hold(Continuation<OneCallWeather> c) {
      std::unique_lock lock(mutex);
      if (early) {
        auto outcome = std::move(*early);
        early.reset();
        lock.unlock();
        c.resume(std::move(outcome));
        return;
      }
      continuation = std::move(c);
    }
    bool resume(Outcome<OneCallWeather> outcome) {
      std::unique_lock lock(mutex);
      if (!continuation) {
        if (early) return false;
        early = std::move(outcome);
        return true;
      }
      auto c = std::move(continuation);
      lock.unlock();
      c.resume(std::move(outcome));
      return true;
    }
  };

  mutable std::mutex mutex_;
  std::deque<Step> steps_;
  std::vector<Call> calls_;
  std::vector<std::shared_ptr<Slot>> parked_;
  std::size_t cancelled_ = 0;
};

class FixedNamer final : public CoordinateNamer {
 public:
  Task<GeoDetails> name(Location) override {
    GeoDetails details;
    details.name = "Testplace";
    details.region = Region{region};
    co_return details;
  }
  std::string region = "DE";
};

// The cache as the pipeline sees it; the freshness and backdrop verdicts are the test's to set
// (their rules are the cache's own and tested there), the distance gate is the pipeline's.
class MemoryCache final : public LatestWeatherStore {
 public:
  std::optional<PlacedWeather> latest() override {
    std::lock_guard lock(mutex);
    return stored;
  }
  bool isFresh(const OneCallWeather&, Date) const override { return fresh; }
  bool isUsableBackdrop(const PlacedWeather&, const Location&, Date) const override { return backdrop; }
  Task<void> storeLatest(PlacedWeather placed) override {
    std::lock_guard lock(mutex);
    stored = std::move(placed);
    ++writes;
    co_return;
  }
  // An older record near by that stands in on screen, so a fetch publishes without the pause.
  void offerBackdrop() {
    std::lock_guard lock(mutex);
    stored = PlacedWeather{"Backdrop", Location(48.137, 11.575), std::nullopt, recordAt(10)};
    backdrop = true;
  }
  std::mutex mutex;
  std::optional<PlacedWeather> stored;
  std::atomic<bool> fresh = false;
  std::atomic<bool> backdrop = false;
  std::atomic<int> writes = 0;
};

class CountingWidgets final : public WidgetCenter {
 public:
  void reloadAllTimelines() override { ++reloads; }
  std::atomic<int> reloads = 0;
};

const Location kMunich{48.137, 11.575};

// A point `metres` north of `from`.
Location north(const Location& from, double metres) {
  return Location(from.latitude() + metres / 111195.0, from.longitude());
}

struct Harness {
  FakeClock clock;
  Runtime runtime{2};
  ScriptedProviders providers;
  SessionProviderSettings settings{WeatherDataSource::foreca};
  NetworkManager network{providers, settings, clock};
  FixedNamer namer;
  MemoryCache cache;
  CountingWidgets widgets;
  std::mutex traceMutex;
  std::vector<std::string> traces;
  std::atomic<int> failures = 0;
  std::unique_ptr<ContentView> view;

  explicit Harness(int changesToday = 0) {
    ContentView::Hooks hooks;
    hooks.trace = [this](std::string_view line) {
      std::lock_guard lock(traceMutex);
      traces.emplace_back(line);
    };
    hooks.log = [](std::string_view) {};
    hooks.fetchFailed = [this](std::exception_ptr) { ++failures; };
    hooks.changesToday = [changesToday] { return changesToday; };
    ContentView::Dependencies deps{clock, network, namer, cache, settings, &widgets};
    view = std::make_unique<ContentView>(runtime.makeStrand(), deps, hooks);
  }
  template <class F>
  auto onMain(F f) {
    using R = decltype(f(*view));
    std::promise<R> result;
    auto future = result.get_future();
    view->post([&](ContentView& v) { result.set_value(f(v)); });
    return future.get();
  }
  ~Harness() {
    view->post([](ContentView& v) { v.shutdown(); });
    EXPECT_TRUE(eventually([&] { return onMain([](ContentView& v) { return v.idle(); }); }));
    view.reset();
  }

  void event(std::function<void(ContentView&)> f) {
    view->post(std::move(f));
    settle();
  }
  // Lets posted work run: a round trip through the main context, twice (a resumed task posts).
  void settle() {
    for (int i = 0; i < 3; ++i) onMain([](ContentView&) { return 0; });
  }
  ContentViewState state() { return view->snapshot(); }
  bool idleWithoutRequest() {
    const bool idle = eventually(
        [&] {
          auto s = state();
          return !s.activeFetchRequest && !s.isFetchingData;
        },
        std::chrono::seconds(3));
    if (!idle) {
      std::lock_guard lock(traceMutex);
      for (const auto& line : traces) ADD_FAILURE() << "trace: " << line;
    }
    return idle;
  }
  int requests() {
    std::lock_guard lock(traceMutex);
    return static_cast<int>(std::count_if(traces.begin(), traces.end(), [](const std::string& t) {
      return t.rfind("request ", 0) == 0 && t.find("finished") == std::string::npos;
    }));
  }
  // Starts the first fetch for Munich and has the provider park it (after any steps scripted
  // before); true once it waits.
  bool parkFirstFetch() {
    providers.script(ScriptedProviders::Park{});
    event([](ContentView& v) {
      v.sceneBecameActive();
      v.locationChanged(kMunich);
    });
    return eventually([&] { return providers.parked() == 1; });
  }
  // Runs the first fetch for Munich to its end (through the first-appearance pause).
  void firstFetch(double dt = 1000) {
    providers.script(recordAt(dt, 1));
    event([](ContentView& v) {
      v.sceneBecameActive();
      v.locationChanged(kMunich);
    });
    ASSERT_TRUE(clock.waitForSleepers(1));
    clock.advance(ContentView::kFirstAppearancePause);
    ASSERT_TRUE(idleWithoutRequest());
  }
};

TEST(ContentViewTest, DuplicateRequestsStartOneFetchAndAForcedOneReplacesIt) {
  Harness h;
  h.providers.script(ScriptedProviders::Park{});
  ASSERT_TRUE(h.parkFirstFetch());
  h.event([](ContentView& v) {
    v.requestFetch(false);
    v.requestFetch(false);
  });
  EXPECT_EQ(h.providers.calls(), 1u) << "a running request absorbs unforced ones";
  const auto first = h.state();
  ASSERT_TRUE(first.activeFetchRequest);
  EXPECT_EQ(first.lastFetchOwnerRequestID, first.activeFetchRequest->id);

  h.event([](ContentView& v) { v.refreshGesture(); });
  ASSERT_TRUE(eventually([&] { return h.providers.parked() == 2; }));
  EXPECT_EQ(h.providers.cancelledFetches(), 1u) << "the replaced request's fetch is cancelled";
  const auto second = h.state();
  ASSERT_TRUE(second.activeFetchRequest);
  EXPECT_NE(second.activeFetchRequest->id, first.activeFetchRequest->id);
  EXPECT_TRUE(second.activeFetchRequest->force);
  EXPECT_EQ(second.lastFetchOwnerRequestID, second.activeFetchRequest->id)
      << "the cancelled request's lastFetch was dropped, so the new one was never blocked";

  ASSERT_TRUE(h.providers.release(1, recordAt(2000, 1)));
  ASSERT_TRUE(h.clock.waitForSleepers(1)) << "first appearance pauses before publishing";
  EXPECT_FALSE(h.state().currentWeather);
  EXPECT_EQ(h.state().placeholderWeather, recordAt(2000, 1));
  h.clock.advance(ContentView::kFirstAppearancePause);
  ASSERT_TRUE(h.idleWithoutRequest());
  const auto done = h.state();
  EXPECT_EQ(done.currentWeather, recordAt(2000, 1));
  EXPECT_EQ(done.name, "Testplace");
  EXPECT_TRUE(done.lastFetch);
  EXPECT_FALSE(done.lastFetchOwnerRequestID) << "a good fetch keeps lastFetch but not its owner";
  EXPECT_EQ(h.cache.writes.load(), 1);

  // The widgets reload 750 ms after the good fetch, not before.
  ASSERT_TRUE(h.clock.waitForSleepers(1));
  h.clock.advance(749ms);
  h.settle();
  EXPECT_EQ(h.widgets.reloads.load(), 0);
  h.clock.advance(1ms);
  EXPECT_TRUE(eventually([&] { return h.widgets.reloads.load() == 1; }));
}

TEST(ContentViewTest, GatesOfAMoveByDistanceFreshnessAndInterval) {
  struct Row {
    const char* why;
    double secondsLater;
    double moveMetres;
    bool cachedFresh;
    bool expectNetwork;
  };
  const Row rows[] = {
      {"fresh record 1.5 km away is reused", 400, 1500, true, false},
      {"just under 2 km is still reused", 400, 1990, true, false},
      {"3 km from a fresh record refetches", 400, 3000, true, true},
      {"a stale record near by refetches", 400, 1500, false, true},
      {"within 300 s an unforced fetch is held back", 100, 1500, false, false},
      {"299 s later it is still held back", 299, 1500, false, false},
      {"a move over 4 km forces past the interval", 100, 4100, false, true},
      {"a move just under 4 km does not force", 100, 3990, false, false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    Harness h;
    h.firstFetch();
    ASSERT_EQ(h.providers.calls(), 1u);
    h.clock.advance(std::chrono::duration_cast<std::chrono::steady_clock::duration>(
        std::chrono::duration<double>(row.secondsLater)));
    h.cache.fresh = row.cachedFresh;
    const Location moved = north(kMunich, row.moveMetres);
    h.event([moved](ContentView& v) { v.locationChanged(moved); });
    ASSERT_TRUE(h.idleWithoutRequest());
    EXPECT_EQ(h.providers.calls(), row.expectNetwork ? 2u : 1u);
  }
}

TEST(ContentViewTest, SceneActivationDuringAFetchGivesOneFurtherRequestUnlessCancelled) {
  {
    Harness h;
    ASSERT_TRUE(h.parkFirstFetch());
    h.event([](ContentView& v) {
      v.sceneBecameActive();
      v.networkPathChanged(false);
      v.networkPathChanged(true);
    });
    EXPECT_EQ(h.requests(), 1);
    h.cache.offerBackdrop();  // publish without the first-appearance pause
    ASSERT_TRUE(h.providers.release(0, recordAt(1000)));
    ASSERT_TRUE(h.idleWithoutRequest());
    EXPECT_EQ(h.requests(), 2) << "exactly one recovery request";
    EXPECT_EQ(h.providers.calls(), 1u) << "and the interval gate held it back";
  }
  {
    Harness h;
    ASSERT_TRUE(h.parkFirstFetch());
    h.event([](ContentView& v) { v.sceneBecameActive(); });
    h.cache.offerBackdrop();
    h.event([](ContentView& v) { v.refreshGesture(); });  // cancels the first, drops its wish
    ASSERT_TRUE(h.idleWithoutRequest());
    EXPECT_EQ(h.requests(), 2) << "the cancelled request's wish is not carried over";
    EXPECT_EQ(h.providers.cancelledFetches(), 1u);
  }
}

TEST(ContentViewTest, CompletionRacingCancellationNeverPublishesTheOldRecord) {
  Harness h;
  h.cache.offerBackdrop();
  h.providers.script(ScriptedProviders::Park{});
  h.providers.script(recordAt(2000));
  h.event([](ContentView& v) {
    v.sceneBecameActive();
    v.locationChanged(kMunich);
  });
  ASSERT_TRUE(eventually([&] { return h.providers.parked() == 1; }));
  // The old fetch completes and is replaced in one turn of the main context: its resumption is
  // already queued when the refresh cancels it.
  h.event([&](ContentView& v) {
    h.providers.release(0, recordAt(1000));
    v.refreshGesture();
  });
  ASSERT_TRUE(h.idleWithoutRequest());
  const auto s = h.state();
  EXPECT_EQ(s.currentWeather, recordAt(2000));
  EXPECT_EQ(h.cache.stored->weather, recordAt(2000));
  EXPECT_EQ(h.cache.writes.load(), 1);
}

TEST(ContentViewTest, FailuresKeepTheRecordAndSetTheIntervalByKind) {
  struct Row {
    const char* why;
    std::exception_ptr error;
    bool apiLimit;
    bool lastFetchKept;
  };
  const Row rows[] = {
      {"429 keeps lastFetch so the interval protects the provider",
       std::make_exception_ptr(NetworkError(NetworkError::exceededApiLimit)), true, true},
      {"a generic failure lets the next unforced fetch run at once",
       std::make_exception_ptr(DomainError(kRequestErrorDomain, kRequestErrorCode)), false, false},
      {"too little data is generic too", std::make_exception_ptr(NetworkError(NetworkError::invalidResponse)), false,
       false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    Harness h;
    h.firstFetch(1000);
    h.clock.advance(400s);
    const auto request = h.settings.requestImmediateFetch(WeatherDataSource::ow);
    h.providers.script(row.error);
    h.event([](ContentView& v) { v.immediateProviderRequestBecameRelevant(); });
    ASSERT_TRUE(h.idleWithoutRequest());
    auto s = h.state();
    EXPECT_EQ(s.currentWeather, recordAt(1000, 1)) << "the old record stays";
    EXPECT_EQ(s.hasHitAPILimit, row.apiLimit);
    EXPECT_EQ(s.isShowingAPILimitSorryMessage, row.apiLimit);
    EXPECT_EQ(s.lastFetch.has_value(), row.lastFetchKept);
    EXPECT_FALSE(s.lastFetchOwnerRequestID);
    EXPECT_FALSE(h.settings.pendingImmediateWeatherProviderFetchRequest()) << "completed on failure too";
    EXPECT_EQ(h.failures.load(), 1);

    h.event([](ContentView& v) { v.requestFetch(false); });
    ASSERT_TRUE(h.idleWithoutRequest());
    EXPECT_EQ(h.providers.calls(), row.lastFetchKept ? 2u : 3u);
    h.event([](ContentView& v) { v.refreshGesture(); });
    ASSERT_TRUE(h.idleWithoutRequest());
    EXPECT_EQ(h.providers.calls(), row.lastFetchKept ? 3u : 4u) << "a forced refresh always sends a request";
    (void)request;
  }
}

TEST(ContentViewTest, ImmediateProviderRequestFetchesWithItsProviderAndLeavesThePreference) {
  Harness h;
  h.firstFetch(1000);
  EXPECT_EQ(h.providers.call(0).path, ProviderPath::foreca);
  h.cache.fresh = true;  // would end an unforced fetch; the immediate request forces past it
  h.providers.script(ScriptedProviders::Park{});
  const auto request = h.settings.requestImmediateFetch(WeatherDataSource::ow);
  h.event([](ContentView& v) { v.immediateProviderRequestBecameRelevant(); });
  ASSERT_TRUE(eventually([&] { return h.providers.parked() == 1; }));
  const auto running = h.state().activeFetchRequest;
  ASSERT_TRUE(running);
  EXPECT_TRUE(running->force);
  EXPECT_EQ(running->provider, WeatherDataSource::ow);
  EXPECT_EQ(running->immediateProviderFetchRequestID, request.id);
  EXPECT_EQ(h.providers.call(1).path, ProviderPath::openWeather);

  h.event([](ContentView& v) { v.requestFetch(false); });
  EXPECT_EQ(h.state().activeFetchRequest, running) << "the same immediate request does not restart";

  ASSERT_TRUE(h.providers.release(0, recordAt(3000, 1)));
  ASSERT_TRUE(h.idleWithoutRequest());
  EXPECT_FALSE(h.settings.pendingImmediateWeatherProviderFetchRequest());
  EXPECT_EQ(h.settings.dataSource(), WeatherDataSource::foreca);
  EXPECT_EQ(h.state().currentWeather, recordAt(3000, 1)) << "same first day as the placeholder: no pause";
}

TEST(ContentViewTest, RecoversAfterACancelledFetch) {
  Harness h;
  ASSERT_TRUE(h.parkFirstFetch());
  h.event([](ContentView& v) { v.shutdown(); });
  ASSERT_TRUE(h.idleWithoutRequest());
  auto s = h.state();
  EXPECT_FALSE(s.lastFetch) << "the cancelled fetch owned lastFetch";
  EXPECT_FALSE(s.fetchRecoveryState.pendingRequestID);
  EXPECT_EQ(h.providers.cancelledFetches(), 1u);
}

TEST(ContentViewRulesTest, DataSourceChangeForcesOnlyWithinTheDailyLimit) {
  struct Row {
    std::optional<WeatherDataSource> cached;
    bool pending;
    int changesToday;
    bool expectForce;
  };
  const Row rows[] = {
      {WeatherDataSource::foreca, false, 0, true},    // first change of the day refetches
      {WeatherDataSource::foreca, false, 14, true},   // the last change under the limit
      {WeatherDataSource::foreca, false, 15, false},  // at the limit no longer
      {WeatherDataSource::foreca, false, 16, false},  // two devices, 8 + 8
      {WeatherDataSource::ow, false, 0, false},       // the cached record is from the choice already
      {WeatherDataSource::foreca, true, 0, false},    // an immediate request is pending
      {std::nullopt, false, 0, true},                 // nothing cached yet
  };
  for (const auto& r : rows) {
    SCOPED_TRACE(testing::Message() << "changesToday=" << r.changesToday << " pending=" << r.pending);
    EXPECT_EQ(dataSourceChangeForcesRefetch(r.cached, WeatherDataSource::ow, r.pending, r.changesToday), r.expectForce);
  }
}

TEST(ContentViewRulesTest, ResolvedFetchLocationFallsBackOnlyWhenDenied) {
  const Location last{1, 1}, home{2, 2}, favourite{3, 3};
  using A = LocationAuthorization;
  struct Row {
    A authorization;
    std::optional<Location> last, home, favourite, expected;
  };
  const Row rows[] = {
      {A::authorized, last, home, favourite, last},
      {A::authorized, std::nullopt, home, favourite, std::nullopt},  // no fallback while allowed
      {A::denied, last, home, favourite, home},
      {A::denied, last, std::nullopt, favourite, favourite},
      {A::denied, last, std::nullopt, std::nullopt, last},
      {A::notDetermined, std::nullopt, home, std::nullopt, std::nullopt},
  };
  for (const auto& r : rows) {
    EXPECT_EQ(resolvedFetchLocation(LocationInputs{r.authorization, r.last, r.home, r.favourite}), r.expected);
  }
}

TEST(ContentViewRulesTest, ShownRecordIsTheNewerWithTheCurrentWinningTies) {
  ContentViewState state;
  const PlacedWeather backdrop{"Backdrop", kMunich, std::nullopt, recordAt(500)};
  EXPECT_FALSE(shownWeather(state, std::nullopt));
  EXPECT_TRUE(shownWeather(state, backdrop)->fromBackdrop);
  state.currentWeather = recordAt(500);
  state.name = "Current";
  EXPECT_FALSE(shownWeather(state, backdrop)->fromBackdrop) << "equal dt: the current record";
  state.currentWeather = recordAt(499);
  EXPECT_EQ(shownWeather(state, backdrop)->name, "Backdrop");
  EXPECT_EQ(shownWeather(state, std::nullopt)->name, "Current");
}

TEST(WeatherFetchRecoveryStateTest, NoteConsumeCancel) {
  WeatherFetchRecoveryState recovery;
  const auto a = Uuid::random(), b = Uuid::random();
  EXPECT_TRUE(recovery.note(std::nullopt));
  EXPECT_FALSE(recovery.note(a));
  EXPECT_FALSE(recovery.consume(b));
  EXPECT_TRUE(recovery.consume(a));
  EXPECT_FALSE(recovery.consume(a)) << "consumed once";
  recovery.note(a);
  EXPECT_FALSE(recovery.cancel(a));
  EXPECT_FALSE(recovery.pendingRequestID);
}

}  // namespace
}  // namespace ombrine
