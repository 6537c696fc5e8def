#include "widget/widget_view.hpp"

#include <fmt/format.h>

#include <cmath>

#include "core/values/value_json.hpp"

namespace ombrine {

namespace {

struct Shown {
  std::string shortText;  // "3° Munich"
  std::string fullText;   // "Munich 3° Partly cloudy · 1°/5° · rain 60% in 3 h"
  std::string tooltip;    // several lines
  std::string state;      // "live", "stale", "missing"
  std::string icon;
  std::optional<double> temperature, ageSeconds;
};

std::string degrees(Temperature temperature, TemperatureUnit unit) {
  return fmt::format("{}°", std::lround(temperatureValue(temperature, unit)));
}

std::string waitText(double seconds) {
  return seconds < 3600 ? fmt::format("{} min", std::lround(seconds / 60))
                        : fmt::format("{} h", std::lround(seconds / 3600));
}

Shown show(const WidgetInput& input) {
  Shown shown;
  if (!input.weather) {
    shown.state = "missing";
    shown.shortText = "–°";
    shown.fullText = "no forecast cached yet";
    shown.tooltip = "No forecast cached yet: run ombrine forecast or ombrine serve";
    return shown;
  }
  const OneCallWeather& weather = *input.weather;
  const double age = std::max(0.0, input.now - weather.current.dt);
  shown.ageSeconds = age;
  shown.state = age > kWidgetStaleSeconds ? "stale" : "live";
  shown.temperature = temperatureValue(weather.current.temp, input.unit);
  const std::string sky = weather.current.weather.empty() ? "" : weather.current.weather.front().description;
  shown.icon = weather.current.weather.empty() ? "" : weather.current.weather.front().symbolName;
  shown.shortText = degrees(weather.current.temp, input.unit) + (input.placeName.empty() ? "" : " " + input.placeName);
  shown.fullText = fmt::format("{}{}{}", input.placeName.empty() ? "" : input.placeName + " ",
                               degrees(weather.current.temp, input.unit), sky.empty() ? "" : " " + sky);
  shown.tooltip = shown.fullText;
  if (!weather.daily.empty()) {
    const auto& today = weather.daily.front().temp;
    shown.fullText += fmt::format(" · {}/{}", degrees(today.min, input.unit), degrees(today.max, input.unit));
  }
  for (const auto& hour : weather.hourly) {
    const double wait = hour.dt - input.now;
    if (wait < -3600 || wait > 12 * 3600 || hour.pop < 0.5) continue;
    shown.fullText += fmt::format(" · rain {:.0f}% {}", hour.pop * 100, wait <= 0 ? "now" : "in " + waitText(wait));
    break;
  }
  if (input.nextTrip) shown.tooltip += "\nNext trip: " + *input.nextTrip;
  shown.tooltip += age < 90 ? "\nUpdated just now" : "\nUpdated " + waitText(age) + " ago";
  if (shown.state == "stale") shown.fullText += " (old)";
  return shown;
}

}  // namespace

std::optional<WidgetFormat> widgetFormatNamed(std::string_view name) noexcept {
  if (name == "text") return WidgetFormat::text;
  if (name == "json") return WidgetFormat::json;
  if (name == "waybar") return WidgetFormat::waybar;
  if (name == "i3blocks") return WidgetFormat::i3blocks;
  return std::nullopt;
}

std::string widgetOutput(const WidgetInput& input, WidgetFormat format) {
  const Shown shown = show(input);
  std::string out;
  JsonWriter writer(out);
  switch (format) {
    case WidgetFormat::text: return shown.fullText;
    case WidgetFormat::i3blocks:
      // full_text, short_text, colour: grey when old or missing.
      return fmt::format("{}\n{}\n{}", shown.fullText, shown.shortText, shown.state == "live" ? "#FFFFFF" : "#888888");
    case WidgetFormat::waybar:
      writer.beginObject();
      writer.key("text");
      writer.string(shown.shortText);
      writer.key("alt");
      writer.string(shown.icon);
      writer.key("tooltip");
      writer.string(shown.tooltip);
      writer.key("class");
      writer.string(shown.state);
      writer.endObject();
      return out;
    case WidgetFormat::json:
      writer.beginObject();
      writer.key("place");
      writer.string(input.placeName);
      writer.key("state");
      writer.string(shown.state);
      writer.key("text");
      writer.string(shown.fullText);
      if (shown.temperature) {
        writer.key("temperature");
        writer.number(std::round(*shown.temperature * 10) / 10);
        writer.key("unit");
        writer.string(input.unit == TemperatureUnit::celsius ? "C" : "F");
        writer.key("icon");
        writer.string(shown.icon);
        writer.key("ageSeconds");
        writer.integer(static_cast<std::int64_t>(*shown.ageSeconds));
      }
      if (input.nextTrip) {
        writer.key("nextTrip");
        writer.string(*input.nextTrip);
      }
      writer.endObject();
      return out;
  }
  return out;
}

}  // namespace ombrine
