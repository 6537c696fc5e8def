#pragma once
// Places: a coordinate with its measurement context, a region code, and a named coordinate.

#include <cstddef>
#include <functional>
#include <string>

#include "core/values/date.hpp"
#include "core/values/time_zone.hpp"

namespace ombrine {

// A coordinate with altitude, accuracies and the time it was measured.
//
// Two locations are equal when latitude and longitude are both exactly equal; altitude,
// accuracy and time are ignored. The hash covers latitude and longitude only, with 0.0 and
// -0.0 alike. No JSON form: records that persist a place hold latitude and longitude themselves.
class Location {
 public:
  Location() = default;
  Location(double latitude, double longitude) : latitude_(latitude), longitude_(longitude) {}
  Location(double latitude, double longitude, double altitude, double horizontalAccuracy, double verticalAccuracy,
           Date timestamp)
      : latitude_(latitude),
        longitude_(longitude),
        altitude_(altitude),
        horizontalAccuracy_(horizontalAccuracy),
        verticalAccuracy_(verticalAccuracy),
        timestamp_(timestamp) {}

  double latitude() const noexcept { return latitude_; }
  double longitude() const noexcept { return longitude_; }
  double altitude() const noexcept { return altitude_; }
  // Negative means unknown, as on the platform.
  double horizontalAccuracy() const noexcept { return horizontalAccuracy_; }
  double verticalAccuracy() const noexcept { return verticalAccuracy_; }
  Date timestamp() const noexcept { return timestamp_; }

  // Great-circle distance in metres (mean earth radius 6,371,009 m).
  double distance(const Location& other) const noexcept;

  bool operator==(const Location& other) const noexcept {
    return latitude_ == other.latitude_ && longitude_ == other.longitude_;
  }

 private:
  double latitude_ = 0.0;
  double longitude_ = 0.0;
  double altitude_ = 0.0;
  double horizontalAccuracy_ = 0.0;
  double verticalAccuracy_ = -1.0;
  Date timestamp_{};
};

// A two-letter ISO 3166 region code; "XX" is unknown.
struct Region {
  std::string identifier = "XX";

  static Region unknown() { return Region{"XX"}; }
  bool operator==(const Region&) const = default;
};

// The result of naming a coordinate. JSON keys "name", "region", "timeZone".
struct GeoDetails {
  std::string name;
  Region region;
  TimeZone timeZone;
  bool operator==(const GeoDetails&) const = default;
};

}  // namespace ombrine

template <>
struct std::hash<ombrine::Location> {
  size_t operator()(const ombrine::Location& location) const noexcept {
    auto h = [](double v) { return std::hash<double>{}(v == 0.0 ? 0.0 : v); };
    return h(location.latitude()) * 31 ^ h(location.longitude());
  }
};
