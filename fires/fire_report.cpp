#include "fires/fire_report.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numbers>

#include "core/values/compass.hpp"
#include "core/values/screen_words.hpp"
#include "core/values/value_json.hpp"
#include "fires/fire_loading_policy.hpp"

namespace ombrine {

namespace {

double bearing(FireCoordinate from, FireCoordinate to) {
  constexpr double r = std::numbers::pi / 180.0;
  const double dLon = (to.longitude - from.longitude) * r;
  const double y = std::sin(dLon) * std::cos(to.latitude * r);
  const double x = std::cos(from.latitude * r) * std::sin(to.latitude * r) -
                   std::sin(from.latitude * r) * std::cos(to.latitude * r) * std::cos(dLon);
  const double degrees = std::atan2(y, x) / r;
  return std::fmod(degrees + 360.0, 360.0);
}

double kilometres(FireCoordinate a, FireCoordinate b) {
  return fireHaversineMeters(a.latitude, a.longitude, b.latitude, b.longitude) / 1000.0;
}

// "12:01:05 UTC", the time of day of an instant in UTC.
std::string utcTime(Date date, const ScreenWords& words) {
  const auto seconds = static_cast<long long>(std::floor(date.unixSeconds()));
  const long long inDay = ((seconds % 86400) + 86400) % 86400;
  return words.clock(static_cast<int>(inDay / 3600), static_cast<int>(inDay / 60 % 60), static_cast<int>(inDay % 60)) +
         " UTC";
}

std::string age(double seconds, const ScreenWords& words) {
  if (seconds < 90) return words.format("{} s", words.number(std::max(0.0, std::round(seconds))));
  if (seconds < 5400) return words.format("{} min", words.number(std::round(seconds / 60)));
  return words.format("{} h", words.number(std::round(seconds / 3600)));
}

// "  25 km NE": how far and which way from the place asked about.
std::string whereText(const FireListEntry& entry, const ScreenWords& words) {
  return "  " + words.format("{} km {}", words.number(std::round(entry.distanceKilometres)),
                             words(fireBearingName(entry.bearingDegrees)));
}

std::string typeText(const FireIncidentType& type) {
  if (std::holds_alternative<FireIncidentType::Wildfire>(type.value)) return "wildfire";
  if (std::holds_alternative<FireIncidentType::PrescribedFire>(type.value)) return "prescribed fire";
  if (std::holds_alternative<FireIncidentType::IncidentComplex>(type.value)) return "complex";
  const auto& text = std::get<FireIncidentType::Unknown>(type.value).text;
  return text.empty() ? "unknown" : text;
}

std::string reasonText(const FireFetchFailureReason& reason) {
  switch (reason.kind) {
    case FireFetchFailureReason::Kind::rateLimited: return "rateLimited";
    case FireFetchFailureReason::Kind::transient: return "transient";
    case FireFetchFailureReason::Kind::permanent: return "permanent";
  }
  return "transient";
}

std::string_view stateName(const FireServiceReport& report) {
  if (!report.asked && report.isComplete) return "notAsked";
  if (report.isComplete) return "complete";
  if (report.hasCompleteSnapshot) return "snapshot";
  if (report.cooldownUntil) return "coolingDown";
  return "failed";
}

}  // namespace

std::string_view fireBearingName(double degrees) noexcept { return nearestCompassAbbreviation(degrees); }

FireList fireListAround(const FireMapData& data, FireCoordinate centre, double radiusKilometres) {
  FireList list;
  for (const auto& incident : data.incidents) {
    const double distance = kilometres(centre, incident.coordinate);
    if (distance > radiusKilometres) continue;
    list.incidents.push_back({&incident, nullptr, distance, bearing(centre, incident.coordinate)});
  }
  for (const auto& perimeter : data.perimeters) {
    std::optional<FireCoordinate> nearest;
    double best = 0;
    for (const auto& polygon : perimeter.polygons) {
      for (const auto& vertex : polygon.exterior) {
        const double d = kilometres(centre, vertex);
        if (!nearest || d < best) {
          nearest = vertex;
          best = d;
        }
      }
    }
    if (!nearest || best > radiusKilometres) continue;
    list.perimeters.push_back({nullptr, &perimeter, best, bearing(centre, *nearest)});
  }
  auto byDistance = [](const FireListEntry& a, const FireListEntry& b) {
    return a.distanceKilometres < b.distanceKilometres;
  };
  std::stable_sort(list.incidents.begin(), list.incidents.end(), byDistance);
  std::stable_sort(list.perimeters.begin(), list.perimeters.end(), byDistance);
  return list;
}

std::string fireServiceStateText(const FireServiceReport& report, Date now, const ScreenWords& words) {
  const std::string count = " (" + words.number(static_cast<double>(report.recordCount)) + ")";
  const std::string_view state = stateName(report);
  if (state == "notAsked") return std::string(words("not asked (outside its area)"));
  if (state == "complete") return std::string(words("complete")) + count;
  std::string why;
  if (report.failureReason) why = ", " + reasonText(*report.failureReason) + ": " + report.failure;
  if (state == "snapshot") {
    return words.format("from a snapshot {} old", age(now.timeIntervalSinceReferenceDate -
                                                          report.snapshotFetchedAt->timeIntervalSinceReferenceDate,
                                                      words)) +
           count + why;
  }
  if (state == "coolingDown") return words.format("cooling down until {}", utcTime(*report.cooldownUntil, words)) + why;
  return std::string(words("failed")) + why;
}

std::string fireIncidentLine(const FireListEntry& entry, const ScreenWords& words) {
  const FireIncident& i = *entry.incident;
  std::string line = i.name.empty() ? i.id : i.name;
  line += "  " + std::string(words(typeText(i.type)));
  if (i.acres) line += "  " + words.format("{} acres", words.number(std::round(*i.acres)));
  if (i.percentContained)
    line += "  " + words.format("{} contained", words.percent(std::round(*i.percentContained) / 100.0));
  if (i.controlStatus) line += "  " + std::string(words(fireControlStatusName(*i.controlStatus)));
  line += whereText(entry, words);
  line += i.source == FireMapSource::canada ? "  [" + std::string(words("Canada")) : "  [" + std::string(words("US"));
  if (i.state) line += " " + (i.state->starts_with("US-") ? i.state->substr(3) : *i.state);
  line += "]";
  if (i.detailsURL) line += "  " + std::string(i.detailsURL->buffer());
  return line;
}

std::string firePerimeterLine(const FireListEntry& entry, const ScreenWords& words) {
  const FirePerimeter& p = *entry.perimeter;
  std::string line = p.name.empty() ? p.id : p.name;
  line += "  " + words.format("{} acres", words.number(std::round(p.acres)));
  if (p.percentContained)
    line += "  " + words.format("{} contained", words.percent(std::round(*p.percentContained) / 100.0));
  int holes = 0;
  for (const auto& polygon : p.polygons) holes += static_cast<int>(polygon.interiors.size());
  line += "  " + words.counted(static_cast<double>(p.polygons.size()), "{} polygon", "{} polygons");
  if (holes > 0) line += ", " + words.counted(holes, "{} hole", "{} holes");
  line += whereText(entry, words);
  return line;
}

namespace {

void writeOptional(JsonWriter& w, std::string_view key, const std::optional<double>& value) {
  if (!value || !std::isfinite(*value)) return;
  w.key(key);
  w.number(*value);
}

void writeRing(JsonWriter& w, const std::vector<FireCoordinate>& ring) {
  w.beginArray();
  for (const auto& c : ring) {
    w.beginArray();
    w.number(c.longitude);
    w.number(c.latitude);
    w.endArray();
  }
  w.endArray();
}

// How far, to a tenth of a kilometre, and in which direction a fire lies from the centre.
void writeWhere(JsonWriter& w, double distanceKilometres, double bearingDegrees) {
  w.key("distanceKm");
  w.number(std::round(distanceKilometres * 10) / 10);
  w.key("bearing");
  w.string(fireBearingName(bearingDegrees));
}

void writeIncident(JsonWriter& w, const FireListEntry& e) {
  const FireIncident& i = *e.incident;
  w.key("id");
  w.string(i.id);
  w.key("name");
  w.string(i.name);
  w.key("type");
  w.string(i.type.rawValue());
  w.key("source");
  w.string(fireMapSourceName(i.source));
  writeOptional(w, "acres", i.acres);
  writeOptional(w, "percentContained", i.percentContained);
  if (i.controlStatus) {
    w.key("controlStatus");
    w.string(fireControlStatusName(*i.controlStatus));
  }
  if (i.state) {
    w.key("state");
    w.string(*i.state);
  }
  if (i.detailsURL) {
    w.key("detailsURL");
    w.string(i.detailsURL->buffer());
  }
}

}  // namespace

std::string fireListJson(const FireList& list, const FireMapLoad& load, FireCoordinate centre, double radiusKilometres,
                         Date now) {
  std::string out;
  JsonWriter w(out);
  w.beginObject();
  w.key("latitude");
  w.number(centre.latitude);
  w.key("longitude");
  w.number(centre.longitude);
  w.key("radiusKm");
  w.number(radiusKilometres);
  w.key("incidents");
  w.beginArray();
  for (const auto& e : list.incidents) {
    w.beginObject();
    writeIncident(w, e);
    w.key("latitude");
    w.number(e.incident->coordinate.latitude);
    w.key("longitude");
    w.number(e.incident->coordinate.longitude);
    writeWhere(w, e.distanceKilometres, e.bearingDegrees);
    w.endObject();
  }
  w.endArray();
  w.key("perimeters");
  w.beginArray();
  for (const auto& e : list.perimeters) {
    const FirePerimeter& p = *e.perimeter;
    w.beginObject();
    w.key("id");
    w.string(p.id);
    w.key("name");
    w.string(p.name);
    w.key("source");
    w.string(fireMapSourceName(p.source));
    w.key("acres");
    w.number(p.acres);
    writeOptional(w, "percentContained", p.percentContained);
    w.key("polygons");
    w.integer(static_cast<std::int64_t>(p.polygons.size()));
    w.key("coordinates");
    w.integer(p.revision.coordinateCount);
    writeWhere(w, e.distanceKilometres, e.bearingDegrees);
    w.endObject();
  }
  w.endArray();
  w.key("sources");
  w.beginArray();
  for (const auto& s : load.services) {
    w.beginObject();
    w.key("service");
    w.string(s.service);
    w.key("state");
    w.string(stateName(s));
    w.key("records");
    w.integer(static_cast<std::int64_t>(s.recordCount));
    if (s.snapshotFetchedAt) {
      w.key("snapshotAgeSeconds");
      w.number(std::round(now.timeIntervalSinceReferenceDate - s.snapshotFetchedAt->timeIntervalSinceReferenceDate));
    }
    if (s.cooldownUntil) {
      w.key("cooldownSeconds");
      w.number(std::round(s.cooldownUntil->timeIntervalSinceReferenceDate - now.timeIntervalSinceReferenceDate));
    }
    if (s.failureReason) {
      w.key("failureReason");
      w.string(reasonText(*s.failureReason));
      w.key("message");
      w.string(s.failure);
    }
    w.endObject();
  }
  w.endArray();
  w.endObject();
  return out;
}

std::string fireListGeoJson(const FireList& list) {
  std::string out;
  JsonWriter w(out);
  w.beginObject();
  w.key("type");
  w.string("FeatureCollection");
  w.key("features");
  w.beginArray();
  for (const auto& e : list.perimeters) {
    const FirePerimeter& p = *e.perimeter;
    w.beginObject();
    w.key("type");
    w.string("Feature");
    w.key("id");
    w.string(p.id);
    w.key("geometry");
    w.beginObject();
    w.key("type");
    w.string("MultiPolygon");
    w.key("coordinates");
    w.beginArray();
    for (const auto& polygon : p.polygons) {
      w.beginArray();
      writeRing(w, polygon.exterior);
      for (const auto& hole : polygon.interiors) writeRing(w, hole);
      w.endArray();
    }
    w.endArray();
    w.endObject();
    w.key("properties");
    w.beginObject();
    w.key("name");
    w.string(p.name);
    w.key("acres");
    w.number(p.acres);
    writeOptional(w, "percentContained", p.percentContained);
    w.endObject();
    w.endObject();
  }
  for (const auto& e : list.incidents) {
    w.beginObject();
    w.key("type");
    w.string("Feature");
    w.key("geometry");
    w.beginObject();
    w.key("type");
    w.string("Point");
    w.key("coordinates");
    w.beginArray();
    w.number(e.incident->coordinate.longitude);
    w.number(e.incident->coordinate.latitude);
    w.endArray();
    w.endObject();
    w.key("properties");
    w.beginObject();
    writeIncident(w, e);
    w.endObject();
    w.endObject();
  }
  w.endArray();
  w.endObject();
  return out;
}

}  // namespace ombrine
