#include "core/record/sun_event_rows.hpp"

#include <algorithm>
#include <cmath>
#include <string>

namespace ombrine {

Date startOfZoneHour(Date instant, const TimeZone& zone) {
  const double offset = zone.secondsFromGMT(instant);
  const double local = instant.unixSeconds() + offset;
  return Date::fromUnix(std::floor(local / 3600.0) * 3600.0 - offset);
}

Date startOfZoneDay(Date instant, const TimeZone& zone) {
  const double offset = zone.secondsFromGMT(instant);
  const double local = instant.unixSeconds() + offset;
  return Date::fromUnix(std::floor(local / 86400.0) * 86400.0 - offset);
}

void addSunEventRows(std::vector<OneCallWeather::Hourly>& hourly, std::span<const SunStateChange> events, Date now,
                     const TimeZone& zone) {
  std::vector<Date> rowHours;
  rowHours.reserve(hourly.size());
  for (const auto& row : hourly) rowHours.push_back(startOfZoneHour(row.dt, zone));
  std::vector<OneCallWeather::Hourly> added;
  for (const SunStateChange& event : events) {
    if (event.date() <= now) continue;
    auto found = std::find(rowHours.begin(), rowHours.end(), startOfZoneHour(event.date(), zone));
    if (found == rowHours.end()) continue;
    OneCallWeather::Hourly copy = hourly[static_cast<size_t>(found - rowHours.begin())];
    copy.dt = event.date();
    std::string label(event.label());
    copy.weather = {OneCallWeather::Glyph{.id = 0,
                                          .main = label,
                                          .description = label,
                                          .symbolName = event.isRise() ? "sunrise" : "sunset",
                                          .isDaylight = event.isRise()}};
    copy.sunStateChange = event;
    added.push_back(std::move(copy));
  }
  hourly.insert(hourly.end(), std::make_move_iterator(added.begin()), std::make_move_iterator(added.end()));
  std::stable_sort(hourly.begin(), hourly.end(), [](const auto& a, const auto& b) { return a.dt < b.dt; });
}

}  // namespace ombrine
