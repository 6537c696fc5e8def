#include "sim/fire_routes.hpp"

#include <fmt/format.h>
#include <boost/json.hpp>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <optional>
#include <regex>
#include <string>

#include "sim/json_writer.hpp"
#include "sim/sim_time.hpp"

namespace ombrine::sim {

namespace {

namespace json = boost::json;

constexpr std::int64_t kSeasonSeconds = 10 * 86400;
constexpr double kSquareMetresPerAcre = 4046.8564224;
constexpr double kMetresPerDegree = 111195.0;

struct SimFire {
  const char* key;
  const char* name;
  double latitude;
  double longitude;
  const char* state;
  const char* county;
  const char* category;  // "WF", "RX"
  double startAcres;
  double acresPerHour;
  double ageOffsetHours;
  bool nifc;
  bool calFire;
  const char* mission;  // FIRIS mission, or null
  int shape;            // 0 plain, 1 with a hole, 2 with a spot fire
};

constexpr SimFire kUSFires[] = {
    {"dixon", "Dixon Fire", 39.72, -121.31, "CA", "Butte", "WF", 800, 40, 30, true, true, "CA-BTU-009811", 1},
    {"cedar", "Cedar Fire", 40.61, -122.48, "CA", "Shasta", "WF", 120, 6, 10, false, true, "CA-SHU-004120", 0},
    {"gold", "Gold Creek Fire", 39.31, -120.22, "CA", "Nevada", "WF", 300, 12, 50, true, false, nullptr, 2},
    {"sagehen", "Sagehen RX", 39.43, -120.24, "CA", "Sierra", "RX", 60, 1, 5, true, false, nullptr, 0},
    {"pine", "Pine Ridge Fire", 43.52, -117.81, "OR", "Malheur", "WF", 2500, 90, 70, true, false, nullptr, 0},
    {"truckee", "Peavine Fire", 39.59, -119.93, "NV", "Washoe", "WF", 45, 2, 20, true, false, nullptr, 0},
};

struct SimCanadianFire {
  const char* agency;
  const char* fireID;
  double latitude;
  double longitude;
  double startHectares;
  double hectaresPerHour;
  const char* stage;
  int statusYearBack;  // years before the current one
  bool perimeter;
};

constexpr SimCanadianFire kCanadianFires[] = {
    {"CA-BC", "K71234", 50.62, -120.41, 900, 25, "OC", 0, true},
    {"CA-BC", "K71234", 50.62, -120.41, 300, 5, "BH", 1, false},  // the same fire, an older status row
    {"CA-BC", "K62011", 50.21, -119.87, 150, 4, "BH", 0, true},
    {"CA-BC", "V80345", 49.58, -121.02, 40, 1, "UC", 0, false},
    {"CA-BC", "C10500", 53.91, -122.77, 12, 0.2, "OC", 0, true},
    {"CA-BC", "K50077", 50.95, -120.88, 20, 0, "EX", 0, false},  // out: filtered by the server
    {"CA-AB", "HWF042", 56.71, -111.38, 4000, 60, "OC", 0, true},
};

struct BCName {
  const char* fireNumber;
  const char* incidentName;
  const char* description;
  const char* url;
};

constexpr BCName kBCNames[] = {
    {"K71234", "Tranquille Creek", "12 km NW of Kamloops",
     "https://wildfiresituation.nrs.gov.bc.ca/incidents?fireYear={year}&incidentNumber=K71234"},
    {"K62011", "Bear Creek", "West of Kelowna",
     "https://wildfiresituation.nrs.gov.bc.ca/incidents?fireYear={year}&incidentNumber=K62011"},
    {"V80345", "UNKNOWN", "3 km S of Hope", "http://wildfiresituation.nrs.gov.bc.ca/incidents?incidentNumber=V80345"},
};

std::int64_t unixSeconds(Instant now) { return now.time_since_epoch().count(); }

double ageHours(Instant now, double offsetHours) {
  return static_cast<double>(unixSeconds(now) % kSeasonSeconds) / 3600.0 + offsetHours;
}

int currentYear(Instant now) {
  return static_cast<int>(std::chrono::year_month_day(std::chrono::floor<std::chrono::days>(now)).year());
}

std::uint64_t mix(std::uint64_t x) {
  x ^= x >> 33;
  x *= 0xff51afd7ed558ccdull;
  x ^= x >> 33;
  x *= 0xc4ceb9fe1a85ec53ull;
  return x ^ (x >> 33);
}

std::uint64_t hashOf(std::string_view text) {
  std::uint64_t h = 1469598103934665603ull;
  for (char c : text) h = (h ^ static_cast<unsigned char>(c)) * 1099511628211ull;
  return h;
}

json::value number6(double value) { return roundedNumber(value, 6); }

// A ring of 24 jagged points around a centre enclosing about `acres`, closed, longitude first.
json::array ring(double latitude, double longitude, double acres, std::uint64_t seed, double scale = 1.0,
                 bool clockwise = false) {
  const double radius = std::sqrt(acres * kSquareMetresPerAcre / std::numbers::pi) * scale;
  json::array points;
  constexpr int kPoints = 24;
  for (int i = 0; i <= kPoints; ++i) {
    const int k = (i % kPoints);
    const int index = clockwise ? kPoints - k : k;
    const double jitter =
        0.8 + 0.4 * static_cast<double>(mix(seed + static_cast<std::uint64_t>(index)) % 1000) / 1000.0;
    const double angle = 2 * std::numbers::pi * index / kPoints;
    const double dy = radius * jitter * std::sin(angle);
    const double dx = radius * jitter * std::cos(angle);
    points.push_back(
        json::array{number6(longitude + dx / (kMetresPerDegree * std::cos(latitude * std::numbers::pi / 180))),
                    number6(latitude + dy / kMetresPerDegree)});
  }
  return points;
}

json::object perimeterGeometry(const SimFire& fire, double acres, std::uint64_t seed) {
  json::array exterior = ring(fire.latitude, fire.longitude, acres, seed);
  if (fire.shape == 1) {
    json::array polygon;
    polygon.emplace_back(exterior);
    polygon.emplace_back(ring(fire.latitude, fire.longitude, acres * 0.02, seed + 99, 1.0, true));
    json::object geometry;
    geometry["type"] = "Polygon";
    geometry["coordinates"] = std::move(polygon);
    return geometry;
  }
  // Nested arrays are built element by element: a one-element initializer list of an array
  // would be read as that array itself.
  auto wrap = [](json::array inner) {
    json::array outer;
    outer.emplace_back(std::move(inner));
    return outer;
  };
  if (fire.shape == 2) {
    json::array spot = ring(fire.latitude + 0.06, fire.longitude + 0.05, 15, seed + 7);
    json::array polygons;
    polygons.emplace_back(wrap(std::move(exterior)));
    polygons.emplace_back(wrap(std::move(spot)));
    json::object geometry;
    geometry["type"] = "MultiPolygon";
    geometry["coordinates"] = std::move(polygons);
    return geometry;
  }
  json::object geometry;
  geometry["type"] = "Polygon";
  geometry["coordinates"] = wrap(std::move(exterior));
  return geometry;
}

struct Box {
  double west = -1000, south = -1000, east = 1000, north = 1000;
  bool contains(double latitude, double longitude, double margin = 0) const {
    return latitude >= south - margin && latitude <= north + margin && longitude >= west - margin &&
           longitude <= east + margin;
  }
};

std::optional<Box> boxOf(std::string_view text) {
  static const std::regex pattern(R"(\s*(-?[0-9.]+)\s*,\s*(-?[0-9.]+)\s*,\s*(-?[0-9.]+)\s*,\s*(-?[0-9.]+).*)");
  std::match_results<std::string_view::const_iterator> match;
  if (!std::regex_match(text.begin(), text.end(), match, pattern)) return std::nullopt;
  return Box{std::stod(match[1]), std::stod(match[2]), std::stod(match[3]), std::stod(match[4])};
}

// The quoted or bare items of "<field> IN (...)" in a where text.
std::optional<std::vector<std::string>> inList(const std::string& where, const std::string& field) {
  const size_t at = where.find(field + " IN (");
  if (at == std::string::npos) return std::nullopt;
  const size_t open = at + field.size() + 5;
  const size_t close = where.find(')', open);
  std::vector<std::string> items;
  std::string item;
  bool quoted = false;
  for (size_t i = open; i < (close == std::string::npos ? where.size() : close); ++i) {
    const char c = where[i];
    if (c == '\'') {
      if (quoted && i + 1 < where.size() && where[i + 1] == '\'') {
        item.push_back('\'');
        ++i;
      } else {
        quoted = !quoted;
      }
    } else if (c == ',' && !quoted) {
      items.push_back(item);
      item.clear();
    } else if (c != ' ' || quoted) {
      item.push_back(c);
    }
  }
  if (!item.empty()) items.push_back(item);
  return items;
}

int intParam(const SimRequest& request, std::string_view name, int fallback) {
  const auto value = request.param(name);
  if (!value) return fallback;
  try {
    return std::stoi(std::string(*value));
  } catch (...) {
    return fallback;
  }
}

SimResponse jsonResponse(const json::value& value, const char* type = "application/geo+json") {
  SimResponse response;
  response.contentType = type;
  response.body = writeJson(value);
  return response;
}

// One ArcGIS page of `features` (already filtered), cut at the layer's own limit.
SimResponse arcgisPage(const SimRequest& request, json::array features, int maxRecordCount) {
  const int offset = std::max(0, intParam(request, "resultOffset", 0));
  const int asked = std::clamp(intParam(request, "resultRecordCount", maxRecordCount), 1, maxRecordCount);
  json::array page;
  for (int i = offset; i < static_cast<int>(features.size()) && static_cast<int>(page.size()) < asked; ++i) {
    page.push_back(features[static_cast<size_t>(i)]);
  }
  const bool more = offset + static_cast<int>(page.size()) < static_cast<int>(features.size());
  json::object collection{{"type", "FeatureCollection"}, {"features", page}};
  if (more) collection["properties"] = json::object{{"exceededTransferLimit", true}};
  return jsonResponse(collection);
}

SimResponse wfsPage(const SimRequest& request, json::array features, int serverLimit) {
  const int start = std::max(0, intParam(request, "startIndex", 0));
  const int count = std::clamp(intParam(request, "count", serverLimit), 1, serverLimit);
  json::array page;
  for (int i = start; i < static_cast<int>(features.size()) && static_cast<int>(page.size()) < count; ++i) {
    page.push_back(features[static_cast<size_t>(i)]);
  }
  const auto returned = page.size();
  json::object collection{
      {"type", "FeatureCollection"},
      {"features", page},
      {"totalFeatures", features.size()},
      {"numberMatched", features.size()},
      {"numberReturned", returned},
      {"timeStamp", formatUtc(request.now, true)},
      {"crs", json::object{{"type", "name"}, {"properties", json::object{{"name", "urn:ogc:def:crs:EPSG::4326"}}}}}};
  return jsonResponse(collection, "application/json;charset=UTF-8");
}

double fireAcres(const SimFire& fire, Instant now) {
  return fire.startAcres + fire.acresPerHour * ageHours(now, fire.ageOffsetHours);
}
double containment(const SimFire& fire, Instant now) {
  if (std::string_view(fire.category) == "RX") return 0;
  return std::min(95.0, std::floor(ageHours(now, fire.ageOffsetHours) * 0.4));
}
double millis(Instant instant) { return static_cast<double>(unixSeconds(instant)) * 1000.0; }
Instant ignition(const SimFire& fire, Instant now) {
  return now - std::chrono::seconds(static_cast<std::int64_t>(ageHours(now, fire.ageOffsetHours) * 3600));
}
Instant lastChange(Instant now) { return now - std::chrono::seconds(unixSeconds(now) % 1800); }  // every half hour

std::string uniqueFireID(const SimFire& fire, int year) {
  return fmt::format("{}-{}{}-{:06}", year, fire.state, fire.key[0] == 'd' ? "BTU" : "XXX", hashOf(fire.key) % 1000000);
}

SimResponse nifcIncidents(const SimRequest& request, bool currentLayer) {
  const auto box = boxOf(request.param("geometry").value_or(""));
  json::array features;
  std::int64_t objectID = 100;
  for (const auto& fire : kUSFires) {
    ++objectID;
    if (!fire.nifc) continue;
    if (box && !box->contains(fire.latitude, fire.longitude)) continue;
    const bool active = std::string_view(fire.key) != "truckee";  // its active flag lags
    if (currentLayer && !active) continue;
    json::object properties{
        {"OBJECTID", objectID},
        {"GlobalID", fmt::format("{{{:016X}}}", hashOf(fire.key))},
        {"UniqueFireIdentifier", uniqueFireID(fire, currentYear(request.now))},
        {"IncidentName", std::string(fire.name).substr(0, std::string(fire.name).rfind(" Fire"))},
        {"IncidentTypeCategory", fire.category},
        {"IncidentSize", std::round(fireAcres(fire, request.now))},
        {"PercentContained",
         std::string_view(fire.category) == "RX" ? json::value(nullptr) : json::value(containment(fire, request.now))},
        {"FireDiscoveryDateTime", millis(ignition(fire, request.now))},
        {"ModifiedOnDateTime_dt", millis(lastChange(request.now))},
        {"POOCity", nullptr},
        {"POOCounty", fire.county},
        {"POOState", std::string("US-") + fire.state},
        {"ActiveFireCandidate", active ? 1 : 0}};
    features.push_back(json::object{
        {"type", "Feature"},
        {"id", objectID},
        {"geometry", json::object{{"type", "Point"},
                                  {"coordinates", json::array{number6(fire.longitude), number6(fire.latitude)}}}},
        {"properties", properties}});
  }
  return arcgisPage(request, std::move(features), 2000);
}

SimResponse nifcPerimeters(const SimRequest& request) {
  const auto box = boxOf(request.param("geometry").value_or(""));
  const std::string where(request.param("where").value_or(""));
  const auto ids = inList(where, "OBJECTID");
  json::array features;
  std::int64_t objectID = 500;
  for (const auto& fire : kUSFires) {
    ++objectID;
    if (!fire.nifc) continue;
    if (ids && std::find(ids->begin(), ids->end(), std::to_string(objectID)) == ids->end()) continue;
    if (box && !box->contains(fire.latitude, fire.longitude, 0.1)) continue;
    const double acres = fireAcres(fire, request.now);
    json::object properties{
        {"OBJECTID", objectID},
        {"GlobalID", fmt::format("{{{:016X}}}", hashOf(fire.key) + 1)},
        {"attr_UniqueFireIdentifier", uniqueFireID(fire, currentYear(request.now))},
        {"poly_IncidentName", std::string(fire.name).substr(0, std::string(fire.name).rfind(" Fire"))},
        {"attr_IncidentTypeCategory", fire.category},
        {"poly_GISAcres", roundedNumber(acres * 0.97, 2)},
        {"attr_IncidentSize", std::round(acres)},
        {"attr_PercentContained", containment(fire, request.now)},
        {"poly_PolygonDateTime", millis(lastChange(request.now) - std::chrono::hours(2))},
        {"attr_ModifiedOnDateTime_dt", millis(lastChange(request.now))},
        {"attr_ActiveFireCandidate", 1},
        {"attr_POOState", std::string("US-") + fire.state}};
    features.push_back(json::object{{"type", "Feature"},
                                    {"id", objectID},
                                    {"geometry", perimeterGeometry(fire, acres * 0.97, hashOf(fire.key))},
                                    {"properties", properties}});
  }
  return arcgisPage(request, std::move(features), 3);
}

SimResponse calFireIncidents(const SimRequest& request) {
  json::array list;
  const auto day = [&](Instant instant) {
    // The site writes dates in California's local day (a fixed -7 h here: the season is summer).
    return formatDay(std::chrono::floor<std::chrono::days>(instant - std::chrono::hours(7)));
  };
  for (const auto& fire : kUSFires) {
    if (!fire.calFire) continue;
    const std::string slug = fire.key;
    list.push_back(json::object{{"Name", fire.name},
                                {"Updated", day(lastChange(request.now))},
                                {"Started", day(ignition(fire, request.now))},
                                {"AdminUnit", fmt::format("CAL FIRE {} Unit", fire.county)},
                                {"County", fire.county},
                                {"Location", "Off Highway 70"},
                                {"AcresBurned", std::round(fireAcres(fire, request.now) * 1.02)},
                                {"PercentContained", containment(fire, request.now)},
                                {"Longitude", number6(fire.longitude + 0.01)},
                                {"Latitude", number6(fire.latitude - 0.01)},
                                {"Type", nullptr},
                                {"UniqueId", fmt::format("{:08x}-0000-4000-8000-{:012x}", hashOf(slug) & 0xffffffff,
                                                         hashOf(slug) >> 16 & 0xffffffffffff)},
                                {"Url", fmt::format("/incidents/{}/{}/", currentYear(request.now), slug + "-fire")},
                                {"StartedDateOnly", nullptr},
                                {"IsActive", true},
                                {"ExternalUrl", ""}});
  }
  // A one-acre fire the client must leave out.
  list.push_back(json::object{{"Name", "Oak Fire"},
                              {"Updated", day(request.now)},
                              {"Started", day(request.now)},
                              {"County", "Placer"},
                              {"AcresBurned", 1},
                              {"PercentContained", 100},
                              {"Longitude", -121.05},
                              {"Latitude", 38.9},
                              {"Type", nullptr},
                              {"UniqueId", "0a0a0a0a-1111-4222-8333-444444444444"},
                              {"Url", "/incidents/oak-fire/"},
                              {"IsActive", true}});
  return jsonResponse(list, "application/json; charset=utf-8");
}

SimResponse calFirePerimeters(const SimRequest& request) {
  const std::string where(request.param("where").value_or(""));
  const auto ids = inList(where, "OBJECTID");
  const auto missions = inList(where, "UPPER(mission)");
  const auto box = (ids || missions) ? std::nullopt : boxOf(request.param("geometry").value_or(""));
  const bool geometry = request.param("returnGeometry").value_or("true") == "true";
  json::array features;
  std::int64_t objectID = 9000;
  for (const auto& fire : kUSFires) {
    objectID += 2;
    if (!fire.calFire) continue;
    const double acres = fireAcres(fire, request.now);
    // Two members per mission: yesterday's perimeter (north of the fire, smaller) and today's.
    for (int member = 0; member < 2; ++member) {
      const std::int64_t id = objectID + member;
      const bool current = member == 1;
      const double memberAcres = current ? acres : acres * 0.7;
      const double latitude = current ? fire.latitude : fire.latitude + 0.02;
      if (ids && std::find(ids->begin(), ids->end(), std::to_string(id)) == ids->end()) continue;
      if (missions && std::find(missions->begin(), missions->end(), fire.mission) == missions->end()) continue;
      if (box && !box->contains(latitude, fire.longitude, 0.1)) continue;
      const Instant polygonTime = lastChange(request.now) - std::chrono::hours(current ? 1 : 25);
      json::object properties{
          {"OBJECTID", id},
          {"GlobalID", fmt::format("{:08x}-aaaa-4bbb-8ccc-{:012x}", id, hashOf(fire.key) & 0xffffffffffff)},
          {"source", "FIRIS"},
          {"mission", fire.mission},
          {"poly_DateCurrent", millis(polygonTime)},
          {"incident_name", fire.name},
          {"incident_number", fmt::format("{}-{:05}", fire.county, hashOf(fire.key) % 100000)},
          {"area_acres", roundedNumber(memberAcres, 1)},
          {"NIFC_GISAcres", nullptr},
          {"EditDate", millis(polygonTime + std::chrono::minutes(20))},
          {"Percent_Contained", containment(fire, request.now)},
          {"websiteId", nullptr},
          {"displayStatus", "Active"},
          {"Shape__Area", roundedNumber(memberAcres * kSquareMetresPerAcre, 0)},
          {"Shape__Length", roundedNumber(std::sqrt(memberAcres * kSquareMetresPerAcre) * 3.7, 0)}};
      SimFire shaped = fire;
      shaped.latitude = latitude;
      features.push_back(json::object{
          {"type", "Feature"},
          {"id", id},
          {"geometry", geometry ? json::value(perimeterGeometry(shaped, memberAcres,
                                                                hashOf(fire.key) + static_cast<std::uint64_t>(member)))
                                : json::value(nullptr)},
          {"properties", properties}});
    }
  }
  return arcgisPage(request, std::move(features), 3);
}

std::optional<double> cqlBound(const std::string& filter, const char* field, const char* op) {
  const std::regex pattern(std::string(field) + " " + op + " (-?[0-9.]+)");
  std::smatch match;
  if (!std::regex_search(filter, match, pattern)) return std::nullopt;
  return std::stod(match[1]);
}

SimResponse cwfisActiveFires(const SimRequest& request) {
  const std::string filter(request.param("CQL_FILTER").value_or(""));
  Box box;
  if (auto v = cqlBound(filter, "longitude", ">=")) box.west = *v;
  if (auto v = cqlBound(filter, "longitude", "<=")) box.east = *v;
  if (auto v = cqlBound(filter, "latitude", ">=")) box.south = *v;
  if (auto v = cqlBound(filter, "latitude", "<=")) box.north = *v;
  const int year = currentYear(request.now);
  json::array features;
  int row = 0;
  for (const auto& fire : kCanadianFires) {
    ++row;
    if (std::string_view(fire.stage) == "EX") continue;
    if (!box.contains(fire.latitude, fire.longitude)) continue;
    const double hours = ageHours(request.now, 10.0 * row);
    const Instant started = request.now - std::chrono::seconds(static_cast<std::int64_t>(hours * 3600));
    json::object properties{
        {"id", row},
        {"agency_code", fire.agency},
        {"national_fire_id", fmt::format("{}-{}", year, fire.fireID)},
        {"agency_fire_id", fire.fireID},
        {"fire_was_prescribed", false},
        {"percent_contained", nullptr},
        {"fire_size", roundedNumber(fire.startHectares + fire.hectaresPerHour * hours, 1)},
        {"stage_of_control_status", fire.stage},
        {"situation_report_date", formatUtc(started)},
        {"status_date", formatUtc(lastChange(request.now) - std::chrono::hours(24 * 365 * fire.statusYearBack))},
        {"fire_year", year - fire.statusYearBack},
        {"status_year", year - fire.statusYearBack},
        {"latitude", fire.latitude},
        {"longitude", fire.longitude}};
    features.push_back(json::object{
        {"type", "Feature"},
        {"id", fmt::format("cwfif_national_activefires.{}", row)},
        {"geometry", json::object{{"type", "Point"}, {"coordinates", json::array{fire.longitude, fire.latitude}}}},
        {"geometry_name", "geom"},
        {"properties", properties}});
  }
  return wfsPage(request, std::move(features), 1000);
}

SimResponse cwfisPerimeters(const SimRequest& request) {
  const auto box = boxOf(request.param("bbox").value_or(""));
  json::array features;
  int row = 0;
  for (const auto& fire : kCanadianFires) {
    ++row;
    if (!fire.perimeter) continue;
    if (box && !box->contains(fire.latitude, fire.longitude, 0.1)) continue;
    const double hectares = fire.startHectares + fire.hectaresPerHour * ageHours(request.now, 10.0 * row);
    const SimFire shape{fire.fireID, fire.fireID, fire.latitude, fire.longitude, "",      "", "WF", 0,
                        0,           0,           false,         false,          nullptr, 0};
    json::object properties{{"hcount", 10 + row * 7},
                            {"firstdate", formatUtc(request.now - std::chrono::hours(24 * 5))},
                            {"lastdate", formatUtc(lastChange(request.now))},
                            {"area", roundedNumber(hectares * 0.9, 2)}};
    features.push_back(
        json::object{{"type", "Feature"},
                     {"id", fmt::format("m3_polygons_current.{}", 4000 + row)},
                     {"geometry", perimeterGeometry(shape, hectares * 0.9 * 2.4710538, hashOf(fire.fireID))},
                     {"geometry_name", "geom"},
                     {"properties", properties}});
  }
  return wfsPage(request, std::move(features), 3);
}

SimResponse bcFires(const SimRequest& request) {
  const std::string where(request.param("where").value_or(""));
  const auto numbers = inList(where, "FIRE_NUMBER");
  const int year = currentYear(request.now);
  json::array features;
  std::int64_t objectID = 0;
  for (const auto& name : kBCNames) {
    ++objectID;
    if (!numbers || std::find(numbers->begin(), numbers->end(), name.fireNumber) == numbers->end()) continue;
    std::string url = name.url;
    if (const size_t at = url.find("{year}"); at != std::string::npos) url.replace(at, 6, std::to_string(year));
    features.push_back(json::object{{"type", "Feature"},
                                    {"id", objectID},
                                    {"geometry", nullptr},
                                    {"properties", json::object{{"OBJECTID", objectID},
                                                                {"FIRE_NUMBER", name.fireNumber},
                                                                {"INCIDENT_NAME", name.incidentName},
                                                                {"GEOGRAPHIC_DESCRIPTION", name.description},
                                                                {"FIRE_URL", url}}}});
  }
  return arcgisPage(request, std::move(features), 1000);
}

std::string arcgisErrorBody(int status, std::string_view message) {
  const int code = status == 404 ? 400 : status;  // ArcGIS names a missing service "Invalid URL" with 400
  const std::string text = status == 404 ? "Invalid URL" : std::string(message);
  return fmt::format(R"({{"error":{{"code":{},"message":"{}","details":["{}"]}}}})", code, text, text);
}

std::string geoServerErrorBody(int status, std::string_view message) {
  return fmt::format(
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?><ows:ExceptionReport xmlns:ows=\"http://www.opengis.net/ows/1.1\" "
      "version=\"2.0.0\"><ows:Exception exceptionCode=\"NoApplicableCode\"><ows:ExceptionText>{} {}"
      "</ows:ExceptionText></ows:Exception></ows:ExceptionReport>",
      status, message);
}

std::string calFireSiteErrorBody(int status, std::string_view message) {
  return fmt::format(
      "<!DOCTYPE html><html><head><title>{}</title></head><body><h1>CAL FIRE</h1><p>{}</p></body></html>", status,
      message);
}

SimRoute route(std::string name, const std::string& pattern, std::function<SimResponse(const SimRequest&)> answer,
               std::string (*errorBody)(int, std::string_view)) {
  return SimRoute{std::move(name), std::regex(pattern), std::move(answer), errorBody};
}

}  // namespace

std::vector<SimRoute> fireRoutes() {
  const std::string nifc = "/nifc/T4QMspbfLg3qTGWY/arcgis/rest/services/";
  std::vector<SimRoute> routes;
  routes.push_back(route(
      "nifc.current", nifc + "WFIGS_Incident_Locations_Current/FeatureServer/0/query",
      [](const SimRequest& r) { return nifcIncidents(r, true); }, arcgisErrorBody));
  routes.push_back(route(
      "nifc.yeartodate", nifc + "WFIGS_Incident_Locations_YearToDate/FeatureServer/0/query",
      [](const SimRequest& r) { return nifcIncidents(r, false); }, arcgisErrorBody));
  routes.push_back(route("nifc.perimeters", nifc + "WFIGS_Interagency_Perimeters_Current/FeatureServer/0/query",
                         nifcPerimeters, arcgisErrorBody));
  routes.push_back(route("calfire.incidents", "/calfire/api/sitecore/Incident/GetFiresForMap", calFireIncidents,
                         calFireSiteErrorBody));
  routes.push_back(route("calfire.perimeters",
                         "/calfire-gis/bz1uwWPKUInZBK94/arcgis/rest/services/CA_Perimeters_NIFC_FIRIS_public_view/"
                         "FeatureServer/0/query",
                         calFirePerimeters, arcgisErrorBody));
  routes.push_back(route("cwfis.activefires", "/cwfif/geoserver/ows", cwfisActiveFires, geoServerErrorBody));
  routes.push_back(route("cwfis.perimeters", "/cwfis/geoserver/public/ows", cwfisPerimeters, geoServerErrorBody));
  routes.push_back(
      route("bcws.fires", "/bcgov/arcgis/rest/services/mpcm/bcgwpub/MapServer/502/query", bcFires, arcgisErrorBody));
  return routes;
}

}  // namespace ombrine::sim
