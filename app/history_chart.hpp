#pragma once
// The history charts as one image: each place's monthly high and low temperature, its monthly
// precipitation, and its sunrise and sunset through the reference year, lines broken wherever
// a month or a day has no value. PNG or SVG, chosen by the file's extension.

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "history/history_comparison.hpp"

namespace ombrine::app {

struct HistoryChart {
  std::vector<HistoryComparisonMonthlySeries> temperature;    // maximum/minimum per place
  std::vector<HistoryComparisonMonthlySeries> precipitation;  // one value series per place
  SunHistoryComparisonData sun;
  std::string primaryName;
  std::optional<std::string> comparisonName;
};

// True for a file name ending in ".png" or ".svg" (any case).
bool isHistoryChartFile(const std::filesystem::path& file);

// Draws the chart and replaces `file` atomically. Releases Cairo's and fontconfig's process-wide
// font caches when done, so no other drawing may run in the process meanwhile (the command
// draws once, on its main thread). Raises std::invalid_argument for another extension,
// std::runtime_error when drawing fails, FileError when the file cannot be written.
void writeHistoryChart(const HistoryChart& chart, const std::filesystem::path& file);

}  // namespace ombrine::app
