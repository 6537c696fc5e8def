#pragma once
// The deep link that opens the tide detail view: "weather://tide/current" for the device's own
// place, "weather://tide/station?source=...&stationID=...&name=...&latitude=...&longitude=..."
// (plus optional "state", "stationType", "referenceStationID") for one station.
//
// Scheme and host compare without regard to case; the path must be exactly one component.
// A station link needs source "noaa" or "chs", a non-empty station id and name, and a latitude
// and longitude that parse as numbers and form a valid coordinate. Anything else is not a tide
// link and opens nothing. Pure functions; thread-safe; raise nothing but std::bad_alloc.

#include <optional>
#include <string>
#include <string_view>

#include "core/record/tide_records.hpp"

namespace ombrine {

std::optional<TideDetailLaunchRequest> parseTideDeepLink(std::string_view url);

// The link that parseTideDeepLink reads back as `request`.
std::string tideDeepLink(const TideDetailLaunchRequest& request);

}  // namespace ombrine
