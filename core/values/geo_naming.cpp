#include "core/values/geo_naming.hpp"

#include <unicode/uchar.h>
#include <unicode/unistr.h>

#include <algorithm>

#include "core/values/errors.hpp"

namespace ombrine {

namespace {

icu::UnicodeString unicode(std::string_view text) {
  return icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<int32_t>(text.size())));
}

// Strips white space and line breaks of any script (the Unicode White_Space property).
icu::UnicodeString trimmed(const icu::UnicodeString& text) {
  int32_t start = 0;
  int32_t end = text.length();
  while (start < end && u_isUWhiteSpace(text.char32At(start))) start = text.moveIndex32(start, 1);
  while (end > start) {
    const int32_t previous = text.moveIndex32(end, -1);
    if (!u_isUWhiteSpace(text.char32At(previous))) break;
    end = previous;
  }
  return icu::UnicodeString(text, start, end - start);
}

// The city part of a US placemark's description: addresses there read "street, city,
// STATE ZIP, country", so the city is the third component from the end.
icu::UnicodeString descriptionCity(std::string_view description) {
  description = description.substr(0, description.find('@'));
  std::vector<std::string_view> components;
  for (size_t start = 0;;) {
    const size_t comma = description.find(',', start);
    components.push_back(description.substr(start, comma - start));
    if (comma == std::string_view::npos) break;
    start = comma + 1;
  }
  const std::string_view city = components.size() < 3 ? components.front() : components[components.size() - 3];
  return trimmed(unicode(city));
}

bool equalIgnoringCase(const icu::UnicodeString& a, const std::string& b) {
  return a.caseCompare(unicode(b), U_FOLD_CASE_DEFAULT) == 0;
}

std::optional<std::string> usCityName(const Placemark& placemark) {
  const icu::UnicodeString city = descriptionCity(placemark.description);
  if (placemark.locality && equalIgnoringCase(city, *placemark.locality)) return placemark.locality;
  if (placemark.subLocality && equalIgnoringCase(city, *placemark.subLocality)) return placemark.subLocality;
  return std::nullopt;
}

std::string placeName(const Placemark& placemark) {
  const auto airport = std::find_if(placemark.areasOfInterest.begin(), placemark.areasOfInterest.end(),
                                    [](const std::string& area) { return area.find("Airport") != std::string::npos; });
  if (airport != placemark.areasOfInterest.end()) return *airport;
  if (placemark.ISOcountryCode == "US") {
    if (auto city = usCityName(placemark)) return *city;
  }
  for (const auto* field : {&placemark.locality, &placemark.subAdministrativeArea, &placemark.administrativeArea,
                            &placemark.country, &placemark.name}) {
    if (*field) return **field;
  }
  return kUnknownPlaceName;
}

}  // namespace

GeoDetails geoDetails(const Placemark& placemark) {
  return GeoDetails{
      .name = placeName(placemark),
      .region = placemark.ISOcountryCode ? Region{*placemark.ISOcountryCode} : Region::unknown(),
      .timeZone = placemark.timeZone ? *placemark.timeZone : TimeZone::current(),
  };
}

GeoDetails geoDetailsOfFirst(std::span<const Placemark> placemarks) {
  if (placemarks.empty()) throw DomainError(kNoResultErrorDomain, kNoResultErrorCode);
  return geoDetails(placemarks.front());
}

}  // namespace ombrine
