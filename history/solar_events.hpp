#pragma once
// Sunrise, sunset and the three twilights of one day at one coordinate, computed on the device
// with the sunrise/sunset algorithm of the Almanac for Computers, in degrees.
//
// The algorithm works on the UTC calendar day of the instant it is given: the day number is that
// day's ordinal in its UTC year, and events come back as whole-second instants (seconds are
// truncated, never rounded). Accuracy is about a minute at moderate latitudes and degrades near
// the polar circles, where the method's fixed constants dominate.
//
// Nothing here raises: what cannot be computed is `unavailable` or absent. Pure values and
// functions; callable from any thread.

#include <optional>
#include <variant>

#include "core/values/date.hpp"
#include "core/values/location.hpp"

namespace ombrine {

enum class SolarEventKind { rise, set };

// The zeniths of the four event pairs, in radians (90.83°, 96°, 102°, 108°).
struct SolarZenith {
  static constexpr double official = 1.5852825595864495;
  static constexpr double civil = 1.6755160819145565;
  static constexpr double nautical = 1.7802358370342162;
  static constexpr double astronomical = 1.8849555921538759;
};

struct SolarEventCalculationResult {
  struct Event {
    Date instant;
    bool operator==(const Event&) const = default;
  };
  struct SunAlwaysAboveHorizon {
    bool operator==(const SunAlwaysAboveHorizon&) const = default;
  };
  struct SunAlwaysBelowHorizon {
    bool operator==(const SunAlwaysBelowHorizon&) const = default;
  };
  struct Unavailable {
    bool operator==(const Unavailable&) const = default;
  };
  using Value = std::variant<Event, SunAlwaysAboveHorizon, SunAlwaysBelowHorizon, Unavailable>;

  Value value = Unavailable{};

  static SolarEventCalculationResult event(Date instant) { return {Event{instant}}; }
  static SolarEventCalculationResult sunAlwaysAboveHorizon() { return {SunAlwaysAboveHorizon{}}; }
  static SolarEventCalculationResult sunAlwaysBelowHorizon() { return {SunAlwaysBelowHorizon{}}; }
  static SolarEventCalculationResult unavailable() { return {Unavailable{}}; }

  // The instant of an `event`, nothing for the other cases.
  std::optional<Date> instant() const;

  bool operator==(const SolarEventCalculationResult&) const = default;
};

enum class SunDaylightState { normal, polarDay, polarNight, unavailable };

// The universal time of an event before it is turned into an instant: `hours` after the start
// of the UTC day `dayOffset` days from the asked date's UTC day (-1, 0 or +1). Exposed for tests
// of the truncation and the day shift; `calculate` is what callers use.
struct SolarEventTime {
  double hours = 0.0;
  int dayOffset = 0;
};
std::variant<SolarEventTime, SolarEventCalculationResult> solarEventTime(SolarEventKind kind, Date date, double zenith,
                                                                         const Location& coordinate);

// One event of the UTC day of `date` at `coordinate` for a zenith in radians.
SolarEventCalculationResult calculate(SolarEventKind kind, Date date, double zenith, const Location& coordinate);

// The state of a day from its official rise and set results: `normal` when either is an event,
// `polarDay` when both say the sun stays up, `polarNight` when both say it stays down.
SunDaylightState daylightStateOf(const SolarEventCalculationResult& rise, const SolarEventCalculationResult& set);

// The eight events of one day. Each field holds the instant of an `event`, nothing otherwise.
struct Solar {
  Solar() = default;
  // Runs rise then set at the official zenith, then civil, nautical and astronomical.
  Solar(Date date, Location coordinate);

  Location coordinate;
  Date date;
  std::optional<Date> sunrise;
  std::optional<Date> sunset;
  std::optional<Date> civilSunrise;
  std::optional<Date> civilSunset;
  std::optional<Date> nauticalSunrise;
  std::optional<Date> nauticalSunset;
  std::optional<Date> astronomicalSunrise;
  std::optional<Date> astronomicalSunset;
  SunDaylightState daylightState = SunDaylightState::unavailable;

  bool operator==(const Solar&) const = default;
};

struct DailySunEvents {
  std::optional<Date> sunrise;
  std::optional<Date> sunset;
  SunDaylightState daylightState = SunDaylightState::unavailable;
  bool operator==(const DailySunEvents&) const = default;
};

}  // namespace ombrine
