#include "core/values/unit_rules.hpp"

#include <unicode/measunit.h>
#include <unicode/numberformatter.h>
#include <unicode/ulocdata.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <string>

namespace ombrine {

namespace {

char upperAscii(char c) noexcept { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

bool sameRegion(std::string_view a, std::string_view b) noexcept {
  return a.size() == b.size() &&
         std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) { return upperAscii(x) == upperAscii(y); });
}

template <size_t N>
bool listed(const std::array<std::string_view, N>& list, const Region& region) noexcept {
  return std::any_of(list.begin(), list.end(),
                     [&](std::string_view code) { return sameRegion(code, region.identifier); });
}

std::optional<std::string> keyword(const icu::Locale& locale, const char* name) {
  UErrorCode status = U_ZERO_ERROR;
  std::string value = locale.getKeywordValue<std::string>(name, status);
  if (U_FAILURE(status) || value.empty()) return std::nullopt;
  return value;
}

// The user's measurement-system choice. BCP 47 "-u-ms-" arrives as the legacy "measure"
// keyword; "ms" is accepted as written too.
std::optional<std::string> measurementSystemKeyword(const icu::Locale& locale) {
  auto value = keyword(locale, "measure");
  return value ? value : keyword(locale, "ms");
}

}  // namespace

bool isFahrenheitRegion(const Region& region) noexcept { return listed(kFahrenheitRegions, region); }

bool usesMetersPerSecondForWind(const Region& region) noexcept { return listed(kMetersPerSecondWindRegions, region); }

TemperatureUnit placeTemperatureUnit(const Region& region) noexcept {
  return isFahrenheitRegion(region) ? TemperatureUnit::fahrenheit : TemperatureUnit::celsius;
}

std::optional<Region> localeRegion(const icu::Locale& locale) {
  // A region override is a two-letter region followed by a subdivision ("gbzzzz", "usca").
  if (auto rg = keyword(locale, "rg"); rg && rg->size() >= 2 && std::isalpha(static_cast<unsigned char>((*rg)[0])) &&
                                       std::isalpha(static_cast<unsigned char>((*rg)[1]))) {
    return Region{std::string{upperAscii((*rg)[0]), upperAscii((*rg)[1])}};
  }
  std::string_view country = locale.getCountry();
  if (country.empty()) return std::nullopt;
  return Region{std::string(country)};
}

std::optional<MeasurementSystem> measurementSystem(const icu::Locale& locale) {
  // ICU 72 ignores the measurement-system keyword, so the user's choice is read here.
  if (auto ms = measurementSystemKeyword(locale)) {
    if (*ms == "metric") return MeasurementSystem::metric;
    if (*ms == "ussystem") return MeasurementSystem::us;
    if (*ms == "uksystem" || *ms == "imperial") return MeasurementSystem::uk;
  }
  UErrorCode status = U_ZERO_ERROR;
  UMeasurementSystem system = ulocdata_getMeasurementSystem(locale.getName(), &status);
  if (U_FAILURE(status)) return std::nullopt;
  switch (system) {
    case UMS_SI: return MeasurementSystem::metric;
    case UMS_US: return MeasurementSystem::us;
    case UMS_UK: return MeasurementSystem::uk;
    default: return std::nullopt;
  }
}

TemperatureUnit weatherTemperatureUnit(const icu::Locale& locale) {
  // ICU's unit preferences look at the explicit region only; "en" would read Celsius.
  icu::Locale maximized(locale);
  UErrorCode status = U_ZERO_ERROR;
  maximized.addLikelySubtags(status);
  if (U_FAILURE(status)) maximized = locale;
  // ICU's preferences read the measurement system from "measure" only.
  if (auto ms = measurementSystemKeyword(locale)) {
    status = U_ZERO_ERROR;
    maximized.setKeywordValue("measure", ms->c_str(), status);
  }

  status = U_ZERO_ERROR;
  auto formatter =
      icu::number::NumberFormatter::withLocale(maximized).unit(icu::MeasureUnit::getCelsius()).usage("weather");
  auto formatted = formatter.formatDouble(20.0, status);
  icu::MeasureUnit output = formatted.getOutputUnit(status);
  if (U_FAILURE(status)) return TemperatureUnit::celsius;
  return output == icu::MeasureUnit::getFahrenheit() ? TemperatureUnit::fahrenheit : TemperatureUnit::celsius;
}

SpeedDisplayUnit speedDisplayUnit(const std::optional<Region>& localeRegion,
                                  std::optional<MeasurementSystem> system) noexcept {
  if (localeRegion && system == MeasurementSystem::metric && usesMetersPerSecondForWind(*localeRegion)) {
    return SpeedDisplayUnit::metersPerSecond;
  }
  if (system == MeasurementSystem::metric) return SpeedDisplayUnit::kilometersPerHour;
  if (system == MeasurementSystem::uk || system == MeasurementSystem::us) return SpeedDisplayUnit::milesPerHour;
  return SpeedDisplayUnit::localePreference;
}

PrecipitationDisplayUnit precipitationDisplayUnit(std::optional<MeasurementSystem> system,
                                                  PrecipitationVariant variant) noexcept {
  if (system == MeasurementSystem::metric || system == MeasurementSystem::uk) {
    return variant == PrecipitationVariant::snow ? PrecipitationDisplayUnit::centimeters
                                                 : PrecipitationDisplayUnit::millimeters;
  }
  if (system == MeasurementSystem::us) return PrecipitationDisplayUnit::inches;
  return PrecipitationDisplayUnit::localePreference;
}

double temperatureValue(Temperature temperature, TemperatureUnit unit) noexcept {
  return unit == TemperatureUnit::fahrenheit ? temperature.inFahrenheit() : temperature.inCelsius();
}

icu::Locale localeFromPosixName(std::string_view name) {
  // "language_REGION.charset@modifier": the charset and modifier say nothing about units.
  name = name.substr(0, std::min(name.find('.'), name.find('@')));
  if (name.empty() || name == "C" || name == "POSIX") return icu::Locale("en_US");
  icu::Locale locale = icu::Locale::createCanonical(std::string(name).c_str());
  return locale.isBogus() ? icu::Locale("en_US") : locale;
}

icu::Locale currentLocale() {
  for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    if (const char* value = std::getenv(variable); value && *value) return localeFromPosixName(value);
  }
  return icu::Locale("en_US");
}

}  // namespace ombrine
