#pragma once
// Which units a place and a reader use: the region lists and the locale look-ups behind every
// formatted temperature, wind speed and precipitation amount.
//
// Policies are pure tables; the locale look-ups read ICU's CLDR data (measurement system,
// temperature preference for the "weather" usage) and honour the Unicode locale keywords a
// user can set: `rg` (region override), `ms`/`measure` (measurement system) and `mu`
// (temperature unit). All functions are thread-safe and raise nothing; a locale ICU does not
// know behaves like the root locale.

#include <array>
#include <optional>
#include <string_view>

#include <unicode/locid.h>

#include "core/values/location.hpp"
#include "core/values/measurements.hpp"

namespace ombrine {

enum class MeasurementSystem { metric, uk, us };
enum class TemperatureUnit { celsius, fahrenheit };

// Regions whose people read temperatures in Fahrenheit; every other region reads Celsius.
inline constexpr std::array<std::string_view, 12> kFahrenheitRegions = {"US", "PR", "GU", "AS", "MP", "KY",
                                                                        "BS", "VI", "BZ", "PW", "FM", "MH"};

// Regions where wind is given in metres per second (when the locale's system is metric).
inline constexpr std::array<std::string_view, 28> kMetersPerSecondWindRegions = {
    "SE", "FI", "AX", "NO", "DK", "GL", "FO", "IS", "RU", "EE", "LT", "LV", "CZ", "SK",
    "GE", "AM", "AZ", "UA", "BY", "KZ", "KG", "UZ", "TM", "TJ", "CN", "KR", "MN", "JP"};

// Region codes compare without regard to ASCII case ("gb" is GB).
bool isFahrenheitRegion(const Region& region) noexcept;
bool usesMetersPerSecondForWind(const Region& region) noexcept;

// The temperature unit of a forecast place: Fahrenheit for the regions above, else Celsius.
TemperatureUnit placeTemperatureUnit(const Region& region) noexcept;

// The region a locale names: its `rg` keyword ("gbzzzz" is GB) if set, else its explicit
// country. Nothing for a locale without one ("fi", "en"): no region is inferred.
std::optional<Region> localeRegion(const icu::Locale& locale);

// The locale's measurement system. An `ms`/`measure` keyword wins ("metric", "ussystem",
// "uksystem"/"imperial"); otherwise CLDR's data for the locale's region (or the region its
// language most likely implies): "en_GB" is uk, "en_US" and "en" are us, "de_DE" metric.
// Nothing only when ICU cannot tell.
std::optional<MeasurementSystem> measurementSystem(const icu::Locale& locale);

// The reader's temperature unit: ICU's unit preference for temperature with the "weather"
// usage (CLDR: Fahrenheit in US, PR, BS, KY, BZ, PW), `mu` and `measure` keywords winning
// ("en_US@measure=metric" reads Celsius). A locale without a region uses the region its
// language most likely implies ("en" reads Fahrenheit).
// Builds an ICU formatter: callers that ask often use ValueFormatter::temperatureUnit().
TemperatureUnit weatherTemperatureUnit(const icu::Locale& locale);

// The unit a wind speed is shown in:
//  1. metres per second when the locale has a region, its system is metric and the region is
//     in the metres-per-second list;
//  2. else kilometres per hour for metric; 3. miles per hour for UK and US (the UK reads rain
//     in millimetres but wind in mph); 4. else the locale's general preference.
enum class SpeedDisplayUnit { metersPerSecond, kilometersPerHour, milesPerHour, localePreference };
SpeedDisplayUnit speedDisplayUnit(const std::optional<Region>& localeRegion,
                                  std::optional<MeasurementSystem> system) noexcept;

// The unit a rain or snow amount is shown in: metric and UK read millimetres of rain and
// centimetres of snow, US inches of both, anything else the locale's rainfall or snowfall
// preference.
enum class PrecipitationDisplayUnit { millimeters, centimeters, inches, localePreference };
enum class PrecipitationVariant { rain, snow };
PrecipitationDisplayUnit precipitationDisplayUnit(std::optional<MeasurementSystem> system,
                                                  PrecipitationVariant variant) noexcept;

// A temperature's value in `unit`.
double temperatureValue(Temperature temperature, TemperatureUnit unit) noexcept;

// The ICU locale for a POSIX locale name as found in $LANG: "de_DE.UTF-8" is de_DE,
// "sr_RS@latin" is sr_RS, and "C", "POSIX" or an empty name is en_US.
icu::Locale localeFromPosixName(std::string_view name);

// The reader's locale: the first set of $LC_ALL, $LC_MESSAGES, $LANG, else en_US. Reads the
// environment at the moment of the call.
icu::Locale currentLocale();

}  // namespace ombrine
