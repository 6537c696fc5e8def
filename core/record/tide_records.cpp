#include "core/record/tide_records.hpp"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <map>
#include <numbers>

namespace ombrine {

bool TideStation::isSubordinate() const {
  if (type) {
    if (type->size() == 1 && std::toupper(static_cast<unsigned char>((*type)[0])) == 'S') return true;
  }
  return referenceStationID && !referenceStationID->empty();
}

std::string TideStation::displayName() const {
  if (state && !state->empty()) return name + ", " + *state;
  return name;
}

std::string_view toString(TideStationSource source) noexcept {
  return source == TideStationSource::noaa ? "noaa" : "chs";
}

std::optional<TideStationSource> tideStationSourceFromString(std::string_view text) noexcept {
  if (text == "noaa") return TideStationSource::noaa;
  if (text == "chs") return TideStationSource::chs;
  return std::nullopt;
}

std::string stationKey(TideStationSource source, std::string_view id) {
  std::string key(toString(source));
  key.push_back(':');
  key.append(id);
  return key;
}

std::string TideDetailLaunchRequest::identity() const {
  if (const auto* selection = std::get_if<TideStationSelection>(&target)) {
    return stationKey(selection->source, selection->station.id);
  }
  return "current-location";
}

std::string_view toString(TideExtreme::Kind kind) noexcept { return kind == TideExtreme::Kind::high ? "H" : "L"; }

std::optional<TideExtreme::Kind> tideExtremeKindFromString(std::string_view text) noexcept {
  if (text == "H") return TideExtreme::Kind::high;
  if (text == "L") return TideExtreme::Kind::low;
  return std::nullopt;
}

bool tideExtremeLess(const TideExtreme& a, const TideExtreme& b) noexcept {
  if (a.date != b.date) return a.date < b.date;
  return toString(a.kind) < toString(b.kind);
}

bool tideChartPointLess(const TideChartPoint& a, const TideChartPoint& b) noexcept { return a.date < b.date; }

std::optional<TideExtreme> TideData::nextExtreme(Date now) const {
  for (const auto& extreme : extremes) {
    if (extreme.date >= now) return extreme;
  }
  if (extremes.empty()) return std::nullopt;
  return extremes.back();
}

bool TideData::coversChartWindow(Date now) const {
  if (chartPoints.empty()) return false;
  return chartPoints.front().date <= now - kChartWindowBefore && chartPoints.back().date >= now + kChartWindowAfter;
}

std::vector<TideExtreme> TideData::extremesIn(DateInterval window) const {
  std::vector<TideExtreme> inside;
  for (const auto& extreme : extremes) {
    if (window.contains(extreme.date)) inside.push_back(extreme);
  }
  return inside;
}

namespace {

// Half a cosine from a's height to b's: flat at both extremes, steepest half-way.
double cosineHeight(const TideExtreme& a, const TideExtreme& b, double offset, double span) {
  const double f = (1.0 - std::cos(std::numbers::pi * offset / span)) * 0.5;
  return a.height.inMeters() + (b.height.inMeters() - a.height.inMeters()) * f;
}

}  // namespace

std::optional<TideChartPoint> interpolatedPoint(const std::vector<TideExtreme>& sortedExtremes, Date t) {
  const auto next = std::find_if(sortedExtremes.begin(), sortedExtremes.end(),
                                 [t](const TideExtreme& extreme) { return extreme.date >= t; });
  if (next == sortedExtremes.end()) return std::nullopt;
  if (next->date == t) return TideChartPoint{t, Length::meters(next->height.inMeters())};
  if (next == sortedExtremes.begin()) return std::nullopt;
  const TideExtreme& previous = *std::prev(next);
  return TideChartPoint{t,
                        Length::meters(cosineHeight(previous, *next, t - previous.date, next->date - previous.date))};
}

std::vector<TideChartPoint> chartPoints(std::vector<TideExtreme> extremes, double stepSeconds,
                                        std::optional<DateInterval> window) {
  if (!(stepSeconds > 0.0)) return {};
  std::stable_sort(extremes.begin(), extremes.end(), tideExtremeLess);
  // Of several extremes at one date only the first (a high before a low) survives.
  extremes.erase(std::unique(extremes.begin(), extremes.end(),
                             [](const TideExtreme& kept, const TideExtreme& next) { return kept.date == next.date; }),
                 extremes.end());
  if (extremes.size() < 2) return {};

  std::map<Date, double> heights;
  for (size_t i = 0; i + 1 < extremes.size(); ++i) {
    const TideExtreme& a = extremes[i];
    const TideExtreme& b = extremes[i + 1];
    const double span = b.date - a.date;
    if (!(span > 0.0)) continue;
    // Points outside the window are dropped below anyway; never generating them keeps a feed
    // with far-apart extremes from costing time and memory.
    double offset = 0.0;
    double end = span;
    if (window) {
      if (b.date < window->start || a.date > window->end) continue;
      if (window->start > a.date) offset = std::ceil((window->start - a.date) / stepSeconds) * stepSeconds;
      end = std::min(span, window->end - a.date + stepSeconds / 2.0);
    }
    for (; offset < end; offset += stepSeconds) {
      heights[a.date + offset] = cosineHeight(a, b, offset, span);
    }
    heights[b.date] = b.height.inMeters();
  }

  if (window) {
    const auto first = interpolatedPoint(extremes, window->start);
    const auto last = interpolatedPoint(extremes, window->end);
    if (!first || !last) return {};
    std::erase_if(heights, [&](const auto& entry) { return !window->contains(entry.first); });
    heights[first->date] = first->height.inMeters();
    heights[last->date] = last->height.inMeters();
  }

  std::vector<TideChartPoint> points;
  points.reserve(heights.size());
  for (const auto& [date, meters] : heights) points.push_back({date, Length::meters(meters)});
  return points;
}

}  // namespace ombrine

size_t std::hash<ombrine::TideStation>::operator()(const ombrine::TideStation& station) const noexcept {
  size_t seed = 0;
  auto mix = [&seed](size_t value) { seed ^= value + 0x9e3779b97f4a7c15ULL + (seed << 6) + (seed >> 2); };
  auto hashOptional = [](const std::optional<std::string>& text) {
    return text ? std::hash<std::string>{}(*text) : size_t{0x5bd1e995};
  };
  mix(std::hash<std::string>{}(station.id));
  mix(std::hash<std::string>{}(station.name));
  mix(std::hash<double>{}(station.latitude == 0.0 ? 0.0 : station.latitude));
  mix(std::hash<double>{}(station.longitude == 0.0 ? 0.0 : station.longitude));
  mix(hashOptional(station.state));
  mix(hashOptional(station.type));
  mix(hashOptional(station.referenceStationID));
  return seed;
}
