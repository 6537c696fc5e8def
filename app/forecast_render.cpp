#include "app/forecast_render.hpp"

#include <unicode/dtfmtsym.h>
#include <unicode/smpdtfmt.h>
#include <unicode/timezone.h>

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <memory>

#include "app/screen_text.hpp"
#include "app/terminal_text.hpp"
#include "core/record/weather_derived.hpp"
#include "core/values/air_quality.hpp"
#include "core/values/compass.hpp"
#include "core/values/value_format.hpp"
#include "history/daily_sun_times.hpp"
#include "history/sun_labels.hpp"
#include "tides/tide_summary.hpp"

namespace ombrine::app {

namespace {

struct Style {
  bool on;
  std::string bold(std::string_view text) const { return wrap("1", text); }
  std::string dim(std::string_view text) const { return wrap("2", text); }
  std::string warn(std::string_view text) const { return wrap("1;33", text); }
  std::string cyan(std::string_view text) const { return wrap("36", text); }

 private:
  std::string wrap(const char* code, std::string_view text) const {
    if (!on) return std::string(text);
    return fmt::format("\x1b[{}m{}\x1b[0m", code, text);
  }
};

// Formats instants in the place's own zone with a locale's pattern for a skeleton
// ("jm" = hour and minute as the locale writes them, "EEEd" = weekday and day).
class LocalDates {
 public:
  LocalDates(const icu::Locale& locale, const TimeZone& zone) {
    std::unique_ptr<icu::TimeZone> icuZone(
        icu::TimeZone::createTimeZone(icu::UnicodeString::fromUTF8(zone.identifier())));
    time_ = make("jm", locale, *icuZone);
    day_ = make("EEEd", locale, *icuZone);
    dayTime_ = make("MMMdjm", locale, *icuZone);
  }
  std::string time(Date date) const { return format(*time_, date); }
  std::string day(Date date) const { return format(*day_, date); }
  std::string dayTime(Date date) const { return format(*dayTime_, date); }

 private:
  static std::unique_ptr<icu::DateFormat> make(const char* skeleton, const icu::Locale& locale,
                                               const icu::TimeZone& zone) {
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::DateFormat> format(
        icu::DateFormat::createInstanceForSkeleton(icu::UnicodeString(skeleton), locale, status));
    if (U_FAILURE(status) || !format) {
      format.reset(icu::DateFormat::createDateTimeInstance(icu::DateFormat::kShort, icu::DateFormat::kShort, locale));
    }
    format->setTimeZone(zone);
    return format;
  }
  static std::string format(const icu::DateFormat& format, Date date) {
    icu::UnicodeString text;
    format.format(date.unixSeconds() * 1000.0, text);
    std::string out;
    text.toUTF8String(out);
    return out;
  }
  std::unique_ptr<icu::DateFormat> time_, day_, dayTime_;
};

// `text` in a column of `width` terminal columns: padded with spaces, or cut with an ellipsis,
// so that at least one space always separates it from the next column (wide CJK characters
// count two columns).
std::string pad(std::string_view text, size_t width) { return padRight(cutToWidth(text, width - 1), width); }

std::string condition(const std::vector<OneCallWeather::Glyph>& glyphs) {
  return glyphs.empty() ? std::string() : glyphs.front().description;
}

std::string_view severityWord(std::optional<WeatherSeverity> severity) {
  return severity ? weatherSeverityName(*severity) : "unknown";
}

}  // namespace

std::string renderForecast(const ForecastScreen& screen) {
  const OneCallWeather& weather = *screen.weather;
  const ValueFormatter& values = ValueFormatter::forLocale(screen.locale);
  const LocalDates dates(screen.locale, weather.timeZone);
  const Style style{screen.colour};
  auto temperature = [&](Temperature t) { return values.temperature(t, TemperatureWidth::narrow); };
  const MessageCatalog english;
  const ScreenText tr(screen.locale, screen.messages ? *screen.messages : english);
  auto sunLine = [&](Date sunrise, Date sunset) {
    return fmt::format("  {} {}  {} {}\n", tr("Sunrise"), dates.time(sunrise), tr("Sunset"), dates.time(sunset));
  };
  std::string out;

  // Place and provenance.
  out += style.bold(fmt::format("{}{}", screen.placeName, screen.regionCode.empty() ? "" : ", " + screen.regionCode));
  out += style.dim(fmt::format("  {}  {}", tr.coordinate(weather.lat, weather.lon, 3), weather.timeZone.identifier()));
  out += "\n";
  std::string attribution = screen.providerName;
  if (weather.attribution) {
    if (auto* name = std::get_if<WeatherServiceAttribution::NameAttribution>(&weather.attribution->source)) {
      attribution = name->serviceName;
      if (name->url) attribution += " (" + std::string(name->url->buffer()) + ")";
    }
  }
  out += style.dim(tr.format("Data: {} · as of {}", attribution, dates.dayTime(weather.current.dt))) + "\n\n";

  // Now.
  const auto& current = weather.current;
  out += style.bold(std::string(tr("Now")) + " ") + style.cyan(temperature(current.temp)) + "  " +
         condition(current.weather) + "  " + tr.format("feels like {}", temperature(current.feelsLike)) + "\n";
  std::string wind = fmt::format("  {} {} {}", tr("Wind"), values.speed(current.windSpeed),
                                 tr(abbreviation(compassDirection(current.windDeg))));
  if (current.windGust) wind += fmt::format(", {} {}", tr("gusts"), values.speed(*current.windGust));
  out += wind + "\n";
  std::string details = fmt::format("  {} {}  {} {}  {} {}", tr("Humidity"), tr.percent(current.humidity / 100.0),
                                    tr("Clouds"), tr.percent(current.clouds / 100.0), tr("UV"), tr.number(current.uvi));
  if (current.pressure) details += fmt::format("  {} {}", tr("Pressure"), values.pressure(*current.pressure));
  out += details + "\n";
  if (current.airQuality) {
    out += fmt::format("  {} {} ({})\n", tr("Air quality"), tr.number(current.airQuality->aqi),
                       tr(label(airQualityRange(current.airQuality->aqi))));
  }
  if (current.sunrise && current.sunset && *current.sunrise != *current.sunset) {
    out += sunLine(*current.sunrise, *current.sunset);
  } else if (const auto sun =
                 dailySunTimesContaining(current.dt, Location(weather.lat, weather.lon), weather.timeZone)) {
    // The provider has no sun times for the day (it repeats one instant for both): say why.
    if (const auto label = sunDaylightStateLabel(sun->daylightState); !label.empty()) {
      out += "  " + std::string(tr(label)) + "\n";
    } else if (sun->sunrise && sun->sunset) {
      out += sunLine(*sun->sunrise, *sun->sunset);
    }
  }
  if (expectsRainWithinHour(weather)) {
    out += style.warn("  " + std::string(tr("Precipitation expected within the hour"))) + "\n";
  }

  // The next hours.
  out += "\n" + style.bold(tr("Next hours")) + "\n";
  int shown = 0;
  for (const auto& hour : weather.hourly) {
    if (shown >= screen.hours) break;
    if (hour.dt + 3600.0 <= screen.now) continue;
    std::string what = hour.sunStateChange ? std::string(tr(hour.sunStateChange->label())) : condition(hour.weather);
    std::string amount;
    if (hour.snow && hour.snow->snowVolume.measurement > 0)
      amount = values.snow(hour.snow->snowVolume);
    else if (hour.rain && hour.rain->rainVolume.measurement > 0)
      amount = values.rain(hour.rain->rainVolume);
    out += "  " + pad(dates.time(hour.dt), 10) + pad(temperature(hour.temp), 7) + pad(what, 24) +
           pad(tr.percent(hour.pop), 6) + pad(amount, 9) + values.speed(hour.windSpeed) + "\n";
    ++shown;
  }

  // The days.
  out += "\n" + style.bold(tr("Days")) + "\n";
  // A day already over where the place is (Apia is a day ahead of most of the world) is not
  // listed: days count from the place's own today.
  auto localDay = [&weather](Date at) {
    return static_cast<long>(
        std::floor((at.timeIntervalSinceReferenceDate + weather.timeZone.secondsFromGMT(at)) / 86400.0));
  };
  const long today = localDay(screen.now);
  for (const auto& day : weather.daily) {
    if (localDay(day.dt) < today) continue;
    std::string amount;
    if (day.snow && day.snow->measurement > 0)
      amount = values.snow(*day.snow);
    else if (day.rain && day.rain->measurement > 0)
      amount = values.rain(*day.rain);
    out += "  " + pad(dates.day(day.dt), 9) + pad(temperature(day.temp.min) + " / " + temperature(day.temp.max), 14) +
           pad(condition(day.weather), 26) + pad(tr.percent(day.pop), 6) + amount + "\n";
  }

  // Warnings.
  if (weather.alerts && !weather.alerts->empty()) {
    out += "\n" + style.bold(tr("Warnings")) + "\n";
    for (const auto& alert : *weather.alerts) {
      std::string when = dates.dayTime(alert.start);
      if (alert.end) when += " – " + dates.dayTime(*alert.end);
      out += style.warn("  ! " + alert.event) + fmt::format(" ({})  {}\n", tr(severityWord(alert.severity)), when);
      if (!alert.senderName.empty()) out += style.dim("    " + alert.senderName) + "\n";
    }
  }
  if (weather.tideData) {
    if (auto tide = describeNextTide(*weather.tideData, screen.now, weather.timeZone, tr)) out += "\n" + *tide + "\n";
  }
  return out;
}

}  // namespace ombrine::app
