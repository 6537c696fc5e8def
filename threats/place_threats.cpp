#include "threats/place_threats.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <numbers>

#include "core/values/value_json.hpp"

namespace ombrine {

namespace {

constexpr double kKilometresPerDegreeLatitude = 110.574;
constexpr double kKilometresPerDegreeLongitude = 111.320;

// Kilometres east and north of the place, on a plane tangent at the place.
struct Offset {
  double x = 0, y = 0;
};

class LocalPlane {
 public:
  explicit LocalPlane(const Location& place)
      : latitude_(place.latitude()),
        longitude_(place.longitude()),
        scale_(std::cos(place.latitude() * std::numbers::pi / 180.0)) {}

  Offset at(double latitude, double longitude) const {
    double east = std::fmod(longitude - longitude_ + 540.0, 360.0) - 180.0;  // across the date line
    return {east * scale_ * kKilometresPerDegreeLongitude, (latitude - latitude_) * kKilometresPerDegreeLatitude};
  }

 private:
  double latitude_, longitude_, scale_;
};

double lengthOf(Offset p) { return std::hypot(p.x, p.y); }

double bearingOf(Offset p) {
  const double degrees = std::atan2(p.x, p.y) * 180.0 / std::numbers::pi;
  return degrees < 0 ? degrees + 360.0 : degrees;
}

// The point of segment a-b nearest the origin (the place).
Offset nearestOnSegment(Offset a, Offset b) {
  const double dx = b.x - a.x, dy = b.y - a.y;
  const double length2 = dx * dx + dy * dy;
  const double t = length2 == 0 ? 0 : std::clamp(-(a.x * dx + a.y * dy) / length2, 0.0, 1.0);
  return {a.x + t * dx, a.y + t * dy};
}

// Even-odd rule for the origin.
bool containsOrigin(const std::vector<Offset>& ring) {
  bool inside = false;
  for (std::size_t i = 0, j = ring.size() - 1; i < ring.size(); j = i++) {
    const Offset a = ring[i], b = ring[j];
    if ((a.y > 0) != (b.y > 0) && 0 < (b.x - a.x) * (0 - a.y) / (b.y - a.y) + a.x) inside = !inside;
  }
  return inside;
}

class Nearest {
 public:
  void consider(Offset point) {
    if (!best_ || lengthOf(point) < lengthOf(*best_)) best_ = point;
  }
  void path(const std::vector<Offset>& points) {
    if (points.size() == 1) consider(points.front());
    for (std::size_t i = 1; i < points.size(); ++i) consider(nearestOnSegment(points[i - 1], points[i]));
  }
  void inside() { best_ = Offset{}; }
  const std::optional<Offset>& best() const { return best_; }

 private:
  std::optional<Offset> best_;
};

std::string ageText(double seconds, const ScreenWords& words) {
  if (seconds < 90) return std::string(words("under a minute"));
  if (seconds < 5400) return words.format("{} min", words.number(std::round(seconds / 60)));
  if (seconds < 172800) return words.format("{} h", words.number(std::round(seconds / 3600)));
  return words.format("{} days", words.number(std::round(seconds / 86400)));
}

// English words and plain digits: what JSON and the web page read.
const ScreenWords& wordsOf(const ThreatInputs& inputs) {
  static const ScreenWords english(icu::Locale("en_US"));
  return inputs.words ? *inputs.words : english;
}

std::optional<double> ageSince(std::optional<Date> then, Date now) {
  if (!then) return std::nullopt;
  return std::max(0.0, now - *then);
}

void addFires(const ThreatInputs& inputs, std::vector<Threat>& out) {
  if (!inputs.fires) return;
  const ScreenWords& words = wordsOf(inputs);
  const auto acres = [&](double value) { return words.format("{} acres", words.number(std::round(value))); };
  if (!inputs.fires->perimeters.empty()) {
    const FireListEntry& entry = inputs.fires->perimeters.front();
    const auto& contained = entry.perimeter->percentContained;
    out.push_back(
        {"fire perimeter", entry.perimeter->name,
         acres(entry.perimeter->acres) +
             (contained ? ", " + words.format("{} contained", words.percent(std::round(*contained) / 100.0)) : ""),
         entry.distanceKilometres, entry.bearingDegrees,
         ageSince(entry.perimeter->modifiedDate.value_or(entry.perimeter->polygonDate), inputs.now)});
  }
  if (!inputs.fires->incidents.empty()) {
    const FireListEntry& entry = inputs.fires->incidents.front();
    const FireIncident& incident = *entry.incident;
    out.push_back({"fire", incident.name, incident.acres ? acres(*incident.acres) : std::string(words("size unknown")),
                   entry.distanceKilometres, entry.bearingDegrees,
                   ageSince(incident.modifiedDate ? incident.modifiedDate : incident.discoveryDate, inputs.now)});
  }
}

void addStorms(const ThreatInputs& inputs, std::vector<Threat>& out) {
  const ScreenWords& words = wordsOf(inputs);
  std::vector<Threat> storms;
  for (const auto& track : inputs.storms) {
    const NearestPoint nearest = nearestStormPoint(inputs.place, track);
    if (nearest.distanceKilometres > inputs.radiusKilometres) continue;
    std::string detail =
        track.storm.intensity ? words.number(*track.storm.intensity) + " " + std::string(words("kt")) : std::string();
    if (nearest.distanceKilometres == 0) detail += (detail.empty() ? "" : ", ") + std::string(words("inside the cone"));
    storms.push_back({"storm", track.title, detail, nearest.distanceKilometres, nearest.bearingDegrees,
                      ageSince(track.storm.lastUpdate, inputs.now)});
  }
  std::sort(storms.begin(), storms.end(),
            [](const Threat& a, const Threat& b) { return *a.distanceKilometres < *b.distanceKilometres; });
  out.insert(out.end(), storms.begin(), storms.end());
}

void addWeather(const ThreatInputs& inputs, std::vector<Threat>& out) {
  if (!inputs.weather) return;
  const OneCallWeather& weather = *inputs.weather;
  const ScreenWords& words = wordsOf(inputs);
  const double age = std::max(0.0, inputs.now - weather.current.dt);
  for (const auto& alert : weather.alerts.value_or(std::vector<OneCallWeather::Alert>{})) {
    if (alert.end && *alert.end <= inputs.now) continue;
    const bool started = alert.start <= inputs.now;
    out.push_back(
        {"warning", alert.event,
         started ? words.format("by {}", alert.senderName)
                 : words.format("by {}, starts in {}", alert.senderName, ageText(alert.start - inputs.now, words)),
         std::nullopt, std::nullopt, age});
  }
  for (const auto& minute : weather.minutely.value_or(std::vector<OneCallWeather::Minutely>{})) {
    if (minute.dt < inputs.now || minute.precipitation.inMillimeters() < 0.1) continue;
    const double wait = minute.dt - inputs.now;
    out.push_back({"rain", std::string(words("Rain")),
                   wait < 60 ? std::string(words("now")) : words.format("in {}", ageText(wait, words)), std::nullopt,
                   std::nullopt, age});
    return;
  }
  for (const auto& hour : weather.hourly) {
    const double wait = hour.dt - inputs.now;
    if (wait < -3600 || wait > 12 * 3600) continue;
    const double volume = (hour.rain ? hour.rain->rainVolume.inMillimeters() : 0) +
                          (hour.snow ? hour.snow->snowVolume.inMillimeters() : 0);
    if (hour.pop < 0.5 || volume <= 0) continue;
    const bool snow = hour.snow && hour.snow->snowVolume.inMillimeters() > volume / 2;
    out.push_back(
        {"rain", std::string(words(snow ? "Snow" : "Rain")),
         words.format("{}, {} likely, {} mm",
                      wait <= 0 ? std::string(words("this hour")) : words.format("in {}", ageText(wait, words)),
                      words.percent(hour.pop), words.number(volume, {.fractionDigits = 1})),
         std::nullopt, std::nullopt, age});
    return;
  }
}

}  // namespace

NearestPoint nearestStormPoint(const Location& place, const StormTrack& track) {
  const LocalPlane plane(place);
  Nearest nearest;
  for (const auto& polygon : track.overlay.cone) {
    std::vector<Offset> ring;
    for (const auto& point : polygon) ring.push_back(plane.at(point.latitude, point.longitude));
    if (ring.size() >= 3 && containsOrigin(ring)) nearest.inside();
    ring.push_back(ring.empty() ? Offset{} : ring.front());
    if (!nearest.best() || lengthOf(*nearest.best()) > 0) nearest.path(ring);
  }
  for (const auto* points : {&track.overlay.historyPoints, &track.overlay.forecastPoints}) {
    std::vector<Offset> path;
    for (const auto& point : *points) path.push_back(plane.at(point.coordinate.latitude, point.coordinate.longitude));
    nearest.path(path);
  }
  if (!nearest.best()) nearest.consider(plane.at(track.storm.coordinate.latitude, track.storm.coordinate.longitude));
  const Offset best = *nearest.best();
  return {lengthOf(best), lengthOf(best) == 0 ? 0.0 : bearingOf(best)};
}

std::vector<Threat> assessThreats(const ThreatInputs& inputs) {
  std::vector<Threat> threats;
  addFires(inputs, threats);
  addStorms(inputs, threats);
  addWeather(inputs, threats);
  return threats;
}

std::string threatLine(const Threat& threat, const ScreenWords& words) {
  std::string line = fmt::format("{} ({})", threat.title, words(threat.kind));
  if (!threat.detail.empty()) line += ": " + threat.detail;
  if (threat.distanceKilometres) {
    line += ", " + (*threat.distanceKilometres < 0.5
                        ? std::string(words("here"))
                        : words.format("{} km {}", words.number(std::round(*threat.distanceKilometres)),
                                       words(fireBearingName(threat.bearingDegrees.value_or(0)))));
  }
  if (threat.dataAgeSeconds) line += ", " + words.format("data {} old", ageText(*threat.dataAgeSeconds, words));
  return line;
}

std::string threatsJson(const PlaceThreats& found) {
  std::string out;
  JsonWriter writer(out);
  auto optionalNumber = [&](std::string_view key, std::optional<double> value) {
    if (!value) return;
    writer.key(key);
    writer.number(std::round(*value * 10) / 10);
  };
  writer.beginObject();
  writer.key("place");
  writer.beginObject();
  writer.key("name");
  writer.string(found.placeName);
  writer.key("latitude");
  writer.number(found.place.latitude());
  writer.key("longitude");
  writer.number(found.place.longitude());
  writer.endObject();
  writer.key("radiusKm");
  writer.number(found.radiusKilometres);
  writer.key("threats");
  writer.beginArray();
  for (const auto& threat : found.threats) {
    writer.beginObject();
    writer.key("kind");
    writer.string(threat.kind);
    writer.key("title");
    writer.string(threat.title);
    writer.key("detail");
    writer.string(threat.detail);
    optionalNumber("distanceKm", threat.distanceKilometres);
    optionalNumber("bearing", threat.bearingDegrees);
    if (threat.bearingDegrees) {
      writer.key("bearingName");
      writer.string(fireBearingName(*threat.bearingDegrees));
    }
    optionalNumber("dataAgeSeconds", threat.dataAgeSeconds);
    writer.endObject();
  }
  writer.endArray();
  writer.key("sources");
  writer.beginArray();
  for (const auto& source : found.sources) {
    writer.beginObject();
    writer.key("name");
    writer.string(source.name);
    writer.key("state");
    writer.string(source.state);
    optionalNumber("ageSeconds", source.ageSeconds);
    if (!source.error.empty()) {
      writer.key("error");
      writer.string(source.error);
    }
    writer.endObject();
  }
  writer.endArray();
  writer.endObject();
  return out;
}

}  // namespace ombrine
