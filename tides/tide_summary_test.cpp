#include <gtest/gtest.h>

#include "core/values/iso8601.hpp"
#include "platform/icu_setup.hpp"
#include "tides/tide_summary.hpp"

namespace ombrine {
namespace {

using Kind = TideExtreme::Kind;

// The shipped time-zone data, as the program uses, so that rule changes do not move the tests.
class IcuEnvironment : public testing::Environment {
 public:
  void SetUp() override { useShippedTimeZoneData(); }
};
[[maybe_unused]] testing::Environment* const kIcuEnvironment = testing::AddGlobalTestEnvironment(new IcuEnvironment);

Date at(const char* text) { return decodeISO8601Date(text); }

TideData lewes() {
  // Around the end of daylight saving time in New York (2026-11-01 02:00 EDT becomes 01:00 EST).
  return TideData{
      .station =
          TideStation{.id = "8557380", .name = "Lewes", .latitude = 38.7828, .longitude = -75.1192, .state = "DE"},
      .distance = 5'200.0,
      .extremes = {{at("2026-10-31T23:00:00Z"), Length::meters(1.524), Kind::high},
                   {at("2026-11-01T05:30:00Z"), Length::meters(-0.04), Kind::low},
                   {at("2026-11-01T11:25:00Z"), Length::meters(1.40), Kind::high}},
      .chartPoints = {},
      .fetchedAt = at("2026-10-31T20:00:00Z"),
  };
}

TEST(TideSummaryTest, LocalClockTimesAcrossTheDaylightSavingChange) {
  const auto zone = *TimeZone::named("America/New_York");
  const auto lines = tideExtremeLines(lewes(), at("2026-10-31T20:00:00Z"), 24, zone, ScreenWords(icu::Locale("en_US")));
  ASSERT_EQ(lines.size(), 3u);
  // 12 h 25 min apart, but 11 h 25 min apart on the clock: 7:00 PM EDT, then 6:25 AM EST.
  EXPECT_NE(lines[0].find("Oct 31"), std::string::npos) << lines[0];
  EXPECT_NE(lines[0].find("7:00"), std::string::npos) << lines[0];
  EXPECT_NE(lines[1].find("1:30"), std::string::npos) << lines[1];  // the first 1:30 of the night
  EXPECT_NE(lines[2].find("Nov 1"), std::string::npos) << lines[2];
  EXPECT_NE(lines[2].find("6:25"), std::string::npos) << lines[2];
  EXPECT_NE(lines[0].find("high"), std::string::npos);
  EXPECT_NE(lines[1].find("low"), std::string::npos);
  // The same instants in Berlin, already on winter time, keep their 12 h 25 min.
  const auto berlin = tideExtremeLines(lewes(), at("2026-10-31T20:00:00Z"), 24, *TimeZone::named("Europe/Berlin"),
                                       ScreenWords(icu::Locale("de_DE")));
  ASSERT_EQ(berlin.size(), 3u);
  EXPECT_NE(berlin[0].find("00:00"), std::string::npos) << berlin[0];
  EXPECT_NE(berlin[2].find("12:25"), std::string::npos) << berlin[2];
  // Only the asked hours are listed.
  EXPECT_EQ(tideExtremeLines(lewes(), at("2026-10-31T20:00:00Z"), 6, zone, ScreenWords(icu::Locale("en_US"))).size(),
            1u);
}

TEST(TideSummaryTest, UnitsFollowTheLocale) {
  struct Row {
    const char* locale;
    TideHeightUnit unit;
    const char* station;
    const char* height;  // of the first high, 1.524 m = 5 ft
  };
  const Row rows[] = {
      {"en_US", TideHeightUnit::feet, "Lewes, DE · 3.2 mi away", "5.0\u2032"},
      {"en_GB", TideHeightUnit::meters, "Lewes, DE · 3.2 mi away", "1.5m"},  // miles on the road, metres at sea
      {"de_DE", TideHeightUnit::meters, "Lewes, DE · 5,2 km away", "1,5 m"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.locale);
    const icu::Locale locale(row.locale);
    EXPECT_EQ(tideHeightUnit(locale), row.unit);
    const ScreenWords words(locale);
    EXPECT_EQ(describeTideStation(lewes(), words), row.station);
    const auto next =
        describeNextTide(lewes(), at("2026-10-31T20:00:00Z"), *TimeZone::named("America/New_York"), words);
    ASSERT_TRUE(next);
    EXPECT_EQ(next->rfind("Next tide: high " + std::string(row.height) + " at ", 0), 0u) << *next;
    EXPECT_NE(next->find("(Lewes, DE)"), std::string::npos) << *next;
  }
  TideData chosen = lewes();
  chosen.distance = 0.0;
  EXPECT_EQ(describeTideStation(chosen, ScreenWords(icu::Locale("en_US"))), "Lewes, DE · chosen directly");
  // All tides past: the last one is still named; none at all gives no line.
  EXPECT_NE(describeNextTide(lewes(), at("2026-11-03T00:00:00Z"), TimeZone::gmt(), ScreenWords(icu::Locale("en_US")))
                ->find("high"),
            std::string::npos);
  chosen.extremes.clear();
  EXPECT_EQ(describeNextTide(chosen, at("2026-11-01T00:00:00Z"), TimeZone::gmt(), ScreenWords(icu::Locale("en_US"))),
            std::nullopt);
}

}  // namespace
}  // namespace ombrine
