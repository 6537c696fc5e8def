#pragma once
// The series the history screens chart: each place's twelve monthly normals per measure, and two
// places' sunrise, sunset and daylight through one reference year, lined up by calendar date.
//
// A month without a value stays absent in its series (never 0, never skipped), so a chart shows
// a gap there. In the sun comparison each place keeps its own local time ("Each place uses its
// own local time."), and two places meet on the same calendar date, never the same instant;
// a boundary line has a point for every day, without a clock hour on days that lack the event,
// so the line breaks across polar day and polar night instead of joining over them.
//
// Pure values and functions; callable from any thread.

#include <optional>
#include <string>
#include <vector>

#include "core/values/location.hpp"
#include "core/values/time_zone.hpp"
#include "history/climate_records.hpp"
#include "history/daily_sun_times.hpp"

namespace ombrine {

inline constexpr const char* kSunComparisonCaption = "Each place uses its own local time.";

template <class Value>
struct HistoryMonthSeriesPoint {
  int index = 0;  // the month's position, 0 for January
  Value value;
  bool operator==(const HistoryMonthSeriesPoint&) const = default;
};

enum class HistoryComparisonPlaceRole { primary, comparison };
enum class HistoryComparisonMonthlySeriesKind { maximum, minimum, value };

// What a monthly chart shows.
enum class HistoryComparisonMode { temperature, precipitation, sunshine };

struct HistoryComparisonMonthlySeries {
  struct ID {
    HistoryComparisonPlaceRole role = HistoryComparisonPlaceRole::primary;
    HistoryComparisonMonthlySeriesKind kind = HistoryComparisonMonthlySeriesKind::value;
    bool operator==(const ID&) const = default;
  };
  ID id;
  std::string placeName;
  HistoryComparisonPlaceRole role = HistoryComparisonPlaceRole::primary;
  HistoryComparisonMonthlySeriesKind kind = HistoryComparisonMonthlySeriesKind::value;
  std::vector<std::optional<double>> values;  // 12, January first
  bool operator==(const HistoryComparisonMonthlySeries&) const = default;
};

struct HistoryComparisonPeriodSummary {
  std::string primaryPlaceName;
  std::vector<HistoryData::History> primaryMonths;
  std::string comparisonPlaceName;
  std::vector<HistoryData::History> comparisonMonths;
  std::optional<int> selectedMonthIndex;
  HistoryComparisonMode mode = HistoryComparisonMode::temperature;
  std::optional<HistoryComparisonPlaceRole> focusedPlace;
  bool operator==(const HistoryComparisonPeriodSummary&) const = default;
};

// Twelve values in month order from a place's normals: Celsius, millimetres, or minutes of
// sunshine; `maximum`/`minimum` pick tmax/tmin and only apply to temperature.
std::vector<std::optional<double>> monthlyValues(const HistoryData& history, HistoryComparisonMode mode,
                                                 HistoryComparisonMonthlySeriesKind kind);

// The points of a series that have a value, for drawing it.
std::vector<HistoryMonthSeriesPoint<double>> seriesPoints(const std::vector<std::optional<double>>& values);

struct HistoryComparisonPlace {
  std::string name;
  HistoryData history;
};

// Temperature: `maximum` then `minimum` per place; precipitation and sunshine: one `value`
// series per place. The primary place's series come first.
std::vector<HistoryComparisonMonthlySeries> monthlyComparisonSeries(
    HistoryComparisonMode mode, const HistoryComparisonPlace& primary,
    const std::optional<HistoryComparisonPlace>& comparison);

struct SunHistoryComparisonDayKey {
  int year = 0;
  int month = 0;
  int day = 0;
  auto operator<=>(const SunHistoryComparisonDayKey&) const = default;
};

struct SunHistoryComparisonDay {
  SunHistoryComparisonDayKey key;
  std::optional<DailySunTimes> primary;
  std::optional<DailySunTimes> comparison;
  bool operator==(const SunHistoryComparisonDay&) const = default;
};

struct SunHistoryBoundarySeriesPoint {
  std::string id;
  double x = 0;                     // days since January 1 of the reference year
  std::optional<double> clockHour;  // the event's clock seconds / 3,600
  bool operator==(const SunHistoryBoundarySeriesPoint&) const = default;
};

struct SunHistoryBoundarySeries {
  std::vector<SunHistoryBoundarySeriesPoint> sunrisePoints;
  std::vector<SunHistoryBoundarySeriesPoint> sunsetPoints;
  bool operator==(const SunHistoryBoundarySeries&) const = default;
};

struct SunHistoryComparisonData {
  int referenceYear = 0;
  std::vector<SunHistoryComparisonDay> days;
  std::vector<DailySunTimes> primaryPlotDays;
  std::vector<DailySunTimes> comparisonPlotDays;
  SunHistoryBoundarySeries primaryBoundarySeries;
  SunHistoryBoundarySeries comparisonBoundarySeries;
  bool operator==(const SunHistoryComparisonData&) const = default;
};

struct HistorySunComparisonPlaceSummary {
  std::string placeName;
  HistoryComparisonPlaceRole role = HistoryComparisonPlaceRole::primary;
  std::optional<DailySunTimes> day;
  bool operator==(const HistorySunComparisonPlaceSummary&) const = default;
};

struct SunComparisonPlace {
  std::string name;
  Location coordinate;
  TimeZone timeZone;
};

// Both places' days of `referenceYear`, each in its own zone, one comparison day per calendar
// day of the year.
SunHistoryComparisonData sunHistoryComparison(int referenceYear, const SunComparisonPlace& primary,
                                              const std::optional<SunComparisonPlace>& comparison);

// The two places' entries for one comparison day.
std::vector<HistorySunComparisonPlaceSummary> sunComparisonSummaries(const SunHistoryComparisonDay& day,
                                                                     const std::string& primaryName,
                                                                     const std::optional<std::string>& comparisonName);

}  // namespace ombrine
