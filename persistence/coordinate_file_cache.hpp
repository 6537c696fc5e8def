#pragma once
// What the per-process keyed file caches (GeocodeCache, HistoricalWeatherCache) share: one file
// per coordinate named "<latitude>_<longitude>.data", and JSON whose keys may be snake case.
//
// Pure functions; thread-safe.

#include <boost/json/value.hpp>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/values/location.hpp"

namespace ombrine {

// "<latitude>_<longitude>.data", each number the shortest decimal text that reads back as the
// same double ("60.1699_24.9384.data", "0.30000000000000004_-0.data").
std::string coordinateFileName(double latitude, double longitude);

// The pieces of `stem` split at "_" with empty pieces dropped.
std::vector<std::string_view> fileNamePieces(std::string_view stem);

// The number a whole piece spells; nothing for a piece that spells none ("12abc", "", "x").
std::optional<double> numberOfPiece(std::string_view piece);

// `key` converted from snake case to the camel case of the record fields: the words after the
// first are capitalised and the underscores between words removed; leading and trailing
// underscores stay; a key without inner underscores is unchanged ("time_zone" -> "timeZone",
// "TIME_ZONE" -> "timeZone", "timeZone" -> "timeZone", "_private_key_" -> "_privateKey_").
std::string camelCaseOfSnakeCase(std::string_view key);

// `value` with every object key, at every depth, converted by camelCaseOfSnakeCase. When two
// keys of one object convert to the same name, the later one wins.
boost::json::value withKeysFromSnakeCase(const boost::json::value& value);

}  // namespace ombrine
