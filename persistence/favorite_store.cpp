#include "persistence/favorite_store.hpp"

#include <algorithm>

namespace ombrine {

namespace {

CloudValueCodec<std::vector<FavoriteLocation>> favoritesCodec() {
  return {std::string(FavoriteStore::key),
          [](const std::vector<FavoriteLocation>& favorites) {
            return std::optional<std::string>(encodeFavoriteLocations(favorites));
          },
          [](std::string_view json) { return decodeFavoriteLocations(json); }, std::nullopt};
}

CloudValueCodec<std::optional<FavoriteLocation>> homeCodec() {
  return {std::string(HomeStore::key),
          [](const std::optional<FavoriteLocation>& home) {
            return home ? std::optional<std::string>(encodeFavoriteLocation(*home)) : std::nullopt;
          },
          [](std::string_view json) { return std::optional<FavoriteLocation>(decodeFavoriteLocation(json)); },
          std::optional<std::optional<FavoriteLocation>>(std::in_place, std::nullopt)};
}

}  // namespace

FavoriteStore::FavoriteStore(CloudKeyValueStore& cloud) : store_(cloud, favoritesCodec(), {}) {}

void FavoriteStore::save(const FavoriteLocation& favorite) {
  store_.update([&](std::vector<FavoriteLocation>& favorites) {
    auto same = std::find_if(favorites.begin(), favorites.end(),
                             [&](const FavoriteLocation& f) { return f.id == favorite.id; });
    if (same == favorites.end()) {
      favorites.push_back(favorite);
    } else {
      *same = favorite;
    }
  });
}

bool FavoriteStore::remove(const Uuid& id) {
  bool removed = false;
  store_.update([&](std::vector<FavoriteLocation>& favorites) {
    const auto before = favorites.size();
    std::erase_if(favorites, [&](const FavoriteLocation& f) { return f.id == id; });
    removed = favorites.size() != before;
  });
  return removed;
}

HomeStore::HomeStore(CloudKeyValueStore& cloud) : store_(cloud, homeCodec(), std::nullopt) {}

}  // namespace ombrine
