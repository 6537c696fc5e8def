// The envelope loader against the simulated fire services on loopback.
#include "fires/fire_map_loader.hpp"

#include <gtest/gtest.h>

#include <algorithm>

#include "platform/linux/curl_http_client.hpp"
#include "platform/runtime.hpp"
#include "platform/testing/fake_clock.hpp"
#include "sim/pinned_clock.hpp"
#include "sim/sim_server.hpp"

namespace ombrine {
namespace {

using namespace std::chrono_literals;

const Clock::WallTime kNow{std::chrono::seconds(1784894400)};  // 2026-07-24T12:00:00Z

class FireMapLoaderTest : public ::testing::Test {
 protected:
  FireMapLoaderTest() : simClock_(kNow), clock_(kNow) {
    sim::SimServer::Options options;
    options.clock = &simClock_;
    sim_ = std::make_unique<sim::SimServer>(options);
    endpoints_ = ServiceEndpoints::simulator(sim_->baseUrl());
    http_ = std::make_unique<CurlHttpClient>();
    cooldowns_ = std::make_unique<FireProviderCooldownStore>(runtime_.makeStrand(),
                                                             std::vector<std::string>{"arcgis.com", "127.0.0.1"});
    bc_ = std::make_unique<BCWildfireEnrichmentCache>(runtime_.makeStrand(), *http_, clock_, *cooldowns_,
                                                      endpoints_.bcMapServices, "wildfiresituation.nrs.gov.bc.ca");
    loader_ = std::make_unique<FireMapLoader>(*http_, clock_, endpoints_, *cooldowns_, snapshots_, *bc_, 400ms);
  }

  FireMapLoad load(double latitude, double longitude, double radius = 300) {
    return runtime_.runBlocking(loader_->load(fireEnvelopeAround(latitude, longitude, radius)));
  }

  static const FireServiceReport& service(const FireMapLoad& load, std::string_view name) {
    return *std::find_if(load.services.begin(), load.services.end(), [&](const auto& s) { return s.service == name; });
  }

  template <class Record>
  static int count(const std::vector<Record>& records, std::string_view name) {
    return static_cast<int>(
        std::count_if(records.begin(), records.end(), [&](const auto& r) { return r.name == name; }));
  }

  sim::PinnedClock simClock_;
  FakeClock clock_;
  std::unique_ptr<sim::SimServer> sim_;
  ServiceEndpoints endpoints_;
  Runtime runtime_{2};
  std::unique_ptr<CurlHttpClient> http_;
  std::unique_ptr<FireProviderCooldownStore> cooldowns_;
  FireProviderSnapshots snapshots_;
  std::unique_ptr<BCWildfireEnrichmentCache> bc_;
  std::unique_ptr<FireMapLoader> loader_;
};

TEST_F(FireMapLoaderTest, NorthernCaliforniaMergesTheProvidersAndWalksPages) {
  const auto load = this->load(39.5, -121.5);
  const auto& data = load.data;
  EXPECT_EQ(data.completeIncidentSources,
            (std::set<FireMapSource>{FireMapSource::unitedStates, FireMapSource::canada}));
  EXPECT_EQ(data.completePerimeterSources, data.completeIncidentSources);
  EXPECT_TRUE(data.incidentFailureReasons.empty());
  // The Dixon Fire is in NIFC ("Dixon") and CAL FIRE ("Dixon Fire"): one incident, one perimeter.
  EXPECT_EQ(count(data.incidents, "Dixon"), 1);
  EXPECT_EQ(count(data.incidents, "Dixon Fire"), 0);
  EXPECT_EQ(count(data.perimeters, "Dixon"), 1);
  EXPECT_EQ(count(data.perimeters, "Dixon Fire"), 0);
  EXPECT_EQ(count(data.incidents, "Cedar Fire"), 1);  // CAL FIRE alone
  EXPECT_EQ(count(data.perimeters, "Cedar Fire"), 1);
  EXPECT_EQ(count(data.incidents, "Oak Fire"), 0);  // one acre
  EXPECT_EQ(count(data.incidents, "Peavine"), 0);   // not active on the current layer
  const auto gold =
      std::find_if(data.perimeters.begin(), data.perimeters.end(), [](auto& p) { return p.name == "Gold Creek"; });
  ASSERT_NE(gold, data.perimeters.end());
  EXPECT_EQ(gold->polygons.size(), 2u);  // the spot fire
  const auto dixon =
      std::find_if(data.perimeters.begin(), data.perimeters.end(), [](auto& p) { return p.name == "Dixon"; });
  EXPECT_EQ(dixon->polygons[0].interiors.size(), 1u);
  const auto rx =
      std::find_if(data.incidents.begin(), data.incidents.end(), [](auto& i) { return i.name == "Sagehen RX"; });
  ASSERT_NE(rx, data.incidents.end());
  EXPECT_EQ(rx->type, FireIncidentType::prescribedFire());
  // NIFC's perimeter layer holds three a page: the walk asked for a second one.
  bool secondPage = false;
  for (const auto& record : sim_->requestLog()) {
    if (record.route != "nifc.perimeters") continue;
    for (const auto& [key, value] : record.query) secondPage = secondPage || (key == "resultOffset" && value == "3");
  }
  EXPECT_TRUE(secondPage);
  // CAL FIRE's perimeter view was asked in three phases: discovery and the missions (four
  // members, three a page: two pages each), then the two current shapes.
  EXPECT_EQ(sim_->requestCount("calfire.perimeters"), 5u);
  EXPECT_EQ(service(load, "CAL FIRE perimeters").recordCount, 2u);
}

TEST_F(FireMapLoaderTest, AFailingServiceStaysLocal) {
  using R = FireFetchFailureReason;
  struct Case {
    std::vector<const char*> faults;  // the first one's route is the one counted
    const char* service;
    FireFetchFailureReason reason;
    bool snapshot;           // a snapshot of the previous load stands in
    size_t requestsOfRoute;  // requests the faulted route saw in the failed load
  };
  const Case cases[] = {
      {{"nifc.current=error200", "nifc.yeartodate=error200"}, "NIFC incidents", R::transient(), true, 2},
      {{"nifc.perimeters=status=429"}, "NIFC perimeters", R::rateLimited(1), true, 1},
      {{"calfire.incidents=status=429,retry-after=none"}, "CAL FIRE incidents", R::rateLimited(60), true, 1},
      {{"calfire.perimeters=status=404"}, "CAL FIRE perimeters", R::permanent(), true, 1},
      {{"cwfis.activefires=status=503,retry-after=none"}, "CWFIS active fires", R::transient(), false, 1},
      {{"nifc.perimeters=hang=2000"}, "NIFC perimeters", R::transient(), true, 2},
      {{"calfire.incidents=truncate"}, "CAL FIRE incidents", R::transient(), true, 2},
      {{"cwfis.perimeters=malformed"}, "CWFIS perimeters", R::transient(), false, 1},
  };
  const auto healthy = load(39.5, -121.5);
  for (const auto& c : cases) {
    SCOPED_TRACE(c.faults.front());
    clock_.advance(2h);  // past every cooldown of the previous case
    sim_->clearFaults();
    for (const char* fault : c.faults) sim_->setFault(fault);
    sim_->clearRequestLog();
    const auto failed = load(39.5, -121.5);
    const auto& report = service(failed, c.service);
    EXPECT_FALSE(report.isComplete);
    EXPECT_EQ(report.failureReason, c.reason);
    EXPECT_EQ(report.hasCompleteSnapshot, c.snapshot);
    const std::string route(c.faults.front());
    EXPECT_EQ(sim_->requestCount(route.substr(0, route.find('='))), c.requestsOfRoute);
    if (c.snapshot) EXPECT_EQ(report.recordCount, service(healthy, c.service).recordCount);
    for (const auto& other : failed.services) {
      if (other.service != c.service) EXPECT_TRUE(other.isComplete) << other.service;
    }
  }
}

TEST_F(FireMapLoaderTest, CooldownsAndTheYearToDateLayer) {
  sim_->setFault("calfire.incidents=status=429,retry-after=600");
  auto first = load(39.5, -121.5);
  EXPECT_EQ(service(first, "CAL FIRE incidents").failureReason, FireFetchFailureReason::rateLimited(600));
  EXPECT_EQ(first.data.incidentFailureReasons.at(FireMapSource::unitedStates),
            FireFetchFailureReason::rateLimited(600));
  sim_->clearFaults();
  clock_.advance(100s);
  auto second = load(39.5, -121.5);  // still cooling down: not asked
  EXPECT_EQ(service(second, "CAL FIRE incidents").failureReason, FireFetchFailureReason::rateLimited(500));
  EXPECT_EQ(sim_->requestCount("calfire.incidents"), 1u);
  // A renamed current layer: the year-to-date layer answers, its lagging "active" flag ignored.
  sim_->setFault("nifc.current=status=404");
  clock_.advance(600s);
  auto third = load(39.5, -121.5);
  EXPECT_TRUE(service(third, "NIFC incidents").isComplete);
  EXPECT_EQ(count(third.data.incidents, "Peavine"), 1);
  EXPECT_EQ(sim_->requestCount("nifc.yeartodate"), 1u);
}

TEST_F(FireMapLoaderTest, BritishColumbiaNamesTheirFires) {
  auto load = this->load(50.5, -120.5);
  const auto& incidents = load.data.incidents;
  auto named = [&](std::string_view name) {
    return std::find_if(incidents.begin(), incidents.end(), [&](auto& i) { return i.name == name; });
  };
  ASSERT_NE(named("Tranquille Creek"), incidents.end());
  EXPECT_EQ(named("Tranquille Creek")->controlStatus, FireControlStatus::outOfControl);  // this year's row survived
  EXPECT_EQ(named("Tranquille Creek")->detailsURL->host(), "wildfiresituation.nrs.gov.bc.ca");
  EXPECT_NE(named("Bear Creek"), incidents.end());
  ASSERT_NE(named("3 km S of Hope"), incidents.end());            // a placeholder name gives way to the place
  EXPECT_FALSE(named("3 km S of Hope")->detailsURL.has_value());  // http is refused
  EXPECT_EQ(named("K50077"), incidents.end());                    // out
  EXPECT_EQ(count(incidents, "Tranquille Creek"), 1);
  // Answers are remembered: a second load asks the province nothing.
  load = this->load(50.5, -120.5);
  EXPECT_EQ(sim_->requestCount("bcws.fires"), 1u);
  // The province failing leaves the numbers, and the fires still complete.
  sim_->setFault("bcws.fires=status=500");
  auto far = this->load(53.9, -122.8, 100);
  EXPECT_EQ(count(far.data.incidents, "C10500"), 1);
  EXPECT_TRUE(far.data.completeIncidentSources.count(FireMapSource::canada));
}

}  // namespace
}  // namespace ombrine
