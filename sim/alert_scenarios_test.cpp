#include "sim/alert_scenarios.hpp"

#include <gtest/gtest.h>

namespace ombrine::sim {
namespace {

using namespace std::chrono;

std::vector<std::string> names(const std::vector<ScriptedWarning>& warnings) {
  std::vector<std::string> out;
  for (const auto& w : warnings) out.push_back(w.event + "/" + w.sender.substr(0, 3));
  return out;
}

TEST(AlertScenariosTest, PhasesChangeTheFeedAsScripted) {
  const std::vector<AlertScenarioSite> sites = {{{25.77, -80.19}, std::nullopt}};
  // 2025-06-15T13:30:00Z starts a cycle (90-minute cycles from 1970).
  const Instant cycle = Instant(seconds(1'749'994'200));
  ASSERT_EQ(cycle.time_since_epoch() % minutes(90), seconds(0));
  const GeoPoint miami{25.76, -80.2};
  std::vector<std::vector<ScriptedWarning>> phases;
  for (int phase = 0; phase < kAlertScenarioPhases; ++phase) {
    // Any moment inside the phase gives the same feed.
    const auto early = scriptedWarnings(sites, miami, cycle + phase * kAlertScenarioPhaseLength);
    const auto late = scriptedWarnings(sites, miami, cycle + (phase + 1) * kAlertScenarioPhaseLength - seconds(1));
    ASSERT_TRUE(early);
    EXPECT_EQ(early, late);
    phases.push_back(*early);
  }
  const std::vector<std::vector<std::string>> expected = {
      // clang-format off
      {"Hurricane Warning/NWS", "Flood Watch/NWS"},
      {"Hurricane Warning/NWS", "Flood Watch/NWS", "Rip Current Statement/NWS"},
      {"Rip Current Statement/NWS", "Flood Watch/NWS"},
      {"Hurricane Warning/NWS", "Flood Watch/NWS", "Rip Current Statement/NWS", "Heat Advisory/NWS", "Heat Advisory/Mia"},
      {"Heat Advisory/Mia", "Heat Advisory/NWS", "Hurricane Warning/NWS", "Flood Watch/NWS", "Rip Current Statement/NWS"},
      {"Hurricane Warning/NWS"},
      // clang-format on
  };
  for (int phase = 0; phase < kAlertScenarioPhases; ++phase) EXPECT_EQ(names(phases[phase]), expected[phase]);
  EXPECT_LT(phases[0][0].validUntil, phases[1][0].validUntil);  // the hurricane's end moves
  EXPECT_LT(phases[3][1].validUntil, phases[4][3].validUntil);  // so does the flood watch's
  for (const auto& phase : phases) {
    for (const auto& w : phase) EXPECT_LT(w.issued, cycle);
  }
  // Far from every site: the model's own warnings.
  EXPECT_FALSE(scriptedWarnings(sites, GeoPoint{60.17, 24.94}, cycle));
}

TEST(AlertScenariosTest, SitesFromText) {
  EXPECT_EQ(parseAlertScenarioSites("25.77,-80.19;60.17,24.94,3;"),
            (std::vector<AlertScenarioSite>{{{25.77, -80.19}, std::nullopt}, {{60.17, 24.94}, 3}}));
  const Instant any = Instant(seconds(1'749'994'200));
  const auto pinned = scriptedWarnings(parseAlertScenarioSites("60.17,24.94,5"), GeoPoint{60.2, 24.9}, any);
  ASSERT_TRUE(pinned);
  EXPECT_EQ(pinned->size(), 1u);
  for (const char* bad : {"25", "1,2,3,4", "a,b", "91,0", "1,2,6", "1,2,1.5"}) {
    EXPECT_THROW(parseAlertScenarioSites(bad), std::invalid_argument) << bad;
  }
}

}  // namespace
}  // namespace ombrine::sim
