#pragma once
// Runs the tide task beside a forecast fetch and sets the record's `tideData`.
//
// The tide request starts at once as a child task while `forecast` runs; both are awaited before
// this returns. A forecast failure cancels the tide task and is raised. A tide failure other
// than cancellation is logged ("Tide fetch failed: <what>") and the record keeps no tides; a
// place without tides leaves `tideData` absent, as does a placeholder record. With a null
// `service` (tides hidden by the user) nothing is asked and `forecast` is awaited alone.
//
// Runs on the caller's executor; `service` must outlive the call. Raises what `forecast` raises
// and CancellationError.

#include <string>

#include "core/location.hpp"
#include "core/one_call_weather.hpp"
#include "platform/task.hpp"
#include "tides/tide_service.hpp"

namespace ombrine {

Task<OneCallWeather> withTideData(TideService* service, Location location, std::string region,
                                  Task<OneCallWeather> forecast);

}  // namespace ombrine
