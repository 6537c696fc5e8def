#pragma once
// What the map draws for one storm: which KMZ files to fetch, which role each serves (cone,
// forecast track, past track), how the past track joins the forecast track, and the tracks
// made continuous across the date line for drawing.
//
// A JTWC storm names one KMZ for all three roles and is downloaded once; an NHC storm has up to
// three files. Pure functions except `loadStormOverlay`, which downloads.

#include <boost/url/url.hpp>

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "core/values/date.hpp"
#include "platform/async/task.hpp"
#include "platform/http_client.hpp"
#include "storms/kml_reader.hpp"
#include "storms/storm.hpp"

namespace ombrine {

enum class StormOverlayRole { cone, track, history };

// One generation of a storm's overlay; any change of a field is a new generation.
struct StormOverlayRevisionID {
  std::string stormID;
  std::optional<boost::urls::url> advisoryURL;
  std::optional<Date> lastUpdate;
  std::optional<Date> forecastIssuance;
  std::optional<boost::urls::url> coneURL;
  std::optional<boost::urls::url> trackURL;
  std::optional<boost::urls::url> historyURL;

  static StormOverlayRevisionID revision(const Storm& storm);
  bool operator==(const StormOverlayRevisionID&) const = default;
};

struct StormOverlayResourcePlan {
  boost::urls::url url;
  std::set<StormOverlayRole> roles;

  bool operator==(const StormOverlayResourcePlan&) const = default;
};

// One plan per distinct URL, in the order cone, track, history of first appearance.
std::vector<StormOverlayResourcePlan> resourcePlans(const StormOverlayRevisionID& revision);

// "current" (any case) is hour 0; otherwise the digits of the text; nothing without digits.
std::optional<long long> forecastHourNumber(const std::optional<std::string>& forecastHour);

struct StormTrackBridgePoint {
  KMLCoordinate coordinate;
  std::optional<Date> time;
  std::optional<std::string> forecastHour;
  std::optional<std::string> intensityTag;

  bool operator==(const StormTrackBridgePoint&) const = default;
};

struct StormTrackBridge {
  StormTrackBridgePoint historyPoint;
  StormTrackBridgePoint forecastPoint;

  bool operator==(const StormTrackBridge&) const = default;
};

inline constexpr double kMaxBridgeMetres = 500'000.0;
inline constexpr double kMinBridgeMetres = 1'000.0;

// Joins the latest past point (by time, else the last) to the forecast's first point (the
// lowest forecast hour, "current" first, else the earliest time, else the first). No bridge
// when either track is empty, when the two points already meet (under 1 km), when they lie
// over 500 km apart (not the same system), or when the past point is later than the forecast
// point.
std::optional<StormTrackBridge> bridge(const std::vector<KMLCircleFeature>& historyPoints,
                                       const std::vector<KMLCircleFeature>& forecastPoints);

// Longitudes shifted by whole turns so that consecutive points never jump more than 180
// degrees: a track from 179.5 to -179.5 continues at 180.5. The first point is unchanged.
std::vector<KMLCoordinate> continuousAcrossDateLine(std::vector<KMLCoordinate> track);

// The map's object for a track point: where, how large, and the colour of its intensity on the
// Saffir-Simpson scale (depression, storm, categories 1-5; grey when unknown).
struct StyledCircle {
  KMLCoordinate center;
  double radius = 0.0;  // metres
  StormIntensityTag tag;
  std::string color;  // "#rrggbb"

  bool operator==(const StyledCircle&) const = default;
};

using StormMapOverlay = std::variant<KMLPolygon, KMLPolyline, StyledCircle>;

// "#rrggbb" of a tag; a hurricane without a category counts as category 1.
std::string intensityColor(const StormIntensityTag& tag);

// Features as map overlays: polygons and lines unchanged, circles styled by their tag.
std::vector<StormMapOverlay> overlays(const std::vector<KMLOverlayFeature>& features);

// Everything drawn for a storm.
struct StormOverlay {
  std::vector<std::vector<KMLCoordinate>> cone;
  std::vector<KMLCircleFeature> historyPoints;   // in track order
  std::vector<KMLCircleFeature> forecastPoints;  // by forecast hour
  std::optional<StormTrackBridge> trackBridge;
};

// Sorts the features of one downloaded file into the roles its plan serves. A file serving both
// track and history splits its points: those with a forecast hour are the forecast.
void addOverlayFeatures(StormOverlay& overlay, const std::set<StormOverlayRole>& roles,
                        const std::vector<KMLOverlayFeature>& features);

// Downloads each plan of `storm` once (KMZ or plain KML), reads it and assembles the overlay.
// A file that fails to download or read is logged and left out. Raises CancellationError.
Task<StormOverlay> loadStormOverlay(HttpClient& http, Storm storm, Date now);

// GeoJSON FeatureCollection of the overlay: the cone polygons, the past and forecast tracks as
// LineStrings (continuous across the date line), the bridge, and the forecast points.
std::string stormOverlayGeoJson(const Storm& storm, const StormOverlay& overlay);

}  // namespace ombrine
