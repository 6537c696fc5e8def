#pragma once
// What a status-bar widget shows: the place, its temperature and sky, today's range, the next
// hour with rain, and the next trip; in the forms status bars read (plain text, JSON, Waybar's
// custom-module JSON, i3blocks' three lines). A record older than two hours is shown as stale;
// no record at all says so.
//
// Pure functions; reentrant.

#include <optional>
#include <string>
#include <string_view>

#include "core/record/one_call_weather.hpp"
#include "core/values/date.hpp"
#include "core/values/unit_rules.hpp"

namespace ombrine {

enum class WidgetFormat { text, json, waybar, i3blocks };

// "text", "json", "waybar", "i3blocks"; nothing for any other name.
std::optional<WidgetFormat> widgetFormatNamed(std::string_view name) noexcept;

inline constexpr double kWidgetStaleSeconds = 2 * 3600;

struct WidgetInput {
  std::string placeName;
  const OneCallWeather* weather = nullptr;  // null: nothing cached yet
  Date now;
  TemperatureUnit unit = TemperatureUnit::celsius;
  std::optional<std::string> nextTrip;  // "Lisbon from 2026-12-01"
};

// One line (three for i3blocks), without the final newline.
std::string widgetOutput(const WidgetInput& input, WidgetFormat format);

}  // namespace ombrine
