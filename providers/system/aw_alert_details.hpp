#pragma once
// The detail record that belongs to one weather alert of the system weather service, and its
// JSON form.
//
// Every field is optional. JSON keys equal the field names; dates are numbers of seconds since
// 2001-01-01T00:00:00Z, the URL a string; a missing or null key reads as absent and an absent
// field is left out when writing. Decoding raises DecodingError naming the offending key.
// Pure; safe from any thread.

#include <boost/url/url.hpp>

#include <optional>
#include <string>
#include <string_view>
#include <tuple>

#include "core/values/date.hpp"
#include "core/values/value_json.hpp"
#include "providers/system/weatherkit_wire.hpp"

namespace ombrine {

struct AWAlertDetails {
  std::optional<boost::urls::url> detailsURL;
  std::optional<std::string> source;
  std::optional<Date> date;
  std::optional<Date> expirationDate;
  std::optional<Date> issuedDate;
  std::optional<Date> onsetTime;
  std::optional<Date> endDate;
  std::optional<std::string> summary;
  std::optional<std::string> description;
  std::optional<std::string> severity;
  std::optional<std::string> importance;
  std::optional<double> latitude;
  std::optional<double> longitude;
  std::optional<std::string> attribution;
  std::optional<std::string> id;
  bool operator==(const AWAlertDetails&) const = default;
};

inline constexpr auto kAWAlertDetailsJsonMembers = std::tuple{
    jsonMember("detailsURL", &AWAlertDetails::detailsURL),
    jsonMember("source", &AWAlertDetails::source),
    jsonMember("date", &AWAlertDetails::date),
    jsonMember("expirationDate", &AWAlertDetails::expirationDate),
    jsonMember("issuedDate", &AWAlertDetails::issuedDate),
    jsonMember("onsetTime", &AWAlertDetails::onsetTime),
    jsonMember("endDate", &AWAlertDetails::endDate),
    jsonMember("summary", &AWAlertDetails::summary),
    jsonMember("description", &AWAlertDetails::description),
    jsonMember("severity", &AWAlertDetails::severity),
    jsonMember("importance", &AWAlertDetails::importance),
    jsonMember("latitude", &AWAlertDetails::latitude),
    jsonMember("longitude", &AWAlertDetails::longitude),
    jsonMember("attribution", &AWAlertDetails::attribution),
    jsonMember("id", &AWAlertDetails::id),
};
constexpr const auto& jsonMembers(const AWAlertDetails*) { return kAWAlertDetailsJsonMembers; }

std::string encodeAWAlertDetails(const AWAlertDetails& details);
AWAlertDetails decodeAWAlertDetails(std::string_view json);

// The details of one alert of an answer: `date` its effective time, `summary` its headline
// ("Moderate Thunderstorm Warning"), `description` the area it covers, `attribution` the
// provider named in the answer's metadata; the rest field by field.
AWAlertDetails alertDetails(const WeatherKitAlert& alert, std::optional<std::string> provider);

}  // namespace ombrine
