#pragma once
// What threatens a place: the nearest fire perimeter and incident, any tropical storm whose cone
// or track passes within a radius, the warnings in force and the coming rain, each with its
// distance and bearing from the place (none for what is at the place itself) and the age of
// the data it comes from.
//
// Distances are measured on a local flat projection around the place (good to well under 1 %
// within 2,000 km away from the poles); longitudes are compared across the date line. A place
// inside a storm's cone is 0 km from it.
//
// Pure functions; reentrant.

#include <optional>
#include <string>
#include <vector>

#include "core/record/one_call_weather.hpp"
#include "core/values/date.hpp"
#include "core/values/location.hpp"
#include "core/values/screen_words.hpp"
#include "fires/fire_report.hpp"
#include "storms/storm.hpp"
#include "storms/storm_overlay_plan.hpp"

namespace ombrine {

inline constexpr double kDefaultThreatRadiusKilometres = 500.0;

struct Threat {
  std::string kind;   // "fire perimeter", "fire", "storm", "warning", "rain"
  std::string title;  // "Dixon Fire", "Hurricane Lee (Cat 3)", "Flood Warning", "Rain"
  std::string detail;
  std::optional<double> distanceKilometres;
  std::optional<double> bearingDegrees;  // from the place, clockwise from north
  std::optional<double> dataAgeSeconds;
};

struct StormTrack {
  Storm storm;
  std::string title;  // as the storm list shows it
  StormOverlay overlay;
};

// What the threats are read from; a source that could not be had is left empty and named in
// the place's `sources`.
struct ThreatInputs {
  Location place;
  Date now;
  double radiusKilometres = kDefaultThreatRadiusKilometres;
  const OneCallWeather* weather = nullptr;
  const FireList* fires = nullptr;  // around the place
  std::vector<StormTrack> storms;
  // The words and digits of the details; nothing: English and plain digits (JSON, the web page).
  const ScreenWords* words = nullptr;
};

struct NearestPoint {
  double distanceKilometres = 0.0;
  double bearingDegrees = 0.0;
};

// The nearest point of a storm's cone, past and forecast track (the current position when the
// overlay has none) to the place; 0 km inside the cone.
NearestPoint nearestStormPoint(const Location& place, const StormTrack& storm);

// The threats, in the order fires, storms (nearest first), warnings, rain. Storms beyond the
// radius are left out; so are warnings that ended before `now` and rain more than 12 hours away.
std::vector<Threat> assessThreats(const ThreatInputs& inputs);

// The state of one source the threats were read from.
struct ThreatSource {
  std::string name;   // "forecast", "fires", "storms"
  std::string state;  // "live", "stale", "failed"
  std::optional<double> ageSeconds;
  std::string error;
};

struct PlaceThreats {
  std::string placeName;
  Location place;
  double radiusKilometres = kDefaultThreatRadiusKilometres;
  std::vector<Threat> threats;
  std::vector<ThreatSource> sources;
};

// {"place": {"name", "latitude", "longitude"}, "radiusKm", "threats": [{"kind", "title",
// "detail", "distanceKm", "bearing", "bearingName", "dataAgeSeconds"}], "sources": [{"name",
// "state", "ageSeconds", "error"}]}; absent values are left out.
std::string threatsJson(const PlaceThreats& threats);

// "Dixon Fire (fire perimeter): 25 km NE, data 2 h old" and the like.
std::string threatLine(const Threat& threat, const ScreenWords& words);

}  // namespace ombrine
