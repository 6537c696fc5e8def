#pragma once
// The storm list and a storm's forecast as the command shows them: one line per storm or per
// forecast point, or JSON. Pure functions; thread-safe. Lines take their words and digits from
// a ScreenWords (the reader's language and numbering system); JSON is plain ASCII.

#include <optional>
#include <string>
#include <vector>

#include <unicode/locid.h>

#include "core/values/location.hpp"
#include "core/values/screen_words.hpp"
#include "storms/storm.hpp"
#include "storms/storm_overlay_plan.hpp"

namespace ombrine {

enum class StormAgency { nhc, jtwc };

// NHC identifiers carry a four-digit year ("al052026"), JTWC ones two ("WP0626").
StormAgency agencyOf(const Storm& storm);
// "NHC", "JTWC", or "NHC+JTWC" for a record that absorbed the other agency's.
std::string agencyLabel(const Storm& storm);

// "22.8N 131.6E".
std::string formatStormPosition(double latitude, double longitude, const ScreenWords& words);

// "NW at 9 kt" from a heading in degrees (22.5-degree sectors centred on each point); nothing
// without both values.
std::optional<std::string> formatStormMovement(std::optional<double> direction, std::optional<double> speedKt,
                                               const ScreenWords& words);

struct StormListEntry {
  Storm storm;
  std::optional<double> distanceKm;  // from the place asked about
};

// The storms with their distance from `near` (when given), nearest first, within `radiusKm`
// (when given); without `near` the list order is kept.
std::vector<StormListEntry> stormListEntries(const std::vector<Storm>& storms, const std::optional<Location>& near,
                                             std::optional<double> radiusKm);

// "WP0626  Lanlan (Cat 4)  JTWC  Super Typhoon  145 kt  900 mb  18.2N 132.4E  NW at 9 kt  1234 km".
std::string stormListLine(const StormListEntry& entry, const ScreenWords& words);

// "+24 h  2026-09-08 06:00 UTC  24.9N 128.7E  125 kt  916 mb  HU4"; "now" for the current point.
std::string forecastPointLine(const KMLCircleFeature& point, const ScreenWords& words);

// {"id", "name", "title", "agency", "classification", "label", "intensityKt", "pressureMb",
//  "latitude", "longitude", "movementDir", "movementSpeedKt", "lastUpdate" (ISO 8601),
//  "advisoryURL", "coneURL", "trackURL", "historyURL", "alternateIDs", "distanceKm"}; absent
// values are left out.
std::string stormListJson(const std::vector<StormListEntry>& entries, const ActiveStormCoverageSet& coverage,
                          const icu::Locale& locale);

// The storm whose id, or one of whose alternate ids, names the same storm as `id` ("wp0626",
// "WP062026"); nothing when none does.
std::optional<Storm> findStorm(const std::vector<Storm>& storms, std::string_view id);

}  // namespace ombrine
