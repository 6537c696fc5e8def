#include "fires/fire_loading_policy.hpp"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <map>
#include <numbers>

#include <boost/url/parse.hpp>

#include "core/values/iso8601.hpp"

namespace ombrine {

namespace {

std::string upper(std::string_view text) {
  std::string result(text);
  for (char& c : result) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return result;
}

std::string lower(std::string_view text) {
  std::string result(text);
  for (char& c : result) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return result;
}

std::string trim(std::string_view text) {
  auto space = [](char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; };
  while (!text.empty() && space(text.front())) text.remove_prefix(1);
  while (!text.empty() && space(text.back())) text.remove_suffix(1);
  return std::string(text);
}

std::optional<std::string> nonEmpty(const std::optional<std::string>& text) {
  if (!text) return std::nullopt;
  std::string value = trim(*text);
  if (value.empty()) return std::nullopt;
  return value;
}

std::optional<double> finite(const std::optional<double>& value) {
  if (value && std::isfinite(*value)) return value;
  return std::nullopt;
}

std::optional<Date> epochMilliseconds(const std::optional<double>& value) {
  if (!value || !std::isfinite(*value)) return std::nullopt;
  return Date::fromUnix(*value / 1000.0);
}

// A percentage of 100 or more stays only while its last change is recent.
bool containedLongAgo(const std::optional<double>& percent, const std::optional<Date>& modified, Date now) {
  if (!percent || *percent < 100) return false;
  return !modified ||
         now.timeIntervalSinceReferenceDate - modified->timeIntervalSinceReferenceDate > kContainedFireGraceSeconds;
}

std::optional<std::string> featureIdentity(std::initializer_list<std::optional<std::string>> texts,
                                           const std::optional<std::int64_t>& objectID,
                                           const std::optional<FireFeatureID>& featureID) {
  for (const auto& text : texts) {
    if (auto value = nonEmpty(text)) return value;
  }
  if (objectID) return std::to_string(*objectID);
  if (featureID) return featureID->text();
  return std::nullopt;
}

}  // namespace

double fireHaversineMeters(double latitude1, double longitude1, double latitude2, double longitude2) noexcept {
  constexpr double kRadius = 6371000.0;
  constexpr double kRadians = std::numbers::pi / 180.0;
  const double dLat = (latitude2 - latitude1) * kRadians;
  const double dLon = (longitude2 - longitude1) * kRadians;
  const double a = std::sin(dLat / 2) * std::sin(dLat / 2) + std::cos(latitude1 * kRadians) *
                                                                 std::cos(latitude2 * kRadians) * std::sin(dLon / 2) *
                                                                 std::sin(dLon / 2);
  return 2 * kRadius * std::atan2(std::sqrt(a), std::sqrt(std::max(0.0, 1 - a)));
}

std::string normalizedFireName(std::string_view name) {
  std::vector<std::string> parts;
  std::string part;
  for (char c : name) {
    if (std::isalnum(static_cast<unsigned char>(c))) {
      part.push_back(static_cast<char>(std::toupper(static_cast<unsigned char>(c))));
    } else if (!part.empty()) {
      parts.push_back(std::move(part));
      part.clear();
    }
  }
  if (!part.empty()) parts.push_back(std::move(part));
  if (!parts.empty() && parts.back() == "FIRE") parts.pop_back();
  std::string joined;
  for (const auto& p : parts) {
    if (!joined.empty()) joined.push_back(' ');
    joined += p;
  }
  return joined;
}

FireIncidentType fireTypeOfCategory(const std::optional<std::string>& category) {
  const std::string code = upper(category.value_or(""));
  if (code == "WF") return FireIncidentType::wildfire();
  if (code == "RX") return FireIncidentType::prescribedFire();
  if (code == "CX") return FireIncidentType::incidentComplex();
  return FireIncidentType::unknown(category.value_or(""));
}

FireIncidentType fireTypeOfCalFireText(const std::optional<std::string>& text) {
  const std::string value = lower(trim(text.value_or("")));
  if (value == "fire" || value == "wildfire") return FireIncidentType::wildfire();
  if (value == "prescribed fire" || value == "prescribed burn") return FireIncidentType::prescribedFire();
  if (value == "complex" || value == "incident complex") return FireIncidentType::incidentComplex();
  return FireIncidentType::unknown(text.value_or(""));
}

std::optional<FireIncident> nifcFireIncident(const FireFeature<NIFCFireIncidentProperties>& feature, bool currentLayer,
                                             Date now) {
  if (!feature.geometry) return std::nullopt;
  const auto* point = std::get_if<FireGeoJSONGeometry::Point>(&feature.geometry->value);
  if (point == nullptr || point->coordinates.size() < 2) return std::nullopt;
  const NIFCFireIncidentProperties p = feature.properties.value_or(NIFCFireIncidentProperties{});
  const auto size = finite(p.incidentSize);
  if (!size || *size < kMinimumFireAcres) return std::nullopt;
  if (currentLayer && p.activeFireCandidate != 1) return std::nullopt;
  FireIncident incident;
  incident.type = fireTypeOfCategory(p.incidentTypeCategory);
  incident.percentContained = finite(p.percentContained);
  if (incident.type.isPrescribedFire() && incident.percentContained == 0.0) incident.percentContained.reset();
  incident.discoveryDate = epochMilliseconds(p.fireDiscoveryDateTime);
  incident.modifiedDate = epochMilliseconds(p.modifiedOnDateTime);
  if (containedLongAgo(incident.percentContained, incident.modifiedDate, now)) return std::nullopt;
  auto id = featureIdentity({p.uniqueFireIdentifier, p.globalID}, p.objectID, feature.id);
  if (!id) return std::nullopt;
  incident.id = std::move(*id);
  incident.deduplicationIdentifier = nonEmpty(p.uniqueFireIdentifier);
  incident.source = FireMapSource::unitedStates;
  incident.name = trim(p.incidentName.value_or(""));
  incident.coordinate = FireCoordinate{point->coordinates[1], point->coordinates[0]};
  incident.acres = size;
  incident.city = p.pooCity;
  incident.county = p.pooCounty;
  incident.state = p.pooState;
  return incident;
}

std::optional<FirePerimeter> nifcFirePerimeter(const FireFeature<NIFCFirePerimeterProperties>& feature, Date now) {
  if (!feature.geometry) return std::nullopt;
  auto polygons = firePolygons(*feature.geometry);
  if (polygons.empty()) return std::nullopt;
  const NIFCFirePerimeterProperties p = feature.properties.value_or(NIFCFirePerimeterProperties{});
  const auto acres = finite(p.gisAcres) ? finite(p.gisAcres) : finite(p.incidentSize);
  if (!acres || *acres < kMinimumFireAcres) return std::nullopt;
  FirePerimeter perimeter;
  perimeter.type = fireTypeOfCategory(p.incidentTypeCategory);
  perimeter.percentContained = finite(p.percentContained);
  if (perimeter.type.isPrescribedFire() && perimeter.percentContained == 0.0) perimeter.percentContained.reset();
  perimeter.modifiedDate = epochMilliseconds(p.modifiedOnDateTime);
  if (containedLongAgo(perimeter.percentContained, perimeter.modifiedDate, now)) return std::nullopt;
  auto id = featureIdentity({p.uniqueFireIdentifier, p.globalID}, p.objectID, feature.id);
  if (!id) return std::nullopt;
  perimeter.id = std::move(*id);
  perimeter.deduplicationIdentifier = nonEmpty(p.uniqueFireIdentifier);
  perimeter.source = FireMapSource::unitedStates;
  perimeter.name = trim(p.incidentName.value_or(""));
  perimeter.acres = *acres;
  perimeter.polygonDate = epochMilliseconds(p.polygonDateTime).value_or(perimeter.modifiedDate.value_or(now));
  perimeter.state = p.pooState;
  perimeter.polygons = std::move(polygons);
  refreshFirePerimeterRevision(perimeter);
  return perimeter;
}

std::optional<Date> calFireDate(std::string_view text, const TimeZone& zone) {
  const std::string value = trim(text);
  if (value.empty()) return std::nullopt;
  if (auto zoned = parseInternetDateTime(value, false)) return zoned;
  if (auto zoned = parseInternetDateTime(value, true)) return zoned;
  int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0, consumed = -1;
  const int fields = std::sscanf(value.c_str(), "%4d-%2d-%2d%n", &year, &month, &day, &consumed);
  if (fields != 3 || consumed < 10) return std::nullopt;
  if (static_cast<size_t>(consumed) != value.size()) {
    int more = -1;
    const char* rest = value.c_str() + consumed;
    if (std::sscanf(rest, "T%2d:%2d:%2d%n", &hour, &minute, &second, &more) != 3 ||
        static_cast<size_t>(more) != std::string_view(rest).size()) {
      more = -1;
      if (std::sscanf(rest, "T%2d:%2d%n", &hour, &minute, &more) != 2 ||
          static_cast<size_t>(more) != std::string_view(rest).size()) {
        return std::nullopt;
      }
    }
  }
  using namespace std::chrono;
  const year_month_day ymd{std::chrono::year(year), std::chrono::month(static_cast<unsigned>(month)),
                           std::chrono::day(static_cast<unsigned>(day))};
  if (!ymd.ok() || hour > 23 || minute > 59 || second > 59) return std::nullopt;
  const double wall =
      static_cast<double>((sys_days(ymd) + hours(hour) + minutes(minute) + seconds(second)).time_since_epoch().count());
  // The offset at the wall time read as UTC, then at the instant it gives: right on both sides
  // of a change of offset except within its skipped or repeated hour.
  const Date guess = Date::fromUnix(wall);
  const int offset = zone.secondsFromGMT(guess - zone.secondsFromGMT(guess));
  return Date::fromUnix(wall - offset);
}

std::optional<FireIncident> calFireIncident(const CalFireActiveIncidentProperties& p, const boost::urls::url& siteBase,
                                            const TimeZone& pacific) {
  if (p.isActive == false) return std::nullopt;
  const auto acres = finite(p.acresBurned);
  if (!acres || *acres < kMinimumFireAcres) return std::nullopt;
  const auto latitude = finite(p.latitude);
  const auto longitude = finite(p.longitude);
  if (!latitude || !longitude) return std::nullopt;
  auto id = nonEmpty(p.uniqueID);
  if (!id) return std::nullopt;
  FireIncident incident;
  incident.id = "calfire-incident:" + *id;
  incident.source = FireMapSource::unitedStates;
  incident.name = trim(p.name.value_or(""));
  incident.type = fireTypeOfCalFireText(p.type);
  // The current list leaves the type out; every fire it lists is a wildfire unless it says so.
  if (!p.type || trim(*p.type).empty()) incident.type = FireIncidentType::wildfire();
  incident.coordinate = FireCoordinate{*latitude, *longitude};
  incident.acres = acres;
  incident.percentContained = finite(p.percentContained);
  if (p.startedDate) incident.discoveryDate = calFireDate(*p.startedDate, pacific);
  if (p.updatedDate) incident.modifiedDate = calFireDate(*p.updatedDate, pacific);
  incident.county = nonEmpty(p.county);
  incident.state = "CA";
  if (auto path = nonEmpty(p.detailsPath)) {
    if (lower(*path).starts_with("/incidents/")) {
      boost::urls::url page = siteBase;
      std::string joined(siteBase.path());
      while (!joined.empty() && joined.back() == '/') joined.pop_back();
      page.set_path(joined + *path);
      incident.detailsURL = page;
    } else if (lower(*path).starts_with("https://")) {
      auto parsed = boost::urls::parse_absolute_uri(*path);
      if (parsed) incident.detailsURL = boost::urls::url(*parsed);
    }
  }
  return incident;
}

std::optional<FirePerimeter> cwfisFirePerimeter(const FireFeature<CWFISFirePerimeterProperties>& feature) {
  if (!feature.geometry || !feature.id) return std::nullopt;
  auto polygons = firePolygons(*feature.geometry);
  if (polygons.empty()) return std::nullopt;
  const auto p = feature.properties.value_or(CWFISFirePerimeterProperties{});
  const auto hectares = finite(p.areaHectares);
  if (!hectares || *hectares * kAcresPerHectare < kMinimumFireAcres) return std::nullopt;
  FirePerimeter perimeter;
  const std::string id = feature.id->text();
  perimeter.id = "cwfis-perimeter:" + id;
  perimeter.source = FireMapSource::canada;
  // WFS ids read "<layer>.<number>"; the number is what tells two hotspot areas apart.
  perimeter.name = "Hotspot area " + id.substr(id.rfind('.') == std::string::npos ? 0 : id.rfind('.') + 1);
  perimeter.type = FireIncidentType::wildfire();
  perimeter.acres = *hectares * kAcresPerHectare;
  const TimeZone utc = TimeZone::gmt();
  if (p.lastDate) {
    if (auto date = calFireDate(p.lastDate->text, utc)) perimeter.polygonDate = *date;
  }
  if (p.firstDate && perimeter.polygonDate == Date{}) {
    if (auto date = calFireDate(p.firstDate->text, utc)) perimeter.polygonDate = *date;
  }
  perimeter.polygons = std::move(polygons);
  refreshFirePerimeterRevision(perimeter);
  return perimeter;
}

// -- Reconciliation --------------------------------------------------------------------------

namespace {

bool identifiersMatch(const std::optional<std::string>& a, const std::optional<std::string>& b) {
  if (!a || !b) return false;
  const std::string left = lower(trim(*a));
  return !left.empty() && left == lower(trim(*b));
}

bool datesClose(std::optional<Date> a, std::optional<Date> b) {
  if (!a || !b) return true;
  return std::fabs(a->timeIntervalSinceReferenceDate - b->timeIntervalSinceReferenceDate) <=
         CalFireIncidentLoadingPolicy::kMatchDateSeconds;
}

}  // namespace

namespace CalFireIncidentLoadingPolicy {

bool sameFire(const std::optional<std::string>& identifierA, const std::optional<std::string>& identifierB,
              std::string_view nameA, std::string_view nameB, double distanceMeters, std::optional<Date> dateA,
              std::optional<Date> dateB) {
  if (identifiersMatch(identifierA, identifierB)) return true;
  const std::string left = normalizedFireName(nameA);
  return !left.empty() && left == normalizedFireName(nameB) && distanceMeters <= kMatchDistanceMeters &&
         datesClose(dateA, dateB);
}

std::vector<FireIncident> reconcile(std::vector<FireIncident> primary, std::vector<FireIncident> supplemental) {
  for (auto& extra : supplemental) {
    bool consumed = false;
    for (auto& kept : primary) {
      const double distance = fireHaversineMeters(kept.coordinate.latitude, kept.coordinate.longitude,
                                                  extra.coordinate.latitude, extra.coordinate.longitude);
      if (!sameFire(kept.deduplicationIdentifier, extra.deduplicationIdentifier, kept.name, extra.name, distance,
                    kept.discoveryDate, extra.discoveryDate)) {
        continue;
      }
      if (!kept.deduplicationIdentifier) kept.deduplicationIdentifier = extra.deduplicationIdentifier;
      consumed = true;
      break;
    }
    if (!consumed) primary.push_back(std::move(extra));
  }
  return primary;
}

}  // namespace CalFireIncidentLoadingPolicy

std::optional<FirePerimeterDeduplicationBounds> firePerimeterBounds(
    const std::vector<FirePerimeter::Polygon>& polygons) {
  std::optional<FirePerimeterDeduplicationBounds> bounds;
  for (const auto& polygon : polygons) {
    double previous = 0.0;
    bool first = true;
    for (const auto& c : polygon.exterior) {
      double longitude = c.longitude;
      if (!first) {
        while (longitude - previous > 180) longitude -= 360;
        while (previous - longitude > 180) longitude += 360;
      }
      first = false;
      previous = longitude;
      if (!bounds) {
        bounds = FirePerimeterDeduplicationBounds{longitude, c.latitude, longitude, c.latitude};
      } else {
        bounds->west = std::min(bounds->west, longitude);
        bounds->east = std::max(bounds->east, longitude);
        bounds->south = std::min(bounds->south, c.latitude);
        bounds->north = std::max(bounds->north, c.latitude);
      }
    }
  }
  return bounds;
}

namespace UnitedStatesFirePerimeterLoadingPolicy {

bool near(const FirePerimeterDeduplicationBounds& a, const FirePerimeterDeduplicationBounds& b) {
  // Compare longitudes in the turn nearest to each other.
  double shift = 0.0;
  const double centreA = (a.west + a.east) / 2;
  const double centreB = (b.west + b.east) / 2;
  while (centreB + shift - centreA > 180) shift -= 360;
  while (centreA - (centreB + shift) > 180) shift += 360;
  const bool overlap = a.west <= b.east + shift && b.west + shift <= a.east && a.south <= b.north && b.south <= a.north;
  if (overlap) return true;
  return fireHaversineMeters((a.south + a.north) / 2, centreA, (b.south + b.north) / 2, centreB) <=
         CalFireIncidentLoadingPolicy::kMatchDistanceMeters;
}

std::vector<FirePerimeter> reconcile(std::vector<FirePerimeter> primary, std::vector<FirePerimeter> supplemental) {
  std::vector<std::optional<FirePerimeterDeduplicationBounds>> primaryBounds;
  for (const auto& perimeter : primary) primaryBounds.push_back(firePerimeterBounds(perimeter.polygons));
  for (auto& extra : supplemental) {
    const auto extraBounds = firePerimeterBounds(extra.polygons);
    bool consumed = false;
    for (size_t i = 0; i < primary.size() && !consumed; ++i) {
      auto& kept = primary[i];
      bool same = identifiersMatch(kept.deduplicationIdentifier, extra.deduplicationIdentifier);
      if (!same) {
        const std::string name = normalizedFireName(kept.name);
        same = !name.empty() && name == normalizedFireName(extra.name) && primaryBounds[i] && extraBounds &&
               near(*primaryBounds[i], *extraBounds) && datesClose(kept.polygonDate, extra.polygonDate);
      }
      if (!same) continue;
      if (!kept.deduplicationIdentifier) kept.deduplicationIdentifier = extra.deduplicationIdentifier;
      consumed = true;
    }
    if (!consumed) {
      primary.push_back(std::move(extra));
      primaryBounds.push_back(extraBounds);
    }
  }
  return primary;
}

}  // namespace UnitedStatesFirePerimeterLoadingPolicy

// -- CAL FIRE missions -----------------------------------------------------------------------

namespace CalFirePerimeterLoadingPolicy {

std::optional<CalFirePerimeterMissionKey> missionKey(const std::optional<std::string>& mission) {
  auto value = nonEmpty(mission);
  if (!value) return std::nullopt;
  return CalFirePerimeterMissionKey{upper(*value)};
}

std::string missionSQLComparisonIdentity(const CalFirePerimeterMissionKey& key) {
  std::string quoted = "'";
  for (char c : key.normalizedMission) {
    if (c == '\'') quoted.push_back('\'');
    quoted.push_back(c);
  }
  quoted.push_back('\'');
  return quoted;
}

std::uint64_t memberRevisionSignature(const CalFirePerimeterProperties& p) {
  std::uint64_t hash = 14695981039346656037ull;
  auto add = [&](std::uint64_t word) {
    for (int i = 0; i < 8; ++i) {
      hash ^= (word >> (i * 8)) & 0xff;
      hash *= 1099511628211ull;
    }
  };
  auto addOptional = [&](const std::optional<double>& value) {
    add(value ? fireBitPattern(*value) : 0x7ff4000000000001ull);
  };
  add(static_cast<std::uint64_t>(p.objectID.value_or(-1)));
  addOptional(p.polygonDateTime);
  addOptional(p.editDateTime);
  addOptional(p.areaAcres);
  addOptional(p.nifcGISAcres);
  addOptional(p.percentContained);
  return hash;
}

namespace {

bool newer(const CalFirePerimeterProperties& a, const CalFirePerimeterProperties& b) {
  const auto key = [](const CalFirePerimeterProperties& p) {
    return std::tuple{p.polygonDateTime.value_or(-1e300), p.editDateTime.value_or(-1e300), p.objectID.value_or(-1)};
  };
  return key(a) > key(b);
}

}  // namespace

std::vector<CalFirePerimeterMissionGroup<CalFirePerimeterProperties>> group(
    const std::vector<CalFirePerimeterProperties>& members) {
  std::vector<CalFirePerimeterMissionGroup<CalFirePerimeterProperties>> groups;
  std::map<CalFirePerimeterMissionKey, size_t> byKey;
  std::map<std::int64_t, bool> seenObjects;
  for (const auto& member : members) {
    if (member.objectID) {
      if (seenObjects[*member.objectID]) continue;  // found by discovery and by its mission
      seenObjects[*member.objectID] = true;
    }
    const auto key = missionKey(member.missionIdentifier);
    size_t index = groups.size();
    if (key) {
      const auto [it, inserted] = byKey.emplace(*key, groups.size());
      index = it->second;
      if (inserted) groups.push_back({key, member, {}, {}, 0});
    } else {
      groups.push_back({std::nullopt, member, {}, {}, 0});
    }
    groups[index].memberRecords.push_back(member);
  }
  for (auto& g : groups) {
    g.currentRecord = g.memberRecords.front();
    for (const auto& member : g.memberRecords) {
      if (newer(member, g.currentRecord)) g.currentRecord = member;
    }
    std::uint64_t signature = 1469598103934665603ull;
    for (const auto& member : g.memberRecords) {
      signature = (signature ^ memberRevisionSignature(member)) * 1099511628211ull;
      if (member.objectID != g.currentRecord.objectID) g.historicalRecords.push_back(member);
    }
    g.componentRevisionSignature = signature;
  }
  return groups;
}

std::vector<CalFirePerimeterMissionQueryBatch> batches(const std::vector<CalFirePerimeterMissionKey>& keys) {
  std::vector<CalFirePerimeterMissionQueryBatch> result;
  size_t length = 0;
  for (const auto& key : keys) {
    std::string identity = missionSQLComparisonIdentity(key);
    const bool full = !result.empty() && (result.back().missionKeys.size() >= kMissionBatchSize ||
                                          length + identity.size() + 1 > kMaximumMissionWhereLength);
    if (result.empty() || full) {
      result.emplace_back();
      length = 0;
    }
    length += identity.size() + 1;
    result.back().missionKeys.push_back(key);
    result.back().missionSQLComparisonIdentities.push_back(std::move(identity));
  }
  return result;
}

std::optional<FirePerimeter> perimeter(const CalFirePerimeterMissionGroup<CalFirePerimeterProperties>& group,
                                       const FireGeoJSONGeometry& geometry) {
  const auto& p = group.currentRecord;
  auto polygons = firePolygons(geometry);
  if (polygons.empty() || !p.objectID) return std::nullopt;
  const auto acres = finite(p.areaAcres) ? finite(p.areaAcres) : finite(p.nifcGISAcres);
  if (!acres || *acres < kMinimumFireAcres) return std::nullopt;
  FirePerimeter perimeter;
  perimeter.id = group.key ? "calfire-mission:" + group.key->normalizedMission
                           : "calfire-perimeter:" + std::to_string(*p.objectID);
  perimeter.source = FireMapSource::unitedStates;
  perimeter.name = trim(p.incidentName.value_or(""));
  perimeter.type = FireIncidentType::wildfire();
  perimeter.acres = *acres;
  perimeter.percentContained = finite(p.percentContained);
  perimeter.modifiedDate = epochMilliseconds(p.editDateTime);
  perimeter.polygonDate = epochMilliseconds(p.polygonDateTime).value_or(perimeter.modifiedDate.value_or(Date{}));
  perimeter.state = "CA";
  perimeter.polygons = std::move(polygons);
  refreshFirePerimeterRevision(perimeter, group.componentRevisionSignature);
  return perimeter;
}

}  // namespace CalFirePerimeterLoadingPolicy

// -- Canada ----------------------------------------------------------------------------------

namespace CanadianFireIncidentLoadingPolicy {

std::optional<FireControlStatus> controlStatus(const std::optional<std::string>& stage) {
  const std::string code = upper(trim(stage.value_or("")));
  if (code == "OC") return FireControlStatus::outOfControl;
  if (code == "BH") return FireControlStatus::beingHeld;
  if (code == "UC") return FireControlStatus::underControl;
  if (code == "EX" || code == "OUT") return FireControlStatus::out;
  return std::nullopt;
}

std::optional<CanadianFireIncidentCandidate<FireIncident>> candidate(
    const FireFeature<CWFISActiveFireProperties>& feature) {
  const auto p = feature.properties.value_or(CWFISActiveFireProperties{});
  auto latitude = finite(p.latitude);
  auto longitude = finite(p.longitude);
  if ((!latitude || !longitude) && feature.geometry) {
    if (const auto* point = std::get_if<FireGeoJSONGeometry::Point>(&feature.geometry->value)) {
      longitude = point->coordinates[0];
      latitude = point->coordinates[1];
    }
  }
  if (!latitude || !longitude) return std::nullopt;
  const auto hectares = finite(p.fireSizeHectares);
  const std::string agency = trim(p.agencyCode.value_or(""));
  std::optional<std::string> agencyFireID;
  if (p.agencyFireID) agencyFireID = nonEmpty(p.agencyFireID->text);
  std::optional<std::string> nationalID;
  if (p.nationalFireID) nationalID = nonEmpty(p.nationalFireID->text);
  std::optional<std::string> rowID;
  if (p.id) rowID = nonEmpty(p.id->text);
  if (!rowID && feature.id) rowID = feature.id->text();
  if (!agencyFireID && !nationalID && !rowID) return std::nullopt;

  FireIncident incident;
  incident.id = "cwfis:" + agency + ":" + agencyFireID.value_or(nationalID.value_or(*rowID));
  incident.deduplicationIdentifier = nationalID;
  incident.source = FireMapSource::canada;
  incident.name = agencyFireID.value_or(nationalID.value_or(*rowID));
  const std::string prescribed = lower(p.fireWasPrescribed ? p.fireWasPrescribed->text : "");
  incident.type = (prescribed == "true" || prescribed == "y" || prescribed == "yes" || prescribed == "1")
                      ? FireIncidentType::prescribedFire()
                      : FireIncidentType::wildfire();
  incident.coordinate = FireCoordinate{*latitude, *longitude};
  if (hectares) incident.acres = *hectares * kAcresPerHectare;
  incident.percentContained = finite(p.percentContained);
  const TimeZone utc = TimeZone::gmt();
  if (p.situationReportDate) incident.discoveryDate = calFireDate(p.situationReportDate->text, utc);
  if (p.statusDate) incident.modifiedDate = calFireDate(p.statusDate->text, utc);
  if (agency.size() > 3 && upper(agency).starts_with("CA-")) incident.state = upper(agency.substr(3));
  incident.controlStatus = controlStatus(p.stageOfControlStatus);

  CanadianFireIncidentCandidate<FireIncident> result;
  result.fireYear = p.fireYear.value_or(0);
  result.statusYear = p.statusYear.value_or(0);
  result.agencyCode = agency;
  result.agencyFireID = agencyFireID;
  result.latitude = *latitude;
  result.longitude = *longitude;
  result.record = std::move(incident);
  return result;
}

std::vector<FireIncident> deduplicate(std::vector<CanadianFireIncidentCandidate<FireIncident>> candidates) {
  std::map<DeduplicationKey, size_t> survivors;
  std::vector<size_t> order;
  for (size_t i = 0; i < candidates.size(); ++i) {
    const auto& c = candidates[i];
    const DeduplicationKey key{c.agencyCode, c.agencyFireID, c.latitude, c.longitude};
    const auto [it, inserted] = survivors.emplace(key, i);
    if (inserted) {
      order.push_back(i);
      continue;
    }
    const auto& kept = candidates[it->second];
    const auto modified = [](const CanadianFireIncidentCandidate<FireIncident>& x) {
      return x.record.modifiedDate.value_or(Date::distantPast());
    };
    if (c.statusYear > kept.statusYear || (c.statusYear == kept.statusYear && modified(c) > modified(kept))) {
      std::replace(order.begin(), order.end(), it->second, i);
      it->second = i;
    }
  }
  std::vector<FireIncident> result;
  result.reserve(order.size());
  for (size_t i : order) result.push_back(std::move(candidates[i].record));
  return result;
}

}  // namespace CanadianFireIncidentLoadingPolicy

}  // namespace ombrine
