#include "tides/tide_deep_link.hpp"

#include <boost/url/parse.hpp>
#include <boost/url/url.hpp>

#include <charconv>
#include <cmath>
#include <vector>

#include "platform/http_client.hpp"

namespace ombrine {

namespace {

// The whole text as a number, as the platform's Double(text) reads it: nothing for empty text,
// surrounding spaces or trailing characters.
std::optional<double> wholeNumber(std::string_view text) {
  double value = 0.0;
  const char* end = text.data() + text.size();
  const auto [ptr, error] = std::from_chars(text.data(), end, value);
  if (text.empty() || error != std::errc() || ptr != end) return std::nullopt;
  return value;
}

}  // namespace

std::optional<TideDetailLaunchRequest> parseTideDeepLink(std::string_view text) {
  const auto parsed = boost::urls::parse_uri(text);
  if (!parsed) return std::nullopt;
  const boost::urls::url_view url = *parsed;
  if (!equalsIgnoringCase(url.scheme(), "weather") || !url.has_authority() ||
      !equalsIgnoringCase(url.encoded_host(), "tide")) {
    return std::nullopt;
  }
  std::vector<std::string> components;
  for (const auto& segment : url.segments()) {
    if (!segment.empty()) components.push_back(segment);
  }
  if (components.size() != 1) return std::nullopt;
  if (components[0] == "current") return TideDetailLaunchRequest::currentLocation();
  if (components[0] != "station") return std::nullopt;

  auto item = [&](std::string_view key) -> std::optional<std::string> {
    for (const auto& param : url.params()) {
      if (param.key == key) return param.has_value ? std::optional<std::string>(param.value) : std::nullopt;
    }
    return std::nullopt;
  };
  const auto source = tideStationSourceFromString(item("source").value_or(""));
  const auto id = item("stationID");
  const auto name = item("name");
  const auto latitude = wholeNumber(item("latitude").value_or(""));
  const auto longitude = wholeNumber(item("longitude").value_or(""));
  if (!source || !id || id->empty() || !name || name->empty() || !latitude || !longitude) return std::nullopt;
  if (!(*latitude >= -90.0 && *latitude <= 90.0 && *longitude >= -180.0 && *longitude <= 180.0)) return std::nullopt;
  return TideDetailLaunchRequest::station(TideStationSelection{
      .source = *source,
      .station = TideStation{.id = *id,
                             .name = *name,
                             .latitude = *latitude,
                             .longitude = *longitude,
                             .state = item("state"),
                             .type = item("stationType"),
                             .referenceStationID = item("referenceStationID")},
  });
}

std::string tideDeepLink(const TideDetailLaunchRequest& request) {
  boost::urls::url url;
  url.set_scheme("weather");
  url.set_host("tide");
  const auto* selection = std::get_if<TideStationSelection>(&request.target);
  if (selection == nullptr) {
    url.set_path("/current");
    return std::string(url.buffer());
  }
  url.set_path("/station");
  const TideStation& station = selection->station;
  auto params = url.params();
  auto number = [](double value) {
    char buffer[32];
    const auto end = std::to_chars(buffer, buffer + sizeof buffer, value).ptr;
    return std::string(buffer, end);
  };
  params.append({"source", toString(selection->source)});
  params.append({"stationID", station.id});
  params.append({"name", station.name});
  params.append({"latitude", number(station.latitude)});
  params.append({"longitude", number(station.longitude)});
  if (station.state) params.append({"state", *station.state});
  if (station.type) params.append({"stationType", *station.type});
  if (station.referenceStationID) params.append({"referenceStationID", *station.referenceStationID});
  return std::string(url.buffer());
}

}  // namespace ombrine
