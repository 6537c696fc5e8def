#include "storms/nhc_feed.hpp"

#include <boost/json/parse.hpp>
#include <boost/url/parse.hpp>

#include "core/values/errors.hpp"
#include "core/values/iso8601.hpp"
#include "storms/storm_http.hpp"
#include "storms/text_pattern.hpp"

namespace ombrine {

namespace json = boost::json;

namespace {

const json::value* member(const json::object& object, std::string_view key) {
  const auto* value = object.if_contains(key);
  return value && !value->is_null() ? value : nullptr;
}

std::string requiredString(const json::object& object, std::string_view key) {
  const auto* value = member(object, key);
  if (!value) throw DecodingError(std::string(key) + ": missing key");
  if (!value->is_string()) throw DecodingError(std::string(key) + ": not a string");
  return std::string(value->get_string());
}

std::optional<std::string> optionalString(const json::object& object, std::string_view key) {
  const auto* value = member(object, key);
  if (!value) return std::nullopt;
  if (!value->is_string()) throw DecodingError(std::string(key) + ": not a string");
  return std::string(value->get_string());
}

double number(const json::value& value, std::string_view key) {
  if (value.is_double()) return value.get_double();
  if (value.is_int64()) return static_cast<double>(value.get_int64());
  if (value.is_uint64()) return static_cast<double>(value.get_uint64());
  throw DecodingError(std::string(key) + ": not a number");
}

double requiredNumber(const json::object& object, std::string_view key) {
  const auto* value = member(object, key);
  if (!value) throw DecodingError(std::string(key) + ": missing key");
  return number(*value, key);
}

std::optional<double> optionalNumber(const json::object& object, std::string_view key) {
  const auto* value = member(object, key);
  if (!value) return std::nullopt;
  return number(*value, key);
}

// A string holding a signed decimal integer; other text is no value and no error.
std::optional<int> integerText(const json::object& object, std::string_view key) {
  const auto text = optionalString(object, key);
  if (!text) return std::nullopt;
  const auto value = parseInteger(*text);
  if (!value || *value > INT32_MAX || *value < INT32_MIN) return std::nullopt;
  return static_cast<int>(*value);
}

std::optional<boost::urls::url> optionalURL(const json::object& object, std::string_view key) {
  const auto text = optionalString(object, key);
  if (!text) return std::nullopt;
  auto parsed = boost::urls::parse_uri(*text);
  if (!parsed) throw DecodingError(std::string(key) + ": not a URL");
  return boost::urls::url(*parsed);
}

std::optional<Date> optionalDate(const json::object& object, std::string_view key) {
  const auto text = optionalString(object, key);
  if (!text) return std::nullopt;
  return decodeISO8601Date(*text);
}

// One of the four linked-file objects; any other JSON type reads as absent.
const json::object* linkedObject(const json::object& object, std::string_view key) {
  const auto* value = member(object, key);
  return value && value->is_object() ? &value->get_object() : nullptr;
}

Storm decodeStorm(const json::value& value) {
  if (!value.is_object()) throw DecodingError("entry: not an object");
  const json::object& o = value.get_object();
  Storm storm;
  storm.id = requiredString(o, "id");
  storm.name = requiredString(o, "name");
  storm.classification = Storm::Classification::fromCode(upperCased(requiredString(o, "classification")));
  storm.intensity = integerText(o, "intensity");
  storm.pressure = integerText(o, "pressure");
  storm.coordinate.latitude = requiredNumber(o, "latitudeNumeric");
  storm.coordinate.longitude = requiredNumber(o, "longitudeNumeric");
  storm.movementDir = optionalNumber(o, "movementDir");
  storm.movementSpeed = optionalNumber(o, "movementSpeed");
  storm.lastUpdate = optionalDate(o, "lastUpdate");
  if (const auto* advisory = linkedObject(o, "publicAdvisory")) storm.advisoryURL = optionalURL(*advisory, "url");
  if (const auto* track = linkedObject(o, "forecastTrack")) {
    storm.trackURL = optionalURL(*track, "kmzFile");
    storm.forecastIssuance = optionalDate(*track, "issuance");
  }
  if (const auto* cone = linkedObject(o, "trackCone")) storm.coneURL = optionalURL(*cone, "kmzFile");
  if (const auto* history = linkedObject(o, "bestTrackGIS")) storm.historyURL = optionalURL(*history, "kmzFile");
  return storm;
}

FailableNHCStorm decodeFailable(const json::value& value) {
  FailableNHCStorm entry;
  try {
    entry.storm = decodeStorm(value);
  } catch (const std::exception&) {
    entry.storm.reset();
  }
  try {
    if (value.is_object()) entry.identifier = requiredString(value.get_object(), "id");
  } catch (const std::exception&) {
    entry.identifier.reset();
  }
  return entry;
}

}  // namespace

NHCActiveStormsResponse decodeNHCActiveStorms(std::string_view body) {
  boost::system::error_code error;
  const json::value document = json::parse(body, error);
  if (error) throw DecodingError("CurrentStorms.json: invalid JSON: " + error.message());
  const json::value* list = document.is_object() ? document.get_object().if_contains("activeStorms") : nullptr;
  if (!list || !list->is_array()) throw DecodingError("activeStorms: missing or not an array");
  NHCActiveStormsResponse response{.activeStorms = {}, .completeCoverage = nhcCoverage()};
  for (const auto& item : list->get_array()) {
    FailableNHCStorm entry = decodeFailable(item);
    if (entry.storm) {
      response.activeStorms.push_back(std::move(*entry.storm));
      continue;
    }
    const std::string id = upperCased(entry.identifier.value_or(""));
    if (entry.identifier && id.rfind("AL", 0) == 0) {
      response.completeCoverage.erase(ActiveStormCoverage::nhcAtlantic);
    } else if (entry.identifier && (id.rfind("EP", 0) == 0 || id.rfind("CP", 0) == 0)) {
      response.completeCoverage.erase(ActiveStormCoverage::nhcEastCentralPacific);
    } else {
      response.completeCoverage.clear();
    }
  }
  return response;
}

Task<ActiveStormSourceFetchResult<Storm>> fetchNHCStorms(HttpClient& http, const ServiceEndpoints& endpoints,
                                                         ActiveStormCoverageSet requested) {
  auto url = underBase(endpoints.nationalHurricaneCenter, "/CurrentStorms.json");
  std::string accept = "application/json";
  std::string body = co_await getStormFile(http, std::move(url), std::move(accept));
  NHCActiveStormsResponse response = decodeNHCActiveStorms(body);
  co_return ActiveStormSourceFetchResult<Storm>{std::move(response.activeStorms),
                                                intersection(response.completeCoverage, requested)};
}

}  // namespace ombrine
