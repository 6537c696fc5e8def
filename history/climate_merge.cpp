#include "history/climate_merge.hpp"

#include <array>
#include <cmath>

namespace ombrine {

namespace {

template <class T>
bool finite(const std::optional<T>& value) {
  return value && std::isfinite(value->measurement);
}

template <class T>
bool nonFinite(const std::optional<T>& value) {
  return value && !std::isfinite(value->measurement);
}

template <class T>
void fill(std::optional<T>& slot, const std::optional<T>& value) {
  if (!slot && value) slot = value;
}

}  // namespace

bool isComplete(const std::vector<HistoryData::History>& months) {
  if (months.size() != 12) return false;
  for (const auto& month : months) {
    if (!finite(month.tmin) || !finite(month.tmax) || !finite(month.prcp)) return false;
  }
  return true;
}

bool hasNonFiniteValue(const std::vector<HistoryData::History>& months) {
  for (const auto& month : months) {
    if (nonFinite(month.tmin) || nonFinite(month.tmax) || nonFinite(month.prcp)) return true;
  }
  return false;
}

std::vector<HistoryData::History> mergeHistory(std::span<const std::vector<HistoryData::History>> sources) {
  std::array<PartialHistoryMonth, 12> partial;
  for (int i = 0; i < 12; ++i) partial[i].month = i + 1;
  for (const auto& source : sources) {
    for (const auto& month : source) {
      if (month.month < 1 || month.month > 12) continue;
      PartialHistoryMonth& slot = partial[month.month - 1];
      fill(slot.tmin, month.tmin);
      fill(slot.tmax, month.tmax);
      fill(slot.tsun, month.tsun);
      fill(slot.prcp, month.prcp);
    }
  }
  std::vector<HistoryData::History> merged;
  for (const auto& month : partial) {
    if (!month.tmin && !month.tmax && !month.tsun && !month.prcp) continue;
    merged.push_back(
        {.month = month.month, .tmin = month.tmin, .tmax = month.tmax, .tsun = month.tsun, .prcp = month.prcp});
  }
  return merged;
}

std::optional<NormalPeriod> olderNormalPeriod(int failedStart) {
  if (failedStart == 1991) return NormalPeriod{1981, 2010};
  if (failedStart == 1981) return NormalPeriod{1961, 1990};
  return std::nullopt;
}

}  // namespace ombrine
