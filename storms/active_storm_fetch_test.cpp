// The storm fetch against the simulated NHC and JTWC services on loopback, at chosen moments of
// the simulated season (sim/storm_season.hpp), with faults injected.

#include "storms/active_storm_fetch.hpp"

#include <gtest/gtest.h>

#include <algorithm>

#include "platform/errors.hpp"
#include "platform/linux/curl_http_client.hpp"
#include "platform/runtime.hpp"
#include "platform/testing/async_testing.hpp"
#include "platform/testing/fake_clock.hpp"
#include "sim/pinned_clock.hpp"
#include "sim/sim_server.hpp"
#include "storms/storm_overlay_plan.hpp"

namespace ombrine {
namespace {

using namespace std::chrono_literals;
using C = ActiveStormCoverage;

// A simulated season begins every 240 hours from the epoch; this one starts on 2026-09-04.
const Clock::WallTime kCycleStart{std::chrono::seconds(1788480000)};

Clock::WallTime atHour(int hour) { return kCycleStart + std::chrono::hours(hour) + 40min; }

class StormFetchTest : public ::testing::Test {
 protected:
  void startAt(int hour) {
    fetcher_.reset();
    http_.reset();
    sim_.reset();
    clock_.emplace(atHour(hour));
    sim::SimServer::Options options;
    options.clock = &*clock_;
    sim_ = std::make_unique<sim::SimServer>(options);
    http_ = std::make_unique<CurlHttpClient>();
    fetcher_ = std::make_unique<ActiveStormFetcher>(*http_, ServiceEndpoints::simulator(sim_->baseUrl()), *clock_);
  }

  ActiveStormsResult fetch() { return runtime_.runBlocking(fetcher_->fetchWithCoverage(wholeCoverage())); }

  static const Storm* find(const std::vector<Storm>& storms, std::string_view id) {
    auto it = std::find_if(storms.begin(), storms.end(), [&](const Storm& s) { return s.id == id; });
    return it == storms.end() ? nullptr : &*it;
  }

  // The client goes before the server: a server stopping with the client's idle keep-alive
  // connections still open waits for them to time out.
  std::optional<sim::PinnedClock> clock_;
  std::unique_ptr<sim::SimServer> sim_;
  Runtime runtime_{2};
  std::unique_ptr<CurlHttpClient> http_;
  std::unique_ptr<ActiveStormFetcher> fetcher_;
};

TEST_F(StormFetchTest, RenumberedInvestMergesIntoTheNHCStorm) {
  startAt(45);  // NHC already has CP01, JTWC still calls it invest 91C
  const auto result = fetch();
  EXPECT_EQ(result.completeCoverage, wholeCoverage());
  ASSERT_EQ(result.storms.size(), 3u);
  EXPECT_EQ(result.storms[0].id, "al052026");
  const Storm* iona = find(result.storms, "cp012026");
  ASSERT_TRUE(iona);
  EXPECT_EQ(iona->alternateIDs, std::set<std::string>{"CP9126"});
  const Storm* lanlan = find(result.storms, "WP0626");
  ASSERT_TRUE(lanlan);
  EXPECT_EQ(lanlan->name, "Lanlan");
  EXPECT_EQ(lanlan->classification.code(), "HU");
  EXPECT_TRUE(lanlan->pressure.has_value());
  EXPECT_EQ(lanlan->coneURL, lanlan->trackURL);
}

TEST_F(StormFetchTest, StormsNHCListsAreNotFetchedFromJTWC) {
  startAt(100);
  const auto result = fetch();
  EXPECT_EQ(result.completeCoverage, wholeCoverage());
  EXPECT_EQ(result.storms.size(), 4u);  // Ernesto, Iona, Kiko from NHC; Lanlan from JTWC
  EXPECT_TRUE(find(result.storms, "ep092026"));
  for (const auto& request : sim_->requestLog()) {
    EXPECT_EQ(request.path.find("ep0926"), std::string::npos) << request.path;
    EXPECT_EQ(request.path.find("cp0126"), std::string::npos) << request.path;
  }
  EXPECT_EQ(sim_->requestCount("jtwc.warning"), 1u);
  EXPECT_EQ(sim_->requestCount("jtwc.kmz"), 1u);
}

TEST_F(StormFetchTest, CoverageAndFailedSources) {
  struct Row {
    const char* why;
    int hour;
    std::vector<std::pair<const char*, const char*>> faults;
    std::size_t storms;
    bool trusted;
    ActiveStormCoverageSet missing;
  };
  const Row rows[] = {
      {"quiet season: nothing active", 230, {}, 0, true, {}},
      {"quiet season, RSS down: no data", 230, {{"jtwc.rss", "status=503"}}, 0, false, jtwcCoverage()},
      {"RSS answers a web page", 230, {{"jtwc.rss", "error200"}}, 0, false, jtwcCoverage()},
      {"NHC down keeps the JTWC storms", 100, {{"nhc.storms", "status=500"}}, 3, true, nhcCoverage()},
      {"a truncated KMZ: the warning text still places the storm", 100, {{"jtwc.kmz", "malformed"}}, 4, true, {}},
      {"a KMZ cut off mid-transfer", 100, {{"jtwc.kmz", "truncate"}}, 4, true, {}},
      {"a failed warning withdraws only its basin",
       100,
       {{"jtwc.warning", "status=500"}},
       3,
       true,
       {C::jtwcWestPacific}},
      {"both down", 100, {{"nhc.storms", "status=503"}, {"jtwc.rss", "status=503"}}, 0, false, wholeCoverage()},
      {"every JTWC route down", 100, {{"jtwc.*", "status=503"}}, 3, true, jtwcCoverage()},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    startAt(row.hour);
    for (const auto& [route, spec] : row.faults) sim_->setFault(std::string(route) + "=" + spec);
    const auto result = fetch();
    EXPECT_EQ(result.storms.size(), row.storms);
    ActiveStormCoverageSet expected = wholeCoverage();
    for (auto area : row.missing) expected.erase(area);
    EXPECT_EQ(result.completeCoverage, expected);
    const auto error =
        errorOf(runtime_, [](ActiveStormFetcher& f) -> Task<void> { co_await f.fetchActiveStorms(); }(*fetcher_));
    EXPECT_EQ(error == nullptr, row.trusted) << messageOf(error);
  }
}

TEST_F(StormFetchTest, AFailedRefreshKeepsTheLastGoodList) {
  startAt(100);
  ActiveStormList list(*fetcher_, *clock_);
  const auto first = runtime_.runBlocking(list.refresh());
  EXPECT_EQ(first.storms.size(), 4u);
  sim_->setFault("nhc.storms=status=503");
  sim_->setFault("jtwc.rss=status=503");
  EXPECT_THROW(runtime_.runBlocking(list.refresh()), ActiveStormFetchError);
  EXPECT_EQ(list.snapshot().storms.size(), 4u);
  EXPECT_EQ(list.snapshot().lastSuccess, first.lastSuccess);
}

TEST_F(StormFetchTest, AnOlderRefreshFinishingLastDoesNotWin) {
  startAt(100);
  FakeClock listClock(atHour(100));
  ActiveStormList list(*fetcher_, listClock);
  sim_->setFault("nhc.storms=latency=600,times=1");
  const auto slow =
      startTask(runtime_.executor(), [](ActiveStormList& l) -> Task<void> { co_await l.refresh(); }(list));
  ASSERT_TRUE(eventually([&] { return sim_->requestCount("nhc.storms") == 1; }, 5s));
  runtime_.runBlocking(list.refresh());  // started later, finished first
  const auto published = list.snapshot().lastSuccess;
  listClock.advance(1h);
  EXPECT_EQ(slow.outcome.get(), nullptr);
  EXPECT_EQ(list.snapshot().lastSuccess, published);
}

TEST_F(StormFetchTest, CancellationIsNeverSwallowed) {
  // Cancelled while each kind of request is in flight, including those whose other failures
  // are swallowed (a source wrapper, a storm of the walk, a KMZ that would only be missed).
  for (const char* route : {"nhc.storms", "jtwc.rss", "jtwc.warning", "jtwc.kmz"}) {
    SCOPED_TRACE(route);
    startAt(100);
    sim_->setFault(std::string(route) + "=latency=3000");
    const auto started = startTask(
        runtime_.executor(), [](ActiveStormFetcher& f) -> Task<void> { co_await f.fetchActiveStorms(); }(*fetcher_));
    ASSERT_TRUE(eventually([&] { return sim_->requestCount(route) == 1; }, 5s));
    started.task.cancel();
    EXPECT_TRUE(isCancellationError(started.outcome.get()));
  }
}

TEST_F(StormFetchTest, OverlaysOfBothAgencies) {
  startAt(100);
  const auto storms = fetch().storms;
  const Date now = Date::fromSystem(clock_->now());

  const Storm& iona = *find(storms, "cp012026");  // NHC: cone, track and best track, three files
  const auto overlay = runtime_.runBlocking(loadStormOverlay(*http_, iona, now));
  EXPECT_EQ(overlay.cone.size(), 1u);
  EXPECT_GE(overlay.forecastPoints.size(), 5u);
  EXPECT_EQ(overlay.forecastPoints.front().forecastHour, "current");
  EXPECT_EQ(overlay.forecastPoints[1].forecastHour, "12");
  EXPECT_GE(overlay.historyPoints.size(), 10u);
  EXPECT_TRUE(overlay.historyPoints.back().time.has_value());
  EXPECT_EQ(sim_->requestCount("nhc.cone") + sim_->requestCount("nhc.track") + sim_->requestCount("nhc.besttrack"), 3u);
  // Iona crossed the date line: its past track is drawn without a jump.
  std::vector<KMLCoordinate> past;
  for (const auto& p : overlay.historyPoints) past.push_back(p.coordinate);
  const auto drawn = continuousAcrossDateLine(past);
  EXPECT_LT(drawn.back().longitude, -180.0);
  for (std::size_t i = 1; i < drawn.size(); ++i) EXPECT_LT(std::abs(drawn[i].longitude - drawn[i - 1].longitude), 5.0);

  const Storm& lanlan = *find(storms, "WP0626");  // JTWC: one file for every role
  const auto before = sim_->requestCount("jtwc.kmz");
  const auto typhoon = runtime_.runBlocking(loadStormOverlay(*http_, lanlan, now));
  EXPECT_EQ(sim_->requestCount("jtwc.kmz"), before + 1);
  EXPECT_EQ(typhoon.cone.size(), 1u);  // the wind radius shape is not a cone
  EXPECT_FALSE(typhoon.historyPoints.empty());
  EXPECT_EQ(typhoon.forecastPoints.front().forecastHour, "current");
  ASSERT_TRUE(typhoon.trackBridge);
  EXPECT_EQ(typhoon.trackBridge->forecastPoint.forecastHour, "current");
}

}  // namespace
}  // namespace ombrine
