#pragma once
// Trip records: between these dates I am at that place.
//
// `Trip` = id + `TripLocation` (the destination) + `TripDates`. Records are plain values, copied
// freely between threads; every function here is pure and reentrant.
//
// Dates. `from`, `to` and `returnHomeAt` are absolute instants. For an all-day trip
// (`hasTimes` false) they are the start of the first day and a moment of the last day as seen in
// the destination's zone (`destination.timeZone`); the calendar rules of trips/trip_rules.hpp
// read them back as the same wall-clock days on any device. For a timed trip they are exact
// moments. `returnHomeTimeZone` is the zone in which `returnHomeAt` was entered.
//
// JSON (compact, keys in the order listed; dates as seconds since 2001-01-01T00:00:00Z, numbers
// in shortest round-trip form):
//   TripLocation {"name": string, "displayName": string (left out when absent),
//                 "symbolName": string, "location": {"latitude": number, "longitude": number},
//                 "timeZone": zone identifier string, e.g. "Pacific/Auckland" or "GMT+0530"}
//   TripDates    {"from": date, "to": date, "hasTimes": bool, "hasArrivalTime": bool,
//                 "infersEndTime": bool, "returnHomeAt": date (left out when absent),
//                 "returnHomeTimeZone": zone identifier (left out when absent),
//                 "returnsHomeBetweenTrips": bool, "hasExclusiveEnd": bool}
//   Trip         {"id": canonical upper-case UUID string, "destination": ..., "dates": ...}
// Reading is lenient where older records are: a missing "hasTimes", "infersEndTime" or
// "returnsHomeBetweenTrips" reads as false; a missing "hasArrivalTime" reads as "hasTimes"; a
// missing "hasExclusiveEnd" reads as hasTimes && (infersEndTime || returnHomeAt present). A null
// optional reads as absent. Everything else is required; unknown keys are ignored. A time-zone
// identifier the zone database does not know fails ("unknown time zone"): a trip whose days cannot
// be placed is not a trip.
//
// Failures: decoders raise DecodingError (core/values/errors.hpp) naming the place of the fault
// ("[2].dates.from: missing key"); encoders raise EncodingError (core/values/value_json.hpp) for a
// non-finite number. No input makes a decoder crash.

#include <boost/json/value.hpp>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/values/date.hpp"
#include "core/values/location.hpp"
#include "core/values/time_zone.hpp"
#include "core/values/uuid.hpp"
#include "core/values/value_json.hpp"

namespace ombrine {

struct TripLocation {
  std::string name;
  // The user's own name for the place; shown instead of `name` when present.
  std::optional<std::string> displayName;
  // Name of the icon of the place (presentation's choice, e.g. "airplane").
  std::string symbolName;
  // Equality by coordinate only (Location's rule).
  Location location;
  // The destination's zone.
  TimeZone timeZone;

  // `displayName` when present, else `name`.
  const std::string& shownName() const noexcept { return displayName ? *displayName : name; }

  bool operator==(const TripLocation&) const = default;
};

// `place` as the trip's new destination: its name, coordinate and zone, with the user's own name
// and symbol of `original` kept (a move changes where the trip goes, not what the user calls it).
TripLocation movedDestination(const TripLocation& original, TripLocation place);

struct TripDates {
  Date from;
  Date to;
  // False: an all-day trip in calendar days of the destination. True: exact moments.
  bool hasTimes = false;
  bool hasArrivalTime = false;
  // The user gave no departure; the end comes from `returnHomeAt` or from the next trip.
  bool infersEndTime = false;
  // The moment of being home again.
  std::optional<Date> returnHomeAt;
  std::optional<TimeZone> returnHomeTimeZone;
  // The user's statement that a connected next trip is not a direct continuation.
  bool returnsHomeBetweenTrips = false;
  // The trip ends 0.001 s before its end moment, so that the next one may start at it.
  bool hasExclusiveEnd = false;

  bool operator==(const TripDates&) const = default;
};

struct Trip {
  Uuid id;
  TripLocation destination;
  TripDates dates;

  bool operator==(const Trip&) const = default;
};

enum class TripStateValue { upcoming, active, past };

// "upcoming", "active", "past".
std::string_view tripStateName(TripStateValue value) noexcept;

// -- JSON ------------------------------------------------------------------------------------

void decodeJson(const boost::json::value& value, const JsonPath& path, TripLocation& out);
void decodeJson(const boost::json::value& value, const JsonPath& path, TripDates& out);
void decodeJson(const boost::json::value& value, const JsonPath& path, Trip& out);
void writeJson(JsonWriter& writer, const TripLocation& location);
void writeJson(JsonWriter& writer, const TripDates& dates);
void writeJson(JsonWriter& writer, const Trip& trip);

std::string encodeTrip(const Trip& trip);
Trip decodeTrip(std::string_view json);
// The stored list: a JSON array of Trip, in the given order.
std::string encodeTrips(const std::vector<Trip>& trips);
std::vector<Trip> decodeTrips(std::string_view json);

// The trip's JSON with the keys of every object sorted by byte order: a canonical text for
// comparing two trips field by field, including fields a later version adds. Raises
// EncodingError like encodeTrip.
std::string encodeTripSortedKeys(const Trip& trip);

}  // namespace ombrine
