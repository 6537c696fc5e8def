#include "history/history_comparison.hpp"

#include <gtest/gtest.h>

#include "history/zoned_calendar.hpp"

namespace ombrine {
namespace {

using Kind = HistoryComparisonMonthlySeriesKind;
using Role = HistoryComparisonPlaceRole;

HistoryData withoutMarch() {
  HistoryData history;
  for (int m = 1; m <= 12; ++m) {
    if (m == 3) continue;
    history.data.push_back({.month = m,
                            .tmin = Temperature::celsius(m - 10.0),
                            .tmax = Temperature::celsius(m),
                            .tsun = m == 5 ? std::nullopt : std::optional(m * 100),
                            .prcp = Precipitation::millimeters(m * 2.0)});
  }
  return history;
}

TEST(HistoryComparisonTest, MonthlySeriesKeepGaps) {
  const HistoryComparisonPlace munich{"Munich", withoutMarch()};
  const HistoryComparisonPlace tromso{"Tromsø", withoutMarch()};
  struct Row {
    const char* why;
    HistoryComparisonMode mode;
    size_t seriesCount;
    Kind firstKind;
    std::optional<double> january;
    std::vector<size_t> gaps;
  };
  const Row rows[] = {
      {"temperature: maximum then minimum per place", HistoryComparisonMode::temperature, 4, Kind::maximum, 1.0, {2}},
      {"precipitation: one value series per place", HistoryComparisonMode::precipitation, 2, Kind::value, 2.0, {2}},
      {"sunshine: May has none either", HistoryComparisonMode::sunshine, 2, Kind::value, 100.0, {2, 4}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    const auto series = monthlyComparisonSeries(row.mode, munich, tromso);
    ASSERT_EQ(series.size(), row.seriesCount);
    EXPECT_EQ(series[0].id, (HistoryComparisonMonthlySeries::ID{Role::primary, row.firstKind}));
    EXPECT_EQ(series[0].placeName, "Munich");
    EXPECT_EQ(series.back().role, Role::comparison);
    EXPECT_EQ(series.back().placeName, "Tromsø");
    ASSERT_EQ(series[0].values.size(), 12u);
    EXPECT_EQ(series[0].values[0], row.january);
    for (size_t i = 0; i < 12; ++i) {
      const bool gap = std::find(row.gaps.begin(), row.gaps.end(), i) != row.gaps.end();
      EXPECT_EQ(series[0].values[i].has_value(), !gap) << "month index " << i;
    }
  }
  const auto minimum = monthlyComparisonSeries(HistoryComparisonMode::temperature, munich, std::nullopt);
  ASSERT_EQ(minimum.size(), 2u);
  EXPECT_EQ(minimum[1].values[0], -9.0);
  // Drawn points skip the gap and keep each month's own index.
  const auto points = seriesPoints(minimum[0].values);
  ASSERT_EQ(points.size(), 11u);
  EXPECT_EQ(points[2].index, 3);
}

TEST(HistoryComparisonTest, SunDaysLineUpByCalendarDate) {
  struct Row {
    const char* why;
    int year;
    SunComparisonPlace primary;
    SunComparisonPlace comparison;
    SunHistoryComparisonDayKey key;
  };
  const Row rows[] = {
      {"February 29 in a leap year, held by both lists",
       2024,
       {"Munich", Location(48.137, 11.575), *TimeZone::named("Europe/Berlin")},
       {"Sydney", Location(-33.87, 151.21), *TimeZone::named("Australia/Sydney")},
       {2024, 2, 29}},
      {"either side of the date line: same date, instants a day apart",
       2026,
       {"Kiritimati", Location(1.87, -157.4), *TimeZone::named("Pacific/Kiritimati")},
       {"Honolulu", Location(21.31, -157.86), *TimeZone::named("Pacific/Honolulu")},
       {2026, 7, 4}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    const auto data = sunHistoryComparison(row.year, row.primary, row.comparison);
    const size_t length = row.year % 4 == 0 ? 366 : 365;
    ASSERT_EQ(data.days.size(), length);
    const auto day = std::find_if(data.days.begin(), data.days.end(), [&](const auto& d) { return d.key == row.key; });
    ASSERT_NE(day, data.days.end());
    ASSERT_TRUE(day->primary && day->comparison);
    auto primaryCalendar = ZonedCalendar::make(row.primary.timeZone);
    auto comparisonCalendar = ZonedCalendar::make(row.comparison.timeZone);
    const CivilDate date{row.key.year, row.key.month, row.key.day};
    EXPECT_EQ(primaryCalendar->localTime(day->primary->date)->date, date);
    EXPECT_EQ(comparisonCalendar->localTime(day->comparison->date)->date, date);
    EXPECT_EQ(data.primaryBoundarySeries.sunrisePoints.size(), length);
    const auto summaries = sunComparisonSummaries(*day, row.primary.name, row.comparison.name);
    ASSERT_EQ(summaries.size(), 2u);
    EXPECT_EQ(summaries[1].placeName, row.comparison.name);
    EXPECT_EQ(summaries[1].day, day->comparison);
  }
}

TEST(HistoryComparisonTest, BoundaryLinesBreakAtPolarDay) {
  const auto data =
      sunHistoryComparison(2026, {"Tromsø", Location(69.6492, 18.9553), *TimeZone::named("Europe/Oslo")},
                           SunComparisonPlace{"Munich", Location(48.137, 11.575), *TimeZone::named("Europe/Berlin")});
  const size_t midsummer = 171;  // 21 June
  const auto& tromso = data.primaryBoundarySeries;
  const auto& munich = data.comparisonBoundarySeries;
  ASSERT_EQ(tromso.sunrisePoints.size(), 365u);
  EXPECT_EQ(tromso.sunrisePoints[midsummer].x, 171.0);
  EXPECT_EQ(tromso.sunrisePoints[midsummer].id, "primary-sunrise-2026-06-21");
  EXPECT_FALSE(tromso.sunrisePoints[midsummer].clockHour) << "the line breaks here";
  EXPECT_FALSE(tromso.sunsetPoints[midsummer].clockHour);
  ASSERT_TRUE(munich.sunrisePoints[midsummer].clockHour) << "the other place's line continues";
  EXPECT_NEAR(*munich.sunrisePoints[midsummer].clockHour, 5.2, 0.1);
  ASSERT_TRUE(tromso.sunrisePoints[60].clockHour);  // 2 March
  EXPECT_EQ(data.days[midsummer].primary->daylightState, SunDaylightState::polarDay);
}

}  // namespace
}  // namespace ombrine
