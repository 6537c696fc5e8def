#pragma once
// The short forms people write after a place name for the first-level divisions of countries
// other than the United States, whose index codes are numbers ("Sydney, NSW", "Halifax, NS",
// "Munich, BY", "Recife, PE", "Pune, MH", "Monterrey, NL", "Cardiff, WLS").
//
// Pure; thread-safe.

#include <string_view>

namespace ombrine {

// True when `qualifier` (folded: lower case, no dots) is a usual abbreviation of the region
// whose folded name is `regionKey` ("new south wales") in the country `countryCode` ("AU").
// Covers Australia, Brazil, Canada, Germany, India, Mexico and the nations of the United Kingdom.
bool isRegionAbbreviation(std::string_view countryCode, std::string_view regionKey,
                          std::string_view qualifier) noexcept;

}  // namespace ombrine
