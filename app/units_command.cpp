#include "app/units_command.hpp"

#include <unicode/uloc.h>

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <iostream>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "app/screen_text.hpp"
#include "app/terminal_text.hpp"
#include "core/values/air_quality.hpp"
#include "core/values/compass.hpp"
#include "core/values/unit_rules.hpp"
#include "core/values/value_format.hpp"

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
    case SpeedDisplayUnit::localePreference: return "the locale's preference";  // translated by the caller
  }
  return "";
}

struct Row {
  std::string value;
  std::string heldAs;
  std::string shown;
};

std::string localTemperatureText(const ScreenWords& words, const char* region, Temperature temperature) {
  const LocalTemperatureUnitFormatter local{words.locale(), Region{region}};
  auto label = local.localTemperatureLabel(temperature);
  if (!label) return std::string(words("none (reader's unit)"));
  return words.format("{} (spoken {})", *label, local.localTemperatureAccessibilityLabel(temperature).value_or(""));
}

// The sample rows; the value column holds the English word, translated when shown.
std::vector<Row> sampleRows(const ScreenWords& words) {
  const ValueFormatter& format = words.values();
  auto held = [&](double value, std::string_view unit) {
    return words.number(value, {.fractionDigits = 1, .grouping = false}) + " " + std::string(unit);
  };
  std::vector<Row> rows;
  for (double celsius : {21.6, -0.4, -12.5}) {
    const auto t = Temperature::celsius(celsius);
    rows.push_back({"temperature", held(celsius, "°C"),
                    format.temperature(t, TemperatureWidth::abbreviated) + " / " +
                        format.temperature(t, TemperatureWidth::narrow)});
  }
  for (double mps : {0.0, 5.0, 24.5}) {
    rows.push_back({"wind speed", held(mps, "m/s"), format.speed(Speed::metersPerSecond(mps))});
  }
  for (double mm : {0.4, 12.7}) {
    rows.push_back({"rain", held(mm, "mm"), format.rain(Precipitation::millimeters(mm))});
  }
  rows.push_back({"snow", held(24.6, "mm"), format.snow(Precipitation::millimeters(24.6))});
  for (int aqi : {42, 160}) {
    const auto range = airQualityRange(aqi);
    rows.push_back({"air quality", words.format("AQI {}", words.number(aqi)),
                    fmt::format("{} ({})", label(range), colorName(range))});
  }
  rows.push_back(
      {"wind from", words.number(352) + "°", std::string(abbreviation(compassDirection(Angle::degrees(352))))});
  rows.push_back({"place in US", held(21.6, "°C"), localTemperatureText(words, "US", Temperature::celsius(21.6))});
  rows.push_back({"place in GB", held(-0.4, "°C"), localTemperatureText(words, "GB", Temperature::celsius(-0.4))});
  return rows;
}

// In the words of `locale`'s language, as every value of the table.
void printTable(const icu::Locale& locale, std::ostream& out) {
  const ScreenText words(locale);
  const ValueFormatter& format = words.values();
  const auto system = format.measurementSystem();
  out << words.format("Locale {}: measurement system {}, temperature in {}, wind in {}", locale.getName(),
                      systemName(system), format.temperatureUnit() == TemperatureUnit::fahrenheit ? "°F" : "°C",
                      words(windUnitName(speedDisplayUnit(localeRegion(locale), system))))
      << "\n\n";
  const std::vector<Row> rows = sampleRows(words);
  // Columns as wide as their longest cell in terminal cells, two apart.
  std::size_t labelWidth = std::max<std::size_t>(14, displayWidth(words("value")) + 2);
  std::size_t heldWidth = std::max<std::size_t>(12, displayWidth(words("held as")) + 2);
  for (const Row& row : rows) {
    labelWidth = std::max(labelWidth, displayWidth(words(row.value)) + 2);
    heldWidth = std::max(heldWidth, displayWidth(row.heldAs) + 2);
  }
  out << padRight(words("value"), labelWidth) << padRight(words("held as"), heldWidth) << words("shown") << "\n";
  for (const Row& row : rows)
    out << padRight(words(row.value), labelWidth) << padRight(row.heldAs, heldWidth) << row.shown << "\n";
}

}  // namespace

void addUnitsCommand(CLI::App& app) {
  auto locale = std::make_shared<std::string>();
  CLI::App* command = app.add_subcommand("units", "Show sample values as a locale formats them");
  command->add_option("--locale", *locale, "en_GB, fr-CA, ... (default: from $LANG)")
      ->check(CLI::Validator(
          [](std::string& text) {
            return hasLocaleData(parseLocale(text)) ? std::string() : "no locale data for '" + text + "'";
          },
          "LOCALE"));
  command->callback([locale] { printTable(locale->empty() ? currentLocale() : parseLocale(*locale), std::cout); });
}

}  // namespace ombrine::app
