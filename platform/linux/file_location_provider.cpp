#include "platform/linux/file_location_provider.hpp"

#include <boost/json.hpp>

#include <charconv>
#include <cmath>
#include <cstdlib>

#include "platform/atomic_file.hpp"
#include "platform/log.hpp"
#include "platform/paths.hpp"

namespace ombrine {

namespace {

std::string_view trim(std::string_view text) {
  while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front()))) text.remove_prefix(1);
  while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back()))) text.remove_suffix(1);
  return text;
}

std::optional<double> number(std::string_view text) {
  text = trim(text);
  double value = 0.0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || !std::isfinite(value)) return std::nullopt;
  return value;
}

bool valid(double latitude, double longitude) { return std::fabs(latitude) <= 90.0 && std::fabs(longitude) <= 180.0; }

std::optional<std::string> stringMember(const boost::json::object& object, std::string_view key) {
  const auto* value = object.if_contains(key);
  if (!value || !value->is_string()) return std::nullopt;
  return std::string(value->get_string());
}

}  // namespace

std::optional<DeviceLocation> parseLocationText(std::string_view text) {
  text = trim(text);
  const auto comma = text.find(',');
  if (comma == std::string_view::npos) return std::nullopt;
  const auto rest = text.substr(comma + 1);
  const auto second = rest.find(',');
  const auto latitude = number(text.substr(0, comma));
  const auto longitude = number(rest.substr(0, second));
  if (!latitude || !longitude || !valid(*latitude, *longitude)) return std::nullopt;
  DeviceLocation location;
  location.latitude = *latitude;
  location.longitude = *longitude;
  if (second != std::string_view::npos) {
    const auto name = trim(rest.substr(second + 1));
    if (!name.empty()) location.name = std::string(name);
  }
  return location;
}

std::optional<DeviceLocation> parseLocationFile(std::string_view text) {
  if (trim(text).starts_with('{')) {
    boost::system::error_code error;
    const auto document = boost::json::parse(text, error);
    if (error || !document.is_object()) return std::nullopt;
    const auto& object = document.get_object();
    const auto* latitude = object.if_contains("latitude");
    const auto* longitude = object.if_contains("longitude");
    if (!latitude || !longitude || !latitude->is_number() || !longitude->is_number()) return std::nullopt;
    DeviceLocation location;
    location.latitude = latitude->to_number<double>();
    location.longitude = longitude->to_number<double>();
    if (!std::isfinite(location.latitude) || !std::isfinite(location.longitude) ||
        !valid(location.latitude, location.longitude)) {
      return std::nullopt;
    }
    location.name = stringMember(object, "name");
    location.timeZone = stringMember(object, "timeZone");
    location.region = stringMember(object, "region");
    return location;
  }
  return parseLocationText(text);
}

std::filesystem::path FileLocationProvider::defaultLocationFile() {
  if (const char* file = std::getenv("OMBRINE_LOCATION_FILE"); file && *file) return file;
  return configDirectory() / "location.json";
}

std::optional<DeviceLocation> FileLocationProvider::currentLocation() {
  if (const char* configured = std::getenv("OMBRINE_LOCATION"); configured && *configured) {
    if (auto location = parseLocationText(configured)) {
      location->source = "OMBRINE_LOCATION";
      return location;
    }
    logf("Ignoring OMBRINE_LOCATION \"{}\": expected LAT,LON or LAT,LON,NAME", configured);
  }
  const auto path = defaultLocationFile();
  try {
    const auto text = readFileIfExists(path);
    if (!text) return std::nullopt;
    if (auto location = parseLocationFile(*text)) {
      location->source = path.string();
      return location;
    }
    logf("Ignoring the location file {}: expected JSON with latitude and longitude, or LAT,LON", path.string());
  } catch (const std::exception& error) {
    logf("Ignoring the location file {}: {}", path.string(), error.what());
  }
  return std::nullopt;
}

}  // namespace ombrine
