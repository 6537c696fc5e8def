#include "history/climate_merge.hpp"

#include <gtest/gtest.h>

#include <cmath>

namespace ombrine {
namespace {

using Months = std::vector<HistoryData::History>;

HistoryData::History full(int month, double tmin = 1.0) {
  return {.month = month,
          .tmin = Temperature::celsius(tmin),
          .tmax = Temperature::celsius(tmin + 8),
          .prcp = Precipitation::millimeters(40)};
}

Months year(double tmin = 1.0) {
  Months months;
  for (int m = 1; m <= 12; ++m) months.push_back(full(m, tmin));
  return months;
}

TEST(ClimateMergeTest, Completeness) {
  Months missingPrcp = year();
  missingPrcp[4].prcp.reset();
  Months nanTmax = year();
  nanTmax[0].tmax = Temperature::celsius(std::nan(""));
  Months noSunshine = year();
  Months eleven = year();
  eleven.pop_back();
  Months thirteen = year();
  thirteen.push_back(full(1));
  struct Row {
    const char* why;
    Months months;
    bool complete;
    bool nonFinite;
  };
  const Row rows[] = {
      {"twelve full months, sunshine does not count", noSunshine, true, false},
      {"eleven months", eleven, false, false},
      {"thirteen entries", thirteen, false, false},
      {"one precipitation missing", missingPrcp, false, false},
      {"a NaN maximum", nanTmax, false, true},
      {"nothing", {}, false, false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    EXPECT_EQ(isComplete(row.months), row.complete);
    EXPECT_EQ(hasNonFiniteValue(row.months), row.nonFinite);
  }
}

TEST(ClimateMergeTest, FirstSourceWinsLaterOnesOnlyFill) {
  // Meteostat: March without maximum and precipitation, sunshine everywhere, no December.
  Months meteostat = year(1.0);
  for (auto& month : meteostat) month.tsun = 100 * month.month;
  meteostat[2].tmax.reset();
  meteostat[2].prcp.reset();
  meteostat.pop_back();
  // NASA: every month, other values, no sunshine; given out of order.
  Months nasa = year(-5.0);
  std::swap(nasa[0], nasa[11]);
  const std::vector<Months> sources = {meteostat, nasa};
  const Months merged = mergeHistory(sources);

  ASSERT_EQ(merged.size(), 12u);
  for (int i = 0; i < 12; ++i) EXPECT_EQ(merged[i].month, i + 1) << "sorted by month";
  struct Row {
    const char* why;
    int month;
    double tmin;
    double tmax;
    std::optional<int> tsun;
  };
  const Row rows[] = {
      {"a value is never replaced", 1, 1.0, 9.0, 100},
      {"a gap is filled from the later source, the rest kept", 3, 1.0, 3.0, 300},
      {"a month only the later source has", 12, -5.0, 3.0, std::nullopt},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    const auto& month = merged[row.month - 1];
    EXPECT_EQ(month.tmin, Temperature::celsius(row.tmin));
    EXPECT_EQ(month.tmax, Temperature::celsius(row.tmax));
    EXPECT_EQ(month.tsun, row.tsun);
  }
  EXPECT_TRUE(isComplete(merged));

  // The order of sources is the order of preference.
  const std::vector<Months> reversed = {nasa, meteostat};
  EXPECT_EQ(mergeHistory(reversed)[0].tmin, Temperature::celsius(-5.0));

  // Months with nothing, and months outside the calendar, are left out.
  const std::vector<Months> sparse = {
      {{.month = 4}, {.month = 13, .tmin = Temperature::celsius(1)}, {.month = 0, .tsun = 5}, {.month = 7, .tsun = 9}}};
  const Months kept = mergeHistory(sparse);
  ASSERT_EQ(kept.size(), 1u);
  EXPECT_EQ(kept[0], (HistoryData::History{.month = 7, .tsun = 9}));
}

TEST(ClimateMergeTest, OlderPeriodChain) {
  EXPECT_EQ(olderNormalPeriod(1991), (NormalPeriod{1981, 2010}));
  EXPECT_EQ(olderNormalPeriod(1981), (NormalPeriod{1961, 1990}));
  EXPECT_EQ(olderNormalPeriod(1961), std::nullopt);
  EXPECT_EQ(olderNormalPeriod(2001), std::nullopt);
}

}  // namespace
}  // namespace ombrine
