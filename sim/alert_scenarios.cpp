#include "sim/alert_scenarios.hpp"

#include <charconv>
#include <cmath>
#include <cstdlib>
#include <stdexcept>

namespace ombrine::sim {

using namespace std::chrono;

namespace {

constexpr double kSiteRadiusKm = 60.0;
constexpr const char* kWeatherService = "NWS Miami FL";
constexpr const char* kCounty = "Miami-Dade Emergency Management";

double distanceKm(GeoPoint a, GeoPoint b) {
  constexpr double kRadians = M_PI / 180.0;
  const double dLat = (b.latitude - a.latitude) * kRadians;
  const double dLon = (b.longitude - a.longitude) * kRadians;
  const double h = std::sin(dLat / 2) * std::sin(dLat / 2) + std::cos(a.latitude * kRadians) *
                                                                 std::cos(b.latitude * kRadians) * std::sin(dLon / 2) *
                                                                 std::sin(dLon / 2);
  return 6371.0 * 2 * std::asin(std::min(1.0, std::sqrt(h)));
}

double number(std::string_view text, std::string_view whole) {
  double value = 0.0;
  const auto [ptr, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (text.empty() || error != std::errc() || ptr != text.data() + text.size() || !std::isfinite(value)) {
    throw std::invalid_argument("OMBRINE_SIM_ALERT_PLACES: bad number in \"" + std::string(whole) + "\"");
  }
  return value;
}

}  // namespace

std::vector<AlertScenarioSite> parseAlertScenarioSites(std::string_view text) {
  std::vector<AlertScenarioSite> sites;
  while (!text.empty()) {
    const auto end = text.find(';');
    const std::string_view site = text.substr(0, end);
    text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
    if (site.empty()) continue;
    std::vector<std::string_view> parts;
    for (std::string_view rest = site;;) {
      const auto comma = rest.find(',');
      parts.push_back(rest.substr(0, comma));
      if (comma == std::string_view::npos) break;
      rest = rest.substr(comma + 1);
    }
    if (parts.size() < 2 || parts.size() > 3) {
      throw std::invalid_argument("OMBRINE_SIM_ALERT_PLACES: expected LAT,LON[,PHASE] in \"" + std::string(site) +
                                  "\"");
    }
    AlertScenarioSite parsed{{number(parts[0], site), number(parts[1], site)}, std::nullopt};
    if (std::abs(parsed.centre.latitude) > 90 || std::abs(parsed.centre.longitude) > 180) {
      throw std::invalid_argument("OMBRINE_SIM_ALERT_PLACES: coordinate out of range in \"" + std::string(site) + "\"");
    }
    if (parts.size() == 3) {
      const double phase = number(parts[2], site);
      if (phase < 0 || phase >= kAlertScenarioPhases || phase != std::floor(phase)) {
        throw std::invalid_argument("OMBRINE_SIM_ALERT_PLACES: phase must be 0..5 in \"" + std::string(site) + "\"");
      }
      parsed.pinnedPhase = static_cast<int>(phase);
    }
    sites.push_back(parsed);
  }
  return sites;
}

std::vector<AlertScenarioSite> alertScenarioSitesFromEnvironment() {
  if (const char* text = std::getenv("OMBRINE_SIM_ALERT_PLACES")) return parseAlertScenarioSites(text);
  return {AlertScenarioSite{{25.77, -80.19}, std::nullopt}};
}

std::optional<std::vector<ScriptedWarning>> scriptedWarnings(const std::vector<AlertScenarioSite>& sites,
                                                             GeoPoint point, Instant now) {
  const AlertScenarioSite* site = nullptr;
  for (const auto& candidate : sites) {
    if (distanceKm(candidate.centre, point) <= kSiteRadiusKm) {
      site = &candidate;
      break;
    }
  }
  if (!site) return std::nullopt;
  const auto cycleLength = kAlertScenarioPhaseLength * kAlertScenarioPhases;
  const Instant cycleStart =
      Instant(floor<minutes>(now).time_since_epoch() - floor<minutes>(now).time_since_epoch() % cycleLength);
  const int phase =
      site->pinnedPhase.value_or(static_cast<int>((floor<minutes>(now) - cycleStart) / kAlertScenarioPhaseLength));
  // Every warning was issued before the cycle and began two hours before it.
  const Instant from = cycleStart - hours(2);
  const Instant issued = cycleStart - hours(3);
  const auto warning = [&](const char* event, const char* sender, WarningLevel level, hours until) {
    return ScriptedWarning{event, sender, level, from, cycleStart + until, issued};
  };
  const auto hurricane = [&](hours until) {
    return warning("Hurricane Warning", kWeatherService, WarningLevel::red, until);
  };
  const auto flood = [&](hours until) { return warning("Flood Watch", kWeatherService, WarningLevel::orange, until); };
  const auto rip = warning("Rip Current Statement", kWeatherService, WarningLevel::yellow, hours(20));
  const auto heatService = warning("Heat Advisory", kWeatherService, WarningLevel::orange, hours(10));
  const auto heatCounty = warning("Heat Advisory", kCounty, WarningLevel::orange, hours(11));
  switch (phase) {
    case 0: return std::vector{hurricane(hours(30)), flood(hours(12))};
    case 1: return std::vector{hurricane(hours(36)), flood(hours(12)), rip};
    case 2: return std::vector{rip, flood(hours(12))};
    case 3: return std::vector{hurricane(hours(36)), flood(hours(12)), rip, heatService, heatCounty};
    case 4: return std::vector{heatCounty, heatService, hurricane(hours(36)), flood(hours(18)), rip};
    default: return std::vector{hurricane(hours(36))};
  }
}

}  // namespace ombrine::sim
