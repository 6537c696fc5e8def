#pragma once
// Locale-dependent display of temperatures, wind speeds and precipitation amounts.
//
// Values are held in base units (core/values/measurements.hpp) and converted only here, by the unit
// rules of core/values/unit_rules.hpp:
//   - Temperature: the reader's unit for the "weather" usage, whole degrees, rounded only by
//     the number formatter (so -0.4 °C shows as "-0°C"). `abbreviated` shows the scale name
//     ("22°C", "22 °C"), `narrow` hides it ("22°").
//   - Wind speed: metres per second where the locale has a region in the metres-per-second
//     list and a metric system; else km/h for metric, mph for UK and US; else the locale's
//     general preference. Narrow width, whole numbers.
//   - Precipitation: metric and UK in millimetres (rain) or centimetres (snow) with up to one
//     decimal, US in inches with up to two, anything else by the locale's rainfall or
//     snowfall preference with up to two. The UK reads rain in millimetres but wind in mph.
//
// Strings are ICU 72's: expect U+00B0 (°), U+2212 (minus, e.g. fi), U+00A0 and U+202F (spaces,
// e.g. de, fr) in them.
//
// Thread safety: a ValueFormatter is immutable once built; all its const members, the free
// functions and LocalTemperatureUnitFormatter's members may be called from any thread at once.
// ValueFormatter::forLocale() keeps one formatter per locale name for the life of the process,
// because building ICU formatters is far dearer than formatting with them. Nothing here raises
// except std::bad_alloc, and std::runtime_error when ICU reports a failure while formatting.

#include <memory>
#include <optional>
#include <string>

#include <unicode/locid.h>

#include "core/values/location.hpp"
#include "core/values/measurements.hpp"
#include "core/values/unit_rules.hpp"

namespace ombrine {

enum class TemperatureWidth { abbreviated, narrow };

// How ValueFormatter::number writes a plain number.
struct NumberStyle {
  int fractionDigits = 0;     // this many decimals
  bool trailingZeros = true;  // false: "12.5" and "150", not "150.0"
  int integerDigits = 1;      // zero-filled to at least this many (clock and calendar fields)
  bool grouping = true;       // the locale's thousands separators
  bool sign = false;          // "+" before positive numbers too
};

class ValueFormatter {
 public:
  // Builds every formatter for `locale`. A bogus locale formats like the root locale, whose
  // likely region (and so its units) is the US.
  explicit ValueFormatter(const icu::Locale& locale);

  // The shared formatter of this locale name, built on first use and never released.
  static const ValueFormatter& forLocale(const icu::Locale& locale);

  const icu::Locale& locale() const noexcept;
  std::optional<MeasurementSystem> measurementSystem() const noexcept;
  // The reader's temperature unit (weather usage).
  TemperatureUnit temperatureUnit() const noexcept;

  std::string temperature(Temperature value, TemperatureWidth width) const;
  std::string speed(Speed value) const;
  std::string rain(Precipitation amount) const;
  std::string snow(Precipitation amount) const;

  // Every other number of a screen (percentages, pressures, indices, counts, distances,
  // coordinates, clock and calendar fields) in the locale's own numbering system, so that a
  // screen never mixes two sets of digits: Arabic-Indic for ar_EG, extended Arabic-Indic for
  // fa_IR, Latin for most others.
  std::string number(double value, NumberStyle style = {}) const;
  // A fraction (0.75) as a whole percentage the locale's way: "75%", "75 %", "٪٧٥".
  std::string percent(double fraction) const;
  // A pressure in hectopascals, whole and ungrouped ("1003 hPa"), with the locale's short unit name.
  std::string pressure(double hectopascals) const;

  // A temperature already expressed in `unit`, shown as given: abbreviated width, scale name
  // shown, whole degrees (the secondary-label style).
  std::string temperatureLabel(double value, TemperatureUnit unit) const;
  // The same for assistive technology: medium unit style, whole degrees, half-even rounding.
  std::string temperatureAccessibilityLabel(double value, TemperatureUnit unit) const;

 private:
  struct Formatters;
  std::shared_ptr<const Formatters> formatters_;
};

// Shorthands through ValueFormatter::forLocale().
std::string formattedTemperature(Temperature value, TemperatureWidth width, const icu::Locale& locale);
std::string formattedSpeed(Speed value, const icu::Locale& locale);
std::string formattedRain(Precipitation amount, const icu::Locale& locale);
std::string formattedSnow(Precipitation amount, const icu::Locale& locale);

// A temperature in a named unit.
struct LocalTemperature {
  double value = 0.0;
  TemperatureUnit unit = TemperatureUnit::celsius;
  bool operator==(const LocalTemperature&) const = default;
};

// Decides whether a forecast place reads temperatures in another unit than the reader, and
// gives the temperature in the place's unit as a secondary label ("72°F" beside "22°C").
//
// The place's unit comes from its region (Fahrenheit list); the reader's is the weather unit
// of `displayLocale`, which is also the locale the labels are formatted in.
struct LocalTemperatureUnitFormatter {
  icu::Locale displayLocale;
  std::optional<Region> forecastRegion;

  // True when the place's unit differs from the reader's; false without a region.
  bool needsLocalUnit() const;
  // The temperature in the place's unit, or nothing when no secondary unit is needed. A value
  // that rounds to zero (half away from zero) is exactly 0.0, so no "-0" is ever shown.
  std::optional<LocalTemperature> localTemperature(Temperature temperature) const;
  // localTemperature() formatted as the secondary label, or nothing.
  std::optional<std::string> localTemperatureLabel(Temperature temperature) const;
  // localTemperature() formatted for assistive technology, or nothing.
  std::optional<std::string> localTemperatureAccessibilityLabel(Temperature temperature) const;

  bool operator==(const LocalTemperatureUnitFormatter&) const = default;
};

}  // namespace ombrine
