#pragma once
// The fire layer around a place as people read it: incidents and perimeters within a radius,
// nearest first, with distance and bearing, and the state of every service in the load
// (complete, standing on a snapshot of a given age, cooling down until a given time, failed).
// Text lines, JSON and GeoJSON. Pure functions; reentrant.

#include <optional>
#include <string>
#include <vector>

#include "core/values/date.hpp"
#include "core/values/screen_words.hpp"
#include "fires/fire_map_loader.hpp"
#include "fires/fire_records.hpp"

namespace ombrine {

struct FireListEntry {
  const FireIncident* incident = nullptr;  // one of the two
  const FirePerimeter* perimeter = nullptr;
  double distanceKilometres = 0.0;  // to the point, or to the perimeter's nearest vertex
  double bearingDegrees = 0.0;      // from the centre, clockwise from north
};

// Incidents and perimeters within `radiusKilometres` of the centre, each list nearest first.
struct FireList {
  std::vector<FireListEntry> incidents;
  std::vector<FireListEntry> perimeters;
};
FireList fireListAround(const FireMapData& data, FireCoordinate centre, double radiusKilometres);

// "N", "NNE", ... of a bearing.
std::string_view fireBearingName(double degrees) noexcept;

// The state of one service: "complete (12)", "from a snapshot 5 min old (12)", "cooling down
// until 14:05 UTC", "failed: <message>", "not asked (outside California)".
std::string fireServiceStateText(const FireServiceReport& report, Date now, const ScreenWords& words);

// "Dixon Fire  wildfire  3,240 acres  12% contained  25 km NE  [NIFC]" and the like.
// Words and digits come from `words` (the reader's language and numbering system).
std::string fireIncidentLine(const FireListEntry& entry, const ScreenWords& words);
std::string firePerimeterLine(const FireListEntry& entry, const ScreenWords& words);

std::string fireListJson(const FireList& list, const FireMapLoad& load, FireCoordinate centre, double radiusKilometres,
                         Date now);
std::string fireListGeoJson(const FireList& list);

}  // namespace ombrine
