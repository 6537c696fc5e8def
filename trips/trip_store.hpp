#pragma once
// The user's trips, kept in memory and mirrored to the cloud key-value store.
//
// Key "trips": the JSON array of trips/trip.hpp, stored as data. The pattern is CloudValueStore's
// (persistence/cloud_value_store.hpp): a change made here is a read-merge-write of the stored
// list under the store's lock across processes (a save or removal touches only its own trip, by
// id, so trips other processes wrote meanwhile survive), on disk when the call returns; a change that arrives from
// elsewhere (another process, another machine) is decoded and applied to memory without being written back; bytes that
// do not decode are logged and leave memory as it was, and the next local change overwrites them. A missing key (a
// wiped store) also leaves memory as it is, so the trips are written back with the next change; removing every trip
// stores an empty array. Two machines editing at once lose one edit: the list is one value, and the cloud store is
// last-writer-wins per key; two processes on one machine do not. The changing members raise FileError when the store
// cannot be read or written (and CloudStoreQuotaError); memory and store are then as they were.
//
// Thread-safe: every member may be called from any thread. Observers run after each change with
// the new list, without any lock held, on the thread that made the change (for an external
// change, the cloud store's watcher or the caller of its synchronize). `cloud` must outlive the
// store.

#include <functional>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "persistence/cloud_value_store.hpp"
#include "platform/cloud_key_value_store.hpp"
#include "trips/trip.hpp"

namespace ombrine {

// The trip an edit was for is no longer stored: another process removed it.
class TripRemovedError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class TripStore {
 public:
  static constexpr std::string_view key = "trips";

  using Observer = CloudValueStore<std::vector<Trip>>::Observer;

  // Loads the stored list (absent or undecodable: no trips, the latter logged) and starts
  // observing external changes.
  explicit TripStore(CloudKeyValueStore& cloud);

  std::vector<Trip> trips() const { return store_.value(); }
  // Replaces the whole list; nothing is written when it equals the stored one.
  void setTrips(std::vector<Trip> trips) { store_.setValue(std::move(trips)); }
  // Changes the list as stored now, under the store's lock (in this and other processes); what
  // `change` raises propagates with nothing written. `change` must not call into the store.
  void update(const std::function<void(std::vector<Trip>&)>& change) { store_.update(change); }

  // The trip with this id, if any.
  std::optional<Trip> trip(const Uuid& id) const;
  // Appends `trip`, or replaces the trip with its id where it stands.
  void save(const Trip& trip);
  // Removes the trip with this id; false when there was none.
  bool remove(const Uuid& id);

  // Adds the trip `id`, or replaces it where it stands, as `make` builds it from the other trips
  // as stored now (it applies the trip rules, and may raise to refuse), then stores the list as
  // `normalize` returns it; all of it under the store's lock, so trips other processes saved
  // meanwhile stay. Returns the trip as stored. With `mustExist`, a trip removed meanwhile raises
  // TripRemovedError. Raises as `update` does; nothing is written then.
  Trip saveChecked(const Uuid& id, bool mustExist, const std::function<Trip(const std::vector<Trip>& others)>& make,
                   const std::function<std::vector<Trip>(std::vector<Trip>)>& normalize);

  // True on the thread that is applying an external change, while it does.
  bool isApplyingExternalKeyValueStoreUpdate() const { return store_.isApplyingExternalKeyValueStoreUpdate(); }
  [[nodiscard]] Subscription observe(Observer observer) { return store_.observe(std::move(observer)); }

 private:
  CloudValueStore<std::vector<Trip>> store_;
};

}  // namespace ombrine
