#pragma once
// The wire forms of the fire services: GeoJSON feature collections (ArcGIS "f=geojson" and
// GeoServer WFS JSON), the property records of each provider, the ArcGIS error object and the
// CAL FIRE incident list.
//
// Collections are decoded while the text is read (core/values/json_stream.hpp): a page of thousands of
// perimeters never becomes a DOM. Geometries keep their positions as latitude/longitude pairs
// read from GeoJSON's longitude-first order; a position with fewer than two numbers, a nesting
// that does not fit the geometry's type, or a type other than point, polygon and multipolygon
// leaves the geometry unusable (`kind() == none`) rather than failing the page: the loaders drop
// such features. Unknown keys are skipped. Every fault of the text itself (bad JSON, a missing
// "features", a value of the wrong kind for a known key) raises DecodingError. Pure functions;
// reentrant.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <variant>
#include <vector>

#include "core/values/json_stream.hpp"
#include "core/values/value_json.hpp"
#include "fires/fire_records.hpp"

namespace ombrine {

// A GeoJSON feature "id": 7 and "7" are different cases.
struct FireFeatureID {
  std::variant<std::int64_t, std::string> value;
  // The decimal text of an integer, or the string itself.
  std::string text() const;
  bool operator==(const FireFeatureID&) const = default;
};
void decodeScalar(const JsonScalar& value, const JsonPath& path, FireFeatureID& out);

// A count that may arrive as a number or as text.
struct FlexibleFireFeatureCount {
  std::variant<std::int64_t, std::string> value;
  // The count as an integer, whichever form it has; nothing for text that is no integer.
  std::optional<std::int64_t> integer() const;
  bool operator==(const FlexibleFireFeatureCount&) const = default;
};
void decodeScalar(const JsonScalar& value, const JsonPath& path, FlexibleFireFeatureCount& out);

// A property whose JSON type varies between services and years (number, text or boolean); kept
// as text ("12", "12.5", "true").
struct FireLooseText {
  std::string text;
  bool operator==(const FireLooseText&) const = default;
};
void decodeScalar(const JsonScalar& value, const JsonPath& path, FireLooseText& out);

struct FireGeoJSONGeometry {
  struct Point {
    std::vector<double> coordinates;
    bool operator==(const Point&) const = default;
  };
  // The first ring is the exterior; the others are holes.
  struct Polygon {
    std::vector<std::vector<FireCoordinate>> rings;
    bool operator==(const Polygon&) const = default;
  };
  struct MultiPolygon {
    std::vector<Polygon> polygons;
    bool operator==(const MultiPolygon&) const = default;
  };
  std::variant<std::monostate, Point, Polygon, MultiPolygon> value;

  enum class Kind { none, point, polygon, multiPolygon };
  Kind kind() const noexcept { return static_cast<Kind>(value.index()); }
  bool operator==(const FireGeoJSONGeometry&) const = default;
};
// The streaming decoder's hooks for a geometry object (found by argument-dependent lookup).
void streamScalar(JsonStream& stream, const JsonScalar& value, const JsonPath& path, FireGeoJSONGeometry& out);
void streamObject(JsonStream& stream, const JsonPath& path, FireGeoJSONGeometry& out);
void streamArray(JsonStream& stream, const JsonPath& path, FireGeoJSONGeometry& out);

// One polygon of a perimeter per polygon of the geometry; nothing for a point or an unusable one.
// Rings with fewer than three positions are left out; a polygon without an exterior is dropped.
std::vector<FirePerimeter::Polygon> firePolygons(const FireGeoJSONGeometry& geometry);

template <class Properties>
struct FireFeature {
  std::optional<FireFeatureID> id;
  std::optional<FireGeoJSONGeometry> geometry;
  std::optional<Properties> properties;  // a null or missing object reads as absent
};
template <class P>
inline constexpr auto kFireFeatureJsonMembers =
    std::tuple{jsonMember("id", &FireFeature<P>::id), jsonMember("geometry", &FireFeature<P>::geometry),
               jsonMember("properties", &FireFeature<P>::properties)};
template <class P>
constexpr const auto& jsonMembers(const FireFeature<P>*) {
  return kFireFeatureJsonMembers<P>;
}

struct FireFeatureCollectionProperties {
  std::optional<bool> exceededTransferLimit;
};
inline constexpr auto kFireFeatureCollectionPropertiesJsonMembers =
    std::tuple{jsonMember("exceededTransferLimit", &FireFeatureCollectionProperties::exceededTransferLimit)};
constexpr const auto& jsonMembers(const FireFeatureCollectionProperties*) {
  return kFireFeatureCollectionPropertiesJsonMembers;
}

template <class Properties>
struct FireFeatureCollection {
  std::vector<FireFeature<Properties>> features;
  std::optional<FireFeatureCollectionProperties> properties;
  std::optional<FlexibleFireFeatureCount> totalFeatures;
  std::optional<FlexibleFireFeatureCount> numberMatched;

  bool exceededTransferLimit() const noexcept {
    return properties && properties->exceededTransferLimit.value_or(false);
  }
};
template <class P>
inline constexpr auto kFireFeatureCollectionJsonMembers =
    std::tuple{jsonMember("features", &FireFeatureCollection<P>::features),
               jsonMember("properties", &FireFeatureCollection<P>::properties),
               jsonMember("totalFeatures", &FireFeatureCollection<P>::totalFeatures),
               jsonMember("numberMatched", &FireFeatureCollection<P>::numberMatched)};
template <class P>
constexpr const auto& jsonMembers(const FireFeatureCollection<P>*) {
  return kFireFeatureCollectionJsonMembers<P>;
}

// Decodes one collection page. Raises DecodingError.
template <class Properties>
FireFeatureCollection<Properties> decodeFireFeatureCollection(std::string_view text) {
  FireFeatureCollection<Properties> collection;
  decodeJsonText(text, collection);
  return collection;
}

// -- Provider property records -------------------------------------------------------------

struct NIFCFireIncidentProperties {
  std::optional<std::int64_t> objectID;
  std::optional<std::string> globalID;
  std::optional<std::string> uniqueFireIdentifier;
  std::optional<std::string> incidentName;
  std::optional<std::string> incidentTypeCategory;
  std::optional<double> incidentSize;
  std::optional<double> percentContained;
  std::optional<double> fireDiscoveryDateTime;  // epoch milliseconds
  std::optional<double> modifiedOnDateTime;     // epoch milliseconds
  std::optional<std::int64_t> activeFireCandidate;
  std::optional<std::string> pooCity;
  std::optional<std::string> pooCounty;
  std::optional<std::string> pooState;
};
inline constexpr auto kNIFCFireIncidentPropertiesJsonMembers =
    std::tuple{jsonMember("OBJECTID", &NIFCFireIncidentProperties::objectID),
               jsonMember("GlobalID", &NIFCFireIncidentProperties::globalID),
               jsonMember("UniqueFireIdentifier", &NIFCFireIncidentProperties::uniqueFireIdentifier),
               jsonMember("IncidentName", &NIFCFireIncidentProperties::incidentName),
               jsonMember("IncidentTypeCategory", &NIFCFireIncidentProperties::incidentTypeCategory),
               jsonMember("IncidentSize", &NIFCFireIncidentProperties::incidentSize),
               jsonMember("PercentContained", &NIFCFireIncidentProperties::percentContained),
               jsonMember("FireDiscoveryDateTime", &NIFCFireIncidentProperties::fireDiscoveryDateTime),
               jsonMember("ModifiedOnDateTime_dt", &NIFCFireIncidentProperties::modifiedOnDateTime),
               jsonMember("ActiveFireCandidate", &NIFCFireIncidentProperties::activeFireCandidate),
               jsonMember("POOCity", &NIFCFireIncidentProperties::pooCity),
               jsonMember("POOCounty", &NIFCFireIncidentProperties::pooCounty),
               jsonMember("POOState", &NIFCFireIncidentProperties::pooState)};
constexpr const auto& jsonMembers(const NIFCFireIncidentProperties*) { return kNIFCFireIncidentPropertiesJsonMembers; }

struct NIFCFirePerimeterProperties {
  std::optional<std::int64_t> objectID;
  std::optional<std::string> globalID;
  std::optional<std::string> uniqueFireIdentifier;
  std::optional<std::string> incidentName;
  std::optional<std::string> incidentTypeCategory;
  std::optional<double> gisAcres;
  std::optional<double> incidentSize;
  std::optional<double> percentContained;
  std::optional<double> polygonDateTime;     // epoch milliseconds
  std::optional<double> modifiedOnDateTime;  // epoch milliseconds
  std::optional<std::int64_t> activeFireCandidate;
  std::optional<std::string> pooState;
};
inline constexpr auto kNIFCFirePerimeterPropertiesJsonMembers =
    std::tuple{jsonMember("OBJECTID", &NIFCFirePerimeterProperties::objectID),
               jsonMember("GlobalID", &NIFCFirePerimeterProperties::globalID),
               jsonMember("attr_UniqueFireIdentifier", &NIFCFirePerimeterProperties::uniqueFireIdentifier),
               jsonMember("poly_IncidentName", &NIFCFirePerimeterProperties::incidentName),
               jsonMember("attr_IncidentTypeCategory", &NIFCFirePerimeterProperties::incidentTypeCategory),
               jsonMember("poly_GISAcres", &NIFCFirePerimeterProperties::gisAcres),
               jsonMember("attr_IncidentSize", &NIFCFirePerimeterProperties::incidentSize),
               jsonMember("attr_PercentContained", &NIFCFirePerimeterProperties::percentContained),
               jsonMember("poly_PolygonDateTime", &NIFCFirePerimeterProperties::polygonDateTime),
               jsonMember("attr_ModifiedOnDateTime_dt", &NIFCFirePerimeterProperties::modifiedOnDateTime),
               jsonMember("attr_ActiveFireCandidate", &NIFCFirePerimeterProperties::activeFireCandidate),
               jsonMember("attr_POOState", &NIFCFirePerimeterProperties::pooState)};
constexpr const auto& jsonMembers(const NIFCFirePerimeterProperties*) {
  return kNIFCFirePerimeterPropertiesJsonMembers;
}

struct CalFirePerimeterProperties {
  std::optional<std::int64_t> objectID;
  std::optional<std::string> globalID;
  std::optional<std::string> source;
  std::optional<std::string> missionIdentifier;
  std::optional<double> polygonDateTime;  // epoch milliseconds
  std::optional<std::string> incidentName;
  std::optional<std::string> incidentNumber;
  std::optional<double> areaAcres;
  std::optional<double> nifcGISAcres;
  std::optional<double> editDateTime;  // epoch milliseconds
  std::optional<double> percentContained;
  std::optional<FireLooseText> websiteID;
  std::optional<std::string> displayStatus;
  std::optional<double> shapeArea;
  std::optional<double> shapeLength;
};
inline constexpr auto kCalFirePerimeterPropertiesJsonMembers =
    std::tuple{jsonMember("OBJECTID", &CalFirePerimeterProperties::objectID),
               jsonMember("GlobalID", &CalFirePerimeterProperties::globalID),
               jsonMember("source", &CalFirePerimeterProperties::source),
               jsonMember("mission", &CalFirePerimeterProperties::missionIdentifier),
               jsonMember("poly_DateCurrent", &CalFirePerimeterProperties::polygonDateTime),
               jsonMember("incident_name", &CalFirePerimeterProperties::incidentName),
               jsonMember("incident_number", &CalFirePerimeterProperties::incidentNumber),
               jsonMember("area_acres", &CalFirePerimeterProperties::areaAcres),
               jsonMember("NIFC_GISAcres", &CalFirePerimeterProperties::nifcGISAcres),
               jsonMember("EditDate", &CalFirePerimeterProperties::editDateTime),
               jsonMember("Percent_Contained", &CalFirePerimeterProperties::percentContained),
               jsonMember("websiteId", &CalFirePerimeterProperties::websiteID),
               jsonMember("displayStatus", &CalFirePerimeterProperties::displayStatus),
               jsonMember("Shape__Area", &CalFirePerimeterProperties::shapeArea),
               jsonMember("Shape__Length", &CalFirePerimeterProperties::shapeLength)};
constexpr const auto& jsonMembers(const CalFirePerimeterProperties*) { return kCalFirePerimeterPropertiesJsonMembers; }

// One fire of CAL FIRE's incident list. The real list names the page "Url" (relative on the
// current site, absolute in older answers).
struct CalFireActiveIncidentProperties {
  std::optional<std::string> name;
  std::optional<std::string> updatedDate;
  std::optional<std::string> startedDate;
  std::optional<std::string> county;
  std::optional<double> acresBurned;
  std::optional<double> percentContained;
  std::optional<double> longitude;
  std::optional<double> latitude;
  std::optional<std::string> type;
  std::optional<std::string> uniqueID;
  std::optional<std::string> detailsPath;
  std::optional<bool> isActive;
};
inline constexpr auto kCalFireActiveIncidentPropertiesJsonMembers =
    std::tuple{jsonMember("Name", &CalFireActiveIncidentProperties::name),
               jsonMember("Updated", &CalFireActiveIncidentProperties::updatedDate),
               jsonMember("Started", &CalFireActiveIncidentProperties::startedDate),
               jsonMember("County", &CalFireActiveIncidentProperties::county),
               jsonMember("AcresBurned", &CalFireActiveIncidentProperties::acresBurned),
               jsonMember("PercentContained", &CalFireActiveIncidentProperties::percentContained),
               jsonMember("Longitude", &CalFireActiveIncidentProperties::longitude),
               jsonMember("Latitude", &CalFireActiveIncidentProperties::latitude),
               jsonMember("Type", &CalFireActiveIncidentProperties::type),
               jsonMember("UniqueId", &CalFireActiveIncidentProperties::uniqueID),
               jsonMember("Url", &CalFireActiveIncidentProperties::detailsPath),
               jsonMember("IsActive", &CalFireActiveIncidentProperties::isActive)};
constexpr const auto& jsonMembers(const CalFireActiveIncidentProperties*) {
  return kCalFireActiveIncidentPropertiesJsonMembers;
}

// CAL FIRE's incident list in any of its forms: a plain array of incidents (the current
// answer), a GeoJSON feature collection of them, or the older {"Incidents": [...]}. Raises
// DecodingError for anything else.
std::vector<CalFireActiveIncidentProperties> decodeCalFireIncidentList(std::string_view text);

struct CWFISActiveFireProperties {
  std::optional<FireLooseText> id;
  std::optional<std::string> agencyCode;
  std::optional<FireLooseText> nationalFireID;
  std::optional<FireLooseText> agencyFireID;
  std::optional<FireLooseText> fireWasPrescribed;
  std::optional<double> percentContained;
  std::optional<double> fireSizeHectares;
  std::optional<std::string> stageOfControlStatus;
  std::optional<FireLooseText> situationReportDate;
  std::optional<FireLooseText> statusDate;
  std::optional<std::int64_t> fireYear;
  std::optional<std::int64_t> statusYear;
  std::optional<double> latitude;
  std::optional<double> longitude;
};
inline constexpr auto kCWFISActiveFirePropertiesJsonMembers =
    std::tuple{jsonMember("id", &CWFISActiveFireProperties::id),
               jsonMember("agency_code", &CWFISActiveFireProperties::agencyCode),
               jsonMember("national_fire_id", &CWFISActiveFireProperties::nationalFireID),
               jsonMember("agency_fire_id", &CWFISActiveFireProperties::agencyFireID),
               jsonMember("fire_was_prescribed", &CWFISActiveFireProperties::fireWasPrescribed),
               jsonMember("percent_contained", &CWFISActiveFireProperties::percentContained),
               jsonMember("fire_size", &CWFISActiveFireProperties::fireSizeHectares),
               jsonMember("stage_of_control_status", &CWFISActiveFireProperties::stageOfControlStatus),
               jsonMember("situation_report_date", &CWFISActiveFireProperties::situationReportDate),
               jsonMember("status_date", &CWFISActiveFireProperties::statusDate),
               jsonMember("fire_year", &CWFISActiveFireProperties::fireYear),
               jsonMember("status_year", &CWFISActiveFireProperties::statusYear),
               jsonMember("latitude", &CWFISActiveFireProperties::latitude),
               jsonMember("longitude", &CWFISActiveFireProperties::longitude)};
constexpr const auto& jsonMembers(const CWFISActiveFireProperties*) { return kCWFISActiveFirePropertiesJsonMembers; }

struct CWFISFirePerimeterProperties {
  std::optional<std::int64_t> hotspotCount;
  std::optional<FireLooseText> firstDate;
  std::optional<FireLooseText> lastDate;
  std::optional<double> areaHectares;
};
inline constexpr auto kCWFISFirePerimeterPropertiesJsonMembers =
    std::tuple{jsonMember("hcount", &CWFISFirePerimeterProperties::hotspotCount),
               jsonMember("firstdate", &CWFISFirePerimeterProperties::firstDate),
               jsonMember("lastdate", &CWFISFirePerimeterProperties::lastDate),
               jsonMember("area", &CWFISFirePerimeterProperties::areaHectares)};
constexpr const auto& jsonMembers(const CWFISFirePerimeterProperties*) {
  return kCWFISFirePerimeterPropertiesJsonMembers;
}

struct BCWildfireEnrichmentProperties {
  std::optional<std::string> fireNumber;
  std::optional<std::string> incidentName;
  std::optional<std::string> geographicDescription;
  std::optional<std::string> fireURL;
};
inline constexpr auto kBCWildfireEnrichmentPropertiesJsonMembers =
    std::tuple{jsonMember("FIRE_NUMBER", &BCWildfireEnrichmentProperties::fireNumber),
               jsonMember("INCIDENT_NAME", &BCWildfireEnrichmentProperties::incidentName),
               jsonMember("GEOGRAPHIC_DESCRIPTION", &BCWildfireEnrichmentProperties::geographicDescription),
               jsonMember("FIRE_URL", &BCWildfireEnrichmentProperties::fireURL)};
constexpr const auto& jsonMembers(const BCWildfireEnrichmentProperties*) {
  return kBCWildfireEnrichmentPropertiesJsonMembers;
}

// The ArcGIS error object.
struct FireFeatureServiceErrorPayload {
  std::optional<std::int64_t> code;
  std::optional<std::string> message;
  std::optional<std::vector<std::string>> details;

  // "code N: message: detail: ...", or "unknown feature service error".
  std::string summary() const;
  bool operator==(const FireFeatureServiceErrorPayload&) const = default;
};
inline constexpr auto kFireFeatureServiceErrorPayloadJsonMembers =
    std::tuple{jsonMember("code", &FireFeatureServiceErrorPayload::code),
               jsonMember("message", &FireFeatureServiceErrorPayload::message),
               jsonMember("details", &FireFeatureServiceErrorPayload::details)};
constexpr const auto& jsonMembers(const FireFeatureServiceErrorPayload*) {
  return kFireFeatureServiceErrorPayloadJsonMembers;
}

}  // namespace ombrine
