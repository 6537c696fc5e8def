#pragma once
// The user's saved places and home place, kept in the cloud key-value store.
//
// `FavoriteStore`: key "favorites", the JSON array of FavoriteLocation as data; a missing key
// (a wiped store) leaves the list in memory as it is, so the next change writes it back.
// `HomeStore`: key "home", the JSON of one FavoriteLocation as data; no home removes the key,
// and a removed key reads as no home.
// Both follow CloudValueStore (persistence/cloud_value_store.hpp): each change is a read-merge-
// write of the stored value under the store's lock across processes, on disk when the call
// returns (a save or removal of one place touches only that place, by id, so places saved by
// other processes meanwhile survive); external changes applied without writing back, decoding
// failures logged with memory kept. The changing members raise FileError when the store cannot
// be read or written (and CloudStoreQuotaError), with memory and store as they were.
// Thread-safe; observers run after each change with the new value.

#include <optional>
#include <string_view>
#include <vector>

#include "core/values/uuid.hpp"
#include "persistence/cloud_value_store.hpp"
#include "persistence/favorite_location.hpp"

namespace ombrine {

class FavoriteStore {
 public:
  static constexpr std::string_view key = "favorites";

  explicit FavoriteStore(CloudKeyValueStore& cloud);

  std::vector<FavoriteLocation> locations() const { return store_.value(); }
  void setLocations(std::vector<FavoriteLocation> locations) { store_.setValue(std::move(locations)); }
  // Appends `favorite`, or replaces the saved place with its id where it stands.
  void save(const FavoriteLocation& favorite);
  // Removes the saved place with this id; false when there was none.
  bool remove(const Uuid& id);
  bool isApplyingExternalKeyValueStoreUpdate() const { return store_.isApplyingExternalKeyValueStoreUpdate(); }
  [[nodiscard]] Subscription observe(CloudValueStore<std::vector<FavoriteLocation>>::Observer observer) {
    return store_.observe(std::move(observer));
  }

 private:
  CloudValueStore<std::vector<FavoriteLocation>> store_;
};

class HomeStore {
 public:
  static constexpr std::string_view key = "home";

  explicit HomeStore(CloudKeyValueStore& cloud);

  std::optional<FavoriteLocation> home() const { return store_.value(); }
  void setHome(std::optional<FavoriteLocation> home) { store_.setValue(std::move(home)); }
  bool isApplyingExternalKeyValueStoreUpdate() const { return store_.isApplyingExternalKeyValueStoreUpdate(); }
  [[nodiscard]] Subscription observe(CloudValueStore<std::optional<FavoriteLocation>>::Observer observer) {
    return store_.observe(std::move(observer));
  }

 private:
  CloudValueStore<std::optional<FavoriteLocation>> store_;
};

}  // namespace ombrine
