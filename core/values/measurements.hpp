#pragma once
// The measurement values every forecast record is made of.
//
// Each wrapper holds its `measurement` in one base unit (Celsius, metres per second, degrees,
// millimetres) and converts only when asked. They compare and hash by the measured value; 0.0
// and -0.0 are equal and hash alike. Their JSON form (core/values/value_json.hpp) is a bare number in
// the base unit, and a JSON null reads as 0.0.

#include <compare>
#include <cstddef>
#include <functional>
#include <optional>

namespace ombrine {

namespace detail {
inline size_t hashMeasurement(double value) noexcept { return std::hash<double>{}(value == 0.0 ? 0.0 : value); }
}  // namespace detail

struct Temperature {
  double measurement = 0.0;  // degrees Celsius

  static constexpr Temperature celsius(double value) { return {value}; }
  static constexpr Temperature fahrenheit(double value) { return {(value - 32.0) * 5.0 / 9.0}; }
  static constexpr Temperature kelvin(double value) { return {value - 273.15}; }
  constexpr double inCelsius() const { return measurement; }
  constexpr double inFahrenheit() const { return measurement * 9.0 / 5.0 + 32.0; }

  constexpr auto operator<=>(const Temperature&) const = default;
};

struct Speed {
  double measurement = 0.0;  // metres per second

  static constexpr Speed metersPerSecond(double value) { return {value}; }
  static constexpr Speed kilometersPerHour(double value) { return {value / 3.6}; }
  static constexpr Speed milesPerHour(double value) { return {value * 0.44704}; }
  static constexpr Speed knots(double value) { return {value * 1852.0 / 3600.0}; }
  constexpr double inMetersPerSecond() const { return measurement; }
  constexpr double inKilometersPerHour() const { return measurement * 3.6; }
  constexpr double inMilesPerHour() const { return measurement / 0.44704; }

  constexpr auto operator<=>(const Speed&) const = default;
};

struct Angle {
  double measurement = 0.0;  // degrees

  static constexpr Angle degrees(double value) { return {value}; }
  constexpr double inDegrees() const { return measurement; }

  constexpr auto operator<=>(const Angle&) const = default;
};

struct Precipitation {
  double measurement = 0.0;  // millimetres (for rates: millimetres per hour)

  static constexpr Precipitation millimeters(double value) { return {value}; }
  static constexpr Precipitation centimeters(double value) { return {value * 10.0}; }
  static constexpr Precipitation inches(double value) { return {value * 25.4}; }
  constexpr double inMillimeters() const { return measurement; }
  constexpr double inCentimeters() const { return measurement / 10.0; }
  constexpr double inInches() const { return measurement / 25.4; }

  constexpr auto operator<=>(const Precipitation&) const = default;
};

// The kind of what falls, as the platform names it. JSON: the case name as a string.
enum class PrecipitationKind { none, hail, mixed, rain, sleet, snow };

// The per-minute kind used by the minute forecast; absent when the provider does not tell.
struct PrecipitationType {
  std::optional<PrecipitationKind> precipitation;
  bool operator==(const PrecipitationType&) const = default;
};

}  // namespace ombrine

template <>
struct std::hash<ombrine::Temperature> {
  size_t operator()(ombrine::Temperature v) const noexcept { return ombrine::detail::hashMeasurement(v.measurement); }
};
template <>
struct std::hash<ombrine::Speed> {
  size_t operator()(ombrine::Speed v) const noexcept { return ombrine::detail::hashMeasurement(v.measurement); }
};
template <>
struct std::hash<ombrine::Angle> {
  size_t operator()(ombrine::Angle v) const noexcept { return ombrine::detail::hashMeasurement(v.measurement); }
};
template <>
struct std::hash<ombrine::Precipitation> {
  size_t operator()(ombrine::Precipitation v) const noexcept { return ombrine::detail::hashMeasurement(v.measurement); }
};
