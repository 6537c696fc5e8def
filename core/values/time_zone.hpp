#pragma once
// A named time zone (IANA identifier) or a fixed offset from GMT, backed by ICU.
//
// Values are cheap to copy (an identifier and a shared ICU zone). Requires the shipped ICU zone
// data (platform/icu_setup.hpp) to be installed before the first use. Thread-safe: the ICU zone
// is never mutated after construction.

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "core/values/date.hpp"

#include <unicode/uversion.h>

U_NAMESPACE_BEGIN
class TimeZone;
U_NAMESPACE_END

namespace ombrine {

class TimeZone {
 public:
  // GMT.
  TimeZone();

  // The zone with this IANA identifier; nothing when ICU does not know it.
  static std::optional<TimeZone> named(std::string_view identifier);
  // A zone with a constant offset (seconds east of GMT); nothing outside ±18 hours.
  // Its identifier is "GMT", or "GMT+HHMM" / "GMT-HHMM" as the platform names such zones.
  static std::optional<TimeZone> fixedOffset(int secondsFromGMT);
  // The device's zone ($TZ, else /etc/localtime, else GMT).
  static TimeZone current();
  static TimeZone gmt() { return TimeZone(); }

  const std::string& identifier() const noexcept { return identifier_; }
  // Offset from GMT in seconds at the given instant (daylight saving included).
  int secondsFromGMT(Date at) const;

  // Zones are equal when their identifiers are.
  bool operator==(const TimeZone& other) const noexcept { return identifier_ == other.identifier_; }

 private:
  TimeZone(std::string identifier, std::shared_ptr<const icu::TimeZone> zone);
  std::string identifier_;
  std::shared_ptr<const icu::TimeZone> zone_;
};

}  // namespace ombrine
