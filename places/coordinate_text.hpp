#pragma once
// Coordinates written as text: "48.137,11.575", "-33.87, 151.21", "0 0".
//
// Pure functions; thread-safe.

#include <string>
#include <string_view>

#include "core/values/location.hpp"

namespace ombrine {

// True when `text` is made only of what a typed coordinate uses (digits, signs, ".", ",",
// spaces) and holds a digit, so that "48.1," is read, and rejected, as a coordinate rather
// than searched for as a name.
bool looksLikeCoordinate(std::string_view text) noexcept;

// Reads "latitude,longitude" in decimal degrees; a comma, spaces or both separate the two.
// Raises InvalidPlaceQuery (core/fetch/geocoder.hpp) naming what is wrong: a malformed text, or a
// latitude outside -90…90 or a longitude outside -180…180.
Location parseCoordinate(std::string_view text);

// Raises InvalidPlaceQuery unless latitude and longitude are finite and within range.
void checkCoordinate(double latitude, double longitude);

// A coordinate as a place name, to two decimals: "48.14°N 11.58°E", "33.87°S 151.21°E".
std::string coordinateName(double latitude, double longitude);

}  // namespace ombrine
