#pragma once
// The records of the fire layer: point incidents and polygon perimeters from the United States
// and Canada, and the result of one load of a map envelope.
//
// Plain values; copy freely. A perimeter carries a revision: two perimeters with equal
// revisions draw the same, so the map keeps one revision per perimeter identifier and redraws
// only when it changes. Floats in a revision compare by their bits (0.0 and -0.0 differ, a NaN
// equals itself).

#include <boost/url/url.hpp>

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <variant>
#include <vector>

#include "core/values/date.hpp"

namespace ombrine {

enum class FireMapSource { unitedStates, canada };

std::string_view fireMapSourceName(FireMapSource source) noexcept;

// The kind of incident; `unknown` keeps the provider's own text.
struct FireIncidentType {
  struct Unknown {
    std::string text;
    bool operator==(const Unknown&) const = default;
  };
  struct Wildfire {
    bool operator==(const Wildfire&) const = default;
  };
  struct PrescribedFire {
    bool operator==(const PrescribedFire&) const = default;
  };
  struct IncidentComplex {
    bool operator==(const IncidentComplex&) const = default;
  };
  std::variant<Unknown, Wildfire, PrescribedFire, IncidentComplex> value;

  static FireIncidentType unknown(std::string text) { return {Unknown{std::move(text)}}; }
  static FireIncidentType wildfire() { return {Wildfire{}}; }
  static FireIncidentType prescribedFire() { return {PrescribedFire{}}; }
  static FireIncidentType incidentComplex() { return {IncidentComplex{}}; }

  bool isPrescribedFire() const noexcept { return std::holds_alternative<PrescribedFire>(value); }
  // "wildfire", "prescribedFire", "incidentComplex", or the unknown text.
  std::string rawValue() const;
  bool operator==(const FireIncidentType&) const = default;
};

enum class FireControlStatus { outOfControl, beingHeld, underControl, out };

std::string_view fireControlStatusName(FireControlStatus status) noexcept;

// The query rectangle, in degrees.
struct FireMapEnvelope {
  double west = 0.0;
  double south = 0.0;
  double east = 0.0;
  double north = 0.0;
  bool operator==(const FireMapEnvelope&) const = default;
};

struct FireCoordinate {
  double latitude = 0.0;
  double longitude = 0.0;
  bool operator==(const FireCoordinate&) const = default;
};

struct FireIncident {
  std::string id;
  std::optional<std::string> deduplicationIdentifier;
  FireMapSource source = FireMapSource::unitedStates;
  std::string name;
  FireIncidentType type;
  FireCoordinate coordinate;
  std::optional<double> acres;
  std::optional<double> percentContained;
  std::optional<Date> discoveryDate;
  std::optional<Date> modifiedDate;
  std::optional<std::string> city;
  std::optional<std::string> county;
  std::optional<std::string> state;
  std::optional<boost::urls::url> detailsURL;
  std::optional<FireControlStatus> controlStatus;

  bool operator==(const FireIncident&) const = default;
};

// What the provider says about a perimeter, in a form that compares exactly.
struct FirePerimeterUpstreamRevision {
  std::string sourceRawValue;
  std::string name;
  std::string typeRawValue;
  std::optional<std::uint64_t> acresBitPattern;
  std::optional<std::uint64_t> percentContainedBitPattern;
  std::optional<double> polygonDateReferenceInterval;
  std::optional<double> modifiedDateReferenceInterval;
  std::optional<std::string> state;
  std::optional<std::uint64_t> componentRevisionSignature;

  bool operator==(const FirePerimeterUpstreamRevision&) const = default;
};

struct FirePerimeter {
  struct Polygon {
    std::vector<FireCoordinate> exterior;
    std::vector<std::vector<FireCoordinate>> interiors;
    bool operator==(const Polygon&) const = default;
  };

  // The upstream revision's fields, then the shape: its polygon and coordinate counts and a
  // hash of every coordinate's bits (compared only within one run).
  struct Revision : FirePerimeterUpstreamRevision {
    int polygonCount = 0;
    int coordinateCount = 0;
    std::uint64_t geometrySignature = 0;
    bool operator==(const Revision&) const = default;
  };

  std::string id;
  std::optional<std::string> deduplicationIdentifier;
  FireMapSource source = FireMapSource::unitedStates;
  std::string name;
  FireIncidentType type;
  double acres = 0.0;
  std::optional<double> percentContained;
  Date polygonDate;
  std::optional<Date> modifiedDate;
  std::optional<std::string> state;
  std::vector<Polygon> polygons;
  Revision revision;

  bool operator==(const FirePerimeter&) const = default;
};

// The raw bits of a double, so that equality is exact.
std::uint64_t fireBitPattern(double value) noexcept;

// The hash of every coordinate's bits, in order, ring and polygon boundaries included.
std::uint64_t fireGeometrySignature(const std::vector<FirePerimeter::Polygon>& polygons) noexcept;

// Sets `perimeter.revision` from its fields and polygons (`componentRevisionSignature` is kept
// from `component`).
void refreshFirePerimeterRevision(FirePerimeter& perimeter,
                                  std::optional<std::uint64_t> componentRevisionSignature = std::nullopt);

// Why a source failed: `rateLimited` carries the seconds before the next try.
struct FireFetchFailureReason {
  enum class Kind { rateLimited, transient, permanent };
  Kind kind = Kind::transient;
  double minimumDelay = 0.0;  // with rateLimited

  static FireFetchFailureReason rateLimited(double seconds) { return {Kind::rateLimited, seconds}; }
  static FireFetchFailureReason transient() { return {Kind::transient, 0.0}; }
  static FireFetchFailureReason permanent() { return {Kind::permanent, 0.0}; }

  bool operator==(const FireFetchFailureReason& other) const noexcept {
    return kind == other.kind && (kind != Kind::rateLimited || minimumDelay == other.minimumDelay);
  }
};

// The result of one load. A source in a `complete…Sources` set answered everything for the
// envelope; one in a `complete…SnapshotSources` set was stood in for by a cached snapshot; one in
// neither failed, and the failure maps say why.
struct FireMapData {
  std::vector<FireIncident> incidents;
  std::vector<FirePerimeter> perimeters;
  std::set<FireMapSource> completeIncidentSources;
  std::set<FireMapSource> completePerimeterSources;
  std::set<FireMapSource> completeIncidentSnapshotSources;
  std::set<FireMapSource> completePerimeterSnapshotSources;
  std::map<FireMapSource, FireFetchFailureReason> incidentFailureReasons;
  std::map<FireMapSource, FireFetchFailureReason> perimeterFailureReasons;
};

}  // namespace ombrine
