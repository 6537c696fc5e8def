#pragma once
// Where the user is: the place background work looks at.
//
// The Linux implementation (platform/linux/file_location_provider.hpp) reads a place the user
// configured or a location file that another tool (a GeoClue client, a script) keeps current;
// the composition root falls back to the home place when neither gives one.
//
// Context: any thread; reads files at the moment of the call.

#include <optional>
#include <string>

namespace ombrine {

struct DeviceLocation {
  double latitude = 0.0;
  double longitude = 0.0;
  // What the source says of the place, when it says it.
  std::optional<std::string> name;
  std::optional<std::string> timeZone;  // an IANA identifier
  std::optional<std::string> region;    // a region code ("US")
  // Where it came from, for messages ("OMBRINE_LOCATION", a file's path, "home").
  std::string source;
  bool operator==(const DeviceLocation&) const = default;
};

class LocationProvider {
 public:
  virtual ~LocationProvider() = default;
  // The current location, or nothing when none is known. Never raises: an unreadable or
  // malformed source is logged and skipped.
  virtual std::optional<DeviceLocation> currentLocation() = 0;
};

}  // namespace ombrine
