#include "providers/system/aw_alert_details.hpp"

#include <boost/json/monotonic_resource.hpp>
#include <boost/url/parse.hpp>

namespace ombrine {

std::string encodeAWAlertDetails(const AWAlertDetails& details) { return encodeJson(details); }

AWAlertDetails decodeAWAlertDetails(std::string_view json) {
  boost::json::monotonic_resource arena;
  const boost::json::value document = parseJson(json, &arena);
  AWAlertDetails details;
  decodeJson(document, JsonPath(), details);
  return details;
}

AWAlertDetails alertDetails(const WeatherKitAlert& alert, std::optional<std::string> provider) {
  AWAlertDetails details;
  if (alert.detailsUrl) {
    if (auto url = boost::urls::parse_absolute_uri(*alert.detailsUrl)) details.detailsURL = boost::urls::url(*url);
  }
  details.source = alert.source;
  details.date = alert.effectiveTime;
  details.expirationDate = alert.expireTime;
  details.issuedDate = alert.issuedTime;
  details.onsetTime = alert.eventOnsetTime;
  details.endDate = alert.eventEndTime;
  details.summary = alert.description;
  if (!alert.areaName.empty()) details.description = alert.areaName;
  details.severity = alert.severity;
  details.importance = alert.importance;
  details.attribution = std::move(provider);
  details.id = alert.id;
  return details;
}

}  // namespace ombrine
