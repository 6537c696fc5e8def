#include "core/values/unit_rules.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
#include <string>

namespace ombrine {
namespace {

using MS = MeasurementSystem;

TEST(UnitRulesTest, RegionListsDecidePlaceUnitsAndWindUnits) {
  struct Row {
    const char* region;
    bool fahrenheit;
    bool metersPerSecond;
  };
  const Row rows[] = {
      {"US", true, false},   {"us", true, false},  // codes from a geocoder may come in lower case
      {"MH", true, false},                         // last of the Fahrenheit list
      {"GU", true, false},                         // a Fahrenheit place even though CLDR gives its readers Celsius
      {"CA", false, false},  {"GB", false, false}, {"SE", false, true},  // first of the metres-per-second list
      {"JP", false, true},                                               // last of it
      {"FR", false, false},  {"XX", false, false},                       // unknown region
      {"USA", false, false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.region);
    const Region region{row.region};
    EXPECT_EQ(isFahrenheitRegion(region), row.fahrenheit);
    EXPECT_EQ(placeTemperatureUnit(region), row.fahrenheit ? TemperatureUnit::fahrenheit : TemperatureUnit::celsius);
    EXPECT_EQ(usesMetersPerSecondForWind(region), row.metersPerSecond);
  }
}

TEST(UnitRulesTest, LocaleLookupsFollowCldrAndUserKeywords) {
  struct Row {
    const char* locale;
    std::optional<std::string> region;
    std::optional<MS> system;
    TemperatureUnit reader;
  };
  const auto F = TemperatureUnit::fahrenheit;
  const auto C = TemperatureUnit::celsius;
  const Row rows[] = {
      {"en_US", "US", MS::us, F},
      {"en_GB", "GB", MS::uk, C},
      {"de_DE", "DE", MS::metric, C},
      {"fr_CA", "CA", MS::metric, C},
      {"ja_JP", "JP", MS::metric, C},
      {"fi_FI", "FI", MS::metric, C},
      {"en_BS", "BS", MS::metric, F},  // metric, yet Bahamians read Fahrenheit
      {"en_GU", "GU", MS::metric, C},
      {"es_PR", "PR", MS::metric, F},
      {"en", std::nullopt, MS::us, F},       // no explicit region; English implies the US
      {"fi", std::nullopt, MS::metric, C},   // no explicit region
      {"en_US@rg=gbzzzz", "GB", MS::uk, C},  // region override
      {"de_DE@rg=uszzzz", "US", MS::us, F},
      {"en_US@measure=metric", "US", MS::metric, C},  // measurement system override
      {"de_DE@measure=ussystem", "DE", MS::us, F},
      {"de_DE@measure=uksystem", "DE", MS::uk, C},
      {"en_US@ms=metric", "US", MS::metric, C},  // the keyword as written rather than as ICU keeps it
      {"en_US@mu=celsius", "US", MS::us, C},     // temperature unit override
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.locale);
    const icu::Locale locale(row.locale);
    const auto region = localeRegion(locale);
    EXPECT_EQ(region ? std::optional(region->identifier) : std::nullopt, row.region);
    EXPECT_EQ(measurementSystem(locale), row.system);
    EXPECT_EQ(weatherTemperatureUnit(locale), row.reader);
  }
}

TEST(UnitRulesTest, SpeedAndPrecipitationUnitsByRegionAndSystem) {
  using S = SpeedDisplayUnit;
  struct SpeedRow {
    std::optional<Region> region;
    std::optional<MS> system;
    S expected;
  };
  const SpeedRow speeds[] = {
      {Region{"FI"}, MS::metric, S::metersPerSecond},    {Region{"FR"}, MS::metric, S::kilometersPerHour},
      {std::nullopt, MS::metric, S::kilometersPerHour},  // "fi": no region, so no m/s
      {Region{"JP"}, MS::us, S::milesPerHour},           // the list applies to metric only
      {Region{"GB"}, MS::uk, S::milesPerHour},           {Region{"US"}, MS::us, S::milesPerHour},
      {Region{"FI"}, std::nullopt, S::localePreference},
  };
  for (const auto& row : speeds) {
    SCOPED_TRACE(row.region ? row.region->identifier : "none");
    EXPECT_EQ(speedDisplayUnit(row.region, row.system), row.expected);
  }

  using P = PrecipitationDisplayUnit;
  struct PrecipitationRow {
    std::optional<MS> system;
    P rain;
    P snow;
  };
  const PrecipitationRow amounts[] = {
      {MS::metric, P::millimeters, P::centimeters},
      {MS::uk, P::millimeters, P::centimeters},  // millimetres in the UK although wind is mph
      {MS::us, P::inches, P::inches},
      {std::nullopt, P::localePreference, P::localePreference},
  };
  for (const auto& row : amounts) {
    EXPECT_EQ(precipitationDisplayUnit(row.system, PrecipitationVariant::rain), row.rain);
    EXPECT_EQ(precipitationDisplayUnit(row.system, PrecipitationVariant::snow), row.snow);
  }
}

TEST(UnitRulesTest, PosixLocaleNamesAndTheCurrentLocale) {
  const std::pair<const char*, const char*> names[] = {
      {"de_DE.UTF-8", "de_DE"}, {"fr_CA.utf8", "fr_CA"}, {"sr_RS@latin", "sr_RS"},
      {"ja_JP.eucJP", "ja_JP"}, {"C", "en_US"},          {"C.UTF-8", "en_US"},
      {"POSIX", "en_US"},       {"", "en_US"},           {"en_GB", "en_GB"},
  };
  for (const auto& [name, expected] : names) {
    EXPECT_STREQ(localeFromPosixName(name).getName(), expected) << name;
  }

  struct Saved {
    const char* name;
    std::optional<std::string> value;
  };
  Saved saved[] = {{"LC_ALL", {}}, {"LC_MESSAGES", {}}, {"LANG", {}}};
  for (auto& s : saved) {
    if (const char* v = std::getenv(s.name)) s.value = v;
    ::unsetenv(s.name);
  }
  EXPECT_STREQ(currentLocale().getName(), "en_US");
  ::setenv("LANG", "fi_FI.UTF-8", 1);
  EXPECT_STREQ(currentLocale().getName(), "fi_FI");
  ::setenv("LC_MESSAGES", "de_DE.UTF-8", 1);
  EXPECT_STREQ(currentLocale().getName(), "de_DE");
  ::setenv("LC_ALL", "ja_JP.UTF-8", 1);
  EXPECT_STREQ(currentLocale().getName(), "ja_JP");
  ::setenv("LC_ALL", "", 1);  // set but empty counts as unset
  EXPECT_STREQ(currentLocale().getName(), "de_DE");
  for (auto& s : saved) {
    if (s.value) {
      ::setenv(s.name, s.value->c_str(), 1);
    } else {
      ::unsetenv(s.name);
    }
  }
}

TEST(UnitRulesTest, MeasurementConversionsRoundTrip) {
  EXPECT_DOUBLE_EQ(Temperature::fahrenheit(212).inCelsius(), 100.0);
  EXPECT_DOUBLE_EQ(Temperature::kelvin(273.15).inCelsius(), 0.0);
  EXPECT_DOUBLE_EQ(temperatureValue(Temperature::celsius(-40), TemperatureUnit::fahrenheit), -40.0);
  EXPECT_DOUBLE_EQ(temperatureValue(Temperature::celsius(21.5), TemperatureUnit::celsius), 21.5);
  EXPECT_DOUBLE_EQ(Speed::kilometersPerHour(36).inMetersPerSecond(), 10.0);
  EXPECT_DOUBLE_EQ(Speed::milesPerHour(10).inMilesPerHour(), 10.0);
  EXPECT_DOUBLE_EQ(Speed::knots(1).inKilometersPerHour(), 1.852);
  EXPECT_DOUBLE_EQ(Precipitation::inches(1).inMillimeters(), 25.4);
  EXPECT_DOUBLE_EQ(Precipitation::centimeters(2.5).inMillimeters(), 25.0);
  // Values compare and hash by the base-unit measurement; the sign of zero does not matter.
  EXPECT_EQ(Temperature::celsius(0.0), Temperature::celsius(-0.0));
  EXPECT_EQ(std::hash<Temperature>{}(Temperature::celsius(0.0)), std::hash<Temperature>{}(Temperature::celsius(-0.0)));
  EXPECT_LT(Speed::metersPerSecond(1), Speed::kilometersPerHour(4));
}

}  // namespace
}  // namespace ombrine
