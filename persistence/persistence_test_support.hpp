#pragma once
// Shared pieces of the persistence tests: a scratch folder per test and a small JSON value type
// (a map from key to number) whose merge is a union, so lost writes show up as missing keys.

#include <gtest/gtest.h>
#include <unistd.h>

#include <boost/json.hpp>

#include <cmath>
#include <filesystem>
#include <map>
#include <string>

#include "core/values/date.hpp"
#include "core/values/location.hpp"
#include "persistence/coordinated_value_cache.hpp"
#include "platform/testing/scratch_folder.hpp"

namespace ombrine::testing_support {

namespace fs = std::filesystem;

using Counts = std::map<std::string, int>;

inline ValueCodec<Counts> countsCodec() {
  ValueCodec<Counts> codec;
  codec.encode = [](const Counts& counts) {
    boost::json::object object;
    for (const auto& [key, value] : counts) object[key] = value;
    return boost::json::serialize(object);
  };
  codec.decode = [](std::string_view bytes) {
    const boost::json::value document = boost::json::parse(bytes);
    Counts counts;
    for (const auto& [key, value] : document.as_object()) counts[std::string(key)] = static_cast<int>(value.as_int64());
    return counts;
  };
  return codec;
}

// A store of `candidate` merged into what is on disk.
inline CoordinatedValueCacheTransaction<Counts> unionStore(const fs::path& file, Counts candidate) {
  CoordinatedValueCacheTransaction<Counts> transaction;
  transaction.mutation = StoreValue<Counts>{std::move(candidate)};
  transaction.fileURL = file;
  transaction.codec = countsCodec();
  transaction.preferredValue = [](const std::optional<Counts>& persisted, const Counts& candidate) {
    Counts merged = persisted.value_or(Counts{});
    for (const auto& [key, value] : candidate) merged[key] = value;
    return merged;
  };
  transaction.now = [] { return Date::fromReference(1000.0); };
  return transaction;
}

// The first latitude at least `metres` north of (latitude, longitude) along its meridian: the
// exact edge of a lookup radius.
inline double latitudeNorthBy(double latitude, double longitude, double metres) {
  const Location origin(latitude, longitude);
  double north = latitude + metres / 6371009.0 * 180.0 / 3.14159265358979323846;
  while (Location(north, longitude).distance(origin) < metres) north = std::nextafter(north, 90.0);
  return north;
}

// The point on the meridian of `from` at least `metres` north of it (latitudeNorthBy).
inline Location northOf(const Location& from, double metres) {
  return Location(latitudeNorthBy(from.latitude(), from.longitude(), metres), from.longitude());
}

// A fresh scratch folder per test, removed afterwards.
class ScratchFolderTest : public testing::Test {
 protected:
  const ScratchFolder scratch_{"ombrine-persistence"};
  const fs::path dir_ = scratch_.path();
};

}  // namespace ombrine::testing_support
