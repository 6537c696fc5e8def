#pragma once
// The rules that blend monthly normals from several sources: completeness, the month-by-month
// merge, and the chain of older normal periods. Pure functions; callable from any thread.

#include <optional>
#include <span>
#include <vector>

#include "history/climate_records.hpp"

namespace ombrine {

// Exactly 12 entries, each with finite `tmin`, `tmax` and `prcp` (sunshine does not count).
bool isComplete(const std::vector<HistoryData::History>& months);

// True when some present `tmin`, `tmax` or `prcp` is NaN or infinite.
bool hasNonFiniteValue(const std::vector<HistoryData::History>& months);

// Month by month, in the order given: the first source that gives a month's field sets it; a
// later source only fills fields still absent. Sorted by month; months outside 1 to 12 and
// months with no value at all are left out.
std::vector<HistoryData::History> mergeHistory(std::span<const std::vector<HistoryData::History>> sources);

// The normal period to ask when the one starting at `failedStart` was not enough: 1991 leads to
// 1981-2010, 1981 to 1961-1990; any other start ends the chain.
struct NormalPeriod {
  int startYear = 0;
  int endYear = 0;
  bool operator==(const NormalPeriod&) const = default;
};
std::optional<NormalPeriod> olderNormalPeriod(int failedStart);

}  // namespace ombrine
