#pragma once
// Overlay features of one KML document: the polygons (cones), lines and track points of a
// storm, the latter with the storm attributes their placemark states.
//
// The document is read by a streaming XML parser; element names are compared exactly as
// written ("gx:Track", no namespace processing). What is drawn and what is dropped:
//  - each Polygon's outer ring is a `polygon`, a LineString and a gx:Track a `polyline`;
//  - each Point of a Placemark becomes a `circle` carrying the attributes read from the
//    Placemark's name, description and extended data (wind, gusts, pressure, forecast hour,
//    motion, classification, time);
//  - a Placemark named like the agency's own track or wind radii ("STORM TRACK", "BEST TRACK",
//    "TCFA AREA", "RADIUS OF ...") that drew a polygon or line is dropped whole: tracks are
//    drawn from the points.
// Longitudes are wrapped into [-180, 180]; one already in range is kept.
//
// Hostile documents fail: malformed XML, nesting deeper than kMaxKMLDepth, entity
// declarations, more than kMaxKMLBytes of text or kMaxKMLAttributeText of track point texts. Pure given its inputs;
// thread-safe (one parser per call).

#include <functional>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "core/values/date.hpp"

namespace ombrine {

struct KMLCoordinate {
  double latitude = 0.0;
  double longitude = 0.0;

  bool operator==(const KMLCoordinate&) const = default;
};

struct KMLCircleFeature {
  KMLCoordinate coordinate;
  double radius = 0.0;                      // metres, for drawing
  std::optional<std::string> intensityTag;  // the classification, read with `tagFromText`
  std::optional<Date> time;
  std::optional<int> windKt;
  std::optional<int> windMph;
  std::optional<int> gustKt;
  std::optional<int> gustMph;
  std::optional<int> pressureMb;
  std::optional<std::string> forecastHour;  // "current", or the hour's text ("24")
  std::optional<double> movementDir;
  std::optional<double> movementSpeed;

  bool operator==(const KMLCircleFeature&) const = default;
};

struct KMLPolygon {
  std::vector<KMLCoordinate> coordinates;
  bool operator==(const KMLPolygon&) const = default;
};

struct KMLPolyline {
  std::vector<KMLCoordinate> coordinates;
  std::optional<std::string> title;
  bool operator==(const KMLPolyline&) const = default;
};

using KMLOverlayFeature = std::variant<KMLPolygon, KMLPolyline, KMLCircleFeature>;

inline constexpr std::size_t kMaxKMLDepth = 64;
inline constexpr std::size_t kMaxKMLBytes = 16u << 20;
// The texts of all track points together (names, descriptions, extended data): a storm's track
// has a few hundred points of a few hundred bytes each, and each is searched by many expressions.
inline constexpr std::size_t kMaxKMLAttributeText = 1u << 20;

// The document could not be read; `what()` says why (the XML parser's message and line).
class KMLParseError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The features of `text` in document order. `reference` resolves times that name no month or
// year. `cancelled` (optional) is asked at every parser callback; once it answers true the parse
// stops and CancellationError is raised. Raises KMLParseError for a document that fails.
std::vector<KMLOverlayFeature> kmlFeatures(std::string_view text, Date reference,
                                           const std::function<bool()>& cancelled = {});

// The parts of a track point read from its placemark's texts (exposed for tests).
struct KMLPointAttributes {
  std::optional<std::string> intensityTag;
  std::optional<Date> time;
  std::optional<int> windKt, windMph, gustKt, gustMph, pressureMb;
  std::optional<std::string> forecastHour;
  std::optional<double> movementDir, movementSpeed;
};

// `data` is the placemark's extended data (Data/SimpleData name -> value); `styleUrl` its style.
KMLPointAttributes kmlPointAttributes(std::string_view name, std::string_view description,
                                      const std::map<std::string, std::string>& data, std::string_view styleUrl,
                                      std::optional<int> fallbackYear, Date reference);

// Degrees of a 16-point compass word ("NORTH-NORTHEAST" 22.5); nothing for another word.
std::optional<double> compassDegrees(std::string_view word);

}  // namespace ombrine
