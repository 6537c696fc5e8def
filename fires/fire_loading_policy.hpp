#pragma once
// The pure rules of the fire loaders: how each provider's features become records, what is
// dropped, and how the records of two providers for one fire become one. No I/O; reentrant.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "core/values/date.hpp"
#include "core/values/time_zone.hpp"
#include "fires/fire_features.hpp"
#include "fires/fire_records.hpp"

namespace ombrine {

// One hectare in acres: the smallest fire of interest.
inline constexpr double kMinimumFireAcres = 2.471053814671653;
inline constexpr double kAcresPerHectare = 2.471053814671653;
// A fully contained fire stays on the map this long after its last change.
inline constexpr double kContainedFireGraceSeconds = 43200.0;

// Great-circle distance in metres on a sphere of 6371000 m.
double fireHaversineMeters(double latitude1, double longitude1, double latitude2, double longitude2) noexcept;

// Upper case, split at anything but letters and digits, a last "FIRE" dropped, joined by one
// blank: "Smith Fire" and "SMITH" give "SMITH"; "Fire Creek" gives "FIRE CREEK".
std::string normalizedFireName(std::string_view name);

// The type of an ArcGIS category text ("WF", "RX", "CX", any case); anything else `unknown`.
FireIncidentType fireTypeOfCategory(const std::optional<std::string>& category);
// The type of a CAL FIRE type text ("Wildfire", "Prescribed Burn", ...).
FireIncidentType fireTypeOfCalFireText(const std::optional<std::string>& text);

// -- Per-provider records (nothing: the feature is dropped) ----------------------------------

// `currentLayer`: the layer whose "active" flag must be 1; the year-to-date layer ignores it.
std::optional<FireIncident> nifcFireIncident(const FireFeature<NIFCFireIncidentProperties>& feature, bool currentLayer,
                                             Date now);
std::optional<FirePerimeter> nifcFirePerimeter(const FireFeature<NIFCFirePerimeterProperties>& feature, Date now);
// `siteBase`: CAL FIRE's site, for pages given as paths.
std::optional<FireIncident> calFireIncident(const CalFireActiveIncidentProperties& properties,
                                            const boost::urls::url& siteBase, const TimeZone& pacific);
std::optional<FirePerimeter> cwfisFirePerimeter(const FireFeature<CWFISFirePerimeterProperties>& feature);

// A CAL FIRE list date: a full date-time with a zone, or a date or date-time without one read in
// `zone` (a bare date is its local midnight). Nothing for any other text.
std::optional<Date> calFireDate(std::string_view text, const TimeZone& zone);

// -- Reconciling NIFC and CAL FIRE -----------------------------------------------------------

template <class Record>
struct CalFireIncidentCandidate {
  Record record;
  std::optional<std::string> identifier;
  std::string name;
  double latitude = 0.0;
  double longitude = 0.0;
  std::optional<Date> discoveryDate;
  std::optional<Date> modifiedDate;
  bool isSupplemental = false;
};

struct FirePerimeterDeduplicationBounds {
  double west = 0.0;
  double south = 0.0;
  double east = 0.0;
  double north = 0.0;
  bool operator==(const FirePerimeterDeduplicationBounds&) const = default;
};

// The bounds of a perimeter's exteriors. A ring that crosses the antimeridian is unwrapped, so
// its bounds may run past 180 (east greater than west always).
std::optional<FirePerimeterDeduplicationBounds> firePerimeterBounds(
    const std::vector<FirePerimeter::Polygon>& polygons);

template <class Record>
struct UnitedStatesFirePerimeterCandidate {
  Record record;
  std::optional<std::string> identifier;
  std::string name;
  std::optional<std::string> state;
  std::optional<FirePerimeterDeduplicationBounds> bounds;
  Date polygonDate;
  std::optional<Date> modifiedDate;
  bool isSupplemental = false;
};

namespace CalFireIncidentLoadingPolicy {
inline constexpr double kMatchDistanceMeters = 25000.0;
inline constexpr double kMatchDateSeconds = 129600.0;

// Whether a primary and a supplemental candidate are one fire.
bool sameFire(const std::optional<std::string>& identifierA, const std::optional<std::string>& identifierB,
              std::string_view nameA, std::string_view nameB, double distanceMeters, std::optional<Date> dateA,
              std::optional<Date> dateB);

// The primary incidents (NIFC) with the CAL FIRE ones that match none of them: a match keeps
// the primary record and fills its missing deduplication identifier.
std::vector<FireIncident> reconcile(std::vector<FireIncident> primary, std::vector<FireIncident> supplemental);
}  // namespace CalFireIncidentLoadingPolicy

namespace UnitedStatesFirePerimeterLoadingPolicy {
// Whether two perimeters' bounds are near: overlapping, or centres within 25 km.
bool near(const FirePerimeterDeduplicationBounds& a, const FirePerimeterDeduplicationBounds& b);
std::vector<FirePerimeter> reconcile(std::vector<FirePerimeter> primary, std::vector<FirePerimeter> supplemental);
}  // namespace UnitedStatesFirePerimeterLoadingPolicy

// -- CAL FIRE perimeter missions -------------------------------------------------------------

struct CalFirePerimeterMissionKey {
  std::string normalizedMission;  // trimmed, upper case
  auto operator<=>(const CalFirePerimeterMissionKey&) const = default;
};

template <class Record>
struct CalFirePerimeterMissionGroup {
  std::optional<CalFirePerimeterMissionKey> key;
  Record currentRecord;
  std::vector<Record> historicalRecords;
  std::vector<Record> memberRecords;
  std::uint64_t componentRevisionSignature = 0;
};

struct CalFirePerimeterMissionQueryBatch {
  std::vector<CalFirePerimeterMissionKey> missionKeys;
  std::vector<std::string> missionSQLComparisonIdentities;  // quoted: 'ABC-123'
};

// What one FIRIS perimeter query asks for: the active members within an envelope, the active
// members of named missions wherever they lie (both without shapes), or the shapes of chosen
// members.
struct CalFirePerimeterQueryScope {
  struct SpatialDiscovery {
    FireMapEnvelope envelope;
  };
  struct MissionSQLComparisonIdentities {
    std::vector<std::string> identities;  // quoted, as `missionSQLComparisonIdentity` gives them
  };
  struct ObjectIDs {
    std::vector<std::int64_t> ids;
  };
  std::variant<SpatialDiscovery, MissionSQLComparisonIdentities, ObjectIDs> value;

  static CalFirePerimeterQueryScope spatialDiscovery(FireMapEnvelope envelope) { return {SpatialDiscovery{envelope}}; }
  static CalFirePerimeterQueryScope missionSQLComparisonIdentities(std::vector<std::string> identities) {
    return {MissionSQLComparisonIdentities{std::move(identities)}};
  }
  static CalFirePerimeterQueryScope objectIDs(std::vector<std::int64_t> ids) { return {ObjectIDs{std::move(ids)}}; }
};

namespace CalFirePerimeterLoadingPolicy {
inline constexpr size_t kMissionBatchSize = 40;
inline constexpr size_t kMaximumMissionWhereLength = 1800;
inline constexpr size_t kObjectIDBatchSize = 100;

std::optional<CalFirePerimeterMissionKey> missionKey(const std::optional<std::string>& mission);
// The mission as an SQL literal to compare with UPPER(mission): quotes doubled, in quotes.
std::string missionSQLComparisonIdentity(const CalFirePerimeterMissionKey& key);
// The revision of one member: its object id, dates and sizes.
std::uint64_t memberRevisionSignature(const CalFirePerimeterProperties& properties);

// Members grouped by mission: the newest (polygon date, then edit date, then object id) is the
// current record, the others historical; members without a mission stand alone. Groups come in
// the order of their first member.
std::vector<CalFirePerimeterMissionGroup<CalFirePerimeterProperties>> group(
    const std::vector<CalFirePerimeterProperties>& members);
// Mission keys batched so that no batch's where-text grows past the limit.
std::vector<CalFirePerimeterMissionQueryBatch> batches(const std::vector<CalFirePerimeterMissionKey>& keys);
// The perimeter of a group, with the shape of its current record.
std::optional<FirePerimeter> perimeter(const CalFirePerimeterMissionGroup<CalFirePerimeterProperties>& group,
                                       const FireGeoJSONGeometry& geometry);
}  // namespace CalFirePerimeterLoadingPolicy

// -- Canada ----------------------------------------------------------------------------------

template <class Record>
struct CanadianFireIncidentCandidate {
  Record record;
  std::int64_t fireYear = 0;
  std::int64_t statusYear = 0;
  std::string agencyCode;
  std::optional<std::string> agencyFireID;
  double latitude = 0.0;
  double longitude = 0.0;
};

namespace CanadianFireIncidentLoadingPolicy {
struct DeduplicationKey {
  std::string agencyCode;
  std::optional<std::string> agencyFireID;
  double latitude = 0.0;
  double longitude = 0.0;
  auto operator<=>(const DeduplicationKey&) const = default;
};

std::optional<FireControlStatus> controlStatus(const std::optional<std::string>& stage);
// A CWFIS row as an incident; `fireYear` and `statusYear` ride along for deduplication.
std::optional<CanadianFireIncidentCandidate<FireIncident>> candidate(
    const FireFeature<CWFISActiveFireProperties>& feature);
// One row per key: the latest status year, then the latest status date, then the first.
std::vector<FireIncident> deduplicate(std::vector<CanadianFireIncidentCandidate<FireIncident>> candidates);
}  // namespace CanadianFireIncidentLoadingPolicy

}  // namespace ombrine
