#include "fires/fire_queries.hpp"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdio>

namespace ombrine {

namespace {

constexpr const char* kMinimumAcresText = "2.471053814671653";
constexpr const char* kNIFCServicePath = "/T4QMspbfLg3qTGWY/arcgis/rest/services/";
constexpr const char* kCalFirePerimeterPath =
    "/bz1uwWPKUInZBK94/arcgis/rest/services/CA_Perimeters_NIFC_FIRIS_public_view/FeatureServer/0/query";
constexpr const char* kCalFireOutFields =
    "OBJECTID,GlobalID,source,mission,poly_DateCurrent,incident_name,incident_number,area_acres,NIFC_GISAcres,"
    "EditDate,Percent_Contained,websiteId,displayStatus,Shape__Area,Shape__Length";

std::string number(double value) {
  char buffer[32];
  const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
  return std::string(buffer, result.ptr);
}

std::string joined(const std::vector<std::string>& parts, std::string_view separator) {
  std::string text;
  for (size_t i = 0; i < parts.size(); ++i) {
    if (i > 0) text += separator;
    text += parts[i];
  }
  return text;
}

std::string idList(const std::vector<std::int64_t>& ids) {
  std::vector<std::string> parts;
  for (auto id : ids) parts.push_back(std::to_string(id));
  return joined(parts, ",");
}

boost::urls::url at(const boost::urls::url& base, std::string_view path) {
  boost::urls::url url = base;
  std::string full(base.path());
  while (!full.empty() && full.back() == '/') full.pop_back();
  full.append(path);
  url.set_path(full);
  url.remove_query();
  return url;
}

void add(boost::urls::url& url, std::string_view key, std::string_view value) { url.params().append({key, value}); }

void addEnvelope(boost::urls::url& url, const FireMapEnvelope& e) {
  add(url, "geometry", number(e.west) + "," + number(e.south) + "," + number(e.east) + "," + number(e.north));
  add(url, "geometryType", "esriGeometryEnvelope");
  add(url, "inSR", "4326");
  add(url, "spatialRel", "esriSpatialRelIntersects");
}

std::string hoursAgo(Date now, double hours) { return fireDateLiteral(now - hours * 3600.0); }

}  // namespace

std::string fireDateLiteral(Date date) {
  using namespace std::chrono;
  const auto seconds = sys_seconds(std::chrono::seconds(static_cast<long long>(std::floor(date.unixSeconds()))));
  const auto day = floor<days>(seconds);
  const year_month_day ymd(day);
  const hh_mm_ss time(seconds - day);
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, "timestamp '%04d-%02u-%02u %02ld:%02ld:%02ld'", static_cast<int>(ymd.year()),
                static_cast<unsigned>(ymd.month()), static_cast<unsigned>(ymd.day()),
                static_cast<long>(time.hours().count()), static_cast<long>(time.minutes().count()),
                static_cast<long>(time.seconds().count()));
  return buffer;
}

double fireGeometryTolerance(const FireMapEnvelope& e) noexcept {
  const double span = std::max({e.east - e.west, e.north - e.south, 0.0});
  return std::clamp(span / 1500.0, 0.00001, 0.01);
}

double fireMaximumAllowableOffset(double tolerance) noexcept {
  if (!std::isfinite(tolerance)) return 0.01;
  return std::clamp(tolerance * 2.5, 0.0005, 0.01);
}

bool fireEnvelopeMeetsCalifornia(const FireMapEnvelope& e) noexcept {
  return !(e.west > -114.1 || e.south > 42.1 || e.east < -124.5 || e.north < 32.4);
}

std::string nifcIncidentWhere(NIFCIncidentLayer layer, Date now) {
  const std::string recentlyContained =
      "(PercentContained IS NULL OR PercentContained < 100 OR ModifiedOnDateTime_dt >= " + hoursAgo(now, 12) + ")";
  if (layer == NIFCIncidentLayer::current) {
    return joined({"ActiveFireCandidate = 1", "IncidentTypeCategory IN ('WF','RX','CX')",
                   std::string("IncidentSize >= ") + kMinimumAcresText, recentlyContained},
                  " AND ");
  }
  const std::string ladder =
      std::string("((IncidentSize < 10 AND ModifiedOnDateTime_dt >= ") + hoursAgo(now, 72) +
      ") OR (IncidentSize >= 10 AND IncidentSize <= 100 AND ModifiedOnDateTime_dt >= " + hoursAgo(now, 8 * 24) +
      ") OR (IncidentSize > 100 AND ModifiedOnDateTime_dt >= " + hoursAgo(now, 14 * 24) + "))";
  return joined({"IncidentTypeCategory IN ('WF','RX','CX')", std::string("IncidentSize >= ") + kMinimumAcresText,
                 "ContainmentDateTime IS NULL", "ControlDateTime IS NULL", "FireOutDateTime IS NULL",
                 "FinalFireReportApprovedDate IS NULL", "IsValid = 1", "(IsQuarantined IS NULL OR IsQuarantined = 0)",
                 ladder, recentlyContained},
                " AND ");
}

std::string nifcPerimeterWhere(Date now) {
  return joined({"attr_ActiveFireCandidate = 1", "attr_IncidentTypeCategory IN ('WF','RX')",
                 std::string("(poly_GISAcres >= ") + kMinimumAcresText +
                     " OR (poly_GISAcres IS NULL AND attr_IncidentSize >= " + kMinimumAcresText + "))",
                 "(attr_PercentContained IS NULL OR attr_PercentContained < 100 OR attr_ModifiedOnDateTime_dt >= " +
                     hoursAgo(now, 12) + ")"},
                " AND ");
}

std::string calFirePerimeterDiscoveryWhere() {
  return std::string("displayStatus = 'Active' AND (area_acres >= ") + kMinimumAcresText +
         " OR (area_acres IS NULL AND NIFC_GISAcres >= " + kMinimumAcresText + "))";
}

boost::urls::url nifcIncidentURL(const boost::urls::url& base, NIFCIncidentLayer layer, Date now, int count, int offset,
                                 const std::optional<FireMapEnvelope>& envelope) {
  const char* name =
      layer == NIFCIncidentLayer::current ? "WFIGS_Incident_Locations_Current" : "WFIGS_Incident_Locations_YearToDate";
  boost::urls::url url = at(base, std::string(kNIFCServicePath) + name + "/FeatureServer/0/query");
  add(url, "where", nifcIncidentWhere(layer, now));
  add(url, "outFields",
      "OBJECTID,GlobalID,UniqueFireIdentifier,IncidentName,IncidentTypeCategory,IncidentSize,PercentContained,"
      "FireDiscoveryDateTime,ModifiedOnDateTime_dt,POOCity,POOCounty,POOState,ActiveFireCandidate");
  add(url, "returnGeometry", "true");
  add(url, "outSR", "4326");
  add(url, "resultRecordCount", std::to_string(count));
  add(url, "resultOffset", std::to_string(offset));
  add(url, "orderByFields", "ModifiedOnDateTime_dt DESC, OBJECTID ASC");
  add(url, "f", "geojson");
  if (envelope) addEnvelope(url, *envelope);
  return url;
}

boost::urls::url nifcPerimeterURL(const boost::urls::url& base, Date now, int count, int offset,
                                  const FireMapEnvelope& envelope, double tolerance,
                                  const std::vector<std::int64_t>& objectIDs) {
  boost::urls::url url =
      at(base, std::string(kNIFCServicePath) + "WFIGS_Interagency_Perimeters_Current/FeatureServer/0/query");
  std::string where = nifcPerimeterWhere(now);
  if (!objectIDs.empty()) where = "(" + where + ") AND OBJECTID IN (" + idList(objectIDs) + ")";
  add(url, "where", where);
  add(url, "outFields",
      "OBJECTID,GlobalID,attr_UniqueFireIdentifier,poly_IncidentName,attr_IncidentTypeCategory,poly_GISAcres,"
      "attr_IncidentSize,attr_PercentContained,poly_PolygonDateTime,attr_ModifiedOnDateTime_dt,"
      "attr_ActiveFireCandidate,attr_POOState");
  add(url, "returnGeometry", "true");
  add(url, "outSR", "4326");
  add(url, "resultRecordCount", std::to_string(count));
  add(url, "resultOffset", std::to_string(offset));
  add(url, "maxAllowableOffset", number(fireMaximumAllowableOffset(tolerance)));
  add(url, "orderByFields", "attr_ModifiedOnDateTime_dt DESC, OBJECTID ASC");
  add(url, "f", "geojson");
  if (objectIDs.empty()) addEnvelope(url, envelope);
  return url;
}

namespace {

// The where-text of a scope: the discovery clauses, narrowed to missions or members.
std::string calFirePerimeterWhere(const CalFirePerimeterQueryScope& scope) {
  using Scope = CalFirePerimeterQueryScope;
  if (const auto* missions = std::get_if<Scope::MissionSQLComparisonIdentities>(&scope.value)) {
    return "(" + calFirePerimeterDiscoveryWhere() + ") AND UPPER(mission) IN (" + joined(missions->identities, ",") +
           ")";
  }
  if (const auto* members = std::get_if<Scope::ObjectIDs>(&scope.value)) {
    return "(" + calFirePerimeterDiscoveryWhere() + ") AND OBJECTID IN (" + idList(members->ids) + ")";
  }
  return calFirePerimeterDiscoveryWhere();
}

}  // namespace

boost::urls::url calFirePerimeterURL(const boost::urls::url& base, const CalFirePerimeterQueryScope& scope,
                                     double tolerance, int count, int offset) {
  const bool shapes = std::holds_alternative<CalFirePerimeterQueryScope::ObjectIDs>(scope.value);
  boost::urls::url url = at(base, kCalFirePerimeterPath);
  add(url, "where", calFirePerimeterWhere(scope));
  add(url, "outFields", kCalFireOutFields);
  add(url, "returnGeometry", shapes ? "true" : "false");
  if (shapes) {
    add(url, "outSR", "4326");
    add(url, "maxAllowableOffset", number(fireMaximumAllowableOffset(tolerance)));
  }
  add(url, "resultRecordCount", std::to_string(count));
  add(url, "resultOffset", std::to_string(offset));
  add(url, "orderByFields", "OBJECTID ASC");
  add(url, "f", "geojson");
  if (const auto* area = std::get_if<CalFirePerimeterQueryScope::SpatialDiscovery>(&scope.value)) {
    addEnvelope(url, area->envelope);
  }
  return url;
}

boost::urls::url calFireIncidentsURL(const boost::urls::url& site) {
  boost::urls::url url = at(site, "/api/sitecore/Incident/GetFiresForMap");
  add(url, "showFeatured", "False");
  return url;
}

namespace {

std::string sixDecimals(double value) {
  // Independent of the process locale: always a point, never a comma.
  char buffer[64];
  const auto result = std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::fixed, 6);
  return std::string(buffer, result.ptr);
}

}  // namespace

boost::urls::url cwfisActiveFiresURL(const boost::urls::url& base, Date now, int count, int startIndex,
                                     const std::optional<FireMapEnvelope>& envelope) {
  using namespace std::chrono;
  const auto day = floor<days>(sys_seconds(seconds(static_cast<long long>(std::floor(now.unixSeconds())))));
  const int year = static_cast<int>(year_month_day(day).year());
  std::vector<std::string> clauses{"now()>=record_start", "now()<=record_end", "fire_size>=1",
                                   "stage_of_control_status<>'EX'",
                                   "(status_year IS NULL OR status_year>=" + std::to_string(year - 1) + ")"};
  if (envelope) {
    clauses.push_back("longitude >= " + sixDecimals(envelope->west));
    clauses.push_back("longitude <= " + sixDecimals(envelope->east));
    clauses.push_back("latitude >= " + sixDecimals(envelope->south));
    clauses.push_back("latitude <= " + sixDecimals(envelope->north));
  }
  boost::urls::url url = at(base, "/geoserver/ows");
  add(url, "service", "WFS");
  add(url, "version", "2.0.0");
  add(url, "request", "GetFeature");
  add(url, "typeName", "public:cwfif_national_activefires");
  add(url, "outputFormat", "json");
  add(url, "count", std::to_string(count));
  add(url, "startIndex", std::to_string(startIndex));
  add(url, "sortBy", "id");
  add(url, "propertyName",
      "id,agency_code,national_fire_id,agency_fire_id,fire_was_prescribed,percent_contained,fire_size,"
      "stage_of_control_status,situation_report_date,status_date,fire_year,status_year,latitude,longitude");
  add(url, "CQL_FILTER", joined(clauses, " AND "));
  return url;
}

boost::urls::url cwfisPerimetersURL(const boost::urls::url& base, int count, int startIndex, const FireMapEnvelope& e) {
  boost::urls::url url = at(base, "/geoserver/public/ows");
  add(url, "service", "WFS");
  add(url, "version", "2.0.0");
  add(url, "request", "GetFeature");
  add(url, "typeName", "public:m3_polygons_current");
  add(url, "outputFormat", "json");
  add(url, "srsName", "EPSG:4326");
  add(url, "count", std::to_string(count));
  add(url, "startIndex", std::to_string(startIndex));
  add(url, "bbox",
      number(e.west) + "," + number(e.south) + "," + number(e.east) + "," + number(e.north) + ",EPSG:4326");
  return url;
}

boost::urls::url bcWildfireEnrichmentURL(const boost::urls::url& base, const std::vector<std::string>& fireNumbers) {
  std::vector<std::string> quoted;
  for (const auto& number : fireNumbers) {
    std::string_view trimmedNumber = number;
    while (!trimmedNumber.empty() && std::isspace(static_cast<unsigned char>(trimmedNumber.front())))
      trimmedNumber.remove_prefix(1);
    while (!trimmedNumber.empty() && std::isspace(static_cast<unsigned char>(trimmedNumber.back())))
      trimmedNumber.remove_suffix(1);
    std::string text = "'";
    for (char c : trimmedNumber) {
      if (c == '\'') text.push_back('\'');
      text.push_back(c);
    }
    text.push_back('\'');
    quoted.push_back(std::move(text));
  }
  boost::urls::url url = at(base, "/arcgis/rest/services/mpcm/bcgwpub/MapServer/502/query");
  add(url, "where", "FIRE_NUMBER IN (" + joined(quoted, ",") + ")");
  add(url, "outFields", "OBJECTID,FIRE_NUMBER,INCIDENT_NAME,GEOGRAPHIC_DESCRIPTION,FIRE_URL");
  add(url, "returnGeometry", "false");
  add(url, "resultRecordCount", std::to_string(fireNumbers.size()));
  add(url, "orderByFields", "OBJECTID ASC");
  add(url, "f", "geojson");
  return url;
}

}  // namespace ombrine
