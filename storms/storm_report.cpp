#include "storms/storm_report.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "core/values/compass.hpp"
#include "core/values/iso8601.hpp"
#include "core/values/value_json.hpp"
#include "storms/active_storm_merger.hpp"

namespace ombrine {

namespace {

// "2026-09-08 06:00 UTC" in the reader's digits.
std::string utcMinute(Date date, const ScreenWords& words) {
  const std::string shown = words.utcTime(date);  // "2026-09-08 06:00:00 UTC"
  const auto seconds = shown.rfind(':');
  const auto end = shown.find(' ', seconds);
  return seconds == std::string::npos || end == std::string::npos ? shown
                                                                  : shown.substr(0, seconds) + shown.substr(end);
}

std::string categoryText(const Storm& storm, const icu::Locale& locale) {
  if (auto label = intensityLabel(storm.intensityTag(), storm.basin(), storm.intensity, locale)) return *label;
  return storm.classification.code();
}

void optionalInteger(JsonWriter& json, const char* key, const std::optional<int>& value) {
  if (!value) return;
  json.key(key);
  json.integer(*value);
}

void optionalNumber(JsonWriter& json, const char* key, const std::optional<double>& value) {
  if (!value || !std::isfinite(*value)) return;
  json.key(key);
  json.number(*value);
}

void optionalURL(JsonWriter& json, const char* key, const std::optional<boost::urls::url>& value) {
  if (!value) return;
  json.key(key);
  json.string(value->buffer());
}

}  // namespace

StormAgency agencyOf(const Storm& storm) {
  return ActiveStormMerger::normalizedIdentifier(storm.id).size() == 8 ? StormAgency::nhc : StormAgency::jtwc;
}

std::string agencyLabel(const Storm& storm) {
  const StormAgency agency = agencyOf(storm);
  bool other = false;
  for (const auto& id : storm.alternateIDs) {
    const Storm alias{.id = id};
    if (agencyOf(alias) != agency) other = true;
  }
  std::string label = agency == StormAgency::nhc ? "NHC" : "JTWC";
  if (other) label += agency == StormAgency::nhc ? "+JTWC" : "+NHC";
  return label;
}

std::string formatStormPosition(double latitude, double longitude, const ScreenWords& words) {
  const NumberStyle tenths{.fractionDigits = 1, .grouping = false};
  return words.format(latitude < 0 ? "{}S" : "{}N", words.number(std::abs(latitude), tenths)) + " " +
         words.format(longitude < 0 ? "{}W" : "{}E", words.number(std::abs(longitude), tenths));
}

std::optional<std::string> formatStormMovement(std::optional<double> direction, std::optional<double> speedKt,
                                               const ScreenWords& words) {
  if (!direction || !speedKt || !std::isfinite(*direction) || !std::isfinite(*speedKt)) return std::nullopt;
  return words.format("{} at {} kt", words(nearestCompassAbbreviation(*direction)), words.number(*speedKt));
}

std::vector<StormListEntry> stormListEntries(const std::vector<Storm>& storms, const std::optional<Location>& near,
                                             std::optional<double> radiusKm) {
  std::vector<StormListEntry> entries;
  for (const auto& storm : storms) {
    StormListEntry entry{storm, std::nullopt};
    if (near) {
      entry.distanceKm = near->distance(Location(storm.coordinate.latitude, storm.coordinate.longitude)) / 1000.0;
      if (radiusKm && *entry.distanceKm > *radiusKm) continue;
    }
    entries.push_back(std::move(entry));
  }
  if (near) {
    std::stable_sort(entries.begin(), entries.end(),
                     [](const auto& a, const auto& b) { return *a.distanceKm < *b.distanceKm; });
  }
  return entries;
}

std::string stormListLine(const StormListEntry& entry, const ScreenWords& words) {
  const Storm& storm = entry.storm;
  const icu::Locale& locale = words.locale();
  std::string line = fmt::format("{:<9} {:<22} {:<9} {:<24}", storm.id, storm.title(locale), agencyLabel(storm),
                                 categoryText(storm, locale));
  const auto number = [&](std::optional<int> value) { return value ? words.number(*value) : std::string("-"); };
  line += fmt::format(" {:>4} {}", number(storm.intensity), words("kt"));
  line += fmt::format(" {:>5} {}", number(storm.pressure), words("mb"));
  line += fmt::format("  {:<13}", formatStormPosition(storm.coordinate.latitude, storm.coordinate.longitude, words));
  line += fmt::format(
      " {:<12}",
      formatStormMovement(storm.movementDir, storm.movementSpeed, words).value_or(std::string(words("stationary"))));
  if (entry.distanceKm) line += fmt::format(" {:>6} {}", words.number(std::round(*entry.distanceKm)), words("km"));
  while (!line.empty() && line.back() == ' ') line.pop_back();
  return line;
}

std::string forecastPointLine(const KMLCircleFeature& point, const ScreenWords& words) {
  const auto hour = forecastHourNumber(point.forecastHour);
  std::string when = point.forecastHour && hour == 0 ? std::string(words("now"))
                     : hour                          ? words.format("{} h", words.number(*hour, {.sign = true}))
                                                     : std::string(words("past"));
  std::string line = fmt::format("{:<7}", when);
  line += point.time ? utcMinute(*point.time, words) : std::string(20, ' ');
  line += fmt::format("  {:<13}", formatStormPosition(point.coordinate.latitude, point.coordinate.longitude, words));
  line += fmt::format(" {:>4} {}", point.windKt ? words.number(*point.windKt) : std::string("-"), words("kt"));
  if (point.pressureMb) line += fmt::format(" {:>5} {}", words.number(*point.pressureMb), words("mb"));
  if (point.intensityTag) line += "  " + *point.intensityTag;
  return line;
}

std::string stormListJson(const std::vector<StormListEntry>& entries, const ActiveStormCoverageSet& coverage,
                          const icu::Locale& locale) {
  std::string out;
  JsonWriter json(out);
  json.beginObject();
  json.key("storms");
  json.beginArray();
  for (const auto& entry : entries) {
    const Storm& storm = entry.storm;
    json.beginObject();
    json.key("id");
    json.string(storm.id);
    json.key("name");
    json.string(storm.name);
    json.key("title");
    json.string(storm.title(locale));
    json.key("agency");
    json.string(agencyLabel(storm));
    json.key("classification");
    json.string(storm.classification.code());
    if (auto label = intensityLabel(storm.intensityTag(), storm.basin(), storm.intensity, locale)) {
      json.key("label");
      json.string(*label);
    }
    optionalInteger(json, "intensityKt", storm.intensity);
    optionalInteger(json, "pressureMb", storm.pressure);
    json.key("latitude");
    json.number(storm.coordinate.latitude);
    json.key("longitude");
    json.number(storm.coordinate.longitude);
    optionalNumber(json, "movementDir", storm.movementDir);
    optionalNumber(json, "movementSpeedKt", storm.movementSpeed);
    if (storm.lastUpdate) {
      json.key("lastUpdate");
      json.string(iso8601String(*storm.lastUpdate));
    }
    optionalURL(json, "advisoryURL", storm.advisoryURL);
    optionalURL(json, "coneURL", storm.coneURL);
    optionalURL(json, "trackURL", storm.trackURL);
    optionalURL(json, "historyURL", storm.historyURL);
    json.key("alternateIDs");
    json.beginArray();
    for (const auto& id : storm.alternateIDs) json.string(id);
    json.endArray();
    optionalNumber(json, "distanceKm", entry.distanceKm);
    json.endObject();
  }
  json.endArray();
  json.key("completeCoverage");
  json.beginArray();
  for (auto area : coverage) json.string(coverageName(area));
  json.endArray();
  json.endObject();
  return out;
}

std::optional<Storm> findStorm(const std::vector<Storm>& storms, std::string_view id) {
  const std::string wanted = ActiveStormMerger::canonicalIdentifier(id);
  for (const auto& storm : storms) {
    if (ActiveStormMerger::canonicalIdentifier(storm.id) == wanted) return storm;
    for (const auto& alias : storm.alternateIDs) {
      if (ActiveStormMerger::canonicalIdentifier(alias) == wanted) return storm;
    }
  }
  return std::nullopt;
}

}  // namespace ombrine
