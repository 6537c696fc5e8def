#include "app/history_chart.hpp"

#include <cairo-svg.h>
#include <cairo.h>
#include <fontconfig/fontconfig.h>

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <memory>
#include <stdexcept>

#include "history/sun_labels.hpp"
#include "platform/atomic_file.hpp"

namespace ombrine::app {

namespace {

constexpr double kWidth = 900;
constexpr double kHeight = 960;
constexpr double kLeft = 70;
constexpr double kRight = 30;
constexpr double kPanelHeight = 220;
constexpr std::array<double, 3> kPanelTops = {70, 380, 690};
constexpr const char* kMonthInitials = "JFMAMJJASOND";

struct Colour {
  double r, g, b;
};
constexpr Colour kPrimary{0.84, 0.33, 0.10};
constexpr Colour kComparison{0.13, 0.40, 0.70};
constexpr Colour kInk{0.15, 0.15, 0.15};
constexpr Colour kGrid{0.85, 0.85, 0.85};

using SurfacePtr = std::unique_ptr<cairo_surface_t, decltype(&cairo_surface_destroy)>;
using ContextPtr = std::unique_ptr<cairo_t, decltype(&cairo_destroy)>;

cairo_status_t appendToString(void* closure, const unsigned char* data, unsigned int length) {
  static_cast<std::string*>(closure)->append(reinterpret_cast<const char*>(data), length);
  return CAIRO_STATUS_SUCCESS;
}

std::string lowerExtension(const std::filesystem::path& file) {
  std::string extension = file.extension().string();
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return extension;
}

void setColour(cairo_t* cr, Colour colour, double alpha = 1.0) {
  cairo_set_source_rgba(cr, colour.r, colour.g, colour.b, alpha);
}

void text(cairo_t* cr, double x, double y, const std::string& value, double size, bool bold = false) {
  cairo_select_font_face(cr, "DejaVu Sans", CAIRO_FONT_SLANT_NORMAL,
                         bold ? CAIRO_FONT_WEIGHT_BOLD : CAIRO_FONT_WEIGHT_NORMAL);
  cairo_set_font_size(cr, size);
  cairo_move_to(cr, x, y);
  cairo_show_text(cr, value.c_str());
}

// A panel's frame with horizontal grid lines and their labels; maps values to the panel.
struct Panel {
  double top;
  double low;
  double high;
  double xCount;  // slots along x

  double x(double slot) const { return kLeft + (kWidth - kLeft - kRight) * (slot + 0.5) / xCount; }
  double y(double value) const { return top + kPanelHeight * (1 - (value - low) / (high - low)); }

  void frame(cairo_t* cr, const std::string& title, double step, const char* unit) const {
    setColour(cr, kInk);
    text(cr, kLeft, top - 12, title, 15, true);
    cairo_set_line_width(cr, 1);
    for (double v = std::ceil(low / step) * step; v <= high + 1e-9; v += step) {
      setColour(cr, kGrid);
      cairo_move_to(cr, kLeft, y(v));
      cairo_line_to(cr, kWidth - kRight, y(v));
      cairo_stroke(cr);
      setColour(cr, kInk);
      text(cr, 10, y(v) + 4, fmt::format("{:g}{}", v, unit), 11);
    }
  }
};

// A line through the present values; an absent value ends the current stretch.
void brokenLine(cairo_t* cr, const Panel& panel, const std::vector<std::optional<double>>& values, Colour colour,
                bool dashed) {
  setColour(cr, colour);
  cairo_set_line_width(cr, 2.5);
  const double dash[] = {6, 4};
  cairo_set_dash(cr, dash, dashed ? 2 : 0, 0);
  bool drawing = false;
  for (size_t i = 0; i < values.size(); ++i) {
    if (!values[i]) {
      if (drawing) cairo_stroke(cr);
      drawing = false;
      continue;
    }
    const double x = panel.x(static_cast<double>(i));
    const double y = panel.y(std::clamp(*values[i], panel.low, panel.high));
    if (drawing) {
      cairo_line_to(cr, x, y);
    } else {
      cairo_move_to(cr, x, y);
      drawing = true;
    }
  }
  if (drawing) cairo_stroke(cr);
  cairo_set_dash(cr, dash, 0, 0);
}

std::pair<double, double> rangeOf(const std::vector<HistoryComparisonMonthlySeries>& series, double step,
                                  double minimumLow) {
  double low = minimumLow;
  double high = minimumLow + step;
  for (const auto& s : series) {
    for (const auto& v : s.values) {
      if (!v) continue;
      low = std::min(low, *v);
      high = std::max(high, *v);
    }
  }
  return {std::floor(low / step) * step, std::ceil(high / step) * step};
}

void monthAxis(cairo_t* cr, const Panel& panel) {
  setColour(cr, kInk);
  for (int month = 0; month < 12; ++month) {
    text(cr, panel.x(month) - 4, panel.top + kPanelHeight + 16, std::string(1, kMonthInitials[month]), 11);
  }
}

Colour colourOf(HistoryComparisonPlaceRole role) {
  return role == HistoryComparisonPlaceRole::primary ? kPrimary : kComparison;
}

void legend(cairo_t* cr, const HistoryChart& chart) {
  setColour(cr, kPrimary);
  cairo_rectangle(cr, kLeft, 22, 14, 14);
  cairo_fill(cr);
  setColour(cr, kInk);
  text(cr, kLeft + 20, 34, chart.primaryName, 14, true);
  if (chart.comparisonName) {
    setColour(cr, kComparison);
    cairo_rectangle(cr, kLeft + 260, 22, 14, 14);
    cairo_fill(cr);
    setColour(cr, kInk);
    text(cr, kLeft + 280, 34, *chart.comparisonName, 14, true);
  }
}

void temperaturePanel(cairo_t* cr, const HistoryChart& chart) {
  const auto [low, high] = rangeOf(chart.temperature, 10, 0);
  const Panel panel{kPanelTops[0] + 20, low, high, 12};
  panel.frame(cr, "Temperature: monthly high (solid) and low (dashed)", 10, "°");
  for (const auto& series : chart.temperature) {
    brokenLine(cr, panel, series.values, colourOf(series.role),
               series.kind == HistoryComparisonMonthlySeriesKind::minimum);
  }
  monthAxis(cr, panel);
}

void precipitationPanel(cairo_t* cr, const HistoryChart& chart) {
  const auto [low, high] = rangeOf(chart.precipitation, 50, 0);
  const Panel panel{kPanelTops[1] + 20, 0, std::max(high, 50.0), 12};
  panel.frame(cr, "Precipitation per month (mm)", 50, "");
  const double slot = (kWidth - kLeft - kRight) / 12;
  const double barWidth = slot * 0.8 / std::max<size_t>(chart.precipitation.size(), 1);
  for (size_t s = 0; s < chart.precipitation.size(); ++s) {
    const auto& series = chart.precipitation[s];
    setColour(cr, colourOf(series.role), 0.85);
    for (size_t month = 0; month < series.values.size(); ++month) {
      if (!series.values[month]) continue;  // a gap, not a zero
      const double x = panel.x(static_cast<double>(month)) - slot * 0.4 + barWidth * static_cast<double>(s);
      const double top = panel.y(std::min(*series.values[month], panel.high));
      cairo_rectangle(cr, x, top, barWidth - 2, panel.y(0) - top);
      cairo_fill(cr);
    }
  }
  monthAxis(cr, panel);
}

void sunPanel(cairo_t* cr, const HistoryChart& chart) {
  const double days = static_cast<double>(std::max<size_t>(chart.sun.days.size(), 1));
  const Panel panel{kPanelTops[2] + 20, 0, 24, days};
  panel.frame(cr, fmt::format("Sunrise and sunset through {} ({})", chart.sun.referenceYear, kSunComparisonCaption), 6,
              "h");
  auto boundary = [&](const std::vector<SunHistoryBoundarySeriesPoint>& points, Colour colour, bool dashed) {
    std::vector<std::optional<double>> values(static_cast<size_t>(days));
    for (const auto& point : points) {
      const auto index = static_cast<size_t>(point.x);
      if (index < values.size()) values[index] = point.clockHour;
    }
    brokenLine(cr, panel, values, colour, dashed);
  };
  boundary(chart.sun.primaryBoundarySeries.sunrisePoints, kPrimary, false);
  boundary(chart.sun.primaryBoundarySeries.sunsetPoints, kPrimary, true);
  if (chart.comparisonName) {
    boundary(chart.sun.comparisonBoundarySeries.sunrisePoints, kComparison, false);
    boundary(chart.sun.comparisonBoundarySeries.sunsetPoints, kComparison, true);
  }
  // Name the polar seasons where a line breaks for them.
  auto mark = [&](const std::vector<DailySunTimes>& plotDays, Colour colour, double row) {
    for (const SunDaylightState state : {SunDaylightState::polarDay, SunDaylightState::polarNight}) {
      const auto first =
          std::find_if(plotDays.begin(), plotDays.end(), [&](const auto& d) { return d.daylightState == state; });
      if (first == plotDays.end()) continue;
      setColour(cr, colour);
      const double x = panel.x(static_cast<double>(first - plotDays.begin()));
      text(cr, std::min(x, kWidth - kRight - 110), panel.top + 14 + row * 14, std::string(sunDaylightStateLabel(state)),
           11);
    }
  };
  mark(chart.sun.primaryPlotDays, kPrimary, 0);
  if (chart.comparisonName) mark(chart.sun.comparisonPlotDays, kComparison, 1);
  setColour(cr, kInk);
  for (int month = 0; month < 12; ++month) {
    const double x = panel.x(static_cast<double>(daysFromCivil(CivilDate{chart.sun.referenceYear, month + 1, 1}) -
                                                 daysFromCivil(CivilDate{chart.sun.referenceYear, 1, 1})));
    text(cr, x, panel.top + kPanelHeight + 16, std::string(1, kMonthInitials[month]), 11);
  }
}

void draw(cairo_t* cr, const HistoryChart& chart) {
  cairo_set_source_rgb(cr, 1, 1, 1);
  cairo_paint(cr);
  legend(cr, chart);
  temperaturePanel(cr, chart);
  precipitationPanel(cr, chart);
  sunPanel(cr, chart);
}

}  // namespace

bool isHistoryChartFile(const std::filesystem::path& file) {
  const std::string extension = lowerExtension(file);
  return extension == ".png" || extension == ".svg";
}

void writeHistoryChart(const HistoryChart& chart, const std::filesystem::path& file) {
  const std::string extension = lowerExtension(file);
  std::string bytes;
  if (extension == ".svg") {
    SurfacePtr surface(cairo_svg_surface_create_for_stream(appendToString, &bytes, kWidth, kHeight),
                       cairo_surface_destroy);
    {
      ContextPtr cr(cairo_create(surface.get()), cairo_destroy);
      draw(cr.get(), chart);
      if (cairo_status(cr.get()) != CAIRO_STATUS_SUCCESS)
        throw std::runtime_error(cairo_status_to_string(cairo_status(cr.get())));
    }
    cairo_surface_finish(surface.get());
    if (cairo_surface_status(surface.get()) != CAIRO_STATUS_SUCCESS) {
      throw std::runtime_error(cairo_status_to_string(cairo_surface_status(surface.get())));
    }
  } else if (extension == ".png") {
    SurfacePtr surface(
        cairo_image_surface_create(CAIRO_FORMAT_RGB24, static_cast<int>(kWidth), static_cast<int>(kHeight)),
        cairo_surface_destroy);
    {
      ContextPtr cr(cairo_create(surface.get()), cairo_destroy);
      draw(cr.get(), chart);
      if (cairo_status(cr.get()) != CAIRO_STATUS_SUCCESS)
        throw std::runtime_error(cairo_status_to_string(cairo_status(cr.get())));
    }
    const cairo_status_t status = cairo_surface_write_to_png_stream(surface.get(), appendToString, &bytes);
    if (status != CAIRO_STATUS_SUCCESS) throw std::runtime_error(cairo_status_to_string(status));
  } else {
    throw std::invalid_argument("charts are written as .png or .svg, not \"" + file.filename().string() + "\"");
  }
  // Cairo keeps its font map and fontconfig's configuration for the life of the process; a
  // command draws once, so hand them back rather than leave them for the leak checker.
  cairo_debug_reset_static_data();
  FcFini();
  writeFileAtomically(file, bytes);
}

}  // namespace ombrine::app
