#pragma once
// The tide values handed to the rest of the program: one station, its predicted highs and lows,
// the chart series computed for it, and what a screen derives from them.
//
// All heights are lengths held in metres; all dates are absolute instants. These records also
// travel inside OneCallWeather (`tideData`) and so inside the weather cache; their JSON form
// there is core/tide_records_json.hpp.
//
// Plain values: copy freely, no thread affinity. Every function here is pure and reentrant and
// raises nothing but std::bad_alloc.

#include <compare>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "core/values/date.hpp"

namespace ombrine {

// A length, held in metres like every other measurement in its base unit.
struct Length {
  double measurement = 0.0;  // metres

  static constexpr double kMetersPerFoot = 0.3048;

  static constexpr Length meters(double value) { return {value}; }
  static constexpr Length feet(double value) { return {value * kMetersPerFoot}; }
  constexpr double inMeters() const { return measurement; }
  constexpr double inFeet() const { return measurement / kMetersPerFoot; }

  constexpr auto operator<=>(const Length&) const = default;
};

// One tide station, NOAA's or CHS's, in the shape of NOAA's metadata feed.
struct TideStation {
  std::string id;    // NOAA station id, or the CHS station's id
  std::string name;  // display name
  double latitude = 0.0;
  double longitude = 0.0;
  std::optional<std::string> state;               // NOAA state; CHS province code
  std::optional<std::string> type;                // NOAA "S" = subordinate; CHS station type
  std::optional<std::string> referenceStationID;  // NOAA reference station; never for CHS

  // A subordinate station has no 15-minute series of its own: its chart is interpolated from
  // its highs and lows. True when `type` is "S" in any case, or else when a non-empty reference
  // station is named.
  bool isSubordinate() const;
  // "<name>, <state>" when a state is known, else the name.
  std::string displayName() const;

  bool operator==(const TideStation&) const = default;
};

enum class TideStationSource { noaa, chs };

// "noaa" or "chs".
std::string_view toString(TideStationSource source) noexcept;
std::optional<TideStationSource> tideStationSourceFromString(std::string_view text) noexcept;

// "<source>:<id>": the key of a station in memos and cache files.
std::string stationKey(TideStationSource source, std::string_view id);

// Names a station across a process boundary (a deep link, a widget).
struct TideStationSelection {
  TideStationSource source = TideStationSource::noaa;
  TideStation station;

  bool operator==(const TideStationSelection&) const = default;
};

// What the tide detail view is asked to open: a chosen station or the device's own place.
struct TideDetailLaunchRequest {
  struct CurrentLocation {
    bool operator==(const CurrentLocation&) const = default;
  };
  std::variant<TideStationSelection, CurrentLocation> target;

  static TideDetailLaunchRequest station(TideStationSelection selection) { return {std::move(selection)}; }
  static TideDetailLaunchRequest currentLocation() { return {CurrentLocation{}}; }

  // "<source>:<id>" for a station, "current-location" otherwise.
  std::string identity() const;

  bool operator==(const TideDetailLaunchRequest&) const = default;
};

struct TideExtreme {
  // Stored and ordered by their text: "H" sorts before "L".
  enum class Kind { high, low };

  Date date;
  Length height;  // above the station's datum
  Kind kind = Kind::high;

  bool operator==(const TideExtreme&) const = default;
};

// "H" or "L".
std::string_view toString(TideExtreme::Kind kind) noexcept;
std::optional<TideExtreme::Kind> tideExtremeKindFromString(std::string_view text) noexcept;

// By date; at one date a high before a low. Two extremes of one kind at one date are
// equivalent (neither is less), so sorting keeps them in no particular order.
bool tideExtremeLess(const TideExtreme& a, const TideExtreme& b) noexcept;

struct TideChartPoint {
  Date date;
  Length height;

  bool operator==(const TideChartPoint&) const = default;
};

bool tideChartPointLess(const TideChartPoint& a, const TideChartPoint& b) noexcept;

// A closed interval of instants.
struct DateInterval {
  Date start;
  Date end;

  bool contains(Date date) const noexcept { return start <= date && date <= end; }
  bool operator==(const DateInterval&) const = default;
};

struct TideData {
  // How far before and after now a chart must reach to be shown from a cache.
  static constexpr double kChartWindowBefore = 14'400.0;  // 4 hours
  static constexpr double kChartWindowAfter = 187'200.0;  // 52 hours

  TideStation station;
  double distance = 0.0;                    // metres from the asked coordinate; 0 when the station was chosen
  std::vector<TideExtreme> extremes;        // ascending (tideExtremeLess)
  std::vector<TideChartPoint> chartPoints;  // ascending by date
  Date fetchedAt;

  // The first extreme in stored order at or after `now`; the last one when all are past;
  // nothing when there are none.
  std::optional<TideExtreme> nextExtreme(Date now) const;
  // The chart reaches from 4 hours before `now` to 52 hours after it.
  bool coversChartWindow(Date now) const;
  // The extremes whose date lies in `window`, in stored order.
  std::vector<TideExtreme> extremesIn(DateInterval window) const;

  bool operator==(const TideData&) const = default;
};

// The series a station with only high and low times is charted with: cosine interpolation
// between neighbouring extremes every `stepSeconds`, each extreme exact.
//
// The extremes are sorted and, of several at one date, only the first is kept; fewer than two
// give an empty series, as does a step that is not positive. With a `window` the series is cut
// to it and begins and ends with points interpolated at its two ends; a window that reaches
// beyond the first extreme (or past the last) cannot be interpolated and gives an empty series.
std::vector<TideChartPoint> chartPoints(std::vector<TideExtreme> extremes, double stepSeconds,
                                        std::optional<DateInterval> window = std::nullopt);

// The interpolated height at `t` over extremes sorted by tideExtremeLess: nothing before the
// first extreme or after the last.
std::optional<TideChartPoint> interpolatedPoint(const std::vector<TideExtreme>& sortedExtremes, Date t);

}  // namespace ombrine

template <>
struct std::hash<ombrine::TideStation> {
  size_t operator()(const ombrine::TideStation& station) const noexcept;
};
