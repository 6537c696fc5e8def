#include "trips/trip_store.hpp"

#include <algorithm>
#include <string>

namespace ombrine {

namespace {

CloudValueCodec<std::vector<Trip>> tripsCodec() {
  return CloudValueCodec<std::vector<Trip>>{
      .key = std::string(TripStore::key),
      .encode = [](const std::vector<Trip>& trips) -> std::optional<std::string> { return encodeTrips(trips); },
      .decode = [](std::string_view json) { return decodeTrips(json); },
      .absent = std::nullopt,
  };
}

}  // namespace

TripStore::TripStore(CloudKeyValueStore& cloud) : store_(cloud, tripsCodec(), {}) {}

std::optional<Trip> TripStore::trip(const Uuid& id) const {
  const std::vector<Trip> trips = store_.value();
  const auto found = std::find_if(trips.begin(), trips.end(), [&](const Trip& trip) { return trip.id == id; });
  if (found == trips.end()) return std::nullopt;
  return *found;
}

void TripStore::save(const Trip& trip) {
  store_.update([&](std::vector<Trip>& trips) {
    const auto found = std::find_if(trips.begin(), trips.end(), [&](const Trip& other) { return other.id == trip.id; });
    if (found == trips.end()) {
      trips.push_back(trip);
    } else {
      *found = trip;
    }
  });
}

bool TripStore::remove(const Uuid& id) {
  bool removed = false;
  store_.update([&](std::vector<Trip>& trips) {
    removed = std::erase_if(trips, [&](const Trip& trip) { return trip.id == id; }) > 0;
  });
  return removed;
}

Trip TripStore::saveChecked(const Uuid& id, bool mustExist,
                            const std::function<Trip(const std::vector<Trip>& others)>& make,
                            const std::function<std::vector<Trip>(std::vector<Trip>)>& normalize) {
  store_.update([&](std::vector<Trip>& trips) {
    const auto found = std::find_if(trips.begin(), trips.end(), [&](const Trip& trip) { return trip.id == id; });
    if (found == trips.end() && mustExist) throw TripRemovedError("the trip " + id.text() + " was removed meanwhile");
    std::vector<Trip> others;
    for (const Trip& trip : trips) {
      if (trip.id != id) others.push_back(trip);
    }
    const Trip made = make(others);
    if (found == trips.end()) {
      trips.push_back(made);
    } else {
      *found = made;
    }
    trips = normalize(std::move(trips));
  });
  // As stored: normalising may have changed it (an inferred end becoming the next arrival).
  return trip(id).value();
}

}  // namespace ombrine
