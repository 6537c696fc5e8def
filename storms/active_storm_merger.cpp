#include "storms/active_storm_merger.hpp"

#include <unicode/uchar.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <cmath>
#include <set>

#include "core/values/location.hpp"
#include "storms/text_pattern.hpp"

namespace ombrine {

namespace {

constexpr double kMetresPerNauticalMile = 1852.0;
constexpr double kMaxDistanceNm = 300.0;
constexpr double kMaxPreferredOlderSeconds = 21600.0;
constexpr double kMaxHoursApart = 48.0;
constexpr double kSlackNm = 125.0;
constexpr double kNoBearingCheckNm = 25.0;
constexpr double kMaxBearingDifference = 45.0;
constexpr double kMaxMotionKnots = 100.0;

bool isValid(StormCoordinate c) {
  return std::isfinite(c.latitude) && std::isfinite(c.longitude) && c.latitude >= -90 && c.latitude <= 90 &&
         c.longitude >= -180 && c.longitude <= 180;
}

struct Motion {
  double direction;
  double speed;
};

std::optional<Motion> usableMotion(const ActiveStormMerger::Identity& identity) {
  if (!identity.movementDir || !identity.movementSpeed) return std::nullopt;
  const double direction = *identity.movementDir;
  const double speed = *identity.movementSpeed;
  if (!std::isfinite(direction) || !std::isfinite(speed) || speed <= 0 || speed > kMaxMotionKnots) return std::nullopt;
  double reduced = std::fmod(direction, 360.0);
  if (reduced < 0) reduced += 360.0;
  return Motion{reduced, speed};
}

bool allDigits(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

}  // namespace

double initialBearing(StormCoordinate from, StormCoordinate to) {
  const double rad = M_PI / 180.0;
  const double lat1 = from.latitude * rad;
  const double lat2 = to.latitude * rad;
  const double dLon = (to.longitude - from.longitude) * rad;
  const double y = std::sin(dLon) * std::cos(lat2);
  const double x = std::cos(lat1) * std::sin(lat2) - std::sin(lat1) * std::cos(lat2) * std::cos(dLon);
  double bearing = std::atan2(y, x) / rad;
  if (bearing < 0) bearing += 360.0;
  return bearing;
}

ActiveStormMerger::Identity ActiveStormMerger::Identity::of(const Storm& storm) {
  return Identity{storm.id, storm.coordinate, storm.lastUpdate, storm.movementDir, storm.movementSpeed};
}

std::string ActiveStormMerger::normalizedIdentifier(std::string_view id) {
  const std::string upper = upperCased(id);
  const auto text = icu::UnicodeString::fromUTF8(icu::StringPiece(upper.data(), static_cast<int32_t>(upper.size())));
  icu::UnicodeString kept;
  for (int32_t i = 0; i < text.length(); i = text.moveIndex32(i, 1)) {
    const UChar32 c = text.char32At(i);
    const auto type = u_charType(c);
    if (u_isalpha(c) || type == U_DECIMAL_DIGIT_NUMBER || type == U_LETTER_NUMBER || type == U_OTHER_NUMBER)
      kept.append(c);
  }
  std::string out;
  kept.toUTF8String(out);
  return out;
}

std::optional<ActiveStormMerger::IDComponents> ActiveStormMerger::components(std::string_view id) {
  const std::string text = normalizedIdentifier(id);
  if (text.size() != 6 && text.size() != 8) return std::nullopt;
  if (!std::isalpha(static_cast<unsigned char>(text[0])) || !std::isalpha(static_cast<unsigned char>(text[1])) ||
      !allDigits(std::string_view(text).substr(2))) {
    return std::nullopt;
  }
  IDComponents parts{text.substr(0, 2), 0, text.substr(2, 2), text.substr(text.size() - 2)};
  parts.number = std::stoi(parts.numberCode);
  return parts;
}

std::string ActiveStormMerger::canonicalIdentifier(std::string_view id) {
  if (auto parts = components(id)) return parts->basin + parts->numberCode + parts->yearCode;
  return normalizedIdentifier(id);
}

std::optional<double> ActiveStormMerger::transitionScore(const Identity& preferred, const Identity& fallback) {
  const auto p = components(preferred.id);
  const auto f = components(fallback.id);
  if (!p || !f || p->basin != f->basin || p->yearCode != f->yearCode) return std::nullopt;
  if (p->number < 1 || p->number > 89 || f->number < 90 || f->number > 99) return std::nullopt;
  if (!isValid(preferred.coordinate) || !isValid(fallback.coordinate)) return std::nullopt;
  const Location from(preferred.coordinate.latitude, preferred.coordinate.longitude);
  const Location to(fallback.coordinate.latitude, fallback.coordinate.longitude);
  const double distance = from.distance(to) / kMetresPerNauticalMile;
  if (distance > kMaxDistanceNm) return std::nullopt;
  if (!preferred.lastUpdate || !fallback.lastUpdate) return std::nullopt;
  const double dt = *preferred.lastUpdate - *fallback.lastUpdate;
  if (dt < -kMaxPreferredOlderSeconds) return std::nullopt;
  const double hours = std::abs(dt) / 3600.0;
  if (hours > kMaxHoursApart) return std::nullopt;
  const Identity& older = dt < 0 ? preferred : fallback;
  const Identity& newer = dt < 0 ? fallback : preferred;
  auto motion = usableMotion(older);
  if (!motion) motion = usableMotion(newer);
  if (!motion) return std::nullopt;
  const double expected = hours * motion->speed;
  const double allowed = expected + kSlackNm;
  if (allowed < kMaxDistanceNm && distance > allowed) return std::nullopt;
  double bearingDifference = 0.0;
  if (distance > kNoBearingCheckNm) {
    const double difference =
        std::fmod(std::abs(initialBearing(older.coordinate, newer.coordinate) - motion->direction), 360.0);
    bearingDifference = std::min(difference, 360.0 - difference);
    if (bearingDifference > kMaxBearingDifference) return std::nullopt;
  }
  const double residual = std::abs(distance - expected);
  if (residual > kSlackNm) return std::nullopt;
  return distance + residual + bearingDifference;
}

std::vector<Storm> ActiveStormMerger::merge(std::vector<Storm> preferred, const std::vector<Storm>& fallback) {
  std::set<std::string> canonical;
  for (const auto& storm : preferred) canonical.insert(canonicalIdentifier(storm.id));
  std::vector<bool> consumed(fallback.size(), false);
  for (std::size_t j = 0; j < fallback.size(); ++j) {
    const std::string id = canonicalIdentifier(fallback[j].id);
    for (std::size_t i = 0; i < preferred.size(); ++i) {
      if (canonicalIdentifier(preferred[i].id) != id) continue;
      consumed[j] = true;
      canonical.insert(id);
      preferred[i] = preferred[i].mergingAlternateIdentifiers(fallback[j]);
      break;
    }
  }
  std::vector<InvestTransitionCandidate> candidates;
  for (std::size_t j = 0; j < fallback.size(); ++j) {
    if (consumed[j]) continue;
    const Identity f = Identity::of(fallback[j]);
    for (std::size_t i = 0; i < preferred.size(); ++i) {
      if (auto score = transitionScore(Identity::of(preferred[i]), f)) candidates.push_back({i, j, *score});
    }
  }
  std::sort(candidates.begin(), candidates.end(), [](const auto& a, const auto& b) {
    if (a.score != b.score) return a.score < b.score;
    if (a.preferredIndex != b.preferredIndex) return a.preferredIndex < b.preferredIndex;
    return a.fallbackIndex < b.fallbackIndex;
  });
  std::set<std::size_t> usedPreferred;
  for (const auto& candidate : candidates) {
    if (usedPreferred.count(candidate.preferredIndex) || consumed[candidate.fallbackIndex]) continue;
    usedPreferred.insert(candidate.preferredIndex);
    consumed[candidate.fallbackIndex] = true;
    canonical.insert(canonicalIdentifier(fallback[candidate.fallbackIndex].id));
    preferred[candidate.preferredIndex] =
        preferred[candidate.preferredIndex].mergingAlternateIdentifiers(fallback[candidate.fallbackIndex]);
  }
  for (std::size_t j = 0; j < fallback.size(); ++j) {
    if (consumed[j]) continue;
    if (canonical.insert(canonicalIdentifier(fallback[j].id)).second) preferred.push_back(fallback[j]);
  }
  return preferred;
}

std::vector<JTWCStormDescriptor> ActiveStormMerger::descriptorsNotIn(const std::vector<Storm>& nhc,
                                                                     std::vector<JTWCStormDescriptor> descriptors) {
  std::set<std::string> known;
  for (const auto& storm : nhc) known.insert(canonicalIdentifier(storm.id));
  std::erase_if(descriptors,
                [&](const JTWCStormDescriptor& d) { return known.count(canonicalIdentifier(d.slug)) > 0; });
  return descriptors;
}

}  // namespace ombrine
