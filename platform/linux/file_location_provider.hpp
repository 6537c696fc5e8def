#pragma once
// LocationProvider from the environment and a file, first match wins:
//  1. OMBRINE_LOCATION, "LAT,LON" or "LAT,LON,NAME" (a configured place);
//  2. the location file: $OMBRINE_LOCATION_FILE, else "location.json" in the configuration folder
//     (platform/paths.hpp), as JSON {"latitude": 59.91, "longitude": 10.75} with optional
//     "name", "timeZone" and "region", or as the text "LAT,LON". Another tool rewrites it (whole,
//     by rename) when the device moves.
// A malformed value is logged once per reading and skipped.

#include <filesystem>
#include <optional>
#include <string_view>

#include "platform/location_provider.hpp"

namespace ombrine {

class FileLocationProvider final : public LocationProvider {
 public:
  static std::filesystem::path defaultLocationFile();

  std::optional<DeviceLocation> currentLocation() override;
};

// "LAT,LON" or "LAT,LON,NAME" with the latitude in [-90, 90] and the longitude in [-180, 180];
// nothing otherwise.
std::optional<DeviceLocation> parseLocationText(std::string_view text);
// The location file's text (JSON or "LAT,LON"); nothing when malformed.
std::optional<DeviceLocation> parseLocationFile(std::string_view text);

}  // namespace ombrine
