#include "core/values/value_format.hpp"

#include <unicode/measunit.h>
#include <unicode/numberformatter.h>

#include <cmath>
#include <mutex>
#include <shared_mutex>
#include <stdexcept>
#include <string>
#include <unordered_map>

namespace ombrine {

namespace {

using icu::MeasureUnit;
using icu::number::IntegerWidth;
using icu::number::LocalizedNumberFormatter;
using icu::number::NumberFormatter;
using icu::number::Precision;

// Which branch of a display rule a locale takes: the value's conversion and its formatter.
template <class Value>
struct Display {
  double (*convert)(Value);
  LocalizedNumberFormatter formatter;
};

std::string format(const LocalizedNumberFormatter& formatter, double value) {
  UErrorCode status = U_ZERO_ERROR;
  icu::UnicodeString text = formatter.formatDouble(value, status).toString(status);
  if (U_FAILURE(status)) throw std::runtime_error(std::string("ICU number formatting failed: ") + u_errorName(status));
  std::string out;
  text.toUTF8String(out);
  return out;
}

LocalizedNumberFormatter measure(const icu::Locale& locale, const MeasureUnit& unit, UNumberUnitWidth width,
                                 Precision precision) {
  return NumberFormatter::withLocale(locale).unit(unit).unitWidth(width).precision(precision);
}

MeasureUnit icuUnit(TemperatureUnit unit) {
  return unit == TemperatureUnit::fahrenheit ? MeasureUnit::getFahrenheit() : MeasureUnit::getCelsius();
}

Display<Speed> speedDisplay(const icu::Locale& locale, std::optional<MeasurementSystem> system) {
  const auto narrow = [&](const MeasureUnit& unit) {
    return measure(locale, unit, UNUM_UNIT_WIDTH_NARROW, Precision::integer());
  };
  switch (speedDisplayUnit(localeRegion(locale), system)) {
    case SpeedDisplayUnit::metersPerSecond:
      return {[](Speed s) { return s.inMetersPerSecond(); }, narrow(MeasureUnit::getMeterPerSecond())};
    case SpeedDisplayUnit::kilometersPerHour:
      return {[](Speed s) { return s.inKilometersPerHour(); }, narrow(MeasureUnit::getKilometerPerHour())};
    case SpeedDisplayUnit::milesPerHour:
      return {[](Speed s) { return s.inMilesPerHour(); }, narrow(MeasureUnit::getMilePerHour())};
    case SpeedDisplayUnit::localePreference: break;
  }
  // ICU's "default" usage converts from the unit given to the locale's preference.
  return {[](Speed s) { return s.inMetersPerSecond(); }, narrow(MeasureUnit::getMeterPerSecond()).usage("default")};
}

Display<Precipitation> precipitationDisplay(const icu::Locale& locale, std::optional<MeasurementSystem> system,
                                            PrecipitationVariant variant) {
  const auto narrow = [&](const MeasureUnit& unit, int maxFraction) {
    return measure(locale, unit, UNUM_UNIT_WIDTH_NARROW, Precision::minMaxFraction(0, maxFraction));
  };
  switch (precipitationDisplayUnit(system, variant)) {
    case PrecipitationDisplayUnit::millimeters:
      return {[](Precipitation p) { return p.inMillimeters(); }, narrow(MeasureUnit::getMillimeter(), 1)};
    case PrecipitationDisplayUnit::centimeters:
      return {[](Precipitation p) { return p.inCentimeters(); }, narrow(MeasureUnit::getCentimeter(), 1)};
    case PrecipitationDisplayUnit::inches:
      return {[](Precipitation p) { return p.inInches(); }, narrow(MeasureUnit::getInch(), 2)};
    case PrecipitationDisplayUnit::localePreference: break;
  }
  const char* usage = variant == PrecipitationVariant::snow ? "snowfall" : "rainfall";
  return {[](Precipitation p) { return p.inMillimeters(); }, narrow(MeasureUnit::getMillimeter(), 2).usage(usage)};
}

}  // namespace

struct ValueFormatter::Formatters {
  icu::Locale locale;
  std::optional<MeasurementSystem> system;
  TemperatureUnit readerUnit;
  // Indexed by TemperatureUnit.
  LocalizedNumberFormatter temperatureAbbreviated[2];
  LocalizedNumberFormatter temperatureAccessible[2];
  // The generic temperature unit hides the scale name: "22°".
  LocalizedNumberFormatter temperatureNarrow;
  Display<Speed> speed;
  Display<Precipitation> rain;
  Display<Precipitation> snow;
  LocalizedNumberFormatter percent;
  LocalizedNumberFormatter pressure;
};

ValueFormatter::ValueFormatter(const icu::Locale& requested) {
  const icu::Locale locale = requested.isBogus() ? icu::Locale::getRoot() : requested;
  const auto system = ombrine::measurementSystem(locale);
  const auto abbreviated = [&](TemperatureUnit unit) {
    return measure(locale, icuUnit(unit), UNUM_UNIT_WIDTH_SHORT, Precision::integer());
  };
  const auto accessible = [&](TemperatureUnit unit) { return abbreviated(unit).roundingMode(UNUM_ROUND_HALFEVEN); };
  formatters_ = std::make_shared<const Formatters>(Formatters{
      .locale = locale,
      .system = system,
      .readerUnit = weatherTemperatureUnit(locale),
      .temperatureAbbreviated = {abbreviated(TemperatureUnit::celsius), abbreviated(TemperatureUnit::fahrenheit)},
      .temperatureAccessible = {accessible(TemperatureUnit::celsius), accessible(TemperatureUnit::fahrenheit)},
      .temperatureNarrow =
          measure(locale, MeasureUnit::getGenericTemperature(), UNUM_UNIT_WIDTH_NARROW, Precision::integer()),
      .speed = speedDisplay(locale, system),
      .rain = precipitationDisplay(locale, system, PrecipitationVariant::rain),
      .snow = precipitationDisplay(locale, system, PrecipitationVariant::snow),
      .percent = NumberFormatter::withLocale(locale).unit(MeasureUnit::getPercent()).precision(Precision::integer()),
      // Weather pressures are read as one figure: "1003 hPa", never "1,003 hPa".
      .pressure = measure(locale, MeasureUnit::getHectopascal(), UNUM_UNIT_WIDTH_SHORT, Precision::integer())
                      .grouping(UNUM_GROUPING_OFF),
  });
}

const ValueFormatter& ValueFormatter::forLocale(const icu::Locale& locale) {
  // Never destroyed: formatters handed out stay valid while other threads wind down at exit.
  static auto* mutex = new std::shared_mutex;
  static auto* formatters = new std::unordered_map<std::string, std::unique_ptr<const ValueFormatter>>;
  const std::string key = locale.getName();
  {
    std::shared_lock lock(*mutex);
    if (auto found = formatters->find(key); found != formatters->end()) return *found->second;
  }
  auto built = std::make_unique<const ValueFormatter>(locale);
  std::unique_lock lock(*mutex);
  auto [slot, inserted] = formatters->try_emplace(key, std::move(built));
  return *slot->second;
}

const icu::Locale& ValueFormatter::locale() const noexcept { return formatters_->locale; }

std::optional<MeasurementSystem> ValueFormatter::measurementSystem() const noexcept { return formatters_->system; }

TemperatureUnit ValueFormatter::temperatureUnit() const noexcept { return formatters_->readerUnit; }

std::string ValueFormatter::temperature(Temperature value, TemperatureWidth width) const {
  const TemperatureUnit unit = formatters_->readerUnit;
  const double shown = temperatureValue(value, unit);
  if (width == TemperatureWidth::narrow) return format(formatters_->temperatureNarrow, shown);
  return format(formatters_->temperatureAbbreviated[static_cast<int>(unit)], shown);
}

std::string ValueFormatter::speed(Speed value) const {
  return format(formatters_->speed.formatter, formatters_->speed.convert(value));
}

std::string ValueFormatter::rain(Precipitation amount) const {
  return format(formatters_->rain.formatter, formatters_->rain.convert(amount));
}

std::string ValueFormatter::snow(Precipitation amount) const {
  return format(formatters_->snow.formatter, formatters_->snow.convert(amount));
}

std::string ValueFormatter::number(double value, NumberStyle style) const {
  const LocalizedNumberFormatter formatter =
      NumberFormatter::withLocale(formatters_->locale)
          .precision(style.trailingZeros ? Precision::fixedFraction(style.fractionDigits)
                                         : Precision::minMaxFraction(0, style.fractionDigits))
          .integerWidth(IntegerWidth::zeroFillTo(style.integerDigits))
          .grouping(style.grouping ? UNUM_GROUPING_AUTO : UNUM_GROUPING_OFF)
          .sign(style.sign ? UNUM_SIGN_EXCEPT_ZERO : UNUM_SIGN_AUTO);
  return format(formatter, value);
}

std::string ValueFormatter::percent(double fraction) const { return format(formatters_->percent, fraction * 100.0); }

std::string ValueFormatter::pressure(double hectopascals) const { return format(formatters_->pressure, hectopascals); }

std::string ValueFormatter::temperatureLabel(double value, TemperatureUnit unit) const {
  return format(formatters_->temperatureAbbreviated[static_cast<int>(unit)], value);
}

std::string ValueFormatter::temperatureAccessibilityLabel(double value, TemperatureUnit unit) const {
  return format(formatters_->temperatureAccessible[static_cast<int>(unit)], value);
}

std::string formattedTemperature(Temperature value, TemperatureWidth width, const icu::Locale& locale) {
  return ValueFormatter::forLocale(locale).temperature(value, width);
}

std::string formattedSpeed(Speed value, const icu::Locale& locale) {
  return ValueFormatter::forLocale(locale).speed(value);
}

std::string formattedRain(Precipitation amount, const icu::Locale& locale) {
  return ValueFormatter::forLocale(locale).rain(amount);
}

std::string formattedSnow(Precipitation amount, const icu::Locale& locale) {
  return ValueFormatter::forLocale(locale).snow(amount);
}

bool LocalTemperatureUnitFormatter::needsLocalUnit() const {
  if (!forecastRegion) return false;
  return placeTemperatureUnit(*forecastRegion) != ValueFormatter::forLocale(displayLocale).temperatureUnit();
}

std::optional<LocalTemperature> LocalTemperatureUnitFormatter::localTemperature(Temperature temperature) const {
  if (!needsLocalUnit()) return std::nullopt;
  const TemperatureUnit unit = placeTemperatureUnit(*forecastRegion);
  const double value = temperatureValue(temperature, unit);
  // std::round(-0.4) is -0.0, which compares equal to 0.0; writing 0.0 drops the sign.
  return LocalTemperature{std::round(value) == 0.0 ? 0.0 : value, unit};
}

std::optional<std::string> LocalTemperatureUnitFormatter::localTemperatureLabel(Temperature temperature) const {
  auto local = localTemperature(temperature);
  if (!local) return std::nullopt;
  return ValueFormatter::forLocale(displayLocale).temperatureLabel(local->value, local->unit);
}

std::optional<std::string> LocalTemperatureUnitFormatter::localTemperatureAccessibilityLabel(
    Temperature temperature) const {
  auto local = localTemperature(temperature);
  if (!local) return std::nullopt;
  return ValueFormatter::forLocale(displayLocale).temperatureAccessibilityLabel(local->value, local->unit);
}

}  // namespace ombrine
