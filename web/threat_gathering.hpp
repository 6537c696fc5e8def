#pragma once
// Gathers what threatens a place from the services: the forecast (warnings, rain), the fire
// services around it and the active storms with their cones and tracks, all at once. A source
// that fails is named in the answer's `sources` as failed and the others still count.
//
// Blocks the calling thread on the runtime (never call from a runtime thread). Raises only
// CancellationError.

#include <string>

#include "core/values/location.hpp"
#include "storms/active_storm_fetch.hpp"
#include "threats/place_threats.hpp"
#include "wiring/services.hpp"

namespace ombrine::web {

// The active storms, with the rule that an empty list is believed only when every basin has
// answered in full. Raises what ActiveStormFetcher raises.
ActiveStormsResult trustedStorms(Services& services);

// `words` words the threats' details for a screen; nothing: English and plain digits.
PlaceThreats gatherThreats(Services& services, const std::string& placeName, const Location& place,
                           const GeoDetails& details, double radiusKilometres, const ScreenWords* words = nullptr);

}  // namespace ombrine::web
