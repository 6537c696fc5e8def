#include "history/history_comparison.hpp"

#include <fmt/format.h>

#include <map>

#include "history/zoned_calendar.hpp"

namespace ombrine {

namespace {

using Kind = HistoryComparisonMonthlySeriesKind;
using Role = HistoryComparisonPlaceRole;

std::optional<double> valueOf(const HistoryData::History& month, HistoryComparisonMode mode, Kind kind) {
  switch (mode) {
    case HistoryComparisonMode::temperature: {
      const auto& t = kind == Kind::minimum ? month.tmin : month.tmax;
      return t ? std::optional(t->measurement) : std::nullopt;
    }
    case HistoryComparisonMode::precipitation:
      return month.prcp ? std::optional(month.prcp->measurement) : std::nullopt;
    case HistoryComparisonMode::sunshine:
      return month.tsun ? std::optional(static_cast<double>(*month.tsun)) : std::nullopt;
  }
  return std::nullopt;
}

void appendSeries(std::vector<HistoryComparisonMonthlySeries>& out, HistoryComparisonMode mode, Role role,
                  const HistoryComparisonPlace& place) {
  const std::vector<Kind> kinds =
      mode == HistoryComparisonMode::temperature ? std::vector{Kind::maximum, Kind::minimum} : std::vector{Kind::value};
  for (const Kind kind : kinds) {
    out.push_back(HistoryComparisonMonthlySeries{.id = {role, kind},
                                                 .placeName = place.name,
                                                 .role = role,
                                                 .kind = kind,
                                                 .values = monthlyValues(place.history, mode, kind)});
  }
}

std::map<SunHistoryComparisonDayKey, const DailySunTimes*> indexByDay(const std::vector<DailySunTimes>& days,
                                                                      const TimeZone& zone) {
  std::map<SunHistoryComparisonDayKey, const DailySunTimes*> index;
  auto calendar = ZonedCalendar::make(zone);
  if (!calendar) return index;
  for (const auto& day : days) {
    if (const auto local = calendar->localTime(day.date)) {
      index.emplace(SunHistoryComparisonDayKey{local->date.year, local->date.month, local->date.day}, &day);
    }
  }
  return index;
}

SunHistoryBoundarySeries boundarySeries(const std::vector<DailySunTimes>& days, const TimeZone& zone, int year,
                                        std::string_view role) {
  SunHistoryBoundarySeries series;
  auto calendar = ZonedCalendar::make(zone);
  if (!calendar) return series;
  const std::int64_t first = daysFromCivil(CivilDate{year, 1, 1});
  for (const auto& day : days) {
    const auto local = calendar->localTime(day.date);
    if (!local) continue;
    const double x = static_cast<double>(daysFromCivil(local->date) - first);
    auto hour = [](std::optional<double> seconds) { return seconds ? std::optional(*seconds / 3600.0) : std::nullopt; };
    const std::string date = fmt::format("{:04}-{:02}-{:02}", local->date.year, local->date.month, local->date.day);
    series.sunrisePoints.push_back({fmt::format("{}-sunrise-{}", role, date), x, hour(day.sunriseClockSeconds)});
    series.sunsetPoints.push_back({fmt::format("{}-sunset-{}", role, date), x, hour(day.sunsetClockSeconds)});
  }
  return series;
}

}  // namespace

std::vector<std::optional<double>> monthlyValues(const HistoryData& history, HistoryComparisonMode mode, Kind kind) {
  std::vector<std::optional<double>> values(12);
  for (const auto& month : history.data) {
    if (month.month < 1 || month.month > 12) continue;
    values[month.month - 1] = valueOf(month, mode, kind);
  }
  return values;
}

std::vector<HistoryMonthSeriesPoint<double>> seriesPoints(const std::vector<std::optional<double>>& values) {
  std::vector<HistoryMonthSeriesPoint<double>> points;
  for (size_t i = 0; i < values.size(); ++i) {
    if (values[i]) points.push_back({static_cast<int>(i), *values[i]});
  }
  return points;
}

std::vector<HistoryComparisonMonthlySeries> monthlyComparisonSeries(
    HistoryComparisonMode mode, const HistoryComparisonPlace& primary,
    const std::optional<HistoryComparisonPlace>& comparison) {
  std::vector<HistoryComparisonMonthlySeries> series;
  appendSeries(series, mode, Role::primary, primary);
  if (comparison) appendSeries(series, mode, Role::comparison, *comparison);
  return series;
}

SunHistoryComparisonData sunHistoryComparison(int referenceYear, const SunComparisonPlace& primary,
                                              const std::optional<SunComparisonPlace>& comparison) {
  SunHistoryComparisonData data;
  data.referenceYear = referenceYear;
  data.primaryPlotDays = dailySunTimes(referenceYear, primary.coordinate, primary.timeZone);
  if (comparison) data.comparisonPlotDays = dailySunTimes(referenceYear, comparison->coordinate, comparison->timeZone);

  const auto primaryIndex = indexByDay(data.primaryPlotDays, primary.timeZone);
  const auto comparisonIndex =
      comparison ? indexByDay(data.comparisonPlotDays, comparison->timeZone) : decltype(primaryIndex){};
  const std::int64_t end = daysFromCivil(CivilDate{referenceYear + 1, 1, 1});
  for (std::int64_t number = daysFromCivil(CivilDate{referenceYear, 1, 1}); number < end; ++number) {
    const CivilDate date = civilFromDays(number);
    SunHistoryComparisonDay day{.key = {date.year, date.month, date.day}};
    if (const auto found = primaryIndex.find(day.key); found != primaryIndex.end()) day.primary = *found->second;
    if (const auto found = comparisonIndex.find(day.key); found != comparisonIndex.end())
      day.comparison = *found->second;
    data.days.push_back(std::move(day));
  }
  data.primaryBoundarySeries = boundarySeries(data.primaryPlotDays, primary.timeZone, referenceYear, "primary");
  if (comparison) {
    data.comparisonBoundarySeries =
        boundarySeries(data.comparisonPlotDays, comparison->timeZone, referenceYear, "comparison");
  }
  return data;
}

std::vector<HistorySunComparisonPlaceSummary> sunComparisonSummaries(const SunHistoryComparisonDay& day,
                                                                     const std::string& primaryName,
                                                                     const std::optional<std::string>& comparisonName) {
  std::vector<HistorySunComparisonPlaceSummary> summaries{{primaryName, Role::primary, day.primary}};
  if (comparisonName) summaries.push_back({*comparisonName, Role::comparison, day.comparison});
  return summaries;
}

}  // namespace ombrine
