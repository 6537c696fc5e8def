#pragma once
// Scripted warnings for chosen places, so that the warning feed of a place goes through every
// change a notification pass must survive: warnings appear, move their end, disappear and come
// back, arrive in another order, and two warnings share an event but not a sender.
//
// The script runs in a cycle of six 15-minute phases of the simulator's clock:
//   0  Hurricane Warning (until the cycle start + 30 h), Flood Watch
//   1  Hurricane Warning now ends at + 36 h; Rip Current Statement appears
//   2  Hurricane Warning gone; Rip Current Statement before Flood Watch
//   3  Hurricane Warning back; Heat Advisory from two senders
//   4  the same five, Heat Advisories first, Flood Watch ending later
//   5  Hurricane Warning alone
// A place runs the script when the requested point lies within 60 km of one of the sites, and
// its warnings replace the model's. By default Miami (25.77, -80.19) follows the clock;
// OMBRINE_SIM_ALERT_PLACES="LAT,LON[,PHASE];..." replaces the list, a PHASE (0..5) pinning the
// site to that phase whatever the time. A malformed list raises std::invalid_argument.

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "sim/weather_model.hpp"

namespace ombrine::sim {

struct ScriptedWarning {
  std::string event;
  std::string sender;
  WarningLevel level = WarningLevel::yellow;
  Instant validFrom;
  Instant validUntil;
  Instant issued;
  bool operator==(const ScriptedWarning&) const = default;
};

struct AlertScenarioSite {
  GeoPoint centre;
  std::optional<int> pinnedPhase;
  bool operator==(const AlertScenarioSite&) const = default;
};

inline constexpr int kAlertScenarioPhases = 6;
inline constexpr std::chrono::minutes kAlertScenarioPhaseLength{15};

// The sites from OMBRINE_SIM_ALERT_PLACES, or Miami.
std::vector<AlertScenarioSite> alertScenarioSitesFromEnvironment();
std::vector<AlertScenarioSite> parseAlertScenarioSites(std::string_view text);

// The scripted warnings at `point` at `now`, in feed order; nothing when no site is near.
std::optional<std::vector<ScriptedWarning>> scriptedWarnings(const std::vector<AlertScenarioSite>& sites,
                                                             GeoPoint point, Instant now);

}  // namespace ombrine::sim
