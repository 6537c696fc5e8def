#include "storms/storm_overlay_plan.hpp"

#include <algorithm>
#include <cmath>

#include "core/values/iso8601.hpp"
#include "core/values/location.hpp"
#include "core/values/value_json.hpp"
#include "platform/errors.hpp"
#include "platform/exception_message.hpp"
#include "platform/log.hpp"
#include "storms/storm_http.hpp"
#include "storms/text_pattern.hpp"
#include "storms/zip_reader.hpp"

namespace ombrine {

namespace {

bool timeBefore(const std::optional<Date>& a, const std::optional<Date>& b) { return a && b && *a < *b; }

StormTrackBridgePoint bridgePoint(const KMLCircleFeature& circle) {
  return StormTrackBridgePoint{circle.coordinate, circle.time, circle.forecastHour, circle.intensityTag};
}

double metresBetween(const KMLCoordinate& a, const KMLCoordinate& b) {
  return Location(a.latitude, a.longitude).distance(Location(b.latitude, b.longitude));
}

bool endsWithIgnoringCase(std::string_view text, std::string_view suffix) {
  return text.size() >= suffix.size() && lowerCased(text.substr(text.size() - suffix.size())) == suffix;
}

void writeLine(JsonWriter& json, const std::vector<KMLCoordinate>& coordinates) {
  json.beginArray();
  for (const auto& c : continuousAcrossDateLine(coordinates)) {
    json.beginArray();
    json.number(c.longitude);
    json.number(c.latitude);
    json.endArray();
  }
  json.endArray();
}

std::vector<KMLCoordinate> coordinatesOf(const std::vector<KMLCircleFeature>& points) {
  std::vector<KMLCoordinate> out;
  for (const auto& p : points) out.push_back(p.coordinate);
  return out;
}

void writeLineFeature(JsonWriter& json, const std::string& role, const std::vector<KMLCoordinate>& coordinates) {
  json.beginObject();
  json.key("type");
  json.string("Feature");
  json.key("properties");
  json.beginObject();
  json.key("role");
  json.string(role);
  json.endObject();
  json.key("geometry");
  json.beginObject();
  json.key("type");
  json.string("LineString");
  json.key("coordinates");
  writeLine(json, coordinates);
  json.endObject();
  json.endObject();
}

}  // namespace

std::string intensityColor(const StormIntensityTag& tag) {
  using K = StormIntensityTag::Kind;
  switch (tag.kind) {
    case K::hurricane: {
      static constexpr const char* kCategories[] = {"#ffffcc", "#ffe775", "#ffc140", "#ff8f20", "#ff6060"};
      const long long category = std::clamp<long long>(tag.category.value_or(1), 1, 5);
      return kCategories[category - 1];
    }
    case K::tropicalStorm:
    case K::subtropicalStorm: return "#00faf4";
    case K::tropicalDepression:
    case K::subtropicalDepression:
    case K::potentialTropicalCyclone: return "#5ebaff";
    default: return "#c0c0c0";
  }
}

std::vector<StormMapOverlay> overlays(const std::vector<KMLOverlayFeature>& features) {
  std::vector<StormMapOverlay> out;
  for (const auto& feature : features) {
    if (const auto* polygon = std::get_if<KMLPolygon>(&feature)) {
      out.emplace_back(*polygon);
    } else if (const auto* line = std::get_if<KMLPolyline>(&feature)) {
      out.emplace_back(*line);
    } else if (const auto* circle = std::get_if<KMLCircleFeature>(&feature)) {
      const StormIntensityTag tag = tagFromText(circle->intensityTag);
      out.emplace_back(StyledCircle{circle->coordinate, circle->radius, tag, intensityColor(tag)});
    }
  }
  return out;
}

StormOverlayRevisionID StormOverlayRevisionID::revision(const Storm& storm) {
  return StormOverlayRevisionID{storm.id,      storm.advisoryURL, storm.lastUpdate, storm.forecastIssuance,
                                storm.coneURL, storm.trackURL,    storm.historyURL};
}

std::vector<StormOverlayResourcePlan> resourcePlans(const StormOverlayRevisionID& revision) {
  std::vector<StormOverlayResourcePlan> plans;
  const std::pair<StormOverlayRole, const std::optional<boost::urls::url>*> roles[] = {
      {StormOverlayRole::cone, &revision.coneURL},
      {StormOverlayRole::track, &revision.trackURL},
      {StormOverlayRole::history, &revision.historyURL},
  };
  for (const auto& [role, url] : roles) {
    if (!*url) continue;
    auto same = std::find_if(plans.begin(), plans.end(), [&](const auto& plan) { return plan.url == **url; });
    if (same != plans.end()) {
      same->roles.insert(role);
    } else {
      plans.push_back(StormOverlayResourcePlan{**url, {role}});
    }
  }
  return plans;
}

std::optional<long long> forecastHourNumber(const std::optional<std::string>& forecastHour) {
  if (!forecastHour) return std::nullopt;
  if (containsIgnoringCase(*forecastHour, "current")) return 0;
  std::string digits;
  for (char c : *forecastHour) {
    if (c >= '0' && c <= '9') digits.push_back(c);
  }
  if (digits.empty() || digits.size() > 9) return std::nullopt;
  return parseInteger(digits);
}

std::optional<StormTrackBridge> bridge(const std::vector<KMLCircleFeature>& historyPoints,
                                       const std::vector<KMLCircleFeature>& forecastPoints) {
  if (historyPoints.empty() || forecastPoints.empty()) return std::nullopt;
  const KMLCircleFeature* past = &historyPoints.back();
  for (const auto& point : historyPoints) {
    if (timeBefore(past->time, point.time)) past = &point;
  }
  const KMLCircleFeature* first = nullptr;
  for (const auto& point : forecastPoints) {
    const auto hour = forecastHourNumber(point.forecastHour);
    if (hour && (!first || *hour < *forecastHourNumber(first->forecastHour))) first = &point;
  }
  if (!first) {
    first = &forecastPoints.front();
    for (const auto& point : forecastPoints) {
      if (timeBefore(point.time, first->time)) first = &point;
    }
  }
  const double metres = metresBetween(past->coordinate, first->coordinate);
  if (metres < kMinBridgeMetres || metres > kMaxBridgeMetres) return std::nullopt;
  if (timeBefore(first->time, past->time)) return std::nullopt;
  return StormTrackBridge{bridgePoint(*past), bridgePoint(*first)};
}

std::vector<KMLCoordinate> continuousAcrossDateLine(std::vector<KMLCoordinate> track) {
  for (std::size_t i = 1; i < track.size(); ++i) {
    const double previous = track[i - 1].longitude;
    double longitude = track[i].longitude;
    while (longitude - previous > 180.0) longitude -= 360.0;
    while (longitude - previous < -180.0) longitude += 360.0;
    track[i].longitude = longitude;
  }
  return track;
}

void addOverlayFeatures(StormOverlay& overlay, const std::set<StormOverlayRole>& roles,
                        const std::vector<KMLOverlayFeature>& features) {
  const bool cone = roles.count(StormOverlayRole::cone) > 0;
  const bool track = roles.count(StormOverlayRole::track) > 0;
  const bool history = roles.count(StormOverlayRole::history) > 0;
  for (const auto& feature : features) {
    if (const auto* polygon = std::get_if<KMLPolygon>(&feature)) {
      if (cone) overlay.cone.push_back(polygon->coordinates);
    } else if (const auto* circle = std::get_if<KMLCircleFeature>(&feature)) {
      const bool forecast = track && (!history || forecastHourNumber(circle->forecastHour).has_value());
      if (forecast) {
        overlay.forecastPoints.push_back(*circle);
      } else if (history) {
        overlay.historyPoints.push_back(*circle);
      }
    }
  }
  std::stable_sort(overlay.forecastPoints.begin(), overlay.forecastPoints.end(), [](const auto& a, const auto& b) {
    const auto ha = forecastHourNumber(a.forecastHour);
    const auto hb = forecastHourNumber(b.forecastHour);
    if (ha && hb) return *ha < *hb;
    return ha.has_value() && !hb.has_value();
  });
  overlay.trackBridge = bridge(overlay.historyPoints, overlay.forecastPoints);
}

Task<StormOverlay> loadStormOverlay(HttpClient& http, Storm storm, Date now) {
  StormOverlay overlay;
  const Date reference = storm.lastUpdate.value_or(now);
  for (const auto& plan : resourcePlans(StormOverlayRevisionID::revision(storm))) {
    co_await throwIfStormTaskCancelled();
    try {
      boost::urls::url url = plan.url;
      std::string accept = "application/vnd.google-earth.kmz,application/zip,*/*";
      const std::string body = co_await getStormFile(http, std::move(url), std::move(accept));
      auto state = co_await asio::this_coro::cancellation_state;
      auto cancelled = [state] { return state.cancelled() != asio::cancellation_type::none; };
      std::vector<std::pair<std::string, std::string>> documents;
      if (endsWithIgnoringCase(plan.url.path(), ".kml")) {
        documents.emplace_back(std::string(plan.url.path()), body);
      } else {
        documents = kmlTexts(body, cancelled);
      }
      std::vector<KMLOverlayFeature> features;
      for (const auto& [name, text] : documents) {
        try {
          auto parsed = kmlFeatures(text, reference, cancelled);
          features.insert(features.end(), parsed.begin(), parsed.end());
        } catch (const KMLParseError& error) {
          logf("Storm overlay {}: {} unreadable: {}", storm.id, name, error.what());
        }
      }
      addOverlayFeatures(overlay, plan.roles, features);
    } catch (...) {
      const auto error = std::current_exception();
      rethrowIfCancellation(error);
      logf("Storm overlay {}: {} failed: {}", storm.id, plan.url.buffer(), exceptionMessage(error));
    }
  }
  co_return overlay;
}

std::string stormOverlayGeoJson(const Storm& storm, const StormOverlay& overlay) {
  std::string out;
  JsonWriter json(out);
  json.beginObject();
  json.key("type");
  json.string("FeatureCollection");
  json.key("features");
  json.beginArray();
  for (const auto& ring : overlay.cone) {
    json.beginObject();
    json.key("type");
    json.string("Feature");
    json.key("properties");
    json.beginObject();
    json.key("role");
    json.string("cone");
    json.key("storm");
    json.string(storm.id);
    json.endObject();
    json.key("geometry");
    json.beginObject();
    json.key("type");
    json.string("Polygon");
    json.key("coordinates");
    json.beginArray();
    writeLine(json, ring);
    json.endArray();
    json.endObject();
    json.endObject();
  }
  if (!overlay.historyPoints.empty()) writeLineFeature(json, "history", coordinatesOf(overlay.historyPoints));
  if (!overlay.forecastPoints.empty()) writeLineFeature(json, "track", coordinatesOf(overlay.forecastPoints));
  if (overlay.trackBridge) {
    writeLineFeature(json, "bridge",
                     {overlay.trackBridge->historyPoint.coordinate, overlay.trackBridge->forecastPoint.coordinate});
  }
  for (const auto& point : overlay.forecastPoints) {
    json.beginObject();
    json.key("type");
    json.string("Feature");
    json.key("properties");
    json.beginObject();
    json.key("role");
    json.string("forecastPoint");
    if (point.forecastHour) {
      json.key("forecastHour");
      json.string(*point.forecastHour);
    }
    if (point.windKt) {
      json.key("windKt");
      json.integer(*point.windKt);
    }
    if (point.pressureMb) {
      json.key("pressureMb");
      json.integer(*point.pressureMb);
    }
    if (point.intensityTag) {
      json.key("intensityTag");
      json.string(*point.intensityTag);
    }
    if (point.time) {
      json.key("time");
      json.string(iso8601String(*point.time));
    }
    json.key("radius");
    json.number(point.radius);
    json.key("marker-color");
    json.string(intensityColor(tagFromText(point.intensityTag)));
    json.endObject();
    json.key("geometry");
    json.beginObject();
    json.key("type");
    json.string("Point");
    json.key("coordinates");
    json.beginArray();
    json.number(point.coordinate.longitude);
    json.number(point.coordinate.latitude);
    json.endArray();
    json.endObject();
    json.endObject();
  }
  json.endArray();
  json.endObject();
  return out;
}

}  // namespace ombrine
