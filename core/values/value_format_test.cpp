#include "core/values/value_format.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <thread>
#include <vector>

namespace ombrine {
namespace {

// The characters ICU 72 puts into these strings, spelled out so the expectations are legible.
#define DEG "\u00B0"    // degree sign
#define MINUS "\u2212"  // minus sign (fi)
#define NNBSP "\u202F"  // narrow no-break space (fr_FR)
#define INCH "\u2033"   // double prime (en inches)

TEST(ValueFormatTest, TemperatureInTheReadersUnitWithoutEarlyRounding) {
  struct Row {
    const char* locale;
    double celsius;
    const char* abbreviated;
    const char* narrow;
  };
  const Row rows[] = {
      {"en_US", 21.6, "71" DEG "F", "71" DEG},
      {"en_US", -0.4, "31" DEG "F", "31" DEG},
      {"en_GB", 21.6, "22" DEG "C", "22" DEG},
      {"en_GB", -0.4, "-0" DEG "C", "-0" DEG},  // the formatter rounds; nothing before it does
      {"de_DE", 21.6, "22 " DEG "C", "22" DEG},
      {"fr_FR", -3.0, "-3" NNBSP DEG "C", "-3" DEG},
      {"fr_CA", 0.5, "0 " DEG "C", "0" DEG},  // half-even
      {"ja_JP", 1.5, "2" DEG "C", "2" DEG},
      {"fi_FI", -3.0, MINUS "3 " DEG "C", MINUS "3" DEG},
      {"en", 100.0, "212" DEG "F", "212" DEG},
      {"en_US@mu=celsius", 21.6, "22" DEG "C", "22" DEG},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::Message() << row.locale << " " << row.celsius);
    const icu::Locale locale(row.locale);
    EXPECT_EQ(formattedTemperature(Temperature::celsius(row.celsius), TemperatureWidth::abbreviated, locale),
              row.abbreviated);
    EXPECT_EQ(formattedTemperature(Temperature::celsius(row.celsius), TemperatureWidth::narrow, locale), row.narrow);
  }
}

TEST(ValueFormatTest, WindSpeedByRegionAndMeasurementSystem) {
  struct Row {
    const char* locale;
    double metersPerSecond;
    const char* expected;
  };
  const Row rows[] = {
      {"fi_FI", 5.4, "5m/s"},
      {"ja_JP", 5.6, "6m/s"},
      {"sv_SE", 12.0, "12m/s"},
      {"fr_FR", 5.0, "18km/h"},
      {"de_DE", 5.0, "18 km/h"},
      {"fr_CA", 5.0, "18km/h"},
      {"fi", 5.0, "18km/h"},  // no region, so not the metres-per-second branch
      {"en_US@rg=fizzzz", 5.0, "5m/s"},
      {"en_GB", 5.0, "11mph"},  // miles per hour in the UK
      {"en_US", 5.0, "11mph"},
      {"en_US", 0.0, "0mph"},
      {"ja_JP@measure=ussystem", 5.0, "11mi/h"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.locale);
    EXPECT_EQ(formattedSpeed(Speed::metersPerSecond(row.metersPerSecond), icu::Locale(row.locale)), row.expected);
  }
}

TEST(ValueFormatTest, RainAndSnowAmountsByMeasurementSystem) {
  struct Row {
    const char* locale;
    double millimeters;
    const char* rain;
    const char* snow;
  };
  const Row rows[] = {
      {"en_GB", 2.46, "2.5mm", "0.2cm"},  // millimetres in the UK
      {"en_GB", 24.6, "24.6mm", "2.5cm"},
      {"en_GB", 3.0, "3mm", "0.3cm"},  // no trailing zero
      {"de_DE", 2.46, "2,5 mm", "0,2 cm"},
      {"fi_FI", 12.0, "12mm", "1,2cm"},
      {"ja_JP", 0.04, "0mm", "0cm"},
      {"en_US", 2.46, "0.1" INCH, "0.1" INCH},
      {"en_US", 24.6, "0.97" INCH, "0.97" INCH},
      {"en_US", 25.4, "1" INCH, "1" INCH},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::Message() << row.locale << " " << row.millimeters);
    const icu::Locale locale(row.locale);
    EXPECT_EQ(formattedRain(Precipitation::millimeters(row.millimeters), locale), row.rain);
    EXPECT_EQ(formattedSnow(Precipitation::millimeters(row.millimeters), locale), row.snow);
  }
}

TEST(ValueFormatTest, LocalTemperatureUnitForAPlaceInAnotherUnit) {
  const auto F = TemperatureUnit::fahrenheit;
  const auto C = TemperatureUnit::celsius;
  struct Row {
    const char* reader;
    std::optional<Region> place;
    double celsius;
    std::optional<LocalTemperature> local;
    std::optional<std::string> label;
    std::optional<std::string> accessible;
  };
  const Row rows[] = {
      // A GB place for a US reader: Celsius, and -0.4 becomes exactly 0, never "-0".
      {"en_US", Region{"GB"}, -0.4, LocalTemperature{0.0, C}, "0" DEG "C", "0" DEG "C"},
      {"en_US", Region{"GB"}, 21.6, LocalTemperature{21.6, C}, "22" DEG "C", "22" DEG "C"},
      // Rounding half away from zero decides what is zero, so -0.5 keeps its value and sign.
      {"en_US", Region{"GB"}, -0.5, LocalTemperature{-0.5, C}, "-0" DEG "C", "-0" DEG "C"},
      {"en_GB", Region{"US"}, 20.0, LocalTemperature{68.0, F}, "68" DEG "F", "68" DEG "F"},
      {"en_GB", Region{"US"}, -17.9, LocalTemperature{0.0, F}, "0" DEG "F", "0" DEG "F"},
      // 0.5 °F and 2.5 °F: half-even in both labels.
      {"en_GB", Region{"US"}, -17.5, LocalTemperature{0.5, F}, "0" DEG "F", "0" DEG "F"},
      {"de_DE", Region{"PR"}, -16.5, LocalTemperature{2.3, F}, "2 " DEG "F", "2 " DEG "F"},
      // Same unit on both sides, or no place region: nothing.
      {"en_US", Region{"US"}, 20.0, std::nullopt, std::nullopt, std::nullopt},
      {"en_US", Region{"GU"}, 20.0, std::nullopt, std::nullopt, std::nullopt},
      {"en_GB", Region{"FR"}, 20.0, std::nullopt, std::nullopt, std::nullopt},
      {"en_US", std::nullopt, 20.0, std::nullopt, std::nullopt, std::nullopt},
      // The reader's unit is CLDR's: Guam readers see Celsius, their place is a Fahrenheit one.
      {"en_GU", Region{"GU"}, 20.0, LocalTemperature{68.0, F}, "68" DEG "F", "68" DEG "F"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::Message() << row.reader << " " << (row.place ? row.place->identifier : "-") << " "
                                    << row.celsius);
    const LocalTemperatureUnitFormatter formatter{icu::Locale(row.reader), row.place};
    EXPECT_EQ(formatter.needsLocalUnit(), row.local.has_value());
    const auto local = formatter.localTemperature(Temperature::celsius(row.celsius));
    ASSERT_EQ(local.has_value(), row.local.has_value());
    if (local) {
      EXPECT_EQ(local->unit, row.local->unit);
      EXPECT_NEAR(local->value, row.local->value, 0.05);
      EXPECT_FALSE(row.local->value == 0.0 && std::signbit(local->value)) << "negative zero";
    }
    EXPECT_EQ(formatter.localTemperatureLabel(Temperature::celsius(row.celsius)), row.label);
    EXPECT_EQ(formatter.localTemperatureAccessibilityLabel(Temperature::celsius(row.celsius)), row.accessible);
  }
}

TEST(ValueFormatTest, SharedFormattersAreBuiltOncePerLocaleAndUsableFromManyThreads) {
  const ValueFormatter& first = ValueFormatter::forLocale(icu::Locale("nb_NO"));
  EXPECT_EQ(&first, &ValueFormatter::forLocale(icu::Locale("nb_NO")));
  EXPECT_EQ(first.measurementSystem(), MeasurementSystem::metric);
  EXPECT_EQ(first.temperatureUnit(), TemperatureUnit::celsius);

  const char* locales[] = {"en_US", "en_GB", "de_DE", "fr_CA", "ja_JP", "fi_FI", "pt_BR", "ko_KR"};
  std::vector<std::thread> threads;
  std::vector<std::string> results(std::size(locales) * 2);
  for (size_t t = 0; t < results.size(); ++t) {
    threads.emplace_back([&, t] {
      const icu::Locale locale(locales[t % std::size(locales)]);
      for (int i = 0; i < 200; ++i) results[t] = formattedSpeed(Speed::metersPerSecond(i % 30), locale);
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(results[0], "43mph");  // en_US, last value 199 % 30 = 19 m/s
  EXPECT_EQ(results[7], "19m/s");  // ko_KR
}

// Counts, percentages, pressures and clock fields share the numbering system of the locale's
// temperatures: no Latin digit next to Arabic-Indic ones.
TEST(ValueFormatTest, EveryNumberInTheLocalesOwnDigits) {
  struct Row {
    const char* locale;
    const char* zero;      // the locale's digit zero
    const char* count;     // 12345.6 as a count
    const char* percent;   // 0.75
    const char* pressure;  // 1003.2 hPa
    const char* clock;     // 7 zero-filled to two digits
    const char* distance;  // 12.5 with up to one decimal, then 150
  };
  const Row rows[] = {
      {"en_US", "0", "12,346", "75%", "1003 hPa", "07", "12.5 150"},
      {"de_DE", "0", "12.346",
       "75"
       "\u00A0"
       "%",
       "1003 hPa", "07", "12,5 150"},
      {"ar_EG", "\u0660", nullptr, nullptr, nullptr, "\u0660\u0667", nullptr},
      {"fa_IR", "\u06F0", nullptr, nullptr, nullptr, "\u06F0\u06F7", nullptr},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.locale);
    const ValueFormatter& format = ValueFormatter::forLocale(icu::Locale(row.locale));
    const std::string shown[] = {format.number(12345.6),
                                 format.percent(0.75),
                                 format.pressure(1003.2),
                                 format.number(7, {.integerDigits = 2, .grouping = false}),
                                 format.number(12.5, {.fractionDigits = 1, .trailingZeros = false}) + " " +
                                     format.number(150, {.fractionDigits = 1, .trailingZeros = false}),
                                 format.number(3, {.sign = true})};
    for (const std::string& text : shown) {
      EXPECT_EQ(text.find_first_of("0123456789") == std::string::npos, std::string(row.zero) != "0") << text;
    }
    if (row.count) EXPECT_EQ(shown[0], row.count);
    if (row.percent) EXPECT_EQ(shown[1], row.percent);
    if (row.pressure) EXPECT_EQ(shown[2], row.pressure);
    EXPECT_EQ(shown[3], row.clock);
    if (row.distance) EXPECT_EQ(shown[4], row.distance);
    EXPECT_NE(format.temperature(Temperature::celsius(10), TemperatureWidth::narrow).find(row.zero), std::string::npos);
  }
}

TEST(ValueFormatTest, BogusLocaleFormatsLikeRootWhichImpliesTheUS) {
  icu::Locale bogus;
  bogus.setToBogus();
  const ValueFormatter formatter(bogus);
  EXPECT_EQ(formatter.locale(), icu::Locale::getRoot());
  EXPECT_EQ(formatter.temperature(Temperature::celsius(21.6), TemperatureWidth::abbreviated), "71" DEG "F");
}

}  // namespace
}  // namespace ombrine
