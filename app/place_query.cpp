#include "app/place_query.hpp"

#include <fmt/format.h>

#include "app/terminal_text.hpp"
#include "core/fetch/geocoder.hpp"
#include "core/values/errors.hpp"
#include "places/coordinate_text.hpp"
#include "wiring/geocode_namer.hpp"

namespace ombrine::app {

NamedPlace resolveNamedPlace(Services& services, const std::string& query, bool isCoordinate) {
  std::string name;
  Location location;
  if (isCoordinate) {
    location = parseCoordinate(query);
  } else {
    const auto matches = services.geocoder().search(query, 1);
    if (matches.empty())
      throw DomainError(kNoResultErrorDomain, kNoResultErrorCode, "no place named " + quotedInput(query));
    location = matches.front().coordinate;
    name = matches.front().name;
  }
  try {
    const GeoDetails details = services.namer().detailsOf(location);
    return NamedPlace{isCoordinate ? details.name : name, location, details.timeZone};
  } catch (const DomainError&) {
    return NamedPlace{fmt::format("{:.3f}, {:.3f}", location.latitude(), location.longitude()), location,
                      services.geocoder().timeZone(location)};
  }
}

}  // namespace ombrine::app
