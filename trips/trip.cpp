#include "trips/trip.hpp"

#include <boost/json/array.hpp>
#include <boost/json/monotonic_resource.hpp>
#include <boost/json/object.hpp>

#include <algorithm>
#include <utility>

#include "core/values/location_json.hpp"

namespace ombrine {

TripLocation movedDestination(const TripLocation& original, TripLocation place) {
  place.displayName = original.displayName;
  place.symbolName = original.symbolName;
  return place;
}

namespace {

void decodeTimeZone(const boost::json::value& value, const JsonPath& path, TimeZone& out) {
  std::optional<TimeZone> zone = TimeZone::named(jsonString(value, path));
  if (!zone) path.fail("unknown time zone");
  out = std::move(*zone);
}

bool optionalFlag(JsonObjectReader& reader, std::string_view key, bool absent) {
  std::optional<bool> flag;
  reader.readOptional(key, flag);
  return flag.value_or(absent);
}

// Rebuilds a DOM value with the members of every object in byte order of their keys.
boost::json::value sortedKeys(const boost::json::value& value) {
  if (const auto* object = value.if_object()) {
    std::vector<const boost::json::key_value_pair*> members;
    members.reserve(object->size());
    for (const auto& member : *object) members.push_back(&member);
    std::sort(members.begin(), members.end(), [](const auto* a, const auto* b) { return a->key() < b->key(); });
    boost::json::object sorted;
    sorted.reserve(members.size());
    for (const auto* member : members) sorted.emplace(member->key(), sortedKeys(member->value()));
    return sorted;
  }
  if (const auto* array = value.if_array()) {
    boost::json::array sorted;
    sorted.reserve(array->size());
    for (const auto& element : *array) sorted.push_back(sortedKeys(element));
    return sorted;
  }
  return value;
}

template <class T>
T decodeOne(std::string_view json) {
  boost::json::monotonic_resource resource;
  const boost::json::value document = parseJson(json, &resource);
  const JsonPath root;
  T value;
  decodeJson(document, root, value);
  return value;
}

}  // namespace

std::string_view tripStateName(TripStateValue value) noexcept {
  switch (value) {
    case TripStateValue::upcoming: return "upcoming";
    case TripStateValue::active: return "active";
    case TripStateValue::past: return "past";
  }
  return "upcoming";
}

void decodeJson(const boost::json::value& value, const JsonPath& path, TripLocation& out) {
  JsonObjectReader reader(value, path);
  reader.read("name", out.name);
  reader.readOptional("displayName", out.displayName);
  reader.read("symbolName", out.symbolName);
  reader.read("location", out.location);
  const boost::json::value* zone = reader.find("timeZone");
  const JsonPath zonePath = path.key("timeZone");
  if (zone == nullptr) zonePath.fail("missing key");
  decodeTimeZone(*zone, zonePath, out.timeZone);
}

void decodeJson(const boost::json::value& value, const JsonPath& path, TripDates& out) {
  JsonObjectReader reader(value, path);
  reader.read("from", out.from);
  reader.read("to", out.to);
  out.hasTimes = optionalFlag(reader, "hasTimes", false);
  out.hasArrivalTime = optionalFlag(reader, "hasArrivalTime", out.hasTimes);
  out.infersEndTime = optionalFlag(reader, "infersEndTime", false);
  reader.readOptional("returnHomeAt", out.returnHomeAt);
  out.returnHomeTimeZone.reset();
  if (const boost::json::value* zone = reader.find("returnHomeTimeZone"); zone && !zone->is_null()) {
    const JsonPath zonePath = path.key("returnHomeTimeZone");
    decodeTimeZone(*zone, zonePath, out.returnHomeTimeZone.emplace());
  }
  out.returnsHomeBetweenTrips = optionalFlag(reader, "returnsHomeBetweenTrips", false);
  // Records written before the flag existed: an inferred or given return ends a timed trip just
  // before that moment, so that the next trip can begin at it.
  const bool derivedExclusiveEnd = out.hasTimes && (out.infersEndTime || out.returnHomeAt.has_value());
  out.hasExclusiveEnd = optionalFlag(reader, "hasExclusiveEnd", derivedExclusiveEnd);
}

void decodeJson(const boost::json::value& value, const JsonPath& path, Trip& out) {
  JsonObjectReader reader(value, path);
  reader.read("id", out.id);
  reader.read("destination", out.destination);
  reader.read("dates", out.dates);
}

void writeJson(JsonWriter& writer, const TripLocation& location) {
  writer.beginObject();
  writeKey(writer, "name", location.name);
  writeOptionalKey(writer, "displayName", location.displayName);
  writeKey(writer, "symbolName", location.symbolName);
  writeKey(writer, "location", location.location);
  writeKey(writer, "timeZone", location.timeZone.identifier());
  writer.endObject();
}

void writeJson(JsonWriter& writer, const TripDates& dates) {
  writer.beginObject();
  writeKey(writer, "from", dates.from);
  writeKey(writer, "to", dates.to);
  writeKey(writer, "hasTimes", dates.hasTimes);
  writeKey(writer, "hasArrivalTime", dates.hasArrivalTime);
  writeKey(writer, "infersEndTime", dates.infersEndTime);
  writeOptionalKey(writer, "returnHomeAt", dates.returnHomeAt);
  if (dates.returnHomeTimeZone) writeKey(writer, "returnHomeTimeZone", dates.returnHomeTimeZone->identifier());
  writeKey(writer, "returnsHomeBetweenTrips", dates.returnsHomeBetweenTrips);
  writeKey(writer, "hasExclusiveEnd", dates.hasExclusiveEnd);
  writer.endObject();
}

void writeJson(JsonWriter& writer, const Trip& trip) {
  writer.beginObject();
  writeKey(writer, "id", trip.id);
  writeKey(writer, "destination", trip.destination);
  writeKey(writer, "dates", trip.dates);
  writer.endObject();
}

std::string encodeTrip(const Trip& trip) { return encodeJson(trip); }
Trip decodeTrip(std::string_view json) { return decodeOne<Trip>(json); }
std::string encodeTrips(const std::vector<Trip>& trips) { return encodeJson(trips); }
std::vector<Trip> decodeTrips(std::string_view json) { return decodeOne<std::vector<Trip>>(json); }

std::string encodeTripSortedKeys(const Trip& trip) {
  const boost::json::value document = parseJson(encodeTrip(trip));
  return serializeJson(sortedKeys(document));
}

}  // namespace ombrine
