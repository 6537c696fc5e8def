#include "app/units_command.hpp"

#include <unicode/uloc.h>

#include <fmt/format.h>

#include <cstring>
#include <iostream>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "core/air_quality.hpp"
#include "core/compass.hpp"
#include "core/unit_rules.hpp"
#include "core/value_format.hpp"

namespace ombrine::app {

namespace {

// "en_GB", "de_DE.UTF-8" (as in $LANG) or a BCP 47 tag ("fr-CA", "en-US-u-mu-celsius").
icu::Locale parseLocale(const std::string& text) {
  if (text.find('-') == std::string::npos) return localeFromPosixName(text);
  UErrorCode status = U_ZERO_ERROR;
  icu::Locale locale = icu::Locale::forLanguageTag(text, status);
  if (U_FAILURE(status)) locale.setToBogus();
  return locale;
}

// ICU formats a language it has no data for like the root locale, which would make every
// table look plausible; a typo should say so instead.
bool hasLocaleData(const icu::Locale& locale) {
  if (locale.isBogus() || std::strlen(locale.getLanguage()) == 0) return false;
  for (int32_t i = 0, count = uloc_countAvailable(); i < count; ++i) {
    if (icu::Locale(uloc_getAvailable(i)).getLanguage() == std::string_view(locale.getLanguage())) return true;
  }
  return false;
}

std::string_view systemName(std::optional<MeasurementSystem> system) {
  if (!system) return "unknown";
  switch (*system) {
    case MeasurementSystem::metric: return "metric";
    case MeasurementSystem::uk: return "uk";
    case MeasurementSystem::us: return "us";
  }
  return "unknown";
}

std::string_view windUnitName(SpeedDisplayUnit unit) {
  switch (unit) {
    case SpeedDisplayUnit::metersPerSecond: return "m/s";
    case SpeedDisplayUnit::kilometersPerHour: return "km/h";
    case SpeedDisplayUnit::milesPerHour: return "mph";
    case SpeedDisplayUnit::localePreference: return "the locale's preference";
  }
  return "";
}

struct Row {
  std::string value;
  std::string heldAs;
  std::string shown;
};

std::string localTemperatureText(const icu::Locale& locale, const char* region, Temperature temperature) {
  const LocalTemperatureUnitFormatter local{locale, Region{region}};
  auto label = local.localTemperatureLabel(temperature);
  if (!label) return "none (reader's unit)";
  return fmt::format("{} (spoken {})", *label, local.localTemperatureAccessibilityLabel(temperature).value_or(""));
}

std::vector<Row> sampleRows(const icu::Locale& locale) {
  const ValueFormatter& format = ValueFormatter::forLocale(locale);
  std::vector<Row> rows;
  for (double celsius : {21.6, -0.4, -12.5}) {
    const auto t = Temperature::celsius(celsius);
    rows.push_back({"temperature", fmt::format("{:.1f} °C", celsius),
                    format.temperature(t, TemperatureWidth::abbreviated) + " / " +
                        format.temperature(t, TemperatureWidth::narrow)});
  }
  for (double mps : {0.0, 5.0, 24.5}) {
    rows.push_back({"wind speed", fmt::format("{:.1f} m/s", mps), format.speed(Speed::metersPerSecond(mps))});
  }
  for (double mm : {0.4, 12.7}) {
    rows.push_back({"rain", fmt::format("{:.1f} mm", mm), format.rain(Precipitation::millimeters(mm))});
  }
  rows.push_back({"snow", "24.6 mm", format.snow(Precipitation::millimeters(24.6))});
  for (int aqi : {42, 160}) {
    const auto range = airQualityRange(aqi);
    rows.push_back({"air quality", fmt::format("AQI {}", aqi), fmt::format("{} ({})", label(range), colorName(range))});
  }
  rows.push_back({"wind from", "352°", std::string(abbreviation(compassDirection(Angle::degrees(352))))});
  rows.push_back({"place in US", "21.6 °C", localTemperatureText(locale, "US", Temperature::celsius(21.6))});
  rows.push_back({"place in GB", "-0.4 °C", localTemperatureText(locale, "GB", Temperature::celsius(-0.4))});
  return rows;
}

void printTable(const icu::Locale& locale, std::ostream& out) {
  const ValueFormatter& format = ValueFormatter::forLocale(locale);
  const auto system = format.measurementSystem();
  out << fmt::format("Locale {}: measurement system {}, temperature in {}, wind in {}\n\n", locale.getName(),
                     systemName(system), format.temperatureUnit() == TemperatureUnit::fahrenheit ? "°F" : "°C",
                     windUnitName(speedDisplayUnit(localeRegion(locale), system)));
  out << fmt::format("{:<14}{:<12}{}\n", "value", "held as", "shown");
  for (const auto& row : sampleRows(locale)) out << fmt::format("{:<14}{:<12}{}\n", row.value, row.heldAs, row.shown);
}

}  // namespace

void addUnitsCommand(CLI::App& app) {
  auto locale = std::make_shared<std::string>();
  CLI::App* command = app.add_subcommand("units", "Show sample values as a locale formats them");
  command
      ->add_option("--locale", *locale, "en_GB, fr-CA, ... (default: from $LANG)")
      ->check(CLI::Validator(
          [](std::string& text) {
            return hasLocaleData(parseLocale(text)) ? std::string() : "no locale data for '" + text + "'";
          },
          "LOCALE"));
  command->callback([locale] {
    printTable(locale->empty() ? currentLocale() : parseLocale(*locale), std::cout);
  });
}

}  // namespace ombrine::app
