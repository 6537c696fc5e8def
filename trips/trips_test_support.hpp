#pragma once
// Shared pieces of the trips tests: ids by number, zones by name and wall-clock moments in them.

#include <cstdint>

#include "core/values/time_zone.hpp"
#include "core/values/uuid.hpp"
#include "trips/trip_calendar.hpp"

namespace ombrine::trips_testing {

// The id whose last byte is `n`, every other byte zero.
inline Uuid idNumber(int n) {
  Uuid id;
  id.bytes[15] = static_cast<std::uint8_t>(n);
  return id;
}

// A zone the shipped time-zone data knows.
inline TimeZone zone(const char* identifier) { return *TimeZone::named(identifier); }

// `time` on `day` by the clocks of `zoneName`.
inline Date at(const char* zoneName, CivilDay day, WallTime time = {}) {
  return TripCalendar(zone(zoneName)).date(day, time);
}

}  // namespace ombrine::trips_testing
