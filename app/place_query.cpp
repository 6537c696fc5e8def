#include "app/place_query.hpp"

#include <fmt/format.h>

#include "core/errors.hpp"
#include "wiring/geocode_namer.hpp"
#include "core/geocoder.hpp"

namespace ombrine::app {

NamedPlace resolveNamedPlace(Services& services, const std::string& query, bool isCoordinate) {
  const auto matches = services.geocoder().search(query, 1);
  if (matches.empty()) throw DomainError(kNoResultErrorDomain, kNoResultErrorCode, "no place named \"" + query + "\"");
  const Location location = matches.front().coordinate;
  try {
    const GeoDetails details = services.namer().detailsOf(location);
    return NamedPlace{isCoordinate ? details.name : matches.front().name, location, details.timeZone};
  } catch (const DomainError&) {
    return NamedPlace{fmt::format("{:.3f}, {:.3f}", location.latitude(), location.longitude()), location,
                      services.geocoder().timeZone(location)};
  }
}

}  // namespace ombrine::app
